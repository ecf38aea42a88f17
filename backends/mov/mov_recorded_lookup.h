#pragma once

#include <memory>

#include "backends/mov/mov_media_file.h"
#include "shared/include/index/media_offset_lookup.h"

// The index of a clip of a movie that is being recorded. Samples of several tracks lie in one file in the order in
// which they are entered. It tells a place only once the bytes are there.
// **Threads:** as `MediaOffsetLookup` says; readers and the adder take no lock of each other's. Adding takes memory
// from time to time, ever more rarely. **Owns:** a share of the samples' places and of the file's record.
class MovRecordedLookup final : public MediaOffsetLookup {
public:
    // `fixedSize` is 0 for samples that differ.
    MovRecordedLookup(const MediaClipDesc& clip, std::shared_ptr<MovRunIndex> index,
                      std::shared_ptr<MovMediaFile> file);

    const MediaClipDesc& getClip() const override { return m_clip; }
    unsigned long long getBaseOffset() const override;
    std::uint32_t getFixedSize() const override { return m_index->getFixedSize(); }
    // A quiet no for samples that aren't in the file yet. A block is cut where its third piece would begin.
    bool getMediaOffset(const MediaPlayReq& req, MediaSampleDesc& desc, OpResult& result) const override;
    // Samples follow the last ones, or are written again in their old place and size. A block of sound that starts up
    // to six samples off the end is moved onto it. Fails: false; warning 11 with a sentence for a size or a count that
    // can't be, 17 for a hole, error 1 for an offset other than the one that they get, unless the file isn't the
    // movie's own.
    bool addSamples(const MediaRecordReq& req, MediaSampleDesc& desc, OpResult& result) override;
    // Fails: warning 17.
    OpResult addEmptyEdit(unsigned long long samples) override;
    // What the parameters say of places is of another file.
    OpResult update(const MediaOffsetSummary&) override { return OpResult(OpResult::Ok); }
    OpResult updateNumSamples(unsigned long long) override { return OpResult(OpResult::Ok); }

private:
    bool refuse(const MediaRecordReq& req, OpResult& result) const;
    bool rewrite(const MediaRecordReq& req, MediaSampleDesc& desc, OpResult& result) const;
    bool append(const MediaRecordReq& req, std::uint64_t count, std::int64_t gap, MediaSampleDesc& desc,
                OpResult& result);
    bool place(const MediaRecordReq& req, std::uint64_t bytes, std::uint64_t& offset, OpResult& result) const;
    void describe(std::uint64_t sample, std::uint32_t count, MediaSampleDesc& desc) const;

    const MediaClipDesc& m_clip;  // borrowed: the clip outlives its lookup
    const std::shared_ptr<MovRunIndex> m_index;
    const std::shared_ptr<MovMediaFile> m_file;
};
