#include "shared/include/description/media_clip_param.h"
#include "tests/unit/backends/dv_fixture.h"

// What a DV stream says about itself: its system, picture, timecode and sound.

using namespace DvKit;

namespace {

MediaAspectRatio aspectBy(const DvSystem& system, unsigned display, unsigned bcSystem, unsigned apt) {
    Frame frame(system);
    frame.videoPack(1, 2, 0xC8 | display).videoPack(1, 3, 0xFC | bcSystem).application(apt);
    const Verdict verdict(frame);
    EXPECT_TRUE(verdict.m_result.success());
    return verdict.m_format.aspect;
}

std::string timecodeOf(const Frame& frame) {
    const Verdict verdict(frame);
    EXPECT_TRUE(verdict.m_result.success());
    const MediaTimecode& timecode = verdict.m_format.timecode;
    if (!timecode.isValid()) return "none";
    return timecode.toString().get() + std::string(timecode.m_dropFrame ? " drop" : "");
}

void expectSound(const Frame& frame, unsigned channels, unsigned rate, unsigned bits) {
    const Verdict verdict(frame);
    ASSERT_TRUE(verdict.m_result.success());
    EXPECT_EQ(verdict.m_format.audio.channels, channels);
    if (channels == 0) return;
    EXPECT_EQ(verdict.m_format.audio.rate, rate);
    EXPECT_EQ(verdict.m_format.audio.bits, bits);
}

}  // namespace

TEST(DvSystem, FramesHaveTheSizesOfTheStandards) {
    const unsigned sizes[s_dvSystemCount] = {120000, 144000, 144000, 240000, 288000, 480000, 576000, 240000, 288000};
    const unsigned bitrates[s_dvSystemCount] = {28771229,  28800000,  28800000,  57542458, 57600000,
                                                115084915, 115200000, 115084915, 115200000};
    for (unsigned i = 0; i < s_dvSystemCount; ++i) {
        EXPECT_EQ(system(i).frameSize(), sizes[i]) << system(i).name;
        EXPECT_EQ(system(i).bitrate(), bitrates[i]) << system(i).name;
    }
}

TEST(DvSystem, EachIsToldApartByItsOwnFrames) {
    for (const DvSystem& one : s_dvSystems) {
        SCOPED_TRACE(one.name);
        const Verdict verdict(stream(one, 3));
        expectFrames(verdict, one, 0, 3);
        const bool progressive = one.height == 720;
        EXPECT_EQ(verdict.m_format.scan,
                  progressive ? MediaVideoScanType::Progressive : MediaVideoScanType::Interlaced);
        EXPECT_FALSE(verdict.m_format.timecode.isValid());
    }
}

TEST(DvSystem, TheTrackApplicationTellsTheChromaOf625LinesAlone) {
    expectFrames(Verdict(Frame(system(Pal420)).application(1)), system(Pal411), 0, 1);
    expectFrames(Verdict(Frame(system(Pal411)).application(0)), system(Pal420), 0, 1);
    const Verdict ntsc(Frame(system(Ntsc25)).application(1));
    expectFrames(ntsc, system(Ntsc25), 0, 1);
    EXPECT_TRUE(ntsc.m_format.isPro);
    EXPECT_FALSE(Verdict(Frame(system(Ntsc25))).m_format.isPro);
}

TEST(DvSystem, UnknownSignalIsRefusedByItsNumber) {
    Frame frame(system(Pal50));
    frame.videoPack(0, 3, 0xE0 | 0x07);
    expectRefused(frame.bytes() + frame.bytes(), MediaCode::UnsupportedMediaType,
                  "dv: signal type 0x07 of 625/50 is not supported");
}

TEST(DvSystem, StreamWithoutItsSignalIsOfTheBasicKindUnlessTheNextFrameSaysOtherwise) {
    for (const unsigned index : {Ntsc25, Pal420}) {
        Frame frame(system(index));
        frame.videoPack(0, 0, 0xFF);
        expectFrames(Verdict(frame), system(index), 0, 1);
        expectFrames(Verdict(frame.bytes() + frame.bytes()), system(index), 0, 2);
        frame.videoPack(0, 0, 0x60).videoPack(0, 3, 0xFF);
        expectFrames(Verdict(frame.bytes() + frame.bytes()), system(index), 0, 2);
        frame.videoPack(0, 3, 0xE1);  // a signal that isn't known, in frames that stand as the basic ones do
        expectFrames(Verdict(frame.bytes() + frame.bytes()), system(index), 0, 2);
    }
    expectRefused(Frame(system(Pal50)).videoPack(0, 0, 0xFF).bytes(), MediaCode::ParserError,
                  "dv: the stream doesn't say its signal type");
}

