#pragma once

#include "backends/mov/mov_facts.h"
#include "backends/mov/mov_table_cache.h"
#include "backends/mov/mov_told_movie.h"
#include "support/op_result.h"

// The timecode of a movie's first frame, which is the first sample of its timecode track.
namespace MovTimecode {

constexpr unsigned s_sampleSize = 4;  // bytes of a sample, a count of frames

// Looks for the timecode track that the first video track names, or for the first one there is. Gives: an invalid
// timecode for a movie without one, and for a track that only counts.
MediaTimecode read(const MovMovie& movie, const MovTableCache& cache);

// What a recorded file is to tell of it. Fails: warning 1 for one that isn't valid, 8 for a rate that isn't one of the
// usual ones or a whole number.
OpResult tell(const MediaTimecode& timecode, MovToldTimecode& told);

}  // namespace MovTimecode
