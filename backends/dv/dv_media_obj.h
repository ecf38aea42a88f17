#pragma once

#include <atomic>
#include <utility>

#include "backends/dv/dv_format.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_property.h"
#include "shared/include/description/media_timecode.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/fixed_media_lookup.h"
#include "shared/include/index/media_sample_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/object/media_obj.h"

class DvMediaObj;
class DvTrack;

// Stores the frame whose sound is asked for, whole as the cadence cuts it, however long the stream is. Fails: false.
bool findFrameOfSound(const MediaOffsetLookup& lookup, const DvSystem& system, const MediaPlayReq& sound,
                      unsigned long long& frame);

// Whether a picture may be shown behind the clip's last frame. Sound ends where it ends, for no anchor stands for a
// block of samples, and what is being recorded has no last frame yet.
bool hasLastFrame(const MediaClipDesc& clip);

// The index of DV frames, for the video and for the sound in them: an entry is a whole frame. The sound of a frame is
// found in that frame; other blocks of samples fall to the nearest frame by the base class. A client that asks for it
// gets the frame behind the last one.
template <class Lookup>
class DvIndex : public Lookup {
public:
    template <class... Arguments>
    explicit DvIndex(const DvSystem& system, Arguments&&... arguments)
        : Lookup(std::forward<Arguments>(arguments)...), m_system(system) {}

    bool getMediaOffset(const MediaPlayReq& req, MediaSampleDesc& desc, OpResult& result) const override {
        if (findPlace(req, desc, result)) return true;
        return result && hasLastFrame(this->getClip()) &&
               this->getMediaOffsetFrameN(this->getClip(), req, desc, result);
    }

private:
    bool findPlace(const MediaPlayReq& req, MediaSampleDesc& desc, OpResult& result) const {
        MediaPlayReq whole = req;
        if (!findFrameOfSound(*this, m_system, req, whole.m_sample)) return Lookup::getMediaOffset(req, desc, result);
        whole.m_count = 1;
        const bool found = Lookup::getMediaOffset(whole, desc, result);
        if (!result) return false;
        desc.m_count = req.m_count;
        desc.m_sample = req.m_sample;
        desc.m_anchor = req.m_sample;
        return found;
    }

    const DvSystem& m_system;  // for ever
};

// The index of a DV stream. It follows a stream that grows, and never past the place where another system follows.
class DvLookup : public FixedMediaLookup {
public:
    DvLookup(const MediaOffsetSummary& place, std::uint64_t maxFrames, const MediaClipDesc& clip)
        : FixedMediaLookup(place), m_clip(clip), m_maxFrames(maxFrames) {}

    const MediaClipDesc& getClip() const override { return m_clip; }
    OpResult updateNumSamples(unsigned long long frames) override;

private:
    const MediaClipDesc& m_clip;           // borrowed: the clip outlives its lookup
    const unsigned long long m_maxFrames;  // all ones while there is no end
};

// A clip of DV: the frames themselves, or the sound in them, whose samples lie in the frames that they belong to.
class DvClip : public MediaClipDesc {
public:
    // Makes a clip of what a stream says. Requires: a format that has been checked.
    DvClip(DvTrack& track, const DvFormat& format, MediaIdRec* file);
    ~DvClip() override;

    unsigned getEditCount() const override { return 0; }
    MediaEditDesc* getEdit(unsigned) override { return nullptr; }
    const MediaEditDesc* getEdit(unsigned) const override { return nullptr; }
    unsigned getClipIndex() const override { return 0; }
    MediaTrackDesc& getTrack() override;
    MediaOffsetLookup* getLookup() override { return m_lookup; }
    const MediaTrackDesc& getTrack() const override;
    const MediaOffsetLookup* getLookup() const override { return m_lookup; }
    // Sound rides on the frames of the video.
    bool isSlave() const override;
    using MediaClipDesc::getSlaveClip;
    const MediaClipDesc* getSlaveClip() const override;
    // One black frame with silence, whatever the times. Fails: false without memory.
    bool fillBlack(MediaSampleBuf& buf, FixedPoint<16> first, FixedPoint<16> second, bool flag) const override;
    // Each frame stands alone, so the repeat of the frame in the buffer is that frame. Fails: false when the buffer
    // holds none of this system.
    bool fillFwdRepeat(MediaSampleBuf& buf) const override;
    bool fillBakRepeat(MediaSampleBuf& buf) const override;
    // Neither the frames nor the sound in them are plain samples, and no bit of `mediaValidate` asks for more.
    AutoPtr<char> validate(phantom_OBUF*) const override { return AutoPtr<char>(nullptr); }
    AutoPtr<char> validate(const MediaIoBuf&) const override { return AutoPtr<char>(nullptr); }

protected:
    // What the derived clip gives its index itself, and then describes.
    struct WithoutLookup {};
    DvClip(DvTrack& track, const DvFormat& format, MediaIdRec* file, WithoutLookup);
    // Requires: an index.
    void describe(const DvFormat& format);

    static MediaOffsetSummary summaryOf(const DvFormat& format);

