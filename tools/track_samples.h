#pragma once

#include <string>
#include <vector>

#include "tools/track_units.h"

class MediaClipDesc;
class MediaTrackDesc;

// The samples that a track shows, counted through its clips from 0.
class TrackSamples final : public TrackUnits {
public:
    explicit TrackSamples(const MediaTrackDesc& track);

    const char* name() const override { return "sample"; }
    unsigned long long count() const override { return m_count; }
    unsigned long long bytesOf(unsigned long long from, unsigned long long count) const override;
    bool locate(unsigned long long at, unsigned long long most, unsigned bytes, Stretch& stretch,
                std::optional<Failure>& failure) const override;

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
