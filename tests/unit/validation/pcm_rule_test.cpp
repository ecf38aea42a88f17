#include <gtest/gtest.h>

#include "shared/include/validation/pcm_parser.h"
#include "shared/include/validation/pcm_pattern.h"
#include "tests/kit/samples.h"
#include "tests/unit/validation/sound.h"

// The plain rule of PCM analysis: bytes to samples, and samples to what they look like.

using sound::Form;

namespace {

std::vector<int> decode(const Form& form, const std::string& bytes, unsigned instants) {
    MediaIoBuf buf;
    kit::fill(buf, bytes);
    PcmParser parser;
    parser.init(form.m_endian, form.m_bytes, form.m_channels);
    std::vector<int> values;
    EXPECT_TRUE(parser.setBuf(buf));
    for (unsigned i = 0; i < instants; ++i) {
        const PcmPattern::Sample sample = parser.decodeNextSample();
        values.insert(values.end(), sample.m_values, sample.m_values + form.m_channels);
    }
    return values;
}

// Which instants of a block count as parts of a burst, one letter each.
std::string burstMap(const Form& form, const std::string& bytes, unsigned* length = nullptr) {
    MediaIoBuf buf;
    kit::fill(buf, bytes);
    PcmParser parser;
    parser.init(form.m_endian, form.m_bytes, form.m_channels);
    EXPECT_TRUE(parser.setBuf(buf));
    std::string map;
    for (std::size_t i = 0; i < bytes.size() / form.instant(); ++i)
        map += parser.decodeNextSample().m_inBurst ? 'b' : '.';
    if (length != nullptr) *length = parser.getAc3SamplesCnt();
    return map;
}

std::string textOf(const PcmPattern& pattern) { return pattern.toString().get(); }

void addAll(PcmPattern& pattern, const std::vector<std::vector<int>>& instants) {
    for (const std::vector<int>& instant : instants)
        pattern.add(PcmPattern::Sample(instant.data(), false));
}

}  // namespace

TEST(PcmParser, BigEndianWordsKeepTheirValueAndSignInEveryWidth) {
    for (unsigned bytes = 1; bytes <= 4; ++bytes) {
        const Form form{MediaEndian::Big, bytes, 1};
        const std::int64_t most = (std::int64_t{1} << (8 * bytes - 1)) - 1;
        const std::vector<int> values = decode(form, sound::words(form, {0, 1, -1, most, -most - 1}), 5);
        EXPECT_EQ(values, (std::vector<int>{0, 1, -1, static_cast<int>(most), static_cast<int>(-most - 1)})) << bytes;
    }
}

TEST(PcmParser, LittleEndianWordsBelow32BitsLoseTheirLowPart) {
    const std::string bytes("\x11\x82\xF3\x44\x55\x66\x77\x88\x99\xAA\xBB\xCC", 12);
    EXPECT_EQ(decode(Form{MediaEndian::Little, 1, 1}, bytes, 4), (std::vector<int>{0, 0, 0, 0}));
    EXPECT_EQ(decode(Form{MediaEndian::Little, 2, 1}, bytes, 4), (std::vector<int>{0, 0, 0, 0}));
    // The upper two bytes of 24 bits, without a sign.
    EXPECT_EQ(decode(Form{MediaEndian::Little, 3, 1}, bytes, 2), (std::vector<int>{0xF382, 0x6655}));
    EXPECT_EQ(decode(Form{MediaEndian::Little, 4, 1}, bytes, 2),
              (std::vector<int>{0x44F38211, static_cast<int>(0x88776655)}));
}

TEST(PcmParser, WordsBehindTheEndAreZero) {
    EXPECT_EQ(decode(Form{MediaEndian::Big, 2, 1}, std::string("\x12\x34\x56", 3), 3),
              (std::vector<int>{0x1234, 0x5600, 0}));
}

