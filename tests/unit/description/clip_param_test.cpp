#include <gtest/gtest.h>

#include <set>
#include <thread>

#include "mediautil/description/platform_records.h"
#include "shared/include/object/media_format.h"
#include "shared/include/object/switches.h"
#include "tests/unit/description/description_fixture.h"

using Name = MediaPropertyEnum::Name;

namespace {

MediaOffsetSummary offsets() { return MediaOffsetSummary(4, 44, 100, 444); }

MediaClipParam video(unsigned int sampleRate = 25, unsigned int ticks = 1) {
    return MediaClipParam(MediaEncodingType::Avc, MediaDataType::Video, MediaFileType::Mxf, SequenceCodingType::LongGop,
                          MediaVideoRate::Pal25, 1920, 1080, MediaChromaSample::C422, MediaVideoScanType::Interlaced,
                          sampleRate, ticks, 1000, 10, 1, MediaEndian::Big, offsets(), AspectRatio());
}

MediaClipParam audio() {
    return MediaClipParam(MediaEncodingType::Pcm, MediaDataType::Audio, MediaFileType::Wav, SequenceCodingType::Intra,
                          MediaVideoRate::Unknown, 0, 0, MediaChromaSample::None, MediaVideoScanType::Unknown, 48000, 1,
                          24, 24, 2, MediaEndian::Little, offsets(), AspectRatio());
}

ZxMediaSummary1 summaryOf(ZxMediaType type, unsigned int rateTimes100) {
    ZxMediaSummary1 summary;
    summary.type = type;
    summary.rateTimes100 = rateTimes100;
    return summary;
}

}  // namespace

TEST(ClipParam, StartsWithItsDefaults) {
    const MediaClipParam param;
    EXPECT_EQ(param.m_encoding, MediaEncodingType::Unknown);
    EXPECT_EQ(param.m_dataType, MediaDataType::Unknown);
    EXPECT_EQ(param.m_fileType, MediaFileType::Unknown);
    EXPECT_EQ(param.m_sampleRate, 0u);
    EXPECT_EQ(param.m_ticksPerSample, 1u);
    EXPECT_EQ(param.m_bitrate, 0u);
    EXPECT_EQ(param.m_offsets.m_sampleSize, 0u);
    EXPECT_EQ(param.m_extraParam[0], 0u);
    EXPECT_EQ(param.m_extraParam[1], 0u);
    EXPECT_EQ(param.getParams().getPropertyCount(), 0u);
}

TEST(ClipParam, ShortFormLeavesTheRateAlone) {
    const MediaClipParam param(MediaEncodingType::Dv, MediaDataType::Video, MediaVideoRate::Pal25, 720, 576,
                               AspectRatio());
    EXPECT_EQ(param.m_sampleRate, 0u);
    EXPECT_EQ(param.m_ticksPerSample, 1u);
    EXPECT_EQ(param.m_width, 720u);
    EXPECT_EQ(param.m_height, 576u);
    EXPECT_EQ(param.m_videoRate, MediaVideoRate::Pal25);
}

TEST(ClipParam, FullFormsDivideByTheTicksFirst) {
    const MediaClipParam param(MediaEncodingType::Pcm, MediaDataType::Audio, MediaVideoRate::Unknown, offsets(), 30000,
                               1001, 24, 16, 2, MediaEndian::Big, 0, 0, AspectRatio());
    EXPECT_EQ(param.m_bitrate, 30000u / 1001u * 2u * 16u);
    EXPECT_EQ(audio().m_bitrate, 48000u * 2 * 24);
    EXPECT_EQ(audio().m_offsets.m_baseOffset, 44u);
}

TEST(ClipParam, ZeroRateAndTicksBecomeOneAndTheLongFormReportsThat) {
    CapturedLog log;
    const MediaClipParam param(MediaEncodingType::Pcm, MediaDataType::Audio, MediaVideoRate::Unknown, offsets(), 0, 0,
                               24, 16, 2, MediaEndian::Big, 0, 0, AspectRatio());
    EXPECT_EQ(param.m_sampleRate, 1u);
    EXPECT_EQ(param.m_ticksPerSample, 1u);
    EXPECT_EQ(param.m_bitrate, 32u);
    ASSERT_EQ(log.m_lines.size(), 1u);
    EXPECT_NE(log.m_lines[0].find("internal error"), std::string::npos);
}

