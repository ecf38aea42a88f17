#include "mediautil/index/cadence.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "support/fixed_point.h"

namespace {

using U64 = unsigned long long;

struct Expected {
    MediaVideoRate m_rate;
    std::uint32_t m_sampleRate;
    U64 m_frame;
    U64 m_sample;
    std::uint32_t m_count;
    std::uint32_t m_period;
};

constexpr MediaVideoRate s_ntsc = MediaVideoRate::Ntsc2997;
constexpr MediaVideoRate s_doubled = MediaVideoRate::Hz5994;

void expectRows(const std::vector<Expected>& rows) {
    for (const Expected& row : rows) {
        SCOPED_TRACE(testing::Message() << "rate " << unsigned(row.m_rate) << ", " << row.m_sampleRate << " Hz, frame "
                                        << row.m_frame);
        const SampleAndCount got = Cadence::byTable(row.m_rate, row.m_sampleRate, row.m_frame);
        EXPECT_EQ(got.m_sample, row.m_sample);
        EXPECT_EQ(got.m_count, row.m_count);
        EXPECT_EQ(got.m_period, row.m_period);
    }
}

U64 sumOfCounts(MediaVideoRate rate, std::uint32_t sampleRate, U64 first, U64 frames) {
    U64 sum = 0;
    for (U64 frame = first; frame < first + frames; ++frame)
        sum += Cadence::byTable(rate, sampleRate, frame).m_count;
    return sum;
}

// Frames that don't start where the frame before them ends, within three periods.
std::vector<U64> framesOffTheirPlace(MediaVideoRate rate, std::uint32_t sampleRate) {
    std::vector<U64> off;
    U64 next = 0;
    const U64 frames = 3 * Cadence::byTable(rate, sampleRate, 0).m_period;
    for (U64 frame = 0; frame < frames; ++frame) {
        const SampleAndCount got = Cadence::byTable(rate, sampleRate, frame);
        if (got.m_sample != next) off.push_back(frame);
        next = got.m_sample + got.m_count;
    }
    return off;
}

// The largest distance of a frame's start from the exact place, in 30000ths (60000ths at the doubled rate) of a sample.
long long farthestFromExact(std::uint32_t sampleRate, MediaVideoRate rate, U64 frames) {
    const long long perSecond = rate == s_doubled ? 60000 : 30000;
    long long farthest = 0;
    for (U64 frame = 0; frame < frames; ++frame) {
        const auto exact = static_cast<long long>(frame) * sampleRate * 1001;
        const auto placed = static_cast<long long>(Cadence::byTable(rate, sampleRate, frame).m_sample) * perSecond;
        farthest = std::max(farthest, std::abs(exact - placed));
    }
    return farthest;
}

TEST(Cadence, FortyEightKilohertzAt2997RepeatsAfterFiveFrames) {
    expectRows({{s_ntsc, 48000, 0, 0, 1600, 5},
                {s_ntsc, 48000, 1, 1600, 1602, 5},
                {s_ntsc, 48000, 2, 3202, 1602, 5},
                {s_ntsc, 48000, 3, 4804, 1602, 5},
                {s_ntsc, 48000, 4, 6406, 1602, 5},
                {s_ntsc, 48000, 5, 8008, 1600, 5},
                {s_ntsc, 48000, 6, 9608, 1602, 5}});
}

TEST(Cadence, ThirtyTwoKilohertzAt2997HasTwoShortFramesInFifteen) {
    expectRows({{s_ntsc, 32000, 0, 0, 1066, 15},
                {s_ntsc, 32000, 1, 1066, 1068, 15},
                {s_ntsc, 32000, 6, 6406, 1068, 15},
                {s_ntsc, 32000, 7, 7474, 1066, 15},
                {s_ntsc, 32000, 8, 8540, 1068, 15},
                {s_ntsc, 32000, 14, 14948, 1068, 15},
                {s_ntsc, 32000, 15, 16016, 1066, 15}});
}

TEST(Cadence, FortyFourKilohertzAt2997HasItsExtraShortFramesAtThreePlaces) {
    expectRows({{s_ntsc, 44100, 0, 0, 1470, 200},
                {s_ntsc, 44100, 1, 1470, 1472, 200},
                {s_ntsc, 44100, 3, 4414, 1470, 200},
                {s_ntsc, 44100, 4, 5884, 1472, 200},
                {s_ntsc, 44100, 67, 98590, 1470, 200},
                {s_ntsc, 44100, 68, 100060, 1470, 200},
                {s_ntsc, 44100, 69, 101530, 1472, 200},
                {s_ntsc, 44100, 136, 200120, 1470, 200},
                {s_ntsc, 44100, 137, 201590, 1472, 200},
                {s_ntsc, 44100, 199, 292824, 1470, 200},
                {s_ntsc, 44100, 200, 294294, 1470, 200}});
}

TEST(Cadence, EightKilohertzAt2997HasOneShortFrameInFifteen) {
    expectRows({{s_ntsc, 8000, 0, 0, 266, 15},
                {s_ntsc, 8000, 1, 266, 267, 15},
                {s_ntsc, 8000, 14, 3737, 267, 15},
                {s_ntsc, 8000, 15, 4004, 266, 15}});
}

TEST(Cadence, FortyEightKilohertzAt5994RepeatsAfterTenFrames) {
    expectRows({{s_doubled, 48000, 0, 0, 800, 10},
                {s_doubled, 48000, 1, 800, 800, 10},
                {s_doubled, 48000, 2, 1600, 801, 10},
                {s_doubled, 48000, 3, 2401, 801, 10},
                {s_doubled, 48000, 9, 7207, 801, 10},
                {s_doubled, 48000, 10, 8008, 800, 10}});
}

TEST(Cadence, ThirtyTwoKilohertzAt5994IsTheRowAt2997Halved) {
    expectRows({{s_doubled, 32000, 0, 0, 533, 15},
                {s_doubled, 32000, 1, 533, 534, 15},
                {s_doubled, 32000, 7, 3737, 533, 15},
                {s_doubled, 32000, 8, 4270, 534, 15},
                {s_doubled, 32000, 15, 8008, 533, 15}});
}

TEST(Cadence, FortyFourKilohertzAt5994ShortensFrameThirteenAndNotFrame136) {
    expectRows({{s_doubled, 44100, 0, 0, 735, 200},
                {s_doubled, 44100, 12, 8828, 736, 200},
                {s_doubled, 44100, 13, 9564, 735, 200},
                {s_doubled, 44100, 14, 10300, 736, 200},
                {s_doubled, 44100, 68, 50030, 735, 200},
                {s_doubled, 44100, 136, 100060, 736, 200},
                {s_doubled, 44100, 137, 100795, 736, 200},
                {s_doubled, 44100, 200, 147147, 735, 200}});
}

TEST(Cadence, EightKilohertzAt5994KeepsTheCycleOf2997) {
    expectRows({{s_doubled, 8000, 0, 0, 133, 15},
                {s_doubled, 8000, 1, 133, 134, 15},
                {s_doubled, 8000, 2, 267, 133, 15},
                {s_doubled, 8000, 14, 1869, 133, 15},
                {s_doubled, 8000, 15, 4004, 133, 15}});
    EXPECT_EQ(sumOfCounts(s_doubled, 8000, 0, 15), 2002U);
}

TEST(Cadence, UnknownVideoRateIsTreatedAs2997) {
    for (const std::uint32_t sampleRate : {48000U, 32000U, 44100U, 8000U}) {
        for (U64 frame = 0; frame < 400; ++frame) {
            const SampleAndCount unknown = Cadence::byTable(MediaVideoRate::Unknown, sampleRate, frame);
            const SampleAndCount ntsc = Cadence::byTable(s_ntsc, sampleRate, frame);
            ASSERT_EQ(unknown.m_sample, ntsc.m_sample);
            ASSERT_EQ(unknown.m_count, ntsc.m_count);
            ASSERT_EQ(unknown.m_period, ntsc.m_period);
        }
    }
}

TEST(Cadence, NoTableSpeaksOfOtherRates) {
    for (const MediaVideoRate rate :
         {MediaVideoRate::Pal25, MediaVideoRate::Film23976, MediaVideoRate::Film24, MediaVideoRate::Hz30,
          MediaVideoRate::Hz50, MediaVideoRate::Hz60, static_cast<MediaVideoRate>(99)}) {
        const SampleAndCount got = Cadence::byTable(rate, 48000, 1);
        EXPECT_EQ(got.m_sample, 0U);
        EXPECT_EQ(got.m_count, 0U);
        EXPECT_EQ(got.m_period, 1U);
    }
    for (const std::uint32_t sampleRate : {0U, 1U, 16000U, 22050U, 47999U, 96000U}) {
        EXPECT_EQ(Cadence::byTable(s_ntsc, sampleRate, 1).m_count, 0U);
        EXPECT_EQ(Cadence::byTable(s_doubled, sampleRate, 1).m_count, 0U);
    }
}

TEST(Cadence, CountsOfAWholePeriodAddUpToTheExactNumberOfSamples) {
    struct Row {
        MediaVideoRate m_rate;
        std::uint32_t m_sampleRate;
    };
    for (const Row row : {Row{s_ntsc, 48000}, Row{s_ntsc, 32000}, Row{s_ntsc, 44100}, Row{s_ntsc, 8000},
                          Row{s_doubled, 48000}, Row{s_doubled, 32000}, Row{s_doubled, 44100}, Row{s_doubled, 8000}}) {
        SCOPED_TRACE(testing::Message() << "rate " << unsigned(row.m_rate) << ", " << row.m_sampleRate << " Hz");
        const U64 period = Cadence::byTable(row.m_rate, row.m_sampleRate, 0).m_period;
        const U64 perSecond = row.m_rate == s_doubled ? 60000 : 30000;
        ASSERT_EQ(row.m_sampleRate * period * 1001 % perSecond, 0U);
        const U64 exact = row.m_sampleRate * period * 1001 / perSecond;
        EXPECT_EQ(sumOfCounts(row.m_rate, row.m_sampleRate, 0, period), exact);
        EXPECT_EQ(sumOfCounts(row.m_rate, row.m_sampleRate, 7 * period, period), exact);
    }
}

TEST(Cadence, FortyFourKilohertzPeriodHolds294294Samples) { EXPECT_EQ(sumOfCounts(s_ntsc, 44100, 0, 200), 294294U); }

TEST(Cadence, EachFrameStartsWhereTheOneBeforeEnds) {
    for (const std::uint32_t sampleRate : {48000U, 32000U, 44100U, 8000U}) {
        EXPECT_EQ(framesOffTheirPlace(s_ntsc, sampleRate), std::vector<U64>{}) << sampleRate;
    }
    for (const std::uint32_t sampleRate : {48000U, 32000U}) {
        EXPECT_EQ(framesOffTheirPlace(s_doubled, sampleRate), std::vector<U64>{}) << sampleRate;
    }
}

TEST(Cadence, OnlyTheDeliberateConstantsBreakTheRunAt5994) {
    // Frame 13 is one sample short and frame 136 one too long, in each period of 200.
    EXPECT_EQ(framesOffTheirPlace(s_doubled, 44100), (std::vector<U64>{14, 137, 214, 337, 414, 537}));
    EXPECT_EQ(framesOffTheirPlace(s_doubled, 8000), (std::vector<U64>{15, 30}));
}

TEST(Cadence, NoFrameDriftsFromItsExactPlaceOverADay) {
    const U64 aDay = 24ULL * 60 * 60 * 30;
    for (const std::uint32_t sampleRate : {48000U, 32000U, 44100U, 8000U}) {
        EXPECT_LE(farthestFromExact(sampleRate, s_ntsc, aDay), 4 * 30000) << sampleRate;
    }
    for (const std::uint32_t sampleRate : {48000U, 32000U, 44100U}) {
        EXPECT_LE(farthestFromExact(sampleRate, s_doubled, 2 * aDay), 4 * 60000) << sampleRate;
    }
}

TEST(Cadence, FrameNumbersBeyond32BitsStayExact) {
    const U64 periods = 1ULL << 40;
    expectRows({{s_ntsc, 48000, periods * 5 + 1, periods * 8008 + 1600, 1602, 5},
                {s_doubled, 44100, periods * 200 + 13, periods * 147147 + 9564, 735, 200}});
}

TEST(Cadence, EveryFrameRateInIntegersAgreesWithFixedPoint) {
    struct Row {
        MediaVideoRate m_rate;
        FixedPoint<16> m_framesPerSecond;
    };
    for (const Row& row :
         {Row{MediaVideoRate::Unknown, 1}, Row{MediaVideoRate::Pal25, 25}, Row{s_ntsc, FixedPoint<16>(30000) / 1001},
          Row{MediaVideoRate::Film23976, FixedPoint<16>(24000) / 1001}, Row{MediaVideoRate::Film24, 24},
          Row{MediaVideoRate::Hz30, 30}, Row{MediaVideoRate::Hz50, 50}, Row{s_doubled, FixedPoint<16>(60000) / 1001},
          Row{MediaVideoRate::Hz60, 60}}) {
        for (const std::uint32_t sampleRate : {1U, 2U, 7U, 8000U, 11025U, 32000U, 44100U, 48000U, 96000U, 192000U}) {
            const auto edge = [&](U64 frame) {
                const FixedPoint<16> samples = FixedPoint<16>(frame) * sampleRate / row.m_framesPerSecond;
                return samples.uint64Value() & ~1ULL;
            };
            // A day and a half at 60 Hz, in steps that meet every remainder.
            for (U64 frame = 0; frame < 8000000; frame += 997) {
                const SampleAndCount got = Cadence::byEdges(row.m_rate, sampleRate, frame);
                ASSERT_EQ(got.m_sample, edge(frame)) << sampleRate << " Hz, frame " << frame;
                ASSERT_EQ(got.m_count, edge(frame + 1) - edge(frame)) << sampleRate << " Hz, frame " << frame;
                ASSERT_EQ(got.m_period, 1U);
            }
        }
    }
}

TEST(Cadence, IntegersAnswerWithTheTablesWhereThereIsOne) {
    EXPECT_EQ(Cadence::inIntegers(s_ntsc, 48000, 6).m_sample, 9608U);
    EXPECT_EQ(Cadence::inIntegers(s_doubled, 8000, 15).m_sample, 4004U);
}

TEST(Cadence, IntegersAnswerWithTheEdgesWhereThereIsNoTable) {
    EXPECT_EQ(Cadence::inIntegers(s_ntsc, 96000, 6).m_sample, 19218U);
    EXPECT_EQ(Cadence::inIntegers(s_ntsc, 96000, 6).m_count, 3204U);
    EXPECT_EQ(Cadence::inIntegers(MediaVideoRate::Film23976, 48000, 1).m_count, 2002U);
    EXPECT_EQ(Cadence::inIntegers(MediaVideoRate::Unknown, 96000, 6).m_sample, 6 * 96000U);
}

TEST(Cadence, AProductBeyond64BitsIsLeftToTheCaller) {
    // The last frame whose end fits, and the first whose doesn't.
    const U64 most = 0x7FFFFFFFFFFFFFFFULL / (48000ULL << 16);
    EXPECT_EQ(Cadence::byEdges(MediaVideoRate::Pal25, 48000, most - 1).m_count, 1920U);
    EXPECT_EQ(Cadence::byEdges(MediaVideoRate::Pal25, 48000, most).m_count, 0U);
    EXPECT_EQ(Cadence::byEdges(MediaVideoRate::Film23976, 48000, ~0ULL).m_count, 0U);
}

TEST(Cadence, AnEdgeGoesToTheEvenSampleBelow) {
    EXPECT_EQ(Cadence::evenEdge(0), 0U);
    EXPECT_EQ(Cadence::evenEdge(1837), 1836U);
    EXPECT_EQ(Cadence::evenEdge(1920), 1920U);
}

TEST(Cadence, CodedUnitsAreRoundedUp) {
    EXPECT_EQ(Cadence::unitsBefore(0, 1024), 0U);
    EXPECT_EQ(Cadence::unitsBefore(1, 1024), 1U);
    EXPECT_EQ(Cadence::unitsBefore(1024, 1024), 1U);
    EXPECT_EQ(Cadence::unitsBefore(1025, 1024), 2U);
}

}  // namespace
