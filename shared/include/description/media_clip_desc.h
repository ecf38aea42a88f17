#pragma once

#include <cstdint>

#include "services/buffer/obuf.h"
#include "shared/include/description/media_enums.h"
#include "shared/include/description/relaxed.h"
#include "shared/include/index/sample_and_count.h"
#include "shared/include/object/media_agent.h"
#include "support/auto_ptr.h"
#include "support/fixed_point.h"
#include "support/op_result.h"
#include "support/visibility.h"

class FormatStr;
class MediaClipParam;
class MediaEditDesc;
class MediaIoBuf;
class MediaObj;
class MediaOffsetLookup;
class MediaSampleBuf;
class MediaTrackDesc;
struct MediaPlayReq;
struct MediaRecordReq;
struct MediaSampleDesc;
struct MediaSampleInMovie;

// A clip: a stretch of essence of one kind in one media file. Back-ends derive from it and supply track, lookup and
// edits.
//
// **Threads:** protected by its object's rules; what a reader may see while a recorder writes is a relaxed atomic.
// **Owns:** nothing: it belongs to its track, its media id points into the object's file list, its lookup is counted.
// **Units:** lengths in samples.
// **Defined in** mediautil/description/: clip.cpp (identity, parameters, text), clip_time.cpp (rates), clip_access.cpp
// (positions and filling); mediautil/validation/clip_validate.cpp.
class MO_PUBLIC MediaClipDesc {
public:
    enum class FillType : std::uint32_t { Black = 0, ForwardRepeat = 1, BackwardRepeat = 2 };

    explicit MediaClipDesc(MediaContainment container);
    // Copies the description. A copy isn't bound to a file yet, and has no param id.
    MediaClipDesc(const MediaClipDesc& other);
    MediaClipDesc& operator=(const MediaClipDesc&) = delete;
    virtual ~MediaClipDesc() = default;

