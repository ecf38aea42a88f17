#pragma once

#include <cstdint>

#include "backends/mov/mov_clip_plan.h"
#include "backends/mov/mov_track_samples.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/index/media_offset_lookup.h"
#include "shared/include/index/sample_info.h"

// When a sample is decoded and when it is shown, in ticks of its track's media.
struct MovSampleTime {
    std::uint64_t decoded = 0;
    std::int64_t shown = 0;
};

// The index of a clip of a movie file: the clip's stretch of its track's samples, found in the file's tables. Samples
// are numbered as the tables have them, which is the order of decoding.
// A request is answered with what lies in two stretches of the file: it may get fewer samples than it asked for.
// The coding type of a sample is I where the tables say so; for the others `getFrameInfo`, and `getMediaOffset` with
// the request's flag set, look at the picture's own header, and point a B at the I or P before it.
// **Threads:** any number. **Owns:** nothing; the track outlives it.
class MovLookup final : public MediaOffsetLookup {
public:
    MovLookup(const MovTrackSamples& samples, const MovClipPlan& plan, unsigned lengthBytes, const MediaClipDesc& clip);

    const MediaClipDesc& getClip() const override { return m_clip; }
    unsigned long long getBaseOffset() const override { return m_baseOffset; }
    std::uint32_t getFixedSize() const override { return m_sampleSize; }
    bool getMediaOffset(const MediaPlayReq& req, MediaSampleDesc& desc, OpResult& result) const override;
    bool getFrameInfo(const MediaPlayReq& req, MediaSampleDesc& desc, OpResult& result) const override;
    // Fails: warning 17; what a finished file says stands.
    OpResult update(const MediaOffsetSummary& summary) override;

    // Fails: false past the end, and where the tables can't be read.
    bool getSampleTime(unsigned long long sample, MovSampleTime& time) const;

private:
    static MediaOffsetSummary summaryOf(const MovTrackSamples& samples, const MovClipPlan& plan);
    bool findPlaces(const MediaPlayReq& req, MediaSampleDesc& desc) const;
    void findAnchor(const MediaPlayReq& req, MediaSampleDesc& desc) const;
    SampleCodingType typeOf(const MediaPlayReq& req, unsigned long long sample) const;
    bool isVideo() const;

    const MovTrackSamples& m_samples;  // borrowed: the track's
    const MediaClipDesc& m_clip;       // borrowed: the clip outlives its lookup
    const std::uint64_t m_base;        // the track's sample that is sample 0
    const unsigned m_lengthBytes;
    const bool m_isAllSync;
};