TEST(PcmParser, AnInstantsArrayStandsUntilTheNextCall) {
    MediaIoBuf buf;
    kit::fill(buf, sound::words(Form{}, {1, 2, 3, 4}));
    PcmParser parser;
    parser.init(MediaEndian::Big, 2, 2);
    ASSERT_TRUE(parser.setBuf(buf));
    const int* const values = parser.decodeNextSample().m_values;
    EXPECT_EQ(values[0], 1);
    EXPECT_EQ(values[1], 2);
    EXPECT_EQ(parser.decodeNextSample().m_values, values);
    EXPECT_EQ(values[0], 3);
    parser.init(MediaEndian::Big, 2, 2);
    EXPECT_EQ(values[0], 0);
}

TEST(PcmParser, ANewOneIsThatOfSixteenByteSamples) {
    const PcmParser parser;
    EXPECT_EQ(parser.getEndian(), MediaEndian::Big);
    EXPECT_EQ(parser.getBytesPerSample(), 16u);
    EXPECT_EQ(parser.getChannels(), 1u);
    EXPECT_EQ(parser.getAc3SamplesCnt(), 0u);
}

TEST(PcmParser, SyncWordsStandAtTheTopOfASample) {
    const auto sync = [](unsigned bytes) {
        PcmParser parser;
        parser.init(MediaEndian::Big, bytes, 2);
        return std::make_pair(static_cast<std::uint32_t>(parser.getSyncPa()),
                              static_cast<std::uint32_t>(parser.getSyncPb()));
    };
    EXPECT_EQ(sync(2), std::make_pair(0xFFFFF872u, 0x4E1Fu));
    EXPECT_EQ(sync(3), std::make_pair(0xFFF87200u, 0x4E1F00u));
    EXPECT_EQ(sync(4), std::make_pair(0xF8720000u, 0x4E1F0000u));
    EXPECT_EQ(sync(1), std::make_pair(0x72000000u, 0x1F000000u));  // which no byte can be
    PcmParser parser;
    parser.init(MediaEndian::Big, 2, 2);
    EXPECT_EQ(parser.getSyncPa(), -1934);
}

TEST(PcmParser, ABurstIsItsSyncItsLengthAndAsManySamplesAsItDeclares) {
    for (unsigned bytes = 2; bytes <= 4; ++bytes) {
        const Form form{MediaEndian::Big, bytes, 2};
        unsigned length = 0;
        const std::string map = burstMap(
            form, sound::steady(form, 0, 3) + sound::burst(form, 192, 192) + sound::steady(form, 0, 4), &length);
        EXPECT_EQ(length, 192u) << bytes;
        EXPECT_EQ(map, "..." + std::string(194, 'b') + "....") << bytes;
    }
}

TEST(PcmParser, ABurstOfNoLengthIsItsSyncAndItsLength) {
    EXPECT_EQ(burstMap(Form{}, sound::burst(Form{}, 0, 0) + sound::steady(Form{}, 0, 3)), "bb...");
}

TEST(PcmParser, TheInstantBehindABurstIsntASyncYet) {
    const std::string two = sound::burst(Form{}, 4, 4) + sound::burst(Form{}, 4, 4);
    EXPECT_EQ(burstMap(Form{}, two), "bbbbbb" + std::string(6, '.'));
    // One instant later it is.
    const std::string apart = sound::burst(Form{}, 4, 4) + sound::steady(Form{}, 0, 1) + sound::burst(Form{}, 4, 4);
    EXPECT_EQ(burstMap(Form{}, apart), "bbbbbb.bbbbbb");
}

TEST(PcmParser, ALengthWithItsTopBitSetCountsWithoutASign) {
    const std::string bytes = sound::top(Form{}, 0xF872) + sound::top(Form{}, 0x4E1F) + sound::top(Form{}, 1) +
                              sound::top(Form{}, 0xFFE0) + sound::steady(Form{}, 0, 5);
    unsigned length = 0;
    EXPECT_EQ(burstMap(Form{}, bytes, &length), "bbbbbbb");
    EXPECT_EQ(length, 0xFFFFFFE0u >> 5);
}

