#include "backends/mov/mov_timecode.h"

#include "backends/mov/mov_track_samples.h"
#include "services/system/format_str.h"
#include "shared/include/description/media_clip_param.h"
#include "shared/include/object/core_subsystem.h"
#include "shared/include/object/media_obj.h"

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
    if (!isSane || !found->isSelf(entry)) return timecode;
    MovTrack track = *found;
    const MovTrackSamples samples(track, cache);
    MovSpot spot;
    std::uint8_t bytes[s_sampleSize];
    if (!samples.find(0, spot) || spot.size < sizeof bytes || !cache.read(spot.offset, bytes, sizeof bytes)) {
        return timecode;
    }
    const std::uint32_t counter =
        std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 | std::uint32_t{bytes[2]} << 8 | bytes[3];
    if (counter > 0x7FFFFFFF) return timecode;  // a time before midnight has no digits
    timecode.setCounter(static_cast<int>(counter), FixedPoint<16>(entry.tcScale) / entry.tcStep, entry.dropFrame);
    return timecode;
}

OpResult MovTimecode::tell(const MediaTimecode& timecode, MovToldTimecode& told) {
    constexpr int mostRate = 255;  // frames of a second are counted in a byte
    if (!timecode.isValid()) return MO_WARNING(MediaCode::InternalError, nullptr);
    MediaClipParam usual;
    usual.m_videoRate = MediaObj::getVideoRate(timecode.m_rate);
    const bool isWhole = timecode.m_rate == FixedPoint<16>(timecode.m_rate.intValue());
    if (usual.m_videoRate == MediaVideoRate::Unknown && (!isWhole || timecode.m_rate.intValue() > mostRate)) {
        const FormatStr text("mov: a timecode of %s frames a second can't be recorded",
                             timecode.m_rate.toString(3).get());
        return MO_WARNING(MediaCode::UnsupportedMediaType, text.get());
    }
    usual.m_sampleRate = timecode.m_rate.uint32Value();
    usual.m_ticksPerSample = 1;
    if (usual.m_videoRate != MediaVideoRate::Unknown) usual.initSampleRate(usual.m_videoRate).discard();
    told = MovToldTimecode();
    told.m_scale = usual.m_sampleRate;
    told.m_step = usual.m_ticksPerSample;
    told.m_counter = static_cast<std::uint32_t>(timecode.getCounter());
    // At other rates no frames are dropped, and players refuse a flag that says so.
    const int rate = timecode.m_rate.round().intValue();
    told.m_isDropFrame = timecode.m_dropFrame && (rate == 30 || rate == 60);
    return OpResult(OpResult::Ok);
}
