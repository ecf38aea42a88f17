#pragma once

#include <atomic>
#include <cstdint>

#include "services/buffer/obuf.h"
#include "services/system/locks.h"
#include "shared/include/index/media_offset_summary.h"
#include "shared/include/index/sample_and_count.h"
#include "support/op_result.h"
#include "support/ref_count.h"
#include "support/visibility.h"

class MediaClipDesc;
class MediaPropertyList;
struct MediaPlayReq;
struct MediaReadReq;
struct MediaRecordReq;
struct MediaSampleDesc;

// The sample index of a clip: from a sample number to a place in a file, from a video frame to its samples, and from an
// added sample to its entry. Format back-ends derive from it.
// **Owns:** one reference to the next lookup of its chain, and the frame that it made. Reference counted; the maker holds
// the first reference, and a chain dies from its head to its tail. **Threads:** what is const runs on any thread; the
// chain and the record path belong to one thread at a time. **Locks:** m_frameNMutex, while the frame is made.
class MO_PUBLIC MediaOffsetLookup : public MediaOffsetSummary {
public:
    explicit MediaOffsetLookup(const MediaOffsetSummary& summary);
    MediaOffsetLookup(const MediaOffsetLookup&) = delete;
    MediaOffsetLookup& operator=(const MediaOffsetLookup&) = delete;
    virtual ~MediaOffsetLookup();

    // Closes what this lookup and those behind it hold open.
    virtual void close() const;
    // True for a part of an index that another part is to reach through its chain.
    virtual bool needToBeChained() const;
    virtual bool detach(const MediaClipDesc* clip);
    // Answers the new count. A count outside 2 to 100 is logged as a fault, and the reference is held all the same.
    virtual int preserve() const;
    // Answers the references that remain; the lookup is gone at 0.
    virtual int release() const;
    // The clip that owns this lookup.
    virtual const MediaClipDesc& getClip() const = 0;
    virtual int setParams(const MediaPropertyList& params);
    // Bytes from the file's start to sample 0.
    virtual unsigned long long getBaseOffset() const = 0;
    // Bytes a sample, or 0 when samples differ in size.
    virtual std::uint32_t getFixedSize() const = 0;
    // The samples of the clip that belong to a video frame.
    // Requires: ticks per sample other than 0 for a clip of AAC. Thread: any.
    virtual SampleAndCount getSampleAndCount(const MediaClipDesc& clip, unsigned long long frame) const;
    // The largest count that any frame of the clip can have, for sizing buffers; the sample is 0.
    virtual SampleAndCount getMaxSampleAndCount(const MediaClipDesc& clip) const;
    // True when `desc` tells where the samples lie. False with an ok `result` is a quiet no: past the end of the media.
    virtual bool getMediaOffset(const MediaPlayReq& req, MediaSampleDesc& desc, OpResult& result) const = 0;
    // As `getMediaOffset`, for a caller that wants what is known of the frame.
    virtual bool getFrameInfo(const MediaPlayReq& req, MediaSampleDesc& desc, OpResult& result) const;
    // Enters samples; `desc` tells where their bytes go.
    virtual bool addSamples(const MediaRecordReq& req, MediaSampleDesc& desc, OpResult& result);
    virtual OpResult addEmptyEdit(unsigned long long samples);
    // What will be read next; for back-ends. The base answers ok.
    virtual OpResult adviseLookAhead(const MediaPlayReq& req, bool flag, phantom_obAllocationId_t allocationId);
    // Links `next` behind the last lookup of this chain, if it asks to be chained. Takes: a further reference.
    virtual bool appendChainedLookup(MediaOffsetLookup* next);
    virtual OpResult update(const MediaOffsetSummary& summary) = 0;
    // Fails: warning 1 unless a derived class gives the operation a meaning.
    virtual OpResult updateNumSamples(unsigned long long numSamples);
    virtual MediaOffsetSummary getSummary() const;
    virtual bool getAncillarySummary(MediaOffsetSummary& summary, unsigned int& size) const;

    // For a back-end's `getMediaOffset`: what to read for the frame just past the clip's last, which is the last anchor
    // again or, with the "synth frame n" switch, a black frame that is made once and kept. Only a client whose property
    // FrameN is other than 0 gets one. True when `desc` tells it; false with an ok result when this is no such request.
    // Fails: false with Error 1. Thread: any.
    bool getMediaOffsetFrameN(const MediaClipDesc& clip, const MediaPlayReq& req, MediaSampleDesc& desc,
                              OpResult& result) const;
    // Gives: the black frame as a buffer of the caller's own, or null when none was made.
    phantom_OBUF* getFrameNObufCopy(const MediaReadReq& req) const;

    // Releases a lookup that may be null, and answers 0 for null.
    static int release(const MediaOffsetLookup* lookup) { return lookup ? lookup->release() : 0; }

protected:
    // Hands the request on along the chain; true with an ok result at its end.
    bool chainedAddSamples(const MediaRecordReq& req, MediaSampleDesc& desc, OpResult& result);

private:
    class FrameNData;

    bool repeatLastAnchor(const MediaClipDesc& clip, const MediaPlayReq& req, MediaSampleDesc& desc,
                          OpResult& result) const;
    bool placeBlackFrame(const MediaClipDesc& clip, const MediaPlayReq& req, MediaSampleDesc& desc,
                         OpResult& result) const;
    FrameNData* makeFrameN(const MediaClipDesc& clip, const MediaPlayReq& req) const;

    mutable RefCount m_refCount;
    MediaOffsetLookup* m_chained;  // counted; null at the end of the chain
    // Owned; set once, under m_frameNMutex, and then for good. Release and acquire: whoever sees it sees it built.
    mutable std::atomic<FrameNData*> m_frameN{nullptr};
    mutable ZarnexPosix::JMutex m_frameNMutex;
};
