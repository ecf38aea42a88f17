#include "shared/include/validation/mpeg_level.h"

#include <gtest/gtest.h>

#include "tests/kit/log_capture.h"

namespace {

struct Stream {
    unsigned m_width, m_height;
    MediaChromaSample m_chroma;
    unsigned m_bitRate;
    MediaVideoRate m_rate;
    bool m_exactRateHigh = false;
};

std::uint32_t calc(const Stream& stream) {
    return calcMpegLevelAndProfile(stream.m_width, stream.m_height, stream.m_chroma, stream.m_bitRate, stream.m_rate,
                                   stream.m_exactRateHigh);
}

constexpr auto C420 = MediaChromaSample::C420, C422 = MediaChromaSample::C422;
constexpr auto Pal = MediaVideoRate::Pal25, Ntsc = MediaVideoRate::Ntsc2997, Hz50 = MediaVideoRate::Hz50;

}  // namespace

TEST(MpegLevel, MainLevelOfTheMainProfile) {
    EXPECT_EQ(calc({720, 480, C420, 15000000, Ntsc}), 0x80004u);
    EXPECT_EQ(calc({720, 480, C420, 15000001, Ntsc}), 0x60004u);
    EXPECT_EQ(calc({721, 480, C420, 15000000, Ntsc}), 0x60004u);
    EXPECT_EQ(calc({720, 576, C420, 8000000, Pal}), 0x80004u);
    EXPECT_EQ(calc({720, 576, C420, 8000000, Ntsc}), 0x60004u);
    EXPECT_EQ(calc({720, 481, C420, 8000000, Ntsc}), 0x60004u);
    EXPECT_EQ(calc({0, 0, MediaChromaSample::None, 0, MediaVideoRate::Unknown}), 0x80004u);
}

TEST(MpegLevel, BroadcastRatesOfHighLevelAreNamedByTheCaller) {
    EXPECT_EQ(calc({1440, 1080, C420, 18000000, Pal}), 0x60004u);
    EXPECT_EQ(calc({1440, 1080, C420, 18000000, Pal, true}), 0x40004u);
    EXPECT_EQ(calc({1440, 1080, C420, 18000001, Pal}), 0x60004u);
    EXPECT_EQ(calc({1440, 1080, C420, 18000001, Pal, true}), 0x60004u);
    EXPECT_EQ(calc({1439, 1080, C420, 18000000, Pal, true}), 0x60004u);
    EXPECT_EQ(calc({1280, 720, C420, 35000000, Hz50, true}), 0x40004u);
    EXPECT_EQ(calc({1280, 720, C420, 35000000, Hz50}), 0x60004u);
    EXPECT_EQ(calc({720, 576, C420, 35000000, Pal, true}), 0x60004u);
}

TEST(MpegLevel, HighLevelOfTheMainProfile) {
    EXPECT_EQ(calc({1920, 1080, C420, 10000000, Pal}), 0x40004u);
    EXPECT_EQ(calc({1920, 1080, C420, 10000000, MediaVideoRate::Hz60}), 0x40004u);
    EXPECT_EQ(calc({1441, 1080, C420, 1, Pal}), 0x40004u);
    EXPECT_EQ(calc({1440, 1080, C420, 60000000, Pal}), 0x60004u);
    EXPECT_EQ(calc({1440, 1080, C420, 60000001, Pal}), 0x40004u);
}

TEST(MpegLevel, ARateThatOnlyThe422ProfileHasDecidesTheProfile) {
    EXPECT_EQ(calc({1920, 1080, C420, 80000000, Pal}), 0x40004u);
    EXPECT_EQ(calc({1920, 1080, C420, 80000001, Pal}), 0x40000u);
    EXPECT_EQ(calc({720, 576, MediaChromaSample::C444, 50000000, Pal}), 0x60004u);
    EXPECT_EQ(calc({720, 576, MediaChromaSample::C411, 25000000, Pal}), 0x60004u);
}

TEST(MpegLevel, MainLevelOfThe422Profile) {
    EXPECT_EQ(calc({720, 512, C422, 50000000, Ntsc}), 0x80000u);
    EXPECT_EQ(calc({720, 512, C422, 50000001, Ntsc}), 0x40000u);
    EXPECT_EQ(calc({720, 513, C422, 50000000, Ntsc}), 0x40000u);
    EXPECT_EQ(calc({720, 608, C422, 50000000, Pal}), 0x80000u);
    EXPECT_EQ(calc({720, 609, C422, 50000000, Pal}), 0x40000u);
    EXPECT_EQ(calc({721, 576, C422, 50000000, Pal}), 0x40000u);
    EXPECT_EQ(calc({720, 608, C422, 50000000, Ntsc}), 0x40000u);
    EXPECT_EQ(calc({720, 576, C422, 50000000, Hz50}), 0x40000u);
    EXPECT_EQ(calc({720, 480, C422, 50000000, Hz50}), 0x40000u);
    EXPECT_EQ(calc({720, 480, C422, 50000000, MediaVideoRate::Hz30}), 0x80000u);
    // The rate is compared with its sign.
    EXPECT_EQ(calc({720, 480, C422, 50000000, static_cast<MediaVideoRate>(0xFFFFFFFF)}), 0x80000u);
}

TEST(MpegLevel, ARateBeyondTheStandardIsTold) {
    const kit::LogCapture log;
    EXPECT_EQ(calc({1920, 1080, C422, 300000000, Pal}), 0x40000u);
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(calc({1920, 1080, C422, 300000001, Pal}), 0x40000u);
    EXPECT_EQ(log.count(LogLevel::Info, "mpeg bit rate 300000001 bps exceeds max supported 300000000 (422P@HL)"), 1u)
        << log.text();
}
