#include <gtest/gtest.h>

#include "shared/include/description/aspect_ratio.h"
#include "shared/include/description/media_timecode.h"
#include "shared/include/description/sw_version.h"

namespace {

const FixedPoint<16> s_ntsc = FixedPoint<16>(30000) / 1001;
const FixedPoint<16> s_ntsc60 = FixedPoint<16>(60000) / 1001;

std::string text(int counter, const FixedPoint<16>& rate, bool drop) {
    MediaTimecode timecode;
    timecode.setCounter(counter, rate, drop);
    return timecode.toString().get();
}

int roundTrip(int counter, const FixedPoint<16>& rate, bool drop) {
    MediaTimecode timecode;
    timecode.setCounter(counter, rate, drop);
    return timecode.getCounter();
}

}  // namespace

TEST(Timecode, ByDefaultIsInvalidWithARateOfMinusOne) {
    const MediaTimecode timecode;
    EXPECT_FALSE(timecode.isValid());
    EXPECT_EQ(timecode.m_rate, FixedPoint<16>(-1));
    EXPECT_EQ(timecode.getCounter(), 0);
    EXPECT_STREQ(timecode.toString().get(), "00:00:00.00");
}

TEST(Timecode, DropFrameLeavesOutTheFirstTwoNumbersOfAMinute) {
    EXPECT_EQ(text(1799, s_ntsc, true), "00:00:59.29");
    EXPECT_EQ(text(1800, s_ntsc, true), "00:01:00.02");
    EXPECT_EQ(text(1800 + 1797, s_ntsc, true), "00:01:59.29");
    EXPECT_EQ(text(1800 + 1798, s_ntsc, true), "00:02:00.02");
}

TEST(Timecode, DropFrameKeepsAllNumbersOfEveryTenthMinute) {
    EXPECT_EQ(text(17981, s_ntsc, true), "00:09:59.29");
    EXPECT_EQ(text(17982, s_ntsc, true), "00:10:00.00");
    EXPECT_EQ(text(107892, s_ntsc, true), "01:00:00.00");
}

TEST(Timecode, DropFrameGivesEveryCounterOfTwoHoursBack) {
    for (int counter = 0; counter < 2 * 107892; ++counter)
        ASSERT_EQ(roundTrip(counter, s_ntsc, true), counter);
}

TEST(Timecode, At5994FourNumbersAreDropped) {
    EXPECT_EQ(text(3599, s_ntsc60, true), "00:00:59.59");
    EXPECT_EQ(text(3600, s_ntsc60, true), "00:01:00.04");
    EXPECT_EQ(text(2 * 17982, s_ntsc60, true), "00:10:00.00");
    EXPECT_EQ(text(2 * 107892, s_ntsc60, true), "01:00:00.00");
    for (int counter = 0; counter < 2 * 107892; counter += 7)
        ASSERT_EQ(roundTrip(counter, s_ntsc60, true), counter);
}

TEST(Timecode, WithoutDropFrameTheDigitsArePlainArithmetic) {
    EXPECT_EQ(text(1800, s_ntsc, false), "00:01:00.00");
    EXPECT_EQ(text(25 * 3661 + 7, FixedPoint<16>(25), false), "01:01:01.07");
    EXPECT_EQ(roundTrip(25 * 3661 + 7, FixedPoint<16>(25), false), 25 * 3661 + 7);
}

TEST(Timecode, ADropFlagAtAnotherRateIsIgnored) {
    EXPECT_EQ(text(1800, FixedPoint<16>(25), true), text(1800, FixedPoint<16>(25), false));
    EXPECT_EQ(roundTrip(1800, FixedPoint<16>(25), true), 1800);
}

TEST(Timecode, ARateOfZeroLeavesItInvalid) {
    MediaTimecode timecode;
    timecode.setCounter(5, FixedPoint<16>(25), true);
    timecode.m_extraWord = 3;
    timecode.setCounter(5, FixedPoint<16>(0), false);
    EXPECT_FALSE(timecode.isValid());
    EXPECT_EQ(timecode.m_rate, FixedPoint<16>(-1));
    EXPECT_EQ(timecode.m_frames, 0);
    EXPECT_FALSE(timecode.m_dropFrame);
    EXPECT_EQ(timecode.m_extraWord, 0u);
}

TEST(Timecode, ARateBelowOneFrameASecondIsInvalid) {
    MediaTimecode timecode;
    timecode.setCounter(5, FixedPoint<16>(0.99), false);
    EXPECT_FALSE(timecode.isValid());
}

TEST(Timecode, ACounterSetOnAnInvalidOneChangesNothing) {
    MediaTimecode timecode;
    timecode.setCounter(1234);
    EXPECT_STREQ(timecode.toString().get(), "00:00:00.00");
}

