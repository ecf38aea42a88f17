#pragma once

#include "shared/include/index/media_offset_lookup.h"

// The index of a file whose samples all have one size: a place follows by multiplication. A back-end derives from it
// and supplies `getClip`. It also follows a file that is still being written.
// **Threads:** `getMediaOffset` runs on any thread and may move the summary's two growing numbers without a lock.
class MO_PUBLIC FixedMediaLookup : public MediaOffsetLookup {
public:
    explicit FixedMediaLookup(const MediaOffsetSummary& summary);

    unsigned long long getBaseOffset() const override;
    std::uint32_t getFixedSize() const override;
    // Past the end it asks the file whether it has grown. Fails: false with the failed open's result; false with an ok
    // result when the samples aren't there, and `desc` then tells where a request past the end would lie. A block of
    // which fewer than three samples are left is refused and leaves `desc` alone.
    bool getMediaOffset(const MediaPlayReq& req, MediaSampleDesc& desc, OpResult& result) const override;
    // A block whose start lies within six samples of the file's end is moved onto that end.
    // Fails: error 1 when the request's own offset differs from the computed one; the summary is unchanged.
    bool addSamples(const MediaRecordReq& req, MediaSampleDesc& desc, OpResult& result) override;
    OpResult update(const MediaOffsetSummary& summary) override;
    OpResult updateNumSamples(unsigned long long numSamples) override;

    // Samples in the index.
    virtual unsigned long long getNumSamples() const;

private:
    // Takes the number of samples from the file as it stands. Fails: false with the failed open's result.
    bool followFile(OpResult& result) const;
};