TEST(ClipParam, TheFullFormReplacesZerosInSilence) {
    CapturedLog log;
    const MediaClipParam param = video(0, 0);
    EXPECT_EQ(param.m_sampleRate, 1u);
    EXPECT_EQ(param.m_ticksPerSample, 1u);
    EXPECT_EQ(param.m_bitrate, 10u);
    EXPECT_TRUE(log.m_lines.empty());
}

TEST(ClipParam, TheTrackFormKeepsZerosAndDoesNotDivideByTheTicks) {
    TestMovie movie;
    TestTrack& track = movie.addTrack(MediaDataType::Audio);
    track.m_videoRate = MediaVideoRate::Ntsc2997;
    const MediaClipParam param(track, MediaEncodingType::Aac, offsets(), 48000, 1024, 0, 8, 2, MediaEndian::Little, 0,
                               0, AspectRatio());
    EXPECT_EQ(param.m_dataType, MediaDataType::Audio);
    EXPECT_EQ(param.m_videoRate, MediaVideoRate::Ntsc2997);
    EXPECT_EQ(param.m_bitrate, 48000u * 2 * 8);
    const MediaClipParam zero(track, MediaEncodingType::Aac, offsets(), 0, 0, 0, 8, 2, MediaEndian::Little, 0, 0,
                              AspectRatio());
    EXPECT_EQ(zero.m_sampleRate, 0u);
    EXPECT_EQ(zero.m_ticksPerSample, 0u);
}

TEST(ClipParam, SnapshotOfAClipTakesWhatClipTrackMovieAndLookupSay) {
    TestMovie movie;
    TestTrack& track = movie.addTrack(MediaDataType::Video);
    track.m_videoRate = MediaVideoRate::Pal25;
    track.m_width = 1920;
    track.m_height = 1080;
    track.m_aspect.set(MediaAspectRatio::Ratio16x9);
    TestClip& clip = track.addClip(MediaEncodingType::Mpeg, 25, 1, 10);
    clip.m_coding = SequenceCodingType::LongGop;
    clip.m_bitrate = 50000000;
    clip.m_channels = 1;
    clip.m_extra = {7, 8};
    clip.lookup().update(offsets()).discard();
    const MediaClipParam param(clip);
    EXPECT_EQ(param.m_fileType, MediaFileType::Mxf);
    EXPECT_EQ(param.m_coding, SequenceCodingType::LongGop);
    EXPECT_EQ(param.m_videoRate, MediaVideoRate::Pal25);
    EXPECT_EQ(param.m_width, 1920u);
    EXPECT_EQ(param.m_aspect.get(), MediaAspectRatio::Ratio16x9);
    EXPECT_EQ(param.m_bitrate, 50000000u);
    EXPECT_EQ(param.m_offsets.m_sampleSize, 4u);
    EXPECT_EQ(param.m_extraParam[0], 7u);
    EXPECT_EQ(param.m_extraParam[1], 8u);
    clip.m_extra.clear();
    EXPECT_EQ(MediaClipParam(clip).m_extraParam[0], 0u);
}

TEST(ClipParam, ACopyLosesTheExtraPairAndAnAssignmentKeepsIt) {
    MediaClipParam param = video();
    param.m_extraParam[0] = 3;
    param.m_extraParam[1] = 4;
    param.setParam(MediaProperty(Name::NBlack, 5u)).discard();
    const MediaClipParam copy(param);
    EXPECT_EQ(copy.m_extraParam[0], 0u);
    EXPECT_EQ(copy.m_extraParam[1], 0u);
    EXPECT_EQ(copy.getParam(Name::NBlack).uintValue(), 5u);
    EXPECT_NE(&copy.getParams(), &param.getParams());
    MediaClipParam assigned;
    assigned = param;
    EXPECT_EQ(assigned.m_extraParam[0], 3u);
    EXPECT_EQ(assigned.m_extraParam[1], 4u);
    EXPECT_EQ(assigned.getParam(Name::NBlack).uintValue(), 5u);
    EXPECT_EQ(assigned.m_bitrate, param.m_bitrate);
}

TEST(ClipParam, AMissingPropertyReadsAsADefaultOne) {
    EXPECT_EQ(MediaClipParam().getParam(Name::NBlack).getType(), MediaPropertyEnum::Type::None);
}