TEST(Timecode, ValidateFastKeepsAValidOneAndClearsAnInvalidOne) {
    MediaTimecode timecode;
    timecode.setCounter(30, FixedPoint<16>(25), false);
    EXPECT_TRUE(timecode.validateFast());
    EXPECT_STREQ(timecode.toString().get(), "00:00:01.05");
    timecode.m_rate = FixedPoint<16>(-3);
    EXPECT_FALSE(timecode.validateFast());
    EXPECT_EQ(timecode.m_rate, FixedPoint<16>(-1));
    EXPECT_STREQ(timecode.toString().get(), "00:00:00.00");
}

TEST(Timecode, HoursWrapAt256) {
    MediaTimecode timecode;
    timecode.setCounter(25 * 3600 * 257, FixedPoint<16>(25), false);
    EXPECT_EQ(timecode.m_hours, 1);
}

TEST(Timecode, ARateThatNoFileMeansDoesNotOverflow) {
    MediaTimecode timecode;
    timecode.setCounter(2000000000, FixedPoint<16>(0x7fffffff), false);
    EXPECT_TRUE(timecode.isValid());
    EXPECT_EQ(timecode.m_hours, 0);
    EXPECT_EQ(timecode.m_seconds, 0);
}

TEST(TimeToString, PrintsHoursMinutesSecondsAndTruncatedMilliseconds) {
    EXPECT_STREQ(timeToString(FixedPoint<16>(3661.5)).get(), "01:01:01.500");
    EXPECT_STREQ(timeToString(FixedPoint<16>(0)).get(), "00:00:00.000");
    EXPECT_STREQ(timeToString(FixedPoint<16>(59) + FixedPoint<16>(65535, FixedPoint<16>::AlreadyFixed())).get(),
                 "00:00:59.999");
}

TEST(FixedPointOfRates, HasTheRawValuesThatTheRatesRelyOn) {
    EXPECT_EQ((FixedPoint<16>(1) / 200).rawValue(), 327);
    EXPECT_EQ(s_ntsc.rawValue(), 1964115);
    EXPECT_EQ(FixedPoint<16>(29.97).round(), FixedPoint<16>(30));
    EXPECT_EQ(FixedPoint<16>(23.976).round(), FixedPoint<16>(24));
    EXPECT_EQ(FixedPoint<16>(59.94).round(), FixedPoint<16>(60));
}

TEST(AspectRatioOfAFile, IsOverriddenByActiveFormatData) {
    AspectRatio aspect;
    EXPECT_EQ(aspect.get(), MediaAspectRatio::Unknown);
    EXPECT_TRUE(aspect.set(MediaAspectRatio::Ratio4x3));
    EXPECT_EQ(aspect.get(), MediaAspectRatio::Ratio4x3);
    EXPECT_TRUE(aspect.set(MediaAspectRatio::Ratio16x9, AspectRatio::ViaAFD()));
    EXPECT_EQ(aspect.get(), MediaAspectRatio::Ratio16x9);
    EXPECT_TRUE(aspect.set(MediaAspectRatio::Other));
    EXPECT_EQ(aspect.get(), MediaAspectRatio::Ratio16x9);
    EXPECT_TRUE(aspect.set(MediaAspectRatio::Unknown, AspectRatio::ViaAFD()));
    EXPECT_EQ(aspect.get(), MediaAspectRatio::Other);
}

TEST(AspectRatioOfAFile, SettingTheSameRatioAnswersThatNothingChanged) {
    AspectRatio aspect;
    aspect = MediaAspectRatio::Ratio16x9;
    EXPECT_FALSE(aspect.set(MediaAspectRatio::Ratio16x9));
    EXPECT_TRUE(aspect.set(MediaAspectRatio::Ratio16x9, AspectRatio::ViaAFD()));
    EXPECT_FALSE(aspect.set(MediaAspectRatio::Ratio16x9, AspectRatio::ViaAFD()));
}

TEST(SoftwareVersion, ByDefaultIsInvalid) {
    EXPECT_FALSE(SwVersion().isValid());
    EXPECT_TRUE(SwVersion().isNotValid());
    EXPECT_EQ(SwVersion().getScalar(), 0xffffffffu);
}

TEST(SoftwareVersion, ComparesByItsBytesFromTheMajorOneDown) {
    EXPECT_EQ(SwVersion(1, 2, 3, 4).getScalar(), 0x01020304u);
    EXPECT_TRUE(SwVersion(1, 2, 3, 4).isValid());
    EXPECT_TRUE(SwVersion(1, 2, 3, 4) < SwVersion(1, 2, 3, 5));
    EXPECT_FALSE(SwVersion(1, 2, 3, 5) < SwVersion(1, 2, 3, 4));
    EXPECT_TRUE(SwVersion(5, 3, 9, 0) < SwVersion(5, 4, 0, 0));
}