    MediaOffsetLookup* m_lookup = nullptr;  // one reference

private:
    void describeVideo(const DvFormat& format);
    void describeAudio(const DvFormat& format);

    DvTrack& m_track;          // borrowed: the owner
    const DvSystem& m_system;  // for ever
    const DvAudio m_audio;     // of the frames
};

// The video track or the audio track of a DV movie, with one clip at most.
class DvTrack final : public MediaTrackDesc {
public:
    // A track without a clip yet.
    DvTrack(DvMediaObj& obj, MediaDataType type, unsigned index) : MediaTrackDesc(type), m_obj(obj), m_index(index) {}
    // The same, described. Requires: a format that has been checked.
    DvTrack(DvMediaObj& obj, MediaDataType type, unsigned index, const DvFormat& format);
    // The track of a stream. Requires: a format that has been checked.
    DvTrack(DvMediaObj& obj, MediaDataType type, unsigned index, const DvFormat& format, MediaIdRec* file);
    ~DvTrack() override;

    using MediaTrackDesc::createClip;
    // Makes the one clip of a track that a movie without a file was asked for. Fails: null; warning 17 when there is a
    // clip or the movie has a file that isn't recorded, 8 when no system of DV fits, else what the parameters' check
    // says.
    MediaClipDesc* createClip(const MediaClipParam& param, OpResult& result) override;
    MediaObj& getObj() override;
    const MediaObj& getObj() const override;
    unsigned getClipCount() const override { return m_clip != nullptr ? 1 : 0; }
    MediaClipDesc* getClip(unsigned index) override { return index == 0 ? m_clip.load() : nullptr; }
    const MediaClipDesc* getClip(unsigned index) const override { return index == 0 ? m_clip.load() : nullptr; }
    unsigned getTrackIndex() const override { return m_index; }
    const MediaPropertyList& getProperties() const override { return m_properties; }
    MediaPropertyList& getPropertiesForUpd() override { return m_properties; }
    FixedPoint<16> getMaxTime() const override { return getMaxLength(); }
    // Counts exactly, however long the stream is.
    unsigned long long getFrameLength() const override;
    // Makes it as long as another track, to the tick.
    void alignTo(const MediaTrackDesc& other) { m_length = other.getLength(); }

    const DvMediaObj& getDvObj() const { return m_obj; }
    bool isPro() const;

private:
    DvMediaObj& m_obj;  // borrowed: the owner
    const unsigned m_index;
    MediaParams m_properties;
    std::atomic<DvClip*> m_clip{nullptr};  // owned; set once
    unsigned m_ticks = 1;                  // of the movie's time base, a frame
};

// A raw DV stream as a movie: a video track, and an audio track when the frames carry sound. Its time base counts every
// frame exactly. Without a file it makes tracks and clips of DV for others, which fill with its frames.
class DvMediaObj : public MediaObj {
public:
    // Takes the file into the movie's list. Requires: a format that has been checked.
    DvMediaObj(AutoRefPtr<BasicFileIO> file, const DvFormat& format);
    // A movie without a file.
    DvMediaObj();
    ~DvMediaObj() override;

    // The reader that is registered. Fails: null with the sentence that says why.
    static MediaObj* openFile(AutoRefPtr<BasicFileIO> file, OpResult& result);
    // The registered maker of movies without a file.
    static MediaObj* openObject(MediaFileType type, OpResult& result);

    using MediaObj::createTrack;
    MediaMovieDesc* getMovieDesc() override { return getDesc(); }
    const MediaMovieDesc* getMovieDesc() const override { return getDesc(); }
    unsigned getTrackCount() const override { return m_trackCount; }
    const MediaTrackDesc* getTrackAt(unsigned index) const override;
    MediaTrackDesc* getTrackAt(unsigned index) override;
    // Fails: null; warning 17 when the movie has a file or such a track, 8 for what isn't DV.
    MediaTrackDesc* createTrack(const MediaClipParam& param, OpResult& result) override;
    bool isStream() const override { return false; }
    MediaTimecode getTimecode() const override { return m_timecode; }
    // Counts exactly, however long the stream is.
    unsigned long long getFrameLength() const override;

    bool hasFile() const { return m_hasFile; }
    // The clip of the track of that kind, or null.
    const MediaClipDesc* clipOf(MediaDataType type) const;
    // A clip for a track of a movie with a file. Gives: null and warning 17 unless the movie is recorded.
    virtual DvClip* makeClip(DvTrack& track, const MediaClipParam& param, OpResult& result);

protected:
    // A movie for writing, without a track yet.
    explicit DvMediaObj(AutoRefPtr<BasicFileIO> file);

    // The track of that kind, or null.
    DvTrack* trackOf(MediaDataType type) const;
    // Takes: the track. Requires: none of its kind. Thread: any number may read the movie already.
    void install(DvTrack* track);

private:
    static constexpr unsigned s_maxTracks = 2;

    DvTrack* m_tracks[s_maxTracks] = {};  // owned; set before they count
    std::atomic<unsigned> m_trackCount{0};
    const bool m_hasFile;
    MediaTimecode m_timecode;  // of the first frame
};