TEST(ClipParam, EssenceHasItsNaturalFileType) {
    static const int types[] = {0, 16, 1, 9, 10, 11, 18, 25, 19, 15, 17, 21, 3, 3, 23, 24, 26, 0, 4, 30, 31, 0};
    for (unsigned int encoding = 0; encoding < std::size(types); ++encoding) {
        const auto type = MediaClipParam::getFileType(static_cast<MediaEncodingType>(encoding), MediaEndian::Big);
        EXPECT_EQ(static_cast<int>(type), types[encoding]) << "encoding " << encoding;
    }
    EXPECT_EQ(static_cast<int>(MediaClipParam::getFileType(MediaEncodingType::Pcm, MediaEndian::Little)), 19);
    EXPECT_EQ(static_cast<int>(MediaClipParam::getFileType(MediaEncodingType::Pcm, MediaEndian::Big)), 18);
}

TEST(ClipParam, ItsOwnFileTypeIgnoresTheFieldOfThatName) { EXPECT_EQ(video().getFileType(), MediaFileType::Avc); }

TEST(ParamId, IgnoresBitrateFileTypeOffsetsAndBag) {
    const MediaClipParam param = video();
    MediaClipParam other = video();
    other.m_bitrate += 1;
    other.m_fileType = MediaFileType::QuickTime;
    other.m_offsets = MediaOffsetSummary();
    other.setParam(MediaProperty(Name::NBlack, 5u)).discard();
    EXPECT_TRUE(param == other);
    EXPECT_EQ(param.getParamId(), other.getParamId());
    EXPECT_NE(param.getParamId(), 0u);
}

TEST(ParamId, TellsEveryComparedFieldApart) {
    const MediaClipParam param = video();
    const auto differs = [&](auto&& change) {
        MediaClipParam other = video();
        change(other);
        return !param.paramIdMatch(other);
    };
    EXPECT_TRUE(differs([](MediaClipParam& p) { p.m_encoding = MediaEncodingType::Mpeg; }));
    EXPECT_TRUE(differs([](MediaClipParam& p) { p.m_dataType = MediaDataType::Audio; }));
    EXPECT_TRUE(differs([](MediaClipParam& p) { p.m_coding = SequenceCodingType::Intra; }));
    EXPECT_TRUE(differs([](MediaClipParam& p) { p.m_videoRate = MediaVideoRate::Hz50; }));
    EXPECT_TRUE(differs([](MediaClipParam& p) { p.m_width = 1440; }));
    EXPECT_TRUE(differs([](MediaClipParam& p) { p.m_height = 720; }));
    EXPECT_TRUE(differs([](MediaClipParam& p) { p.m_aspect = MediaAspectRatio::Ratio16x9; }));
    EXPECT_TRUE(differs([](MediaClipParam& p) { p.m_chroma = MediaChromaSample::C420; }));
    EXPECT_TRUE(differs([](MediaClipParam& p) { p.m_vscan = MediaVideoScanType::Progressive; }));
    EXPECT_TRUE(differs([](MediaClipParam& p) { p.m_channels = 2; }));
    EXPECT_TRUE(differs([](MediaClipParam& p) { p.m_endian = MediaEndian::Little; }));
    EXPECT_TRUE(differs([](MediaClipParam& p) { p.m_extraParam[0] = 1; }));
    EXPECT_TRUE(differs([](MediaClipParam& p) { p.m_extraParam[1] = 1; }));
    EXPECT_FALSE(differs([](MediaClipParam& p) { p.m_vscan = MediaVideoScanType::Unknown; }));
}

TEST(ParamId, LargestSampleCountsForLineDataOnly) {
    for (const auto encoding : {MediaEncodingType::S436mVbi, MediaEncodingType::S436mAnc, MediaEncodingType::Pcm}) {
        MediaClipParam a = video();
        a.m_encoding = encoding;
        MediaClipParam b(a);
        b.m_maxBitsPerSample += 1;
        EXPECT_EQ(a == b, encoding == MediaEncodingType::Pcm);
    }
}