TEST(DvSystem, ParametersFindTheSystemThatCarriesThem) {
    MediaClipParam param(MediaEncodingType::Dv, MediaDataType::Video, MediaVideoRate::Pal25, 720, 576, AspectRatio());
    EXPECT_EQ(DvSystem::find(param), &system(Pal420));
    param.m_chroma = MediaChromaSample::C411;
    EXPECT_EQ(DvSystem::find(param), &system(Pal411));
    param.m_chroma = MediaChromaSample::C422;
    EXPECT_EQ(DvSystem::find(param), &system(Pal50));
    param.m_chroma = MediaChromaSample::None;
    param.m_maxBitsPerSample = 288000 * 8;
    EXPECT_EQ(DvSystem::find(param), &system(Pal50));
    param.m_chroma = MediaChromaSample::C444;
    EXPECT_EQ(DvSystem::find(param), nullptr);

    MediaClipParam wide(MediaEncodingType::Dv, MediaDataType::Video, MediaVideoRate::Unknown, 1920, 1080,
                        AspectRatio());
    wide.m_sampleRate = 2997;
    wide.m_ticksPerSample = 100;
    EXPECT_EQ(DvSystem::find(wide), &system(Hd60i));
    wide.m_sampleRate = 24;
    wide.m_ticksPerSample = 0;
    EXPECT_EQ(DvSystem::find(wide), nullptr);

    MediaClipParam audio(MediaEncodingType::Dv, MediaDataType::Audio, MediaVideoRate::Hz50, 0, 0, AspectRatio());
    EXPECT_EQ(DvSystem::find(audio), &system(Hd50p));
    audio.m_videoRate = MediaVideoRate::Unknown;
    EXPECT_EQ(DvSystem::find(audio), &system(Ntsc25));
    audio.m_videoRate = MediaVideoRate::Film24;
    EXPECT_EQ(DvSystem::find(audio), nullptr);
}

TEST(DvPicture, AspectComesFromTheDisplayBits) {
    constexpr auto ratio4x3 = MediaAspectRatio::Ratio4x3, ratio16x9 = MediaAspectRatio::Ratio16x9;
    constexpr auto other = MediaAspectRatio::Other, unknown = MediaAspectRatio::Unknown;
    const DvSystem& pal = system(Pal420);
    const MediaAspectRatio consumer[8] = {ratio4x3, ratio4x3, ratio16x9, unknown, unknown, unknown, unknown, ratio16x9};
    const MediaAspectRatio wss[8] = {ratio4x3, ratio4x3, ratio16x9, ratio4x3, ratio4x3, ratio4x3, other, ratio16x9};
    const MediaAspectRatio pro[8] = {ratio4x3, unknown, ratio16x9, unknown, unknown, unknown, unknown, unknown};
    for (unsigned display = 0; display < 8; ++display) {
        SCOPED_TRACE(display);
        EXPECT_EQ(aspectBy(pal, display, 0, 0), consumer[display]);
        EXPECT_EQ(aspectBy(pal, display, 1, 0), wss[display]);
        EXPECT_EQ(aspectBy(pal, display, 1, 1), pro[display]);
        EXPECT_EQ(aspectBy(system(Hd50i), display, 0, 1), ratio16x9);
    }
}

TEST(DvPicture, WithoutAControlPackTheAspectIsUnknownAndTheScanInterlaced) {
    const Verdict verdict(Frame(system(Pal420)).videoPack(1, 0, 0xFF));
    EXPECT_EQ(verdict.m_format.aspect, MediaAspectRatio::Unknown);
    EXPECT_EQ(verdict.m_format.scan, MediaVideoScanType::Interlaced);
    EXPECT_EQ(Verdict(Frame(system(Hd60i)).videoPack(1, 0, 0xFF)).m_format.aspect, MediaAspectRatio::Ratio16x9);
}

TEST(DvPicture, ScanComesFromTheInterlaceFlag) {
    const Verdict verdict(Frame(system(Pal420)).videoPack(1, 3, 0xEC));
    EXPECT_EQ(verdict.m_format.scan, MediaVideoScanType::Progressive);
}

TEST(DvTimecode, IsThatOfTheFirstFrameWithItsDropFrameFlag) {
    EXPECT_EQ(timecodeOf(Frame(system(Ntsc25)).timecode(0x44, 0x83, 0x82, 0xC1)), "01:02:03.04 drop");
    EXPECT_EQ(timecodeOf(Frame(system(Ntsc25)).timecode(0x29, 0x59, 0x59, 0x23)), "23:59:59.29");
    EXPECT_EQ(timecodeOf(Frame(system(Ntsc25))), "none");
    const std::string two = Frame(system(Pal420)).timecode(0x05, 0, 0, 0).bytes();
    const Verdict verdict(two + Frame(system(Pal420)).timecode(0x06, 0, 0, 0).bytes());
    EXPECT_STREQ(verdict.m_format.timecode.toString().get(), "00:00:00.05");
    EXPECT_EQ(verdict.m_format.timecode.m_rate.intValue(), 25);
}

