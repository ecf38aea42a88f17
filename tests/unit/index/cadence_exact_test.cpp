#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/unit/index/fixture.h"

// The samples of a frame, as an index answers them for a clip, against sums and fractions in whole numbers that owe
// nothing to its arithmetic: for every frame of a day. The sanitized builds look at one frame in a hundred.

namespace {

using U64 = unsigned long long;
__extension__ using Wide = __int128;

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr U64 s_step = 101;
#else
constexpr U64 s_step = 1;
#endif
constexpr U64 s_coarseStep = 31 * s_step;
constexpr U64 s_secondsOfADay = 24 * 60 * 60;

// A frame rate as a fraction, by its number in the enumeration.
struct Rate {
    MediaVideoRate m_rate;
    unsigned m_frames;   // in so many
    unsigned m_seconds;  // seconds
    const char* m_name;

    U64 framesOfADay() const { return s_secondsOfADay * m_frames / m_seconds + 1; }
    // The fraction cut to 16 binary places, which is the exact rate of this system.
    U64 raw() const { return (U64{m_frames} << 16) / m_seconds; }
};

// Google Test prints a parameter by this.
void PrintTo(const Rate& rate, std::ostream* out) { *out << rate.m_name; }

constexpr Rate s_ntsc{MediaVideoRate::Ntsc2997, 30000, 1001, "Ntsc2997"};
constexpr Rate s_doubled{MediaVideoRate::Hz5994, 60000, 1001, "Hz5994"};
constexpr Rate s_unknown{MediaVideoRate::Unknown, 1, 1, "Unknown"};
constexpr Rate s_rates[] = {s_unknown,
                            {MediaVideoRate::Pal25, 25, 1, "Pal25"},
                            s_ntsc,
                            {MediaVideoRate::Film23976, 24000, 1001, "Film23976"},
                            {MediaVideoRate::Film24, 24, 1, "Film24"},
                            {MediaVideoRate::Hz30, 30, 1, "Hz30"},
                            {MediaVideoRate::Hz50, 50, 1, "Hz50"},
                            s_doubled,
                            {MediaVideoRate::Hz60, 60, 1, "Hz60"}};

bool isTabled(const Rate& rate, unsigned sampleRate) {
    const bool hasTables = rate.m_rate == MediaVideoRate::Unknown || rate.m_rate == MediaVideoRate::Ntsc2997 ||
                           rate.m_rate == MediaVideoRate::Hz5994;
    return hasTables && (sampleRate == 48000 || sampleRate == 44100 || sampleRate == 32000 || sampleRate == 8000);
}

// What a frame is to have, in whichever way a test computes it.
struct Frame {
    U64 m_sample;
    U64 m_count;
    unsigned m_period;
};

bool operator==(const SampleAndCount& got, const Frame& wanted) {
    return got.m_sample == wanted.m_sample && got.m_count == wanted.m_count && got.m_period == wanted.m_period;
}

// An audio clip of a rate, and the index that is asked about it.
class Asked {
public:
    Asked(const Rate& rate, unsigned sampleRate, MediaEncodingType encoding = MediaEncodingType::Pcm,
          unsigned ticks = 1)
        : m_scene(MediaDataType::Audio, rate.m_rate, encoding, sampleRate),
          m_lookup(m_scene.m_clip, summaryOf(4, 0, 0)) {
        m_scene.m_clip.setTicks(ticks);
    }
    SampleAndCount at(U64 frame) const { return m_lookup.getSampleAndCount(m_scene.m_clip, frame); }

    // Tells the first frame that isn't as wanted, of every step-th one from `first` on.
    template <typename Wanted>
    void expectFrames(U64 first, U64 frames, U64 step, const Wanted& wanted) const {
        for (U64 frame = first; frame < first + frames; frame += step) {
            const SampleAndCount got = at(frame);
            const Frame right = wanted(frame);
            if (got == right) continue;
            ADD_FAILURE() << "frame " << frame << " has " << got.m_count << " samples from " << got.m_sample
                          << " on with period " << got.m_period << ", not " << right.m_count << " from "
                          << right.m_sample << " on with " << right.m_period;
            return;
        }
    }

private:
    IndexScene m_scene;
    FixedLookup m_lookup;
};

// A cadence written out: where each frame of a period starts and how many samples it has.
struct Table {
    std::vector<U64> m_starts;
    std::vector<U64> m_counts;
    U64 m_cycle = 0;

