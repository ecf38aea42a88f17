#pragma once

#include "backends/mov/mov_facts.h"
#include "backends/mov/mov_table_cache.h"

// The timecode of a movie's first frame, from the first sample of its timecode track.
namespace MovTimecode {

// Looks for the timecode track that the first video track names, or for the first one there is. Gives: an invalid
// timecode for a movie without one, and for a track that only counts.
MediaTimecode read(const MovMovie& movie, const MovTableCache& cache);

}  // namespace MovTimecode