TEST(PcmParser, OnlyAPairOfChannelsIsSearchedForBursts) {
    for (const unsigned channels : {1u, 3u, 4u, 5u, 32u}) {
        const Form form{MediaEndian::Big, 2, channels};
        const std::string map = burstMap(form, sound::burst(Form{}, 192, 192 * channels));
        EXPECT_EQ(map.find('b'), std::string::npos) << channels;
    }
}

TEST(PcmParser, HalfASyncIsNone) {
    const std::string pa = sound::top(Form{}, 0xF872), pb = sound::top(Form{}, 0x4E1F), zero = sound::top(Form{}, 0);
    EXPECT_EQ(burstMap(Form{}, pa + zero + zero + pb + pb + pa), "...");
    // The words in the channels of two instants.
    EXPECT_EQ(burstMap(Form{}, zero + pa + pb + zero), "..");
}

TEST(PcmParser, InitForgetsABurst) {
    MediaIoBuf buf;
    kit::fill(buf, sound::burst(Form{}, 192, 10));
    PcmParser parser;
    parser.init(MediaEndian::Big, 2, 2);
    ASSERT_TRUE(parser.setBuf(buf));
    for (unsigned i = 0; i < 5; ++i)
        EXPECT_TRUE(parser.decodeNextSample().m_inBurst);
    EXPECT_EQ(parser.getAc3SamplesCnt(), 192u);
    parser.init(MediaEndian::Big, 2, 2);
    EXPECT_EQ(parser.getAc3SamplesCnt(), 0u);
    EXPECT_FALSE(parser.decodeNextSample().m_inBurst);
}

TEST(PcmPattern, ANewChannelIsAllZero) {
    const PcmPattern pattern(10, 2);
    EXPECT_FALSE(pattern.suspect());
    EXPECT_EQ(textOf(pattern), "0 samples,ch0:silent,ch1:silent");
    PcmPattern::Channel channel;
    channel.m_prev = -1;
    channel.m_over = 3;
    channel.reset();
    EXPECT_EQ(channel.m_prev, 0);
    EXPECT_EQ(channel.m_over, 0u);
}

TEST(PcmPattern, TheFirstSampleHasNoStep) {
    PcmPattern pattern(1, 1);
    EXPECT_FALSE(pattern.add(1000000, 0));
    EXPECT_EQ(pattern.getChannel(0).m_ok, 1u);
    EXPECT_EQ(pattern.getChannel(0).m_maxStep, 0u);
}

TEST(PcmPattern, AStepOfTheLimitIsSoundAndOneMoreIsNot) {
    PcmPattern pattern(4096, 1);
    EXPECT_FALSE(pattern.add(0, 0));
    EXPECT_FALSE(pattern.add(4096, 0));
    EXPECT_FALSE(pattern.add(0, 0));
    EXPECT_TRUE(pattern.add(-4097, 0));
    EXPECT_EQ(pattern.getChannel(0).m_over, 1u);
    EXPECT_EQ(pattern.getChannel(0).m_ok, 3u);
    EXPECT_EQ(pattern.getChannel(0).m_maxStep, 4097u);
    // The answer is about all of the channel's steps.
    EXPECT_TRUE(pattern.add(-4097, 0));
    EXPECT_EQ(pattern.getChannel(0).m_ok, 4u);
    EXPECT_EQ(pattern.getChannel(0).m_step, 0u);
}

TEST(PcmPattern, TheLeastStepNeverLeavesZero) {
    PcmPattern pattern(4096, 1);
    for (const int value : {5, 100, 7, 900})
        pattern.add(value, 0);
    EXPECT_EQ(pattern.getChannel(0).m_minStep, 0u);
}

TEST(PcmPattern, AStepOf32BitsWraps) {
    PcmPattern pattern(4096, 1);
    pattern.add(0x7FFFFFFF, 0);
    EXPECT_FALSE(pattern.add(-0x7FFFFFFF - 1, 0));
    EXPECT_EQ(pattern.getChannel(0).m_step, 1u);
    EXPECT_TRUE(pattern.add(0, 0));
    EXPECT_EQ(pattern.getChannel(0).m_step, 0x80000000u);
}

