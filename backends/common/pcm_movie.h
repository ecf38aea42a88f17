#pragma once

#include <atomic>

#include "backends/common/own_params.h"
#include "backends/common/pcm_format.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_property.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/fixed_media_lookup.h"
#include "shared/include/object/media_obj.h"

class PcmMovie;
class PcmTrack;

// The index of an audio file. It follows essence that grows, and never past what a finished file claims, for other
// chunks may stand behind it.
class PcmLookup final : public FixedMediaLookup {
public:
    PcmLookup(const MediaOffsetSummary& summary, unsigned long long maxSamples, const MediaClipDesc& clip);

    const MediaClipDesc& getClip() const override { return m_clip; }
    OpResult updateNumSamples(unsigned long long numSamples) override;

private:
    const MediaClipDesc& m_clip;            // borrowed: the clip outlives its lookup
    const unsigned long long m_maxSamples;  // all ones while the file doesn't say
};

// The one clip of an audio file.
class PcmClip : public MediaClipDesc {
public:
    PcmClip(PcmTrack& track, const PcmFormat& format, MediaIdRec* file);
    ~PcmClip() override;

    unsigned getEditCount() const override { return 0; }
    MediaEditDesc* getEdit(unsigned) override { return nullptr; }
    const MediaEditDesc* getEdit(unsigned) const override { return nullptr; }
    unsigned getClipIndex() const override { return 0; }
    MediaTrackDesc& getTrack() override;
    MediaOffsetLookup* getLookup() override { return m_lookup; }
    const MediaTrackDesc& getTrack() const override;
    const MediaOffsetLookup* getLookup() const override { return m_lookup; }

protected:
    // What the derived clip gives its index itself.
    struct WithoutLookup {};
    PcmClip(PcmTrack& track, const PcmFormat& format, MediaIdRec* file, WithoutLookup);

    static MediaOffsetSummary summaryOf(const PcmFormat& format);

    PcmTrack& m_track;            // borrowed: the owner
    MediaOffsetLookup* m_lookup;  // one reference
};

// The one track of an audio file, counted in samples: the movie's time base is the sample rate.
class PcmTrack final : public MediaTrackDesc {
public:
    PcmTrack(PcmMovie& obj, const PcmFormat& format, MediaIdRec* file);
    // A track without a clip yet.
    explicit PcmTrack(PcmMovie& obj) : MediaTrackDesc(MediaDataType::Audio), m_obj(obj) {}
    ~PcmTrack() override;

    using MediaTrackDesc::createClip;
    // Makes the one clip of a track that is to be recorded. Fails: null; warning 17 when there is one, else the
    // movie's.
    MediaClipDesc* createClip(const MediaClipParam& param, OpResult& result) override;
    MediaObj& getObj() override;
    const MediaObj& getObj() const override;
    unsigned getClipCount() const override { return m_clip != nullptr ? 1 : 0; }
    MediaClipDesc* getClip(unsigned index) override { return index == 0 ? m_clip.load() : nullptr; }
    const MediaClipDesc* getClip(unsigned index) const override { return index == 0 ? m_clip.load() : nullptr; }
    unsigned getTrackIndex() const override { return 0; }
    FixedPoint<16> getMaxTime() const override { return getMaxLength(); }

private:
    PcmMovie& m_obj;                        // borrowed: the owner
    std::atomic<PcmClip*> m_clip{nullptr};  // owned; set once
};

// A file of audio samples as a movie: one track of one clip.
class PcmMovie : public MediaObj {
public:
    // Takes the file into the movie's list. Requires: a format that has been checked.
    PcmMovie(AutoRefPtr<BasicFileIO> file, MediaFileType type, const PcmFormat& format);
    ~PcmMovie() override;

    // Opens a handle for a parser. Fails: a warning that begins with the format's name, for one that may write too.
    static OpResult openForParse(BasicFileIO& file, const char* formatName);

    using MediaObj::createTrack;
    using MediaObj::getProperties;
    MediaMovieDesc* getMovieDesc() override { return getDesc(); }
    const MediaMovieDesc* getMovieDesc() const override { return getDesc(); }
    unsigned getTrackCount() const override { return m_track != nullptr ? 1 : 0; }
    const MediaTrackDesc* getTrackAt(unsigned index) const override { return index == 0 ? m_track.load() : nullptr; }
    MediaTrackDesc* getTrackAt(unsigned index) override { return index == 0 ? m_track.load() : nullptr; }
    // Fails: null and warning 17; the file has its one track.
    MediaTrackDesc* createTrack(const MediaClipParam& param, OpResult& result) override;
    bool isStream() const override { return false; }
    const MediaPropertyList& getProperties() const override { return m_properties; }

    // A clip for a track of this movie that has none. Gives: null and warning 17 unless the movie is recorded.
    virtual PcmClip* makeClip(PcmTrack& track, const MediaClipParam& param, OpResult& result);

protected:
    // A movie for writing, without a track yet.
    PcmMovie(AutoRefPtr<BasicFileIO> file, MediaFileType type);
    // A movie without a file.
    explicit PcmMovie(MediaFileType type);

    // Takes: the track. Thread: any number may read the movie already.
    void install(PcmTrack* track) { m_track = track; }

    OwnParams m_properties;

private:
    std::atomic<PcmTrack*> m_track{nullptr};  // owned; set once
};