    // Each frame starts where the one before it ends, and so does the next period.
    static Table ofCounts(std::vector<U64> counts) {
        Table table;
        table.m_counts = std::move(counts);
        for (const U64 count : table.m_counts) {
            table.m_starts.push_back(table.m_cycle);
            table.m_cycle += count;
        }
        return table;
    }
    Frame at(U64 frame) const {
        const U64 period = m_counts.size();
        const U64 place = frame % period;
        return {frame / period * m_cycle + m_starts[place], m_counts[place], static_cast<unsigned>(period)};
    }
};

std::vector<U64> repeated(unsigned times, U64 count) { return std::vector<U64>(times, count); }

std::vector<U64> operator+(std::vector<U64> a, const std::vector<U64>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// Three of four frames of 44100 Hz at 29.97 Hz are long but for those at 0, 68 and 136.
std::vector<U64> countsOf44k() {
    std::vector<U64> counts;
    for (unsigned group = 0; group < 50; ++group)
        counts = counts + repeated(3, 1472) + repeated(1, 1470);
    counts[0] = counts[68] = counts[136] = 1470;
    return counts;
}

// The same at 59.94 Hz: half of each, with 13 short in the place of 136, while every frame stays at its place.
Table halved44k() {
    std::vector<U64> counts = countsOf44k();
    for (U64& count : counts)
        count /= 2;
    Table table = Table::ofCounts(counts);
    table.m_counts[13] = 735;
    table.m_counts[136] = 736;
    return table;
}

// Fifteen frames hold 2002 samples, and the next period starts at 4004 all the same.
Table doubled8k() {
    std::vector<U64> counts;
    for (unsigned pair = 0; pair < 7; ++pair)
        counts = counts + repeated(1, 133) + repeated(1, 134);
    Table table = Table::ofCounts(counts + repeated(1, 133));
    EXPECT_EQ(table.m_cycle, 2002U);
    table.m_cycle = 4004;
    return table;
}

struct Cadence {
    Rate m_rate;
    unsigned m_sampleRate;
    Table m_table;
};

std::vector<Cadence> allCadences() {
    const Table at48k = Table::ofCounts(repeated(1, 1600) + repeated(4, 1602));
    const Table at32k = Table::ofCounts(repeated(1, 1066) + repeated(6, 1068) + repeated(1, 1066) + repeated(7, 1068));
    const Table at44k = Table::ofCounts(countsOf44k());
    const Table at8k = Table::ofCounts(repeated(1, 266) + repeated(14, 267));
    const Table doubled48k = Table::ofCounts(repeated(2, 800) + repeated(8, 801));
    const Table doubled32k = Table::ofCounts(repeated(1, 533) + repeated(6, 534) + repeated(1, 533) + repeated(7, 534));
    return {{s_ntsc, 48000, at48k},         {s_ntsc, 32000, at32k},          {s_ntsc, 44100, at44k},
            {s_ntsc, 8000, at8k},           {s_unknown, 48000, at48k},       {s_unknown, 32000, at32k},
            {s_unknown, 44100, at44k},      {s_unknown, 8000, at8k},         {s_doubled, 48000, doubled48k},
            {s_doubled, 32000, doubled32k}, {s_doubled, 44100, halved44k()}, {s_doubled, 8000, doubled8k()}};
}

// The frame's edge by the exact rate of this system, on the even sample below.
U64 edgeOf(const Rate& rate, unsigned sampleRate, U64 frame) {
    return static_cast<U64>(((Wide{frame} * sampleRate) << 16) / rate.raw()) & ~1ULL;
}

Frame frameOf(const Rate& rate, unsigned sampleRate, U64 frame) {
    const U64 start = edgeOf(rate, sampleRate, frame);
    return {start, edgeOf(rate, sampleRate, frame + 1) - start, 1};
}

}  // namespace

TEST(ExactCadence, EveryFrameOfADayIsWhereTheTableWrittenOutHasIt) {
    for (const Cadence& cadence : allCadences()) {
        SCOPED_TRACE(testing::Message() << cadence.m_rate.m_name << ", " << cadence.m_sampleRate << " Hz");
        // The unknown rate has the frames of 29.97 Hz here.
        const U64 aDay =
            cadence.m_rate.m_rate == MediaVideoRate::Hz5994 ? s_doubled.framesOfADay() : s_ntsc.framesOfADay();
        const Asked asked(cadence.m_rate, cadence.m_sampleRate);
        asked.expectFrames(0, aDay, s_step, [&](U64 frame) { return cadence.m_table.at(frame); });
    }
}

TEST(ExactCadence, ATablesFramesStayExactBeyond32Bits) {
    for (const Cadence& cadence : allCadences()) {
        SCOPED_TRACE(testing::Message() << cadence.m_rate.m_name << ", " << cadence.m_sampleRate << " Hz");
        const Asked asked(cadence.m_rate, cadence.m_sampleRate);
        for (const U64 first : {(1ULL << 31) - 1, (1ULL << 32) - 1, (1ULL << 48) - 1})
            asked.expectFrames(first, 3 * cadence.m_table.m_counts.size(), 1,
                               [&](U64 frame) { return cadence.m_table.at(frame); });
    }
}

TEST(ExactCadence, AWholePeriodHoldsTheSamplesOfItsTime) {
    for (const Cadence& cadence : allCadences()) {
        SCOPED_TRACE(testing::Message() << cadence.m_rate.m_name << ", " << cadence.m_sampleRate << " Hz");
        const bool doubled = cadence.m_rate.m_rate == MediaVideoRate::Hz5994;
        const U64 perSecond = doubled ? 60000 : 30000;
        const Asked asked(cadence.m_rate, cadence.m_sampleRate);
        const U64 period = asked.at(0).m_period;
        for (const U64 first : {U64{0}, period, 1000 * period}) {
            U64 sum = 0;
            for (U64 frame = first; frame < first + period; ++frame)
                sum += asked.at(frame).m_count;
            EXPECT_EQ(sum * perSecond, cadence.m_sampleRate * period * 1001);
        }
    }
}

TEST(ExactCadence, TheLargestCountOfAPeriodIsFoundInItsFirstFrames) {
    for (const Cadence& cadence : allCadences()) {
        SCOPED_TRACE(testing::Message() << cadence.m_rate.m_name << ", " << cadence.m_sampleRate << " Hz");
        const IndexScene scene(MediaDataType::Audio, cadence.m_rate.m_rate, MediaEncodingType::Pcm,
                               cadence.m_sampleRate);
        const FixedLookup lookup(scene.m_clip, summaryOf(4, 0, 0));
        const SampleAndCount largest = lookup.getMaxSampleAndCount(scene.m_clip);
        EXPECT_EQ(largest.m_count, *std::max_element(cadence.m_table.m_counts.begin(), cadence.m_table.m_counts.end()));
        EXPECT_EQ(largest.m_sample, 0U);
        EXPECT_EQ(largest.m_period, 1U);
    }
}

class ExactEdges : public testing::TestWithParam<Rate> {
protected:
    void expectADay(unsigned sampleRate, U64 step) const {
        if (isTabled(GetParam(), sampleRate)) return;
        SCOPED_TRACE(testing::Message() << sampleRate << " Hz");
        const Asked asked(GetParam(), sampleRate);
        asked.expectFrames(0, GetParam().framesOfADay(), step,
                           [&](U64 frame) { return frameOf(GetParam(), sampleRate, frame); });
    }
};

TEST_P(ExactEdges, EveryFrameOfADayIsCutAtTheExactFraction) {
    for (const unsigned sampleRate : {48000U, 96000U})
        expectADay(sampleRate, s_step);
}

TEST_P(ExactEdges, FramesOfADayAreCutAtTheExactFractionAtEverySampleRate) {
    for (const unsigned sampleRate : {1U, 2U, 7U, 8000U, 11025U, 16000U, 22050U, 24000U, 32000U, 44100U, 47999U, 64000U,
                                      88200U, 176400U, 192000U, 384000U})
        expectADay(sampleRate, s_coarseStep);
}

TEST_P(ExactEdges, ADayDriftsNoFurtherThanTheRateWasCut) {
    const Rate& rate = GetParam();
    const Asked asked(rate, 96000);
    for (U64 hour = 0; hour <= 24; ++hour) {
        const U64 frame = hour * 3600 * rate.m_frames / rate.m_seconds;
        const Wide truth = Wide{frame} * 96000 * rate.m_seconds / rate.m_frames;
        const Wide distance = Wide{asked.at(frame).m_sample} - truth;
        // The rate is short by less than one of its smallest steps, so that frames come late, and the even sample costs
        // one.
        EXPECT_GE(distance, -1) << "hour " << hour;
        EXPECT_LE(distance, truth / static_cast<Wide>(rate.raw()) + 1) << "hour " << hour;
    }
}

TEST_P(ExactEdges, CodedUnitsOfADayAreTheExactFractionRoundedUp) {
    // AAC takes the unknown rate for 29.97 Hz.
    const Rate& rate = GetParam().m_rate == MediaVideoRate::Unknown ? s_ntsc : GetParam();
    for (const unsigned sampleRate : {44100U, 48000U}) {
        for (const unsigned ticks : {1U, 960U, 1024U, 2048U}) {
            SCOPED_TRACE(testing::Message() << sampleRate << " Hz, " << ticks << " ticks");
            const Asked asked(GetParam(), sampleRate, MediaEncodingType::Aac, ticks);
            const auto unit = [&](U64 frame) { return (edgeOf(rate, sampleRate, frame) + ticks - 1) / ticks; };
            asked.expectFrames(0, rate.framesOfADay(), s_coarseStep, [&](U64 frame) {
                return Frame{unit(frame), unit(frame + 1) - unit(frame), 1};
            });
        }
    }
}

INSTANTIATE_TEST_SUITE_P(AllRates, ExactEdges, testing::ValuesIn(s_rates),
                         [](const auto& rate) { return std::string(rate.param.m_name); });
