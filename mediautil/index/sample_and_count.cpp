#include "mediautil/index/cadence.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_offset_lookup.h"
#include "shared/include/object/media_obj.h"

namespace {

// Frames that are tried for the largest count. Each table has its largest among them, and the bound is fixed whatever
// the cadence's period is.
constexpr unsigned s_probedFrames = 5;

// The edges of a frame in the clip's clock, on even samples.
struct FrameEdges {
    FrameEdges(const MediaClipDesc& clip, MediaVideoRate videoRate, unsigned long long frame) {
        const FixedPoint<16> rate = MediaObj::getRealVideoRate(videoRate);
        m_start = Cadence::evenEdge(clip.convertFrom(FixedPoint<16>(frame), rate).uint64Value());
        m_end = Cadence::evenEdge(clip.convertFrom(FixedPoint<16>(frame + 1), rate).uint64Value());
    }

    unsigned long long m_start;
    unsigned long long m_end;
};

[[gnu::noinline]] SampleAndCount samplesByEdges(const MediaClipDesc& clip, MediaVideoRate rate,
                                                unsigned long long frame) {
    const FrameEdges edges(clip, rate, frame);
    return Cadence::between(edges.m_start, edges.m_end);
}

// AAC's sample numbers count coded units of the clip's ticks, rounded up.
[[gnu::noinline]] SampleAndCount codedUnits(const MediaClipDesc& clip, MediaVideoRate rate, unsigned long long frame) {
    const FrameEdges edges(clip, rate == MediaVideoRate::Unknown ? MediaVideoRate::Ntsc2997 : rate, frame);
    const std::uint32_t ticks = clip.getTicksPerSample();
    return Cadence::between(Cadence::unitsBefore(edges.m_start, ticks), Cadence::unitsBefore(edges.m_end, ticks));
}

}  // namespace

// Asked for every frame of audio that is read or recorded: the track is fetched once, the integer rule is put in place
// of its call, and the seldom ways stand apart.
[[gnu::flatten]] SampleAndCount MediaOffsetLookup::getSampleAndCount(const MediaClipDesc& clip,
                                                                     unsigned long long frame) const {
    const MediaTrackDesc& track = clip.getTrack();
    if (track.getDataType() != MediaDataType::Audio) return {frame, 1, 1};
    const MediaVideoRate rate = track.getVideoRate();
    if (clip.getEncoding() == MediaEncodingType::Aac) return codedUnits(clip, rate, frame);
    const SampleAndCount answer = Cadence::inIntegers(rate, clip.getSampleRate(), frame);
    return answer.m_count != 0 ? answer : samplesByEdges(clip, rate, frame);
}

SampleAndCount MediaOffsetLookup::getMaxSampleAndCount(const MediaClipDesc& clip) const {
    if (clip.getType() != MediaDataType::Audio) return {0, 1, 1};
    SampleAndCount largest;
    for (unsigned frame = 0; frame < s_probedFrames; ++frame) {
        const SampleAndCount answer = getSampleAndCount(clip, frame);
        if (answer.m_count > largest.m_count) largest.m_count = answer.m_count;
    }
    return largest;
}
