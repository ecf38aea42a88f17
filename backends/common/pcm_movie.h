#pragma once

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
    PcmLookup(const PcmFormat& format, const MediaClipDesc& clip);

    const MediaClipDesc& getClip() const override { return m_clip; }
    OpResult updateNumSamples(unsigned long long numSamples) override;

private:
    const MediaClipDesc& m_clip;            // borrowed: the clip outlives its lookup
    const unsigned long long m_maxSamples;  // all ones while the file doesn't say
};

// The one clip of an audio file.
class PcmClip final : public MediaClipDesc {
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

private:
    PcmTrack& m_track;    // borrowed: the owner
    PcmLookup* m_lookup;  // one reference
};

// The one track of an audio file, counted in samples: the movie's time base is the sample rate.
class PcmTrack final : public MediaTrackDesc {
public:
    PcmTrack(PcmMovie& obj, const PcmFormat& format, MediaIdRec* file);

    using MediaTrackDesc::createClip;
    // Fails: null and warning 17; the file has its one clip.
    MediaClipDesc* createClip(const MediaClipParam& param, OpResult& result) override;
    MediaObj& getObj() override;
    const MediaObj& getObj() const override;
    unsigned getClipCount() const override { return 1; }
    MediaClipDesc* getClip(unsigned index) override { return index == 0 ? &m_clip : nullptr; }
    const MediaClipDesc* getClip(unsigned index) const override { return index == 0 ? &m_clip : nullptr; }
    unsigned getTrackIndex() const override { return 0; }
    FixedPoint<16> getMaxTime() const override { return getMaxLength(); }

private:
    PcmMovie& m_obj;  // borrowed: the owner
    PcmClip m_clip;
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
    const MediaTrackDesc* getTrackAt(unsigned index) const override { return index == 0 ? m_track : nullptr; }
    MediaTrackDesc* getTrackAt(unsigned index) override { return index == 0 ? m_track : nullptr; }
    // Fails: null and warning 17; the file has its one track.
    MediaTrackDesc* createTrack(const MediaClipParam& param, OpResult& result) override;
    bool isStream() const override { return false; }
    const MediaPropertyList& getProperties() const override { return m_properties; }

protected:
    MediaParams m_properties;

private:
    PcmTrack* m_track = nullptr;  // owned
};
