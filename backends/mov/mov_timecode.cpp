#include "backends/mov/mov_timecode.h"

#include "backends/mov/mov_track_samples.h"

namespace {

const MovTrack* findTrack(const MovMovie& movie) {
    const MovTrack* first = nullptr;
    std::uint32_t wanted = 0;
    for (const MovTrack& track : movie.tracks) {
        if (track.type == MediaDataType::Video && wanted == 0) wanted = track.timecodeTrack;
    }
    for (const MovTrack& track : movie.tracks) {
        if (track.handler != MovAtom::s_tmcd || track.entries.empty()) continue;
        if (track.id == wanted) return &track;
        if (first == nullptr) first = &track;
    }
    return first;
}

}  // namespace

MediaTimecode MovTimecode::read(const MovMovie& movie, const MovTableCache& cache) {
    constexpr std::uint32_t mostRate = 1000;
    MediaTimecode timecode;
    const MovTrack* found = findTrack(movie);
    if (found == nullptr) return timecode;
    const MovEntry& entry = found->entries.front();
    const bool isSane = entry.tcStep != 0 && entry.tcScale / entry.tcStep < mostRate && !entry.isCounter;
    const bool isSelf = entry.reference >= found->references.size() || found->references[entry.reference].isSelf;
    if (!isSane || !isSelf) return timecode;
    MovTrack track = *found;
    const MovTrackSamples samples(track, cache);
    MovSpot spot;
    std::uint8_t bytes[4];
    if (!samples.find(0, spot) || spot.size < sizeof bytes || !cache.read(spot.offset, bytes, sizeof bytes)) {
        return timecode;
    }
    const std::uint32_t counter =
        std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 | std::uint32_t{bytes[2]} << 8 | bytes[3];
    if (counter > 0x7FFFFFFF) return timecode;  // a time before midnight has no digits
    timecode.setCounter(static_cast<int>(counter), FixedPoint<16>(entry.tcScale) / entry.tcStep, entry.dropFrame);
    return timecode;
}
