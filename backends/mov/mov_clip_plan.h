#pragma once

#include <cstdint>
#include <vector>

#include "backends/mov/mov_facts.h"
#include "backends/mov/mov_track_samples.h"

// A clip as edits and descriptions make it, in samples of its track.
struct MovClipPlan {
    bool isGap = false;         // nothing is shown for that long
    std::uint64_t base = 0;     // the track's sample that is the clip's sample 0
    std::uint64_t samples = 0;  // of the clip's numbering that are there
    std::uint64_t in = 0;       // in the clip's numbering
    std::uint64_t length = 0;   // samples shown
    unsigned entry = 0;         // the sample description, from 0
};

// From edits and sample descriptions to clips. The first clip counts its samples from the start of the media, so that
// what an edit skips there is its precharge; each further clip counts from the first sample that it shows.
// An edit's times are those of showing; the samples' order is that of decoding. What is skipped counts from the time at
// which the first sample is shown.
namespace MovClipPlanner {

// Requires: the time scales of movie and media other than 0. `remarks` takes what isn't shown as it says.
std::vector<MovClipPlan> plan(const MovTrack& track, const MovTrackSamples& samples, std::uint32_t movieScale,
                              std::vector<std::string>& remarks);

}  // namespace MovClipPlanner
