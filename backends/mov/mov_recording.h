#pragma once

#include <memory>
#include <string>

#include "backends/common/recorded_movie.h"
#include "backends/mov/mov_growing_table.h"
#include "backends/mov/mov_recorded_lookup.h"
#include "backends/mov/mov_user_data.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_property.h"
#include "shared/include/description/media_timecode.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_edit_desc.h"
#include "shared/include/object/media_obj.h"

class MovRecordedTrack;
class MovRecordedMovie;

// A clip of a movie that is being recorded: one edit on samples of its own.
class MovRecordedClip final : public MediaClipDesc {
public:
    MovRecordedClip(MovRecordedTrack& track, unsigned index, const MediaClipParam& param,
                    std::shared_ptr<MovMediaFile> file);
    ~MovRecordedClip() override;

    unsigned getEditCount() const override { return 1; }
    MediaEditDesc* getEdit(unsigned index) override { return index == 0 ? &m_edit : nullptr; }
    const MediaEditDesc* getEdit(unsigned index) const override { return index == 0 ? &m_edit : nullptr; }
    unsigned getClipIndex() const override { return m_index; }
    MediaTrackDesc& getTrack() override;
    const MediaTrackDesc& getTrack() const override;
    MediaOffsetLookup* getLookup() override { return m_lookup; }
    const MediaOffsetLookup* getLookup() const override { return m_lookup; }
    // The edit has been changed by then: what it shows is noted for the file.
    void setLength(unsigned long long samples) override;

    const std::shared_ptr<MovRunIndex>& getRuns() const { return m_runs; }
    const std::shared_ptr<MovClipSpan>& getSpan() const { return m_span; }

private:
    MovRecordedTrack& m_track;  // borrowed: the owner
    const unsigned m_index;
    MediaEditDesc m_edit;
    const std::shared_ptr<MovRunIndex> m_runs;
    const std::shared_ptr<MovClipSpan> m_span;
    MovRecordedLookup* const m_lookup;  // one reference
};

// A track of a movie that is being recorded. **Owns:** its clips.
class MovRecordedTrack final : public MediaTrackDesc {
public:
    MovRecordedTrack(MovRecordedMovie& obj, unsigned index, const MediaClipParam& param);
    ~MovRecordedTrack() override;

    using MediaTrackDesc::createClip;
    // Fails: null; warning 5 unless writable, 8 for another kind than the track's, else the movie's.
    MediaClipDesc* createClip(const MediaClipParam& param, OpResult& result) override;
    MediaObj& getObj() override;
    const MediaObj& getObj() const override;
    unsigned getClipCount() const override { return static_cast<unsigned>(m_clips.size()); }
    MediaClipDesc* getClip(unsigned index) override { return index < m_clips.size() ? m_clips.get(index) : nullptr; }
    const MediaClipDesc* getClip(unsigned index) const override {
        return index < m_clips.size() ? m_clips.get(index) : nullptr;
    }
    unsigned getTrackIndex() const override { return m_index; }
    FixedPoint<16> getMaxTime() const override { return getMaxLength(); }
    const MediaPropertyList& getProperties() const override { return m_properties; }
    MediaPropertyList& getPropertiesForUpd() override { return m_properties; }

    const MediaClipParam& getKind() const { return m_kind; }

private:
    MovRecordedMovie& m_obj;  // borrowed: the owner
    const unsigned m_index;
    const MediaClipParam m_kind;
    MediaParams m_properties;
    MovGrowingTable<MovRecordedClip*> m_clips;  // owned
};

// The writes of a movie and the files that they go to.
// **Threads:** writes belong to one thread at a time, files are added by one. **Locks:** those of the recorders.
class MovRecorder {
public:
    MovRecorder(AutoRefPtr<BasicFileIO> file, const std::string& path) : m_keeper(file, path) {}
    ~MovRecorder();

    MovIndexKeeper& getKeeper() { return m_keeper; }
    // The movie's own file, laid out on first use. Fails: null.
    std::shared_ptr<MovMediaFile> getOwn(MediaIdRec* id, OpResult& result);
    // Enters another file. Fails: null.
    std::shared_ptr<MovMediaFile> addFile(MediaIdRec* id, const std::string& path, AutoRefPtr<BasicFileIO> file,
                                          OpResult& result);
    // Null for a file that nothing is recorded in.
    MovMediaFile* find(MediaIdRec* id) const;