TEST(PcmPattern, ChannelsAreTakenModulo32) {
    PcmPattern pattern(4096, 1);
    pattern.add(7, 33);
    EXPECT_EQ(pattern.getChannel(1).m_prev, 7);
    pattern.addAc3(65);
    EXPECT_EQ(pattern.getChannel(1).m_prev, 0);
    EXPECT_EQ(pattern.getChannel(1).m_ok, 2u);
}

TEST(PcmPattern, OneChannelOverTheLimitMakesTheBlockSuspectFromThenOn) {
    PcmPattern pattern(100, 2);
    addAll(pattern, {{0, 0}, {0, 50}, {0, 200}});
    EXPECT_TRUE(pattern.suspect());
    addAll(pattern, {{0, 200}, {0, 200}});
    EXPECT_TRUE(pattern.suspect());
    EXPECT_EQ(textOf(pattern), "5 samples,ch0:,ok,ch1:,1 over,max=150,ac3:expected 2,got 0 samples");
}

TEST(PcmPattern, SilenceConstantsAndSoundAreToldApart) {
    PcmPattern silent(100, 2);
    addAll(silent, {{0, 0}, {0, 0}});
    EXPECT_EQ(textOf(silent), "2 samples,ch0:silent,ch1:silent");
    PcmPattern constant(100, 2);
    addAll(constant, {{0, -2}, {0, -2}});
    EXPECT_EQ(textOf(constant), "2 samples,ch0:constant 0x0,ch1:constant 0xfffffffe");
    PcmPattern mixed(100, 2);
    addAll(mixed, {{31, 5}, {31, 6}});
    EXPECT_EQ(textOf(mixed), "2 samples,ch0:constant 0x1f,ch1:ok");
}

TEST(PcmPattern, AWholeBurstIsToldWithItsPlace) {
    PcmPattern pattern(100, 2);
    const int values[32] = {};
    for (unsigned i = 0; i < 5; ++i)
        pattern.add(PcmPattern::Sample(values, false));
    for (unsigned i = 0; i < 6; ++i)
        pattern.add(PcmPattern::Sample(values, true));
    pattern.setAc3SampleCount(4);
    EXPECT_FALSE(pattern.suspect());
    EXPECT_EQ(textOf(pattern), "11 samples,ch0:constant 0x0,ch1:constant 0x0,6 ac3 samples @s5");
}

TEST(PcmPattern, ACutBurstMakesTheBlockSuspect) {
    PcmPattern pattern(100, 2);
    const int values[32] = {};
    for (unsigned i = 0; i < 6; ++i)
        pattern.add(PcmPattern::Sample(values, true));
    pattern.setAc3SampleCount(5);
    EXPECT_TRUE(pattern.suspect());
    EXPECT_EQ(textOf(pattern), "6 samples,ch0:,ok,ch1:,ok,ac3:expected 7,got 6 samples");
}

TEST(PcmPattern, ALengthOfNoneIsNoExpectation) {
    PcmPattern pattern(100, 1);
    pattern.setAc3SampleCount(0);
    EXPECT_FALSE(pattern.suspect());
}

TEST(PcmPattern, TheStepOutOfABurstIsMeasuredFromZero) {
    PcmPattern pattern(100, 1);
    const int loud[32] = {5000};
    pattern.add(PcmPattern::Sample(loud, false));
    pattern.add(PcmPattern::Sample(loud, true));
    const int quiet[32] = {100};
    pattern.add(PcmPattern::Sample(quiet, false));
    EXPECT_FALSE(pattern.suspect());
    EXPECT_EQ(pattern.getChannel(0).m_step, 100u);
    EXPECT_EQ(pattern.getChannel(0).m_ok, 3u);
}

TEST(PcmPattern, ABurstLeavesTheVerdictAlone) {
    PcmPattern pattern(100, 1);
    const int values[2][32] = {{0}, {500}};
    pattern.add(PcmPattern::Sample(values[0], false));
    pattern.add(PcmPattern::Sample(values[1], false));
    ASSERT_TRUE(pattern.suspect());
    pattern.add(PcmPattern::Sample(values[0], true));
    EXPECT_TRUE(pattern.suspect());
}
