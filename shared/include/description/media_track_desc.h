#pragma once

#include <cstdint>

#include "shared/include/description/aspect_ratio.h"
#include "shared/include/description/media_enums.h"
#include "shared/include/description/media_property.h"
#include "shared/include/description/relaxed.h"
#include "shared/include/object/media_agent.h"
#include "support/fixed_point.h"
#include "support/op_result.h"
#include "support/visibility.h"

class MediaClipDesc;
class MediaClipParam;
class MediaObj;
struct MediaRecordReq;
struct MediaSampleDesc;
struct MediaSampleInMovie;

// A track: one stream of a single data type, made of clips end to end. Back-ends derive from it and store its clips.
//
// **Threads:** protected by its object's rules; what a reader may see while a recorder writes is a relaxed atomic.
// **Owns:** nothing here; the back-end owns the clips. **Units:** lengths in ticks of the movie's time base.
// **Defined in** mediautil/description/: track.cpp (facts), track_clips.cpp (walks over the clips), track_param.cpp.
class MO_PUBLIC MediaTrackDesc {
public:
    // Tag: an unknown aspect ratio is to be guessed from the height.
    struct GuessUnknownAspect {};

    explicit MediaTrackDesc(MediaDataType type = MediaDataType::Unknown) : m_type(type) {}
    MediaTrackDesc(const MediaTrackDesc&) = delete;
    MediaTrackDesc& operator=(const MediaTrackDesc&) = delete;
    virtual ~MediaTrackDesc() = default;

    // Closes each clip.
    virtual void close() const;
    // Makes a clip of these parameters. Gives: borrowed from the track, or null with the reason.
    virtual MediaClipDesc* createClip(const MediaClipParam& param, OpResult& result) = 0;
    // Makes a clip like another one. Fails: null and Error 17 unless embedded; a back-end that can refer overrides it.
    virtual MediaClipDesc* createClip(const MediaClipDesc& source, MediaContainment containment, OpResult& result);
    virtual MediaObj& getObj() = 0;
    virtual const MediaObj& getObj() const = 0;
    virtual unsigned int getClipCount() const = 0;
    virtual MediaClipDesc* getClip(unsigned int index) = 0;
    virtual const MediaClipDesc* getClip(unsigned int index) const = 0;
    // Place of the track in its object.
    virtual unsigned int getTrackIndex() const = 0;
    // Copies a clip with its essence. Fails: null and Warning 1; a back-end that can copy overrides it.
    virtual MediaClipDesc* copyClip(const MediaClipDesc& source, OpResult& result);
    // Where the essence of the clips lies, Mixed when they differ; kept once there is essence.
    virtual MediaContainment getContainment() const;
    // The bag for reading and for writing; an empty one that takes nothing in the base class. Gives: borrowed.
    virtual const MediaPropertyList& getProperties() const;
    virtual MediaPropertyList& getPropertiesForUpd();
    virtual OpResult setProperty(const MediaProperty& property);
    // Of the first clip: its encoding, or Unknown; its samples a second, or 1.
    virtual MediaEncodingType getEncoding() const;
    virtual FixedPoint<16> getMediaRate() const;
    // Takes the rate if the track has none, and passes it on to the object in any case.
    virtual void inheritVideoRate(MediaVideoRate rate);
    // Tells the clips, unless the track has another rate of its own.
    virtual void setDefaultVideoRate(MediaVideoRate rate);
    // The one media file behind all clips, or null.
    virtual MediaIdRec* commonId() const;
    // The clip at a time in ticks of the movie's time base, and where that clip starts. A time within half a sample
    // before a clip belongs to it, and so does one within the last half sample of the clip before; a time past the end
    // belongs to the last clip. Null with a start of 0 without clips and below zero.
    virtual const MediaClipDesc* clipAt(FixedPoint<16> time, FixedPoint<16>& clipStart) const;
    virtual MediaClipDesc* clipAt(FixedPoint<16> time, FixedPoint<16>& clipStart);
    virtual bool isSlave() const;
    // The track that rides on this one's samples, or null.
    virtual MediaTrackDesc* getSlaveTrack();
    // The longest time that this track can hold, in seconds.
    virtual FixedPoint<16> getMaxTime() const = 0;
    // Frames of the movie's rate.
    virtual unsigned long long getFrameLength() const;
    // Seconds.
    virtual FixedPoint<16> getDuration() const;
    virtual MediaAspectRatio getAspectRatio() const;
    virtual MediaAspectRatio getAspectRatio(GuessUnknownAspect) const;
    // Answer whether the ratio changed.
    virtual bool setAspectRatio(MediaAspectRatio ratio);
    virtual bool setAspectRatio(MediaAspectRatio ratio, AspectRatio::ViaAFD via);