TEST(ParamId, BitsOfAUnitCountForAudioAndUncompressedVideoOnly) {
    const auto matches = [](MediaDataType type, MediaEncodingType encoding) {
        MediaClipParam a = video();
        a.m_dataType = type;
        a.m_encoding = encoding;
        MediaClipParam b(a);
        b.m_bitsPerUnit += 1;
        return a == b;
    };
    EXPECT_FALSE(matches(MediaDataType::Audio, MediaEncodingType::Pcm));
    EXPECT_FALSE(matches(MediaDataType::Audio, MediaEncodingType::Aac));
    EXPECT_FALSE(matches(MediaDataType::Video, MediaEncodingType::Rec601));
    EXPECT_FALSE(matches(MediaDataType::Video, MediaEncodingType::Dv));
    EXPECT_TRUE(matches(MediaDataType::Video, MediaEncodingType::Avc));
    EXPECT_TRUE(matches(MediaDataType::Data, MediaEncodingType::Data));
}

TEST(ParamId, ARateRoundedToHundredthsMatchesTheExactOne) {
    EXPECT_TRUE(video(30000, 1001) == video(2997, 100));
    EXPECT_TRUE(video(2997, 100) == video(30000, 1001));
    EXPECT_FALSE(video(25, 1) == video(50, 1));
    EXPECT_FALSE(video(2997, 100) == video(2998, 100));
}

TEST(ParamId, NumeratorsOverTheSameTicksThatDifferByOneAreDifferentMedia) {
    for (const unsigned int ticks : {1u, 3u, 100u, 1001u, 65536u, 1000000u}) {
        for (unsigned int rate = 1; rate < 6001; ++rate) {
            MediaClipParam a = video();
            a.m_sampleRate = rate;
            a.m_ticksPerSample = ticks;
            MediaClipParam b = a;
            ++b.m_sampleRate;
            ASSERT_FALSE(a.paramIdMatch(b)) << rate << "/" << ticks;
            ASSERT_FALSE(b.paramIdMatch(a)) << rate << "/" << ticks;
        }
    }
}

TEST(ParamId, ARateWithoutTicksMatchesOnlyItsLike) {
    MediaClipParam broken = video();
    broken.m_ticksPerSample = 0;
    EXPECT_TRUE(broken == broken);
    EXPECT_FALSE(broken == video());
    EXPECT_FALSE(video() == broken);
}

TEST(ParamId, AnUnknownScanGetsTheIdOfTheFirstEntryOfItsKind) {
    MediaClipParam interlaced = video();
    interlaced.m_width = 111;  // a kind of its own among the tests
    MediaClipParam progressive(interlaced);
    progressive.m_vscan = MediaVideoScanType::Progressive;
    MediaClipParam unknown(interlaced);
    unknown.m_vscan = MediaVideoScanType::Unknown;
    const auto first = interlaced.getParamId();
    EXPECT_NE(progressive.getParamId(), first);
    EXPECT_EQ(unknown.getParamId(), first);
}

TEST(ParamId, IsDenseAndStable) {
    MediaClipParam one = video();
    one.m_width = 222;
    MediaClipParam two(one);
    two.m_width = 223;
    const auto first = one.getParamId();
    EXPECT_EQ(two.getParamId(), first + 1);
    EXPECT_EQ(one.getParamId(), first);
}

TEST(ParamId, IsTheSameForEveryThreadThatAsks) {
    constexpr unsigned int kinds = 40;
    constexpr unsigned int threads = 4;
    std::vector<std::vector<MediaClipParam::ParamId>> ids(threads, std::vector<MediaClipParam::ParamId>(kinds));
    std::vector<std::thread> running;
    for (unsigned int t = 0; t < threads; ++t) {
        running.emplace_back([&ids, t] {
            for (unsigned int i = 0; i < kinds; ++i) {
                const unsigned int kind = (i + t * 10) % kinds;  // each thread in an order of its own
                MediaClipParam param = video();
                param.m_width = 5000 + kind;
                ids[t][kind] = param.getParamId();
            }
        });
    }
    for (std::thread& thread : running)
        thread.join();
    for (unsigned int t = 1; t < threads; ++t)
        EXPECT_EQ(ids[t], ids[0]);
    const std::set<MediaClipParam::ParamId> distinct(ids[0].begin(), ids[0].end());
    EXPECT_EQ(distinct.size(), kinds);
}