TEST(DvTimecode, In625LinesTheFlagsBitIsNotADropFrameFlag) {
    EXPECT_EQ(timecodeOf(Frame(system(Pal420)).timecode(0x64, 0x83, 0x82, 0xC1)), "01:02:03.24");
}

TEST(DvTimecode, ThatIsNoTimeOfDayIsNone) {
    EXPECT_EQ(timecodeOf(Frame(system(Ntsc25)).timecode(0x30, 0, 0, 0)), "none");
    EXPECT_EQ(timecodeOf(Frame(system(Pal420)).timecode(0x25, 0, 0, 0)), "none");
    EXPECT_EQ(timecodeOf(Frame(system(Ntsc25)).timecode(0x0A, 0, 0, 0)), "none");
    EXPECT_EQ(timecodeOf(Frame(system(Ntsc25)).timecode(0, 0x60, 0, 0)), "none");
    EXPECT_EQ(timecodeOf(Frame(system(Ntsc25)).timecode(0, 0, 0x7F, 0)), "none");
    EXPECT_EQ(timecodeOf(Frame(system(Ntsc25)).timecode(0, 0, 0, 0x24)), "none");
    EXPECT_EQ(timecodeOf(Frame(system(Ntsc25)).timecode(0xFF, 0xFF, 0xFF, 0xFF)), "none");
}

TEST(DvTimecode, CountsBothFramesOfAProgressivePair) {
    EXPECT_EQ(timecodeOf(Frame(system(Hd60p)).timecode(0x52, 0, 0, 0)), "00:00:00.24 drop");
    EXPECT_EQ(timecodeOf(Frame(system(Hd60p)).timecode(0x52, 0, 0, 0).laterOfPair()), "00:00:00.25 drop");
    EXPECT_EQ(timecodeOf(Frame(system(Hd50p)).timecode(0x24, 0, 0, 0)), "00:00:00.48");
}

TEST(DvTimecode, TwoSequencesMustAgree) {
    Frame frame(system(Ntsc25));
    frame.timecode(0x12, 0, 0, 0).timecodeIn(0, 0x13, 0, 0, 0);
    EXPECT_EQ(timecodeOf(frame), "00:00:00.12");
}

TEST(DvSound, EveryKindIsReadFromTheSourcePacks) {
    for (const DvSystem& one : s_dvSystems) {
        SCOPED_TRACE(one.name);
        for (const unsigned rate : {48000u, 44100u, 32000u}) {
            for (unsigned channels = 0; channels <= one.channels * 2; ++channels)
                expectSound(Frame(one, sound(channels, rate)), channels, rate, 16);
        }
    }
}

TEST(DvSound, TwelveBitsPutTwoChannelsIntoEachHalf) {
    for (const unsigned channels : {2u, 4u})
        expectSound(Frame(system(Pal420), sound(channels, 32000, 12)), channels, 32000, 12);
    expectSound(Frame(system(Pal420), sound(2, 48000, 20)), 2, 48000, 20);
}

TEST(DvSound, WhatIsMarkedAsNotRecordedDoesNotCount) {
    expectSound(Frame(system(Ntsc25)).audioPack(2, 0x0F, 5), 1, 48000, 16);
    expectSound(Frame(system(Ntsc25)).audioPack(2, 0x0F), 0, 0, 0);
    expectSound(Frame(system(Ntsc25)).audioPack(0, 0xFF), 0, 0, 0);
}

TEST(DvSound, OfAnUnknownKindIsLeftOut) {
    expectSound(Frame(system(Ntsc25)).audioPack(4, 0xC0 | 3 << 3), 0, 0, 0);
    expectSound(Frame(system(Ntsc25)).audioPack(4, 0xC0 | 3), 0, 0, 0);
    expectSound(Frame(system(Ntsc25)).audioPack(2, 2 << 5), 0, 0, 0);
}

TEST(DvSound, OfASecondKindInTheSameFramesIsLeftOut) {
    expectSound(Frame(system(Pal50), sound(4)).audioPack(4, 0xC0 | 2 << 3, 12), 2, 48000, 16);
}

TEST(DvSound, AProgressivePairHasTheChannelsOfBothItsFrames) {
    const Frame first(system(Hd50p), sound(4));
    Frame second(system(Hd50p), sound(4));
    second.laterOfPair();
    const Verdict told(first.bytes() + second.bytes());
    EXPECT_EQ(told.m_format.audio.channels, 8u);
    const Verdict untold(first.bytes() + first.bytes());
    EXPECT_EQ(untold.m_format.audio.channels, 4u);
}
