#pragma once

#include <optional>
#include <string>
#include <vector>

#include "shared/include/index/media_sample_desc.h"
#include "tools/failure.h"

class MediaClipDesc;
class MediaTrackDesc;

// The samples that a track shows, counted through its clips from 0.
class TrackSamples {
public:
    explicit TrackSamples(const MediaTrackDesc& track);

    unsigned long long count() const { return m_count; }
    // Where samples from `at` on lie: at most `most`, and at most `bytes` of them where their size is known, but one at
    // least. Requires: `at` below count(), `most` above 0. Fails: false with the reason.
    bool locate(unsigned long long at, unsigned long long most, unsigned bytes, MediaSampleInMovie& where,
                std::optional<Failure>& failure) const;

private:
    // Samples of one clip without a gap.
    struct Span {
        const MediaClipDesc* m_clip;
        unsigned long long m_at;     // in the track
        unsigned long long m_first;  // in the clip
        unsigned long long m_count;
    };

    void add(const MediaClipDesc& clip, unsigned long long first, unsigned long long count);
    const Span& spanAt(unsigned long long at) const;

    std::string m_path;  // of the movie, for failures
    std::vector<Span> m_spans;
    unsigned long long m_count = 0;
};