TEST(ParamId, TheEntryKeepsTheExtraPairThatACopyLoses) {
    MediaClipParam param = video();
    param.m_width = 333;
    param.m_extraParam[0] = 65535;
    const auto id = param.getParamId();
    EXPECT_NE(MediaClipParam(param).getParamId(), id);
    MediaClipParam assigned;
    assigned = param;
    EXPECT_EQ(assigned.getParamId(), id);
}

TEST(ParamId, AnnouncesMismatchesAndNewIds) {
    MediaClipParam first = video();
    first.m_width = 444;
    first.getParamId();
    MediaClipParam second(first);
    second.m_width = 445;
    CapturedLog log;
    mediaObjDbg.setBit(MediaDbg::AnnounceParamId);
    const auto id = second.getParamId();
    mediaObjDbg.clearBit(MediaDbg::AnnounceParamId);
    const std::string text = second.toString().get();
    ASSERT_GE(log.m_lines.size(), 2u);
    EXPECT_EQ(log.m_lines[log.m_lines.size() - 2], "MCP::getId: " + text + " != " + first.toString().get());
    EXPECT_EQ(log.m_lines.back(), "MediaClipDesc:id" + std::to_string(id) + "={" + text + "}");
}

TEST(ClipParam, SampleRateFollowsTheVideoRateOfTheRecord) {
    static const unsigned int rows[][2] = {{1, 1},  {25, 1}, {30000, 1001}, {24000, 1001}, {24, 1},
                                           {30, 1}, {50, 1}, {60000, 1001}, {60, 1}};
    for (unsigned int rate = 0; rate < std::size(rows); ++rate) {
        MediaClipParam param;
        param.m_videoRate = static_cast<MediaVideoRate>(rate);
        // The argument is ignored.
        EXPECT_TRUE(param.initSampleRate(MediaVideoRate::Hz60).success());
        EXPECT_EQ(param.m_sampleRate, rows[rate][0]);
        EXPECT_EQ(param.m_ticksPerSample, rows[rate][1]);
    }
}

TEST(ClipParam, AnUnknownVideoRateFailsAndLeavesASampleRateOfOne) {
    MediaClipParam param;
    param.m_videoRate = static_cast<MediaVideoRate>(9);
    param.m_sampleRate = 48000;
    OpResult result = param.initSampleRate(MediaVideoRate::Pal25);
    EXPECT_EQ(result.getType(), OpResult::Type::Error);
    EXPECT_EQ(result.getCode(), 1);
    EXPECT_EQ(param.m_sampleRate, 1u);
    result.discard();
}

namespace {

// A file type that no real writer has in this program.
constexpr auto s_fillableType = static_cast<MediaFileType>(101);
constexpr auto s_bareType = static_cast<MediaFileType>(102);

bool fillVideo(MediaClipParam& param, MediaEncodingType encoding, MediaVideoRate rate) {
    param.m_encoding = encoding;
    param.m_videoRate = rate;
    return rate != MediaVideoRate::Unknown;
}

bool fillAudio(MediaClipParam& param, MediaEncodingType encoding, MediaVideoRate rate, unsigned first, unsigned second,
               unsigned third) {
    param.m_encoding = encoding;
    param.m_videoRate = rate;
    param.m_sampleRate = first;
    param.m_channels = second;
    param.m_bitsPerUnit = third;
    return true;
}

void registerWriters() {
    static const bool once = [] {
        MediaWriterDesc writer;
        writer.m_fileType = s_fillableType;
        writer.m_initVideo = fillVideo;
        writer.m_initAudio = fillAudio;
        MediaObj::registerCreator(writer, 5);
        MediaWriterDesc bare;
        bare.m_fileType = s_bareType;
        MediaObj::registerCreator(bare, 5);
        return true;
    }();
    static_cast<void>(once);
}

}  // namespace

TEST(ClipParam, IsFilledInByTheWriterOfAFileType) {
    registerWriters();
    MediaClipParam param;
    EXPECT_TRUE(param.initVideo(s_fillableType, MediaEncodingType::Dv, MediaVideoRate::Pal25));
    EXPECT_EQ(param.m_encoding, MediaEncodingType::Dv);
    EXPECT_FALSE(param.initVideo(s_fillableType, MediaEncodingType::Dv, MediaVideoRate::Unknown));
    EXPECT_TRUE(param.initAudio(s_fillableType, MediaEncodingType::Pcm, MediaVideoRate::Hz50, 48000, 2, 24));
    EXPECT_EQ(param.m_sampleRate, 48000u);
    EXPECT_EQ(param.m_channels, 2u);
    EXPECT_EQ(param.m_bitsPerUnit, 24u);
}