    // The number of this clip's kind of media, computed on first use and kept for good: a back-end sets the parameters
    // first, and only then does anything ask.
    virtual std::uint32_t getParamId() const;
    virtual unsigned long long getLength() const;
    // Fills in `count` discriminators of the kind of media. Fails: false when the clip has none.
    virtual bool getExtraParam(unsigned int* extra, unsigned int count) const;
    virtual void setLength(unsigned long long samples);
    virtual void close() const;
    // Edits of the clip; 0 without an edit list.
    virtual unsigned int getEditCount() const = 0;
    virtual MediaEditDesc* getEdit(unsigned int index) = 0;
    virtual const MediaEditDesc* getEdit(unsigned int index) const = 0;
    // Place of the clip in its track.
    virtual unsigned int getClipIndex() const = 0;
    virtual MediaTrackDesc& getTrack() = 0;
    // The clip's index, or null. Gives: borrowed.
    virtual MediaOffsetLookup* getLookup() = 0;
    virtual const MediaTrackDesc& getTrack() const = 0;
    virtual const MediaOffsetLookup* getLookup() const = 0;
    // This clip; one that stands for another clip answers that.
    virtual MediaClipDesc& getRealClip();
    virtual const MediaClipDesc& getRealClip() const;
    // For a clip that stands for another one; the others take no notice.
    virtual void setRealClip(MediaClipDesc& clip);
    // Makes frames of this clip's kind, black or repeated, with the writer of that kind of essence. The times and the
    // flag are handed to the writer. Fails: false.
    virtual bool fill(FillType type, MediaSampleBuf& buf, FixedPoint<16> first, FixedPoint<16> second, bool flag) const;
    virtual bool fillBlack(MediaSampleBuf& buf, FixedPoint<16> first, FixedPoint<16> second, bool flag) const;
    virtual bool fillFwdRepeat(MediaSampleBuf& buf) const;
    virtual bool fillBakRepeat(MediaSampleBuf& buf) const;
    // Where the requested samples lie. The position is the movie's; the sync adjustment of the track is applied on the
    // way in and taken back on the way out.
    // Fails: false with the lookup's result; false with an ok result when there is no lookup.
    virtual bool getMediaOffset(const MediaPlayReq& req, MediaSampleInMovie& desc, OpResult& result) const;
    // The same by the lookup's getFrameInfo.
    virtual bool getFrameInfo(const MediaPlayReq& req, MediaSampleInMovie& desc, OpResult& result) const;
    // Whether essence of the other clip may follow this one's. Stricter than MediaClipParam::paramIdMatch.
    virtual bool canReceive(const MediaClipDesc& other) const;
    virtual SequenceCodingType getSequenceCoding() const;
    virtual bool isSlave() const;
    // The clip that rides on this one's samples, or null.
    virtual const MediaClipDesc* getSlaveClip() const;
    virtual MediaClipDesc* getSlaveClip();
    virtual void inheritVideoRate(MediaVideoRate rate);
    // For a clip that depends on the video rate; the others take no notice.
    virtual void setDefaultVideoRate(MediaVideoRate rate);
    // The samples of a video frame; the default answer without a lookup.
    virtual SampleAndCount getSampleAndCount(unsigned long long frame) const;
    // --- Recording; one thread at a time, no lock; defined in mediautil/index ----------------------------------------
    // Enters samples in the index; while the rollout is below its target they count towards it, otherwise they lengthen
    // the clip. Fails: false with Error 1 without an index, else with the index's result; false with an ok result
    // without edits. Nothing is changed then.
    virtual bool addSamples(const MediaRecordReq& req, MediaSampleDesc& desc, OpResult& result);
    // Lengthens the clip to that sample without essence. Fails: Warning 1 without edits or for a sample that isn't past
    // the out point, Error 1 without an index, else the index's.
    virtual OpResult addEmptyEdit(unsigned long long sample);
    // Enters the samples of the clip that rides on this one, if there is one.
    bool addSlaveSamples(const MediaRecordReq& req, const MediaSampleDesc& desc, OpResult& result);
    // Sets a length that only decoding has shown. Fails: false without edits.
    virtual bool updateDecodedLength(unsigned long long samples);
    // Links `next` behind this clip's index. Fails: false without one.
    virtual bool appendLookupChain(MediaOffsetLookup* next);
    virtual void setRollout(unsigned long long samples) { m_rollout = samples; }
    virtual void setTargetRollout(unsigned long long samples) { m_targetRollout = samples; }
    // Folds the rollout into the clip; from then on every sample added counts as rollout. With a rollout of 0 nothing
    // changes. Fails: Warning 1 without edits.
    virtual OpResult beginRollout();
    // What room is left for the clip, in its own ticks; for back-ends.
    virtual void adviseCapacity(unsigned long long ticks);
    // Tells the index what will be read next. Fails: Warning 1 without one, else the index's.
    virtual OpResult adviseLookAhead(const MediaPlayReq& req, bool flag, phantom_obAllocationId_t allocationId);
    // Moves the clip's ends, where a back-end can. Fails: false.
    virtual bool trim(unsigned int in, unsigned int out);
    virtual bool getInOut(unsigned int& in, unsigned int& out) const;
    // Looks at essence of this clip's kind, while a bit of `mediaValidate` is on. The base looks at PCM alone;
    // back-ends override it for what they know. Gives: array text of what was found; null or empty when all is well.
    // Thread: one at a time in the process, so that a checker may keep state.
    virtual AutoPtr<char> validate(phantom_OBUF* data) const;
    virtual AutoPtr<char> validate(const MediaIoBuf& data) const;

    // The object and description around the clip.
    MediaObj& getObj();
    const MediaObj& getObj() const;
    MediaDataType getType() const;
    MediaVideoRate getVideoRate() const;
    // The file type that is the natural home of this clip's essence.
    MediaFileType getFileType() const;

