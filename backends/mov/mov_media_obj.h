#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "backends/mov/mov_clip_plan.h"
#include "backends/mov/mov_facts.h"
#include "backends/mov/mov_lookup.h"
#include "backends/mov/mov_table_cache.h"
#include "backends/mov/mov_track_samples.h"
#include "backends/mov/mov_user_data.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_property.h"
#include "shared/include/description/media_timecode.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_edit_desc.h"
#include "shared/include/object/media_obj.h"

class MovMediaObj;
class MovTrackDesc;

// Samples a second as a fraction.
struct MovRate {
    std::uint32_t samples = 1;
    std::uint32_t ticks = 1;
};

// A clip of a movie file: one edit, of one sample description, in one media file.
class MovClip final : public MediaClipDesc {
public:
    // `file` is null for a gap and for a reference that leads nowhere.
    MovClip(MovTrackDesc& track, unsigned index, const MovTrackSamples& samples, const MovClipPlan& plan,
            const MovEntry& entry, MovRate rate, MediaIdRec* file, MediaContainment container);
    ~MovClip() override { m_lookup->release(); }

    unsigned getEditCount() const override { return 1; }
    MediaEditDesc* getEdit(unsigned index) override { return index == 0 ? &m_edit : nullptr; }
    const MediaEditDesc* getEdit(unsigned index) const override { return index == 0 ? &m_edit : nullptr; }
    unsigned getClipIndex() const override { return m_index; }
    MediaTrackDesc& getTrack() override;
    MediaOffsetLookup* getLookup() override { return m_lookup; }
    const MediaTrackDesc& getTrack() const override;
    const MediaOffsetLookup* getLookup() const override { return m_lookup; }

    // For who wants to know when a sample is decoded and shown.
    const MovLookup& getMovLookup() const { return *m_lookup; }

private:
    void describe(const MovTrackSamples& samples, const MovEntry& entry);

    MovTrackDesc& m_track;  // borrowed: the owner
    const unsigned m_index;
    MediaEditDesc m_edit;
    MovLookup* m_lookup = nullptr;  // one reference
};

// A track of a movie file.
class MovTrackDesc final : public MediaTrackDesc {
public:
    MovTrackDesc(MovMediaObj& obj, unsigned index, MovTrack& track, const MovTableCache& cache);

    using MediaTrackDesc::createClip;
    // Fails: null and warning 17; a finished movie is as it is.
    MediaClipDesc* createClip(const MediaClipParam& param, OpResult& result) override;
    MediaObj& getObj() override;
    const MediaObj& getObj() const override;
    unsigned getClipCount() const override { return static_cast<unsigned>(m_clips.size()); }
    MediaClipDesc* getClip(unsigned index) override { return index < m_clips.size() ? m_clips[index].get() : nullptr; }
    const MediaClipDesc* getClip(unsigned index) const override {
        return index < m_clips.size() ? m_clips[index].get() : nullptr;
    }
    unsigned getTrackIndex() const override { return m_index; }
    const MediaPropertyList& getProperties() const override { return m_properties; }
    MediaPropertyList& getPropertiesForUpd() override { return m_properties; }
    FixedPoint<16> getMaxTime() const override { return getMaxLength(); }

    const MovTrackSamples& getSamples() const { return m_samples; }
    // Makes the clips. Requires: once, when the movie knows its time base.
    void makeClips(MovTrack& track, const MovMovie& movie, const MovTableCache& cache, std::uint64_t fileLength,
                   std::vector<std::string>& remarks);

private:
    void lookAtPictures(MovTrack& track, const std::vector<MovClipPlan>& plans, const MovTableCache& cache);
    void describePicture(const MovEntry& entry, const MovTrack& track);

    MovMediaObj& m_obj;  // borrowed: the owner
    const unsigned m_index;
    MediaParams m_properties;
    MovTrackSamples m_samples;
    std::vector<std::unique_ptr<MovClip>> m_clips;
};

// A movie file (`.mov`, `.mp4`) as a movie. A track of timecode isn't shown as a track: it is the movie's timecode.
// The sample tables stay in the file.
class MovMediaObj : public MediaObj {
public:
    // Takes the file into the movie's list. Requires: facts that have been checked.
    MovMediaObj(AutoRefPtr<BasicFileIO> file, MovMovie& movie, std::unique_ptr<MovTableCache> cache);
    ~MovMediaObj() override;

    // The reader that is registered. Fails: null with the sentence that says why.
    static MediaObj* openFile(AutoRefPtr<BasicFileIO> file, OpResult& result);

    using MediaObj::createTrack;
    MediaMovieDesc* getMovieDesc() override { return getDesc(); }
    const MediaMovieDesc* getMovieDesc() const override { return getDesc(); }
    unsigned getTrackCount() const override { return static_cast<unsigned>(m_tracks.size()); }
    const MediaTrackDesc* getTrackAt(unsigned index) const override {
        return index < m_tracks.size() ? m_tracks[index].get() : nullptr;
    }
    MediaTrackDesc* getTrackAt(unsigned index) override {
        return index < m_tracks.size() ? m_tracks[index].get() : nullptr;
    }
    // Fails: null and warning 17; a finished movie is as it is.
    MediaTrackDesc* createTrack(const MediaClipParam& param, OpResult& result) override;
    bool isStream() const override { return false; }
    bool canHaveRefMedia() const override { return true; }
    MediaTimecode getTimecode() const override { return m_timecode; }
    OpResult rename(const char* newPath, bool renameMedia, Namer* namer) override;
    // The references to the file, or all of them when the movie itself moves, are written anew. Fails: also warning 17
    // for a movie with more in it than is looked at, unless it stays in its folder.
    OpResult renameMediaId(MediaIdRec* id, const char* path) override;
    using MediaObj::getProperties;
    const MediaPropertyList& getProperties() const override { return m_properties; }
    const UserDataSet* getUserDataMovie() const override { return m_userData.get(); }
    UserDataSet* getUserDataMovie(bool make) override { return m_userData.get(make); }
    // Of a movie that was opened for writing the identifier and the clip properties go into its file at once, and are
    // as they were where that fails. Of another the clip properties change in this object alone. Besides these and
    // the references nothing of a finished movie can be changed.
    // Fail: warning 5 unless writable, and as `MovUserDataEditor`.
    OpResult generateUmid() override;
    // Fails: also warning 2 when the other movie has no identifier.
    OpResult setProxyUmid(const MediaObj& other) override;

    // The file that a sample description refers to; null for one that leads nowhere, which a remark then names.
    MediaIdRec* mediaOf(const MovTrack& track, const MovEntry& entry, bool& isEmbedded,
                        std::vector<std::string>& remarks);
    // Bytes of that file, which is opened and closed for them. Requires: a description whose media lie in another file.
    // Fails: false when they can't be read.
    bool readReferred(const MovTrack& track, const MovEntry& entry, std::uint64_t offset, void* target, unsigned size);

private:
    static std::uint32_t timeBaseOf(const MovMovie& movie);
    void tellLengths();
    void readUserData(const MovMovie& movie);
    OpResult keep(UserDataEnum::KeyKind key);
    OpResult changeUmid(const std::function<OpResult()>& change);
    OpResult changeClipProperties(const char* names);

    std::unique_ptr<MovTableCache> m_cache;
    std::vector<std::unique_ptr<MovTrackDesc>> m_tracks;
    bool m_isPartial = false;  // there is more in the file than is known here
    MediaTimecode m_timecode;  // of the first frame
    MovUserData m_userData;
    MovProperties m_properties;
};