TEST(ClipParam, IsNotFilledInWithoutATypeAWriterOrAFillFunction) {
    registerWriters();
    MediaClipParam param;
    EXPECT_FALSE(param.initVideo(MediaFileType::Unknown, MediaEncodingType::Dv, MediaVideoRate::Pal25));
    EXPECT_FALSE(param.initAudio(MediaFileType::Unknown, MediaEncodingType::Pcm, MediaVideoRate::Pal25, 1, 1, 1));
    CapturedLog log;
    const auto missing = static_cast<MediaFileType>(103);
    EXPECT_FALSE(param.initVideo(missing, MediaEncodingType::Dv, MediaVideoRate::Pal25));
    EXPECT_FALSE(param.initAudio(missing, MediaEncodingType::Pcm, MediaVideoRate::Pal25, 1, 1, 1));
    EXPECT_FALSE(param.initVideo(s_bareType, MediaEncodingType::Dv, MediaVideoRate::Pal25));
    EXPECT_FALSE(param.initAudio(s_bareType, MediaEncodingType::Pcm, MediaVideoRate::Pal25, 1, 1, 1));
}

TEST(ClipParam, PrintsAudioVideoAndDataEachInItsWay) {
    EXPECT_STREQ(audio().toString().get(), "audio,pcm,2chan,48khz,lendian,24bpu,2304000bps");
    EXPECT_STREQ(video(30000, 1001).toString().get(),
                 "video,avc,1920x1080,30000/1001hz,pal,4:2:2,interlaced,10bpu,290bps");
    EXPECT_STREQ(MediaClipParam().toString().get(), "?media,?encoding,0bpu,0bps");
}

TEST(SummaryRecord, EveryTypeHasItsDataType) {
    for (unsigned int type = 0; type < 30; ++type) {
        const bool isVideo = type == 1 || type == 6 || (type >= 8 && type <= 12) || (type >= 16 && type <= 18) ||
                             (type >= 20 && type <= 22);
        const bool isAudio = (type >= 2 && type <= 5) || type == 7 || type == 19;
        const int expected = isVideo ? 1 : isAudio ? 2 : 0;
        const MediaClipParam param(summaryOf(static_cast<ZxMediaType>(type), 2500), ZxFrameStruct::Unknown);
        EXPECT_EQ(static_cast<int>(param.m_dataType), expected) << "type " << type;
    }
}

TEST(SummaryRecord, OfVideoAt720LinesIsProgressiveWhenTheFrameStructureIsUnknown) {
    ZxMediaSummary1 summary = summaryOf(ZxMediaType::Mpeg2Video, 2500);
    summary.width = 1280;
    summary.height = 720;
    summary.chroma = ZxVideoSampleRatio::Ratio420;
    summary.bitrate = 25000000;
    summary.gopLength = 12;
    summary.bitsPerSample = 8;
    const MediaClipParam param(summary, ZxFrameStruct::Unknown);
    EXPECT_EQ(param.m_vscan, MediaVideoScanType::Progressive);
    EXPECT_EQ(param.m_videoRate, MediaVideoRate::Pal25);
    EXPECT_EQ(param.m_sampleRate, 2500u);
    EXPECT_EQ(param.m_ticksPerSample, 100u);
    EXPECT_EQ(param.m_chroma, MediaChromaSample::C420);
    EXPECT_EQ(param.m_coding, SequenceCodingType::LongGop);
    EXPECT_EQ(param.m_bitrate, 25000000u);
    EXPECT_EQ(param.m_channels, 1u);
    EXPECT_EQ(param.m_maxBitsPerSample, 0u);
    EXPECT_EQ(param.m_bitsPerUnit, 0u);
}

TEST(SummaryRecord, ScanFollowsTheFrameStructureWhereItIsKnown) {
    ZxMediaSummary1 summary = summaryOf(ZxMediaType::Avc, 2500);
    summary.height = 720;
    EXPECT_EQ(MediaClipParam(summary, ZxFrameStruct::Interlaced).m_vscan, MediaVideoScanType::Interlaced);
    summary.height = 1080;
    EXPECT_EQ(MediaClipParam(summary, ZxFrameStruct::Progressive).m_vscan, MediaVideoScanType::Progressive);
    EXPECT_EQ(MediaClipParam(summary, ZxFrameStruct::Unknown).m_vscan, MediaVideoScanType::Interlaced);
}

