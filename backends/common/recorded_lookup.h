#pragma once

#include <cstdint>
#include <memory>

#include "backends/common/recorded_essence.h"
#include "shared/include/index/fixed_media_lookup.h"

// The index of a clip that is being recorded. It tells a place only once the bytes are there, and it never asks the
// file, which is ahead of no recorder. Its end stays within what the format can hold.
// **Threads:** as `FixedMediaLookup` says. **Owns:** a share of the essence's record.
class RecordedLookup : public FixedMediaLookup {
public:
    // Whether the clip's samples ride in the entries of another clip, whose numbers its own are not.
    enum class Riding : bool { No, Yes };

    // `name` begins the sentences of refusals and lives for ever; `largestEnd` is where the file's format ends.
    RecordedLookup(const char* name, const MediaOffsetSummary& summary, std::uint64_t largestEnd,
                   const MediaClipDesc& clip, std::shared_ptr<RecordedEssence> essence, Riding riding = Riding::No)
        : FixedMediaLookup(summary),
          m_name(name),
          m_riding(riding),
          m_largestEnd(largestEnd),
          m_clip(clip),
          m_essence(std::move(essence)) {}

    const MediaClipDesc& getClip() const override { return m_clip; }
    // A quiet no for samples that aren't in the file yet.
    bool getMediaOffset(const MediaPlayReq& req, MediaSampleDesc& desc, OpResult& result) const override;
    // Fails: warning 11 with a sentence for a block of no samples, a single one of another size than the format's, and
    // for what passes the format's end.
    bool addSamples(const MediaRecordReq& req, MediaSampleDesc& desc, OpResult& result) override;
    // Fails: warning 17; no header tells of a hole.
    OpResult addEmptyEdit(unsigned long long samples) override;
    // What the file has is no news to the one who writes it.
    OpResult updateNumSamples(unsigned long long) override { return OpResult(OpResult::Ok); }

private:
    bool refuse(const MediaRecordReq& req, OpResult& result) const;

    const char* const m_name;
    const Riding m_riding;
    const std::uint64_t m_largestEnd;
    const MediaClipDesc& m_clip;  // borrowed: the clip outlives its lookup
    const std::shared_ptr<RecordedEssence> m_essence;
};
