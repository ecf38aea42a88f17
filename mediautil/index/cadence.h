#pragma once

#include <cstdint>

#include "mediautil/description/real_rate.h"
#include "shared/include/description/media_enums.h"
#include "shared/include/index/sample_and_count.h"

// The rule by which audio samples fall to video frames. Plain values in, a value out.
// The tables keep the common pairs of rates exact over a whole clip in integers alone. Every other pair is cut at the
// frames' edges in the sample clock, each put on an even sample.
// It all stands in this header because every frame of audio that is read or recorded asks for it.
namespace Cadence {

// A frame split by its cadence: whole periods before it, and its place in its own.
struct Split {
    unsigned long long m_periods;
    std::uint32_t m_place;
};

template <std::uint32_t Period>
constexpr Split splitBy(unsigned long long frame) {
    return {frame / Period, static_cast<std::uint32_t>(frame % Period)};
}

constexpr SampleAndCount ntsc48k(unsigned long long frame) {
    const auto [periods, r] = splitBy<5>(frame);
    const bool first = r == 0;
    return {periods * 8008 + (first ? 0 : r * 1602 - 2), first ? 1600U : 1602U, 5};
}

constexpr SampleAndCount ntsc32k(unsigned long long frame) {
    const auto [periods, r] = splitBy<15>(frame);
    const std::uint32_t shortOnesBefore = (r > 0 ? 1U : 0U) + (r > 7 ? 1U : 0U);
    const bool isShort = r == 0 || r == 7;
    return {periods * 16016 + r * 1068 - 2 * shortOnesBefore, isShort ? 1066U : 1068U, 15};
}

// The last frame of every four is short, and so are those at 0, at 68 and at `lastShort`. For the places of the frames
// behind it that last one is always 136.
constexpr SampleAndCount ntsc44k(unsigned long long frame, std::uint32_t lastShort) {
    const auto [periods, r] = splitBy<200>(frame);
    const std::uint32_t shortOnesBefore = r / 4 + (r > 0 ? 1U : 0U) + (r > 68 ? 1U : 0U) + (r > 136 ? 1U : 0U);
    const bool isShort = r % 4 == 3 || r == 0 || r == 68 || r == lastShort;
    return {periods * 294294 + r * 1472 - 2 * shortOnesBefore, isShort ? 1470U : 1472U, 200};
}

constexpr SampleAndCount ntsc8k(unsigned long long frame) {
    const auto [periods, r] = splitBy<15>(frame);
    const bool first = r == 0;
    return {periods * 4004 + (first ? 0 : r * 267 - 1), first ? 266U : 267U, 15};
}

constexpr SampleAndCount doubled48k(unsigned long long frame) {
    const auto [periods, r] = splitBy<10>(frame);
    const bool isShort = r < 2;
    return {periods * 8008 + (isShort ? r * 800 : r * 801 - 2), isShort ? 800U : 801U, 10};
}

constexpr SampleAndCount doubled8k(unsigned long long frame) {
    const auto [periods, r] = splitBy<15>(frame);
    // The cycle is meant: it is that of 29.97 Hz, though these fifteen frames hold 2002 samples. Indexes on disk follow
    // it.
    return {periods * 4004 + r * 133 + r / 2, 133 + r % 2, 15};
}

constexpr SampleAndCount halved(SampleAndCount whole) {
    return {whole.m_sample >> 1, whole.m_count >> 1, whole.m_period};
}

constexpr SampleAndCount atNtsc(std::uint32_t sampleRate, unsigned long long frame) {
    switch (sampleRate) {
        case 48000:
            return ntsc48k(frame);
        case 32000:
            return ntsc32k(frame);
        case 44100:
            return ntsc44k(frame, 136);
        case 8000:
            return ntsc8k(frame);
        default:
            return {};
    }
}

constexpr SampleAndCount atDoubledNtsc(std::uint32_t sampleRate, unsigned long long frame) {
    switch (sampleRate) {
        case 48000:
            return doubled48k(frame);
        case 32000:
            return halved(ntsc32k(frame));
        // 13 in the place of 136 is meant, and for the count alone: indexes on disk follow it.
        case 44100:
            return halved(ntsc44k(frame, 13));
        case 8000:
            return doubled8k(frame);
        default:
            return {};
    }
}

// The samples of a frame by the tables. A count of 0 says that no table speaks of this pair of rates; the unknown video
// rate is treated as 29.97 Hz.
constexpr SampleAndCount byTable(MediaVideoRate rate, std::uint32_t sampleRate, unsigned long long frame) {
    switch (rate) {
        case MediaVideoRate::Unknown:
        case MediaVideoRate::Ntsc2997:
            return atNtsc(sampleRate, frame);
        case MediaVideoRate::Hz5994:
            return atDoubledNtsc(sampleRate, frame);
        default:
            return {};
    }
}

// Puts a frame's edge on an even sample, as a pair of channels in one word needs.
constexpr unsigned long long evenEdge(unsigned long long edge) { return edge & ~1ULL; }

// The samples between two edges.
constexpr SampleAndCount between(unsigned long long edge, unsigned long long nextEdge) {
    return {edge, static_cast<std::uint32_t>(nextEdge - edge), 1};
}

// The edges of the frames of a rate. Whole samples are all that counts, so that a plain division by the exact rate,
// which is a constant here, gives what the fixed-point quotient gives.
// A count of 0 says that the product needs more than 64 bits.
template <MediaVideoRate Rate>
constexpr SampleAndCount atRate(std::uint32_t sampleRate, unsigned long long frame) {
    constexpr long long rate = realRate(Rate).rawValue();
    const long long samples = FixedPoint<16>(sampleRate).rawValue();  // of a second
    long long end = 0;
    if (frame == ~0ULL || __builtin_mul_overflow(frame + 1, samples, &end)) return {};
    return between(evenEdge(static_cast<unsigned long long>((end - samples) / rate)),
                   evenEdge(static_cast<unsigned long long>(end / rate)));
}

constexpr SampleAndCount byEdges(MediaVideoRate rate, std::uint32_t sampleRate, unsigned long long frame) {
    switch (rate) {
        case MediaVideoRate::Pal25:
            return atRate<MediaVideoRate::Pal25>(sampleRate, frame);
        case MediaVideoRate::Ntsc2997:
            return atRate<MediaVideoRate::Ntsc2997>(sampleRate, frame);
        case MediaVideoRate::Film23976:
            return atRate<MediaVideoRate::Film23976>(sampleRate, frame);
        case MediaVideoRate::Film24:
            return atRate<MediaVideoRate::Film24>(sampleRate, frame);
        case MediaVideoRate::Hz30:
            return atRate<MediaVideoRate::Hz30>(sampleRate, frame);
        case MediaVideoRate::Hz50:
            return atRate<MediaVideoRate::Hz50>(sampleRate, frame);
        case MediaVideoRate::Hz5994:
            return atRate<MediaVideoRate::Hz5994>(sampleRate, frame);
        case MediaVideoRate::Hz60:
            return atRate<MediaVideoRate::Hz60>(sampleRate, frame);
        case MediaVideoRate::Unknown:
            return atRate<MediaVideoRate::Unknown>(sampleRate, frame);
    }
    return {};
}

// The tables, and the frames' edges where no table speaks: what integers alone can answer exactly.
// A count of 0 says that they can't.
constexpr SampleAndCount inIntegers(MediaVideoRate rate, std::uint32_t sampleRate, unsigned long long frame) {
    const SampleAndCount tabled = byTable(rate, sampleRate, frame);
    return tabled.m_count != 0 ? tabled : byEdges(rate, sampleRate, frame);
}

// Coded units of `ticks` samples that begin before an edge. Requires: `ticks` other than 0.
constexpr unsigned long long unitsBefore(unsigned long long edge, std::uint32_t ticks) {
    return (edge + ticks - 1) / ticks;
}

}  // namespace Cadence