TEST(SummaryRecord, VideoRatesAreExactValues) {
    static const unsigned int rows[][2] = {{2398, 3}, {2400, 4}, {2500, 1}, {2997, 2}, {3000, 5},
                                           {5000, 6}, {5994, 7}, {6000, 8}, {2996, 0}, {0, 0}};
    for (const auto& row : rows) {
        const MediaClipParam param(summaryOf(ZxMediaType::Avc, row[0]), ZxFrameStruct::Unknown);
        EXPECT_EQ(static_cast<unsigned int>(param.m_videoRate), row[1]) << row[0];
    }
}

TEST(SummaryRecord, UncompressedVideoHasSamplesOfOneSize) {
    ZxMediaSummary1 summary = summaryOf(static_cast<ZxMediaType>(21), 2500);
    summary.bitsPerSample = 8 * 829440;
    const MediaClipParam param(summary, ZxFrameStruct::Unknown);
    EXPECT_EQ(param.m_maxBitsPerSample, 8u * 829440);
    EXPECT_EQ(param.m_bitsPerUnit, 8u);
    EXPECT_EQ(param.m_offsets.m_sampleSize, 829440u);
}

TEST(SummaryRecord, AudioIsCountedInWholeSamplesASecond) {
    ZxMediaSummary1 summary = summaryOf(ZxMediaType::Pcm, 4800000);
    summary.bitsPerSample = 24;
    summary.channels = 2;
    summary.width = 720;
    const MediaClipParam param(summary, ZxFrameStruct::Unknown);
    EXPECT_EQ(param.m_sampleRate, 48000u);
    EXPECT_EQ(param.m_ticksPerSample, 1u);
    EXPECT_EQ(param.m_maxBitsPerSample, 24u);
    EXPECT_EQ(param.m_bitsPerUnit, 24u);
    EXPECT_EQ(param.m_channels, 2u);
    EXPECT_EQ(param.m_width, 0u);
    EXPECT_EQ(param.m_endian, MediaEndian::Little);
    summary.isBigEndian = 1;
    EXPECT_EQ(MediaClipParam(summary, ZxFrameStruct::Unknown).m_endian, MediaEndian::Big);
}

TEST(SummaryRecord, PacketsOf1024SamplesHaveTheirExactRate) {
    const MediaClipParam param(summaryOf(ZxMediaType::Aac, 4687), ZxFrameStruct::Unknown);
    EXPECT_EQ(param.m_sampleRate, 48000u);
    EXPECT_EQ(param.m_ticksPerSample, 1024u);
    EXPECT_EQ(param.m_encoding, MediaEncodingType::Aac);
}

TEST(SummaryRecord, AspectIsTheFilesAndOnlyIfKnown) {
    ZxMediaSummary1 summary = summaryOf(ZxMediaType::Avc, 2500);
    for (unsigned int aspect = 0; aspect < 6; ++aspect) {
        summary.aspect = aspect;
        const MediaClipParam param(summary, ZxFrameStruct::Unknown);
        EXPECT_EQ(static_cast<unsigned int>(param.m_aspect.get()), aspect <= 3 ? aspect : 0);
    }
}

TEST(PlatformCodes, MapOntoTheVocabulary) {
    EXPECT_EQ(toMediaEncodingType(ZxMediaType::Pcm), MediaEncodingType::Pcm);
    EXPECT_EQ(toMediaEncodingType(ZxMediaType::Uncompressed), MediaEncodingType::Rec601);
    EXPECT_EQ(toMediaEncodingType(ZxMediaType::Dv50), MediaEncodingType::Dv);
    EXPECT_EQ(toMediaEncodingType(ZxMediaType::Ac3), MediaEncodingType::Unknown);
    EXPECT_EQ(toMediaEncodingType(static_cast<ZxMediaType>(99)), MediaEncodingType::Unknown);
    EXPECT_EQ(toMediaChromaSample(ZxVideoSampleRatio::Ratio422), MediaChromaSample::C422);
    EXPECT_EQ(toMediaChromaSample(static_cast<ZxVideoSampleRatio>(99)), MediaChromaSample::None);
}