    // As `Recorder`'s.
    OpResult write(MediaObj& movie, const MediaSampleInMovie& sample, const MediaIoBuf& buf);
    OpResult write(MediaObj& movie, const MediaSampleInMovie& sample, phantom_OBUF* obuf);
    OpResult update();
    OpResult finish();
    void end();

private:
    template <class Buffer>
    OpResult writeTo(MediaObj& movie, const MediaSampleInMovie& sample, Buffer buffer);

    MovIndexKeeper m_keeper;
    MovGrowingTable<std::shared_ptr<MovMediaFile>*> m_files;  // owned
};

// The tracks and the files of a movie that is being recorded.
class MovRecordedMovie : public MediaObj {
public:
    ~MovRecordedMovie() override;

    using MediaObj::createTrack;
    using MediaObj::getProperties;
    MediaMovieDesc* getMovieDesc() override { return getDesc(); }
    const MediaMovieDesc* getMovieDesc() const override { return getDesc(); }
    unsigned getTrackCount() const override { return static_cast<unsigned>(m_tracks.size()); }
    const MediaTrackDesc* getTrackAt(unsigned index) const override {
        return index < m_tracks.size() ? m_tracks.get(index) : nullptr;
    }
    MediaTrackDesc* getTrackAt(unsigned index) override {
        return index < m_tracks.size() ? m_tracks.get(index) : nullptr;
    }
    // Fails: null; warning 5 unless writable, 8 for what can't be recorded.
    MediaTrackDesc* createTrack(const MediaClipParam& param, OpResult& result) override;
    bool isStream() const override { return false; }
    bool canHaveRefMedia() const override { return true; }
    const MediaPropertyList& getProperties() const override { return m_properties; }
    const UserDataSet* getUserDataMovie() const override { return m_userData.get(); }
    UserDataSet* getUserDataMovie(bool make) override { return m_userData.get(make); }
    using MediaObj::setTimecode;
    // That of the first frame; it takes the place of the one before. The file has it, the identifier and the clip
    // properties from its next update on. Fails: warning 5 unless writable, 1 for one that isn't valid, 8 for a rate
    // that can't be recorded.
    OpResult setTimecode(const MediaTimecode& timecode) override;
    MediaTimecode getTimecode() const override { return m_timecode; }
    OpResult generateUmid() override;
    // Fails: warning 2 when the other movie has no identifier.
    OpResult setProxyUmid(const MediaObj& other) override;

    // The file for a further clip of the track. Fails: null.
    virtual std::shared_ptr<MovMediaFile> openMedia(const MovRecordedTrack& track, OpResult& result) = 0;
    virtual MovRecorder& recorder() = 0;

protected:
    explicit MovRecordedMovie(AutoRefPtr<BasicFileIO> file);

private:
    void takeRate(const MediaClipParam& param);
    OpResult keepUserData(OpResult result);

    MovUserData m_userData;
    MovProperties m_properties;
    MediaTimecode m_timecode;  // of the first frame

    MovGrowingTable<MovRecordedTrack*> m_tracks;  // owned
};

// A movie that is being recorded, with its samples in its own file or in files beside it, one for each clip, named by
// the namer. It describes itself as the file will when it is read; its time base is one that all its tracks' ticks fit.
class MovRecording final : public RecordedMovie<MovRecordedMovie, MovRecorder> {
public:
    // What the registered creator does. Fails: as `Recorder::createFile`, and warning 17 for mixed containment.
    static MediaObj* create(const char* path, OpResult& result, MediaContainment containment, MediaFileType type,
                            bool morph, BasicIOTypes::SizeAdvice advice, const char* style);

    std::shared_ptr<MovMediaFile> openMedia(const MovRecordedTrack& track, OpResult& result) override;
    MovRecorder& recorder() override { return getRecorder(); }
    // The references to the file, or all of them when the movie itself moves, are written anew.
    OpResult renameMediaId(MediaIdRec* id, const char* path) override;

private:
    MovRecording(AutoRefPtr<BasicFileIO> file, const std::string& path, bool isByRef);

    std::shared_ptr<MovMediaFile> createMedia(const MovRecordedTrack& track, OpResult& result);

    const bool m_isByRef;
    unsigned m_mediaCount = 0;  // files beside the movie
};