    // --- Recording; one thread at a time, no lock; defined in mediautil/index ----------------------------------------
    // Enters samples at the end of the last clip and says in `desc` where their bytes go; those of a slave track go
    // along. Fails: false with Error 1 without a clip, else with the clip's result; false with an ok result when the
    // movie isn't writable or the clip has no edits. The master's samples stay when the slave's fail; the
    // recovery is the caller's.
    virtual bool addSamples(const MediaRecordReq& req, MediaSampleInMovie& desc, OpResult& result);
    // Lengthens the last clip to that sample without essence. Fails: Warning 5 unless writable, Error 1 without a clip,
    // else the clip's.
    virtual OpResult addEmptyEdit(unsigned long long sample);
    // Enters the samples that ride on a master's; its sample is taken for a frame.
    virtual bool addSlaveSamples(const MediaClipDesc& master, const MediaRecordReq& req, const MediaSampleDesc& desc,
                                 OpResult& result);
    // Sets a length that only decoding has shown. In ticks of the movie's time base.
    virtual bool updateDecodedLength(unsigned long long ticks);
    // Makes the first samples of the first clip its precharge; what they take comes off the clip's length, and then off
    // its rollout. Fails: Warning 1 for frames above 0 without a clip or its edit.
    virtual OpResult setPrecharge(unsigned int frames);
    // Frames before the in point; the first answer is kept while the clip has length.
    unsigned int getPrecharge() const;
    // Samples that are added to the last clip from now on count as rollout up to so many frames.
    // Fails: Warning 1 without a clip, Warning 5 unless recording or writable.
    virtual OpResult setTargetRollout(unsigned int frames);
    // Folds the last clip's rollout into the clip. Fails: Warning 5 and 1 as above.
    virtual OpResult beginRollout();
    // Tells the last clip what room is left of a recording of that time, in ticks of the movie's time base.
    virtual void adviseCapacity(unsigned long long capacity);

    // The track's own rate, or the movie's standard. Inline: every frame of audio asks for it.
    MediaVideoRate getVideoRate() const {
        const MediaVideoRate own = m_videoRate;
        return own != MediaVideoRate::Unknown ? own : getMovieStandard();
    }
    MediaDataType getDataType() const { return m_type; }
    // Ticks of the movie's time base.
    unsigned long long getLength() const { return m_length; }
    unsigned int getWidth() const { return m_width; }
    unsigned int getHeight() const { return m_height; }
    // What file and active format data say, both.
    AspectRatio getAspect() const { return m_aspect; }
    // Seconds that a 64-bit count of the first clip's samples can name; 0 without clips.
    FixedPoint<16> getMaxLength() const;

    // What the first clip is, with this track's picture and properties; a default record without a clip or its lookup.
    MediaClipParam getParam() const;
    // Take the kind of essence. Properties of a single clip stay behind.
    // Fails: Warning 1 once the track has essence, or when the other track's type differs; nothing is changed.
    OpResult setParam(const MediaClipParam& param);
    OpResult setParam(const MediaTrackDesc& other);

    // The property of that name, or null. Gives: borrowed until the bag changes.
    const MediaProperty* getProperty(MediaPropertyEnum::Name name) const;
    VbiMaskProperty get(MediaPropertyEnum::VbiMask) const;

    // Frames added to every position that is asked for.
    int getSyncAdjustment() const { return m_syncAdjust; }
    void setSyncAdjustment(int frames) { m_syncAdjust = frames; }

    static constexpr bool isProxy(unsigned int height) { return height < 480; }
    static constexpr bool isHighDef(unsigned int height) { return height >= 720; }
    bool isProxy() const { return isProxy(m_height); }
    bool isHighDef() const { return isHighDef(m_height); }

protected:
    static constexpr std::uint32_t s_unknownPrecharge = 0xFFFFFFFF;

    MediaDataType m_type;
    Relaxed<MediaVideoRate> m_videoRate{MediaVideoRate::Unknown};                // unknown: the movie's
    Relaxed<std::int32_t> m_syncAdjust{0};                                       // frames
    mutable Relaxed<MediaContainment> m_containment{MediaContainment::Unknown};  // kept answer of getContainment
    Relaxed<unsigned long long> m_length{0};                                     // ticks of the movie's time base
    mutable Relaxed<std::uint32_t> m_prechargeFrames{s_unknownPrecharge};        // kept answer of getPrecharge
    std::uint32_t m_width = 0;                                                   // pixels a line
    std::uint32_t m_height = 0;                                                  // lines a frame
    AspectRatio m_aspect;

private:
    void growBy(const MediaClipDesc& clip, unsigned long long before);
    const MediaClipDesc* clipBeforeLast(FixedPoint<16> time, unsigned int count, FixedPoint<16>& start) const;
    const MediaClipDesc* clipBehindSeam(FixedPoint<16> time, unsigned int count, FixedPoint<16>& start) const;
    MediaVideoRate getMovieStandard() const;
    unsigned int getTimeBase() const;
    void takePropertiesOf(const MediaPropertyList& bag);
};