    // Samples a second.
    FixedPoint<16> getMediaRate() const;
    // A value in ticks of this clip (samples times ticks a sample) in units of `rate`, and back. Requires: rate above
    // 0. They multiply first whenever the product fits: the division then loses least. Inline: a walk over a track's
    // clips converts at each of them.
    FixedPoint<16> convertTo(FixedPoint<16> value, unsigned int rate) const {
        if (rate == m_sampleRate) return value;
        if (!value.checkProductOverflow(rate)) return value * rate / m_sampleRate;
        return value / m_sampleRate * rate;
    }
    FixedPoint<16> convertFrom(FixedPoint<16> value, unsigned int rate) const {
        if (rate == m_sampleRate) return value;
        if (!value.checkProductOverflow(m_sampleRate)) return value * m_sampleRate / rate;
        return value / rate * m_sampleRate;
    }
    FixedPoint<16> convertFrom(FixedPoint<16> value, FixedPoint<16> rate) const;
    // The whole length in units of `rate`.
    FixedPoint<16> convertTo(unsigned int rate) const;

    // Takes the description and passes sample sizes to the lookup and the rate to the track.
    // Fails: Warning 1 when type or rate contradict the track's, or without a lookup; nothing is changed.
    OpResult setParam(const MediaClipParam& param);

    // One line for logs. Gives: array text, owned by the caller.
    AutoPtr<char> toString() const;

    MediaIdRec* getMediaId() const { return m_mediaId; }
    MediaContainment getContainer() const { return m_container; }
    MediaEncodingType getEncoding() const { return m_encoding; }
    MediaChromaSample getChroma() const { return m_chroma; }
    MediaVideoScanType getVscan() const { return m_vscan; }
    unsigned int getSampleRate() const { return m_sampleRate; }
    unsigned int getTicksPerSample() const { return m_ticksPerSample; }
    unsigned int getMaxBitsPerSample() const { return m_maxBitsPerSample; }
    unsigned int getBitsPerUnit() const { return m_bitsPerUnit; }
    unsigned int getChannels() const { return m_channels; }
    MediaEndian getEndian() const { return m_endian; }
    unsigned int getBitrate() const { return m_bitrate; }
    unsigned int getMinSamples() const { return m_minSamples; }
    unsigned long long getRollout() const { return m_rollout; }
    unsigned long long getTargetRollout() const { return m_targetRollout; }

protected:
    mutable Relaxed<std::uint32_t> m_paramId{0};  // 0 until asked for; every thread computes the same
    MediaIdRec* m_mediaId = nullptr;              // the media file that holds the essence
    MediaContainment m_container;
    MediaEncodingType m_encoding = MediaEncodingType::Unknown;
    SequenceCodingType m_coding = SequenceCodingType::Intra;
    MediaChromaSample m_chroma = MediaChromaSample::None;
    MediaVideoScanType m_vscan = MediaVideoScanType::Unknown;
    std::uint32_t m_sampleRate = 1;        // samples in m_ticksPerSample seconds
    std::uint32_t m_ticksPerSample = 1;    // denominator of the rate
    std::uint32_t m_maxBitsPerSample = 0;  // largest sample, in bits
    std::uint32_t m_bitsPerUnit = 0;       // bits a unit of a sample
    std::uint32_t m_channels = 0;
    MediaEndian m_endian = MediaEndian::Big;
    std::uint32_t m_bitrate = 0;                     // bits a second
    std::uint32_t m_backEndParam = 2;                // carried and copied for back-ends
    std::uint32_t m_minSamples = 0;                  // fewest samples worth reading at once
    Relaxed<unsigned long long> m_rollout{0};        // samples past the out point
    Relaxed<unsigned long long> m_targetRollout{0};  // samples wanted past the out point
    Relaxed<unsigned long long> m_length{0};         // samples

private:
    MediaPlayReq prepareRead(const MediaPlayReq& req, MediaSampleInMovie& desc) const;
    void addRollout(unsigned long long samples);
    MediaClipDesc* createFillClip(MediaObj& scratch, OpResult& result) const;
    unsigned int kindDiscriminator(unsigned int extra) const;
    void describeAudio(FormatStr& text) const;
    void describeVideo(FormatStr& text) const;
};
