#include <gtest/gtest.h>

#include "shared/include/io/media_io_buf.h"
#include "shared/include/object/media_format.h"
#include "tests/unit/description/description_fixture.h"

using Name = MediaPropertyEnum::Name;

namespace {

class Clip : public testing::Test {
protected:
    TestMovie movie;
    TestTrack& video = movie.addTrack(MediaDataType::Video);
    TestTrack& audio = movie.addTrack(MediaDataType::Audio);
};

MediaClipParam audioParam() {
    return MediaClipParam(MediaEncodingType::Pcm, MediaDataType::Audio, MediaFileType::Wav, SequenceCodingType::Intra,
                          MediaVideoRate::Pal25, 0, 0, MediaChromaSample::None, MediaVideoScanType::Unknown, 48000, 1,
                          24, 24, 2, MediaEndian::Little, MediaOffsetSummary(6, 44, 100, 644), AspectRatio());
}

}  // namespace

TEST_F(Clip, StartsWithItsDefaults) {
    const TestClip& clip = video.addClip(MediaContainment::ByRef);
    EXPECT_EQ(clip.getContainer(), MediaContainment::ByRef);
    EXPECT_EQ(clip.getSampleRate(), 1u);
    EXPECT_EQ(clip.getTicksPerSample(), 1u);
    EXPECT_EQ(clip.m_backEndParam, 2u);
    EXPECT_EQ(clip.getMinSamples(), 0u);
    EXPECT_EQ(clip.getLength(), 0u);
    EXPECT_EQ(clip.getMediaId(), nullptr);
    EXPECT_EQ(clip.getRollout(), 0u);
    EXPECT_EQ(clip.getTargetRollout(), 0u);
    EXPECT_FALSE(clip.isSlave());
    EXPECT_EQ(clip.getSlaveClip(), nullptr);
    EXPECT_EQ(&clip.getRealClip(), &clip);
}

TEST_F(Clip, ACopyIsNotBoundToAFile) {
    TestClip& clip = video.addClip(MediaEncodingType::Avc, 25, 1, 99);
    clip.m_mediaId = mediaId(1);
    clip.m_bitrate = 7;
    clip.m_backEndParam = 9;
    clip.m_minSamples = 3;
    clip.m_rollout = 4;
    clip.m_targetRollout = 5;
    ASSERT_NE(clip.getParamId(), 0u);
    const TestClip copy(audio, clip);
    EXPECT_EQ(copy.m_paramId, 0u);
    EXPECT_EQ(copy.getMediaId(), nullptr);
    EXPECT_EQ(copy.getEncoding(), MediaEncodingType::Avc);
    EXPECT_EQ(copy.getBitrate(), 7u);
    EXPECT_EQ(copy.m_backEndParam, 9u);
    EXPECT_EQ(copy.getMinSamples(), 3u);
    EXPECT_EQ(copy.getRollout(), 4u);
    EXPECT_EQ(copy.getTargetRollout(), 5u);
    EXPECT_EQ(copy.getLength(), 99u);
}

TEST_F(Clip, ClosesItsLookupIfThereIsOne) {
    TestClip& clip = video.addClip();
    clip.close();
    EXPECT_EQ(clip.lookup().m_closes, 1);
    clip.dropLookup();
    clip.close();
}

TEST_F(Clip, TakesParametersAndPassesSizesAndRateOn) {
    TestClip& clip = audio.addClip();
    ASSERT_TRUE(clip.setParam(audioParam()).success());
    EXPECT_EQ(clip.getEncoding(), MediaEncodingType::Pcm);
    EXPECT_EQ(clip.getSampleRate(), 48000u);
    EXPECT_EQ(clip.getChannels(), 2u);
    EXPECT_EQ(clip.getEndian(), MediaEndian::Little);
    EXPECT_EQ(clip.getBitrate(), 48000u * 2 * 24);
    EXPECT_EQ(clip.lookup().m_baseOffset, 44u);
    EXPECT_EQ(audio.getVideoRate(), MediaVideoRate::Pal25);
    EXPECT_EQ(movie.getMovieDesc()->getStandard(), MediaVideoRate::Pal25);
    EXPECT_EQ(clip.getFileType(), MediaFileType::Wav);
}

TEST_F(Clip, ALookupThatRefusesItsSizesIsNoFailure) {
    CapturedLog log;
    TestClip& clip = audio.addClip();
    clip.lookup().m_refuse = true;
    EXPECT_TRUE(clip.setParam(audioParam()).success());
    EXPECT_EQ(clip.lookup().m_updates, 1);
    EXPECT_TRUE(log.m_lines.empty());
}

TEST_F(Clip, RefusesParametersThatContradictItsTrackAndStaysAsItWas) {
    TestClip& clip = audio.addClip();
    const auto refuses = [&](const MediaClipParam& param) {
        OpResult result = clip.setParam(param);
        result.discard();
        return result.getType() == OpResult::Type::Warning && result.getCode() == 1;
    };
    MediaClipParam param = audioParam();
    param.m_dataType = MediaDataType::Video;
    EXPECT_TRUE(refuses(param));
    audio.m_videoRate = MediaVideoRate::Hz50;
    EXPECT_TRUE(refuses(audioParam()));
    param = audioParam();
    param.m_videoRate = MediaVideoRate::Unknown;
    clip.dropLookup();
    EXPECT_TRUE(refuses(param));
    EXPECT_EQ(clip.getEncoding(), MediaEncodingType::Unknown);
    EXPECT_EQ(clip.getSampleRate(), 1u);
}

TEST_F(Clip, CanReceiveWhenOneScanIsUnknown) {
    TestClip& a = video.addClip(MediaEncodingType::Avc, 25, 1, 10);
    TestClip& b = video.addClip(MediaEncodingType::Avc, 25, 1, 10);
    b.m_vscan = MediaVideoScanType::Interlaced;
    EXPECT_TRUE(a.canReceive(b));
    EXPECT_TRUE(b.canReceive(a));
    a.m_vscan = MediaVideoScanType::Progressive;
    EXPECT_FALSE(a.canReceive(b));
}

TEST_F(Clip, CanReceiveOnlyTheVeryRateThoughTheIdsMatch) {
    TestClip& a = video.addClip(MediaEncodingType::Avc, 30000, 1001, 10);
    TestClip& b = video.addClip(MediaEncodingType::Avc, 2997, 100, 10);
    EXPECT_FALSE(a.canReceive(b));
    EXPECT_TRUE(MediaClipParam(a).paramIdMatch(MediaClipParam(b)));
}

TEST_F(Clip, CanReceiveComparesEveryFieldButTheBitrate) {
    TestClip& a = video.addClip(MediaEncodingType::Avc, 25, 1, 10);
    const auto refuses = [&](auto&& change) {
        TestClip& b = video.addClip(MediaEncodingType::Avc, 25, 1, 10);
        change(b);
        return !a.canReceive(b);
    };
    EXPECT_TRUE(refuses([](TestClip& c) { c.m_encoding = MediaEncodingType::Mpeg; }));
    EXPECT_TRUE(refuses([](TestClip& c) { c.m_coding = SequenceCodingType::LongGop; }));
    EXPECT_TRUE(refuses([](TestClip& c) { c.m_chroma = MediaChromaSample::C422; }));
    EXPECT_TRUE(refuses([](TestClip& c) { c.setRate(50, 1); }));
    EXPECT_TRUE(refuses([](TestClip& c) { c.setRate(25, 2); }));
    EXPECT_TRUE(refuses([](TestClip& c) { c.m_maxBitsPerSample = 1; }));
    EXPECT_TRUE(refuses([](TestClip& c) { c.m_bitsPerUnit = 1; }));
    EXPECT_TRUE(refuses([](TestClip& c) { c.m_channels = 1; }));
    EXPECT_TRUE(refuses([](TestClip& c) { c.m_endian = MediaEndian::Little; }));
    EXPECT_FALSE(refuses([](TestClip& c) { c.m_bitrate = 1; }));
    TestClip& other = audio.addClip(MediaEncodingType::Avc, 25, 1, 10);
    EXPECT_FALSE(a.canReceive(other));
    TestTrack& slow = movie.addTrack(MediaDataType::Video);
    slow.m_videoRate = MediaVideoRate::Film24;
    EXPECT_FALSE(a.canReceive(slow.addClip(MediaEncodingType::Avc, 25, 1, 10)));
}

TEST_F(Clip, WithoutALookupHasNoOffsetAndAnOkResult) {
    TestClip& clip = video.addClip();
    clip.dropLookup();
    MediaSampleInMovie sample;
    OpResult result = MO_WARNING(1, nullptr);
    result.discard();
    EXPECT_FALSE(clip.getMediaOffset(MediaPlayReq(5, 1), sample, result));
    EXPECT_TRUE(result.success());
    EXPECT_FALSE(clip.getFrameInfo(MediaPlayReq(5, 1), sample, result));
    EXPECT_EQ(clip.getSampleAndCount(7).m_count, 0u);
}

TEST_F(Clip, ASyncAdjustmentOfOneIsReadOneFrameOnAndNotSeenByTheCaller) {
    TestClip& clip = video.addClip();
    clip.m_mediaId = mediaId(2);
    video.setSyncAdjustment(1);
    MediaSampleInMovie sample;
    OpResult result;
    ASSERT_TRUE(clip.getMediaOffset(MediaPlayReq(10, 4), sample, result));
    EXPECT_EQ(clip.lookup().m_lastSample, 11u);
    EXPECT_EQ(sample.m_sample, 10u);
    EXPECT_EQ(sample.m_anchor, 7u);
    EXPECT_EQ(sample.m_count, 4u);
    EXPECT_EQ(sample.m_mediaId, mediaId(2));
    EXPECT_EQ(sample.m_trackIndex, 0u);
    EXPECT_EQ(sample.m_clipIndex, 0u);
    EXPECT_FALSE(sample.m_closeOther);
}

TEST_F(Clip, ANegativeSyncAdjustmentGoesBack) {
    TestClip& clip = audio.addClip();
    audio.setSyncAdjustment(-2);
    MediaSampleInMovie sample;
    OpResult result;
    ASSERT_TRUE(clip.getFrameInfo(MediaPlayReq(10, 1), sample, result));
    EXPECT_EQ(clip.lookup().m_lastSample, 8u);
    EXPECT_EQ(clip.lookup().m_frameInfos, 1);
    EXPECT_EQ(sample.m_sample, 10u);
    EXPECT_EQ(sample.m_trackIndex, 1u);
}

TEST_F(Clip, OneOfSeveralLetsTheReaderCloseTheOtherFiles) {
    video.addClip();
    TestClip& second = video.addClip();
    MediaSampleInMovie sample;
    OpResult result;
    ASSERT_TRUE(second.getMediaOffset(MediaPlayReq(0, 1), sample, result));
    EXPECT_TRUE(sample.m_closeOther);
    EXPECT_EQ(sample.m_clipIndex, 1u);
}

TEST_F(Clip, PassesARefusedLookupOn) {
    TestClip& clip = video.addClip();
    clip.lookup().m_refuse = true;
    MediaSampleInMovie sample;
    OpResult result;
    EXPECT_FALSE(clip.getMediaOffset(MediaPlayReq(10, 1), sample, result));
    EXPECT_EQ(result.getCode(), 11);
}

TEST_F(Clip, KeepsItsParamId) {
    TestClip& clip = audio.addClip(MediaEncodingType::Pcm, 48000, 1, 10);
    const auto id = clip.getParamId();
    clip.m_channels = 5;
    EXPECT_EQ(clip.getParamId(), id);
}

TEST_F(Clip, VbiLinesOfDifferentMasksAreDifferentMedia) {
    TestTrack& other = movie.addTrack(MediaDataType::Video);
    video.m_bag.set(VbiMaskProperty(3)).discard();
    other.m_bag.set(VbiMaskProperty(5)).discard();
    TestClip& a = video.addClip(MediaEncodingType::Vbi, 25, 1, 10);
    TestClip& b = other.addClip(MediaEncodingType::Vbi, 25, 1, 10);
    EXPECT_NE(a.getParamId(), b.getParamId());
    EXPECT_EQ(video.addClip(MediaEncodingType::Vbi, 25, 1, 10).getParamId(), a.getParamId());
}

TEST_F(Clip, AacOfDifferentBitratesAreDifferentMedia) {
    TestClip& a = audio.addClip(MediaEncodingType::Aac, 48000, 1024, 10);
    TestClip& b = audio.addClip(MediaEncodingType::Aac, 48000, 1024, 10);
    b.m_bitrate = 128000;
    EXPECT_NE(a.getParamId(), b.getParamId());
}

TEST_F(Clip, AvcOfUnknownKindHasTheDiscriminator65535) {
    TestClip& clip = video.addClip(MediaEncodingType::Avc, 25, 1, 10);
    MediaClipParam param(clip);
    param.m_extraParam[0] = 65535;
    EXPECT_EQ(clip.getParamId(), param.getParamId());
    TestTrack& kind = movie.addTrack(MediaDataType::Video);
    kind.m_bag.set(MediaProperty(Name::AvcKind, 0x10007u)).discard();
    TestClip& known = kind.addClip(MediaEncodingType::Avc, 25, 1, 10);
    param.m_extraParam[0] = 7;  // the low 16 bits
    EXPECT_EQ(known.getParamId(), param.getParamId());
    EXPECT_NE(known.getParamId(), clip.getParamId());
}

TEST_F(Clip, TheDiscriminatorReplacesTheFirstExtraParameterOnly) {
    TestClip& clip = video.addClip(MediaEncodingType::Avc, 25, 1, 10);
    clip.m_extra = {1, 2};
    MediaClipParam param(clip);
    param.m_extraParam[0] = 65535;
    ASSERT_EQ(param.m_extraParam[1], 2u);
    EXPECT_EQ(clip.getParamId(), param.getParamId());
}

TEST_F(Clip, ConvertsExactlyBetweenItsClockAndAnother) {
    TestClip& clip = audio.addClip(MediaEncodingType::Pcm, 48000, 1, 96000);
    EXPECT_EQ(clip.getMediaRate(), FixedPoint<16>(48000));
    EXPECT_EQ(clip.convertTo(FixedPoint<16>(48000), 48000), FixedPoint<16>(48000));
    EXPECT_EQ(clip.convertTo(FixedPoint<16>(480), 100), FixedPoint<16>(1));
    EXPECT_EQ(clip.convertFrom(FixedPoint<16>(1), 100u), FixedPoint<16>(480));
    EXPECT_EQ(clip.convertTo(100), FixedPoint<16>(200));
    EXPECT_EQ(clip.convertFrom(FixedPoint<16>(25), FixedPoint<16>(25)), FixedPoint<16>(48000));
}

TEST_F(Clip, MultipliesFirstUnlessTheProductOverflows) {
    TestClip& clip = audio.addClip(MediaEncodingType::Pcm, 3, 1, 10);
    EXPECT_EQ(clip.convertTo(FixedPoint<16>(10), 3000), FixedPoint<16>(10000));
    const FixedPoint<16> large(1ll << 40);
    ASSERT_TRUE(large.checkProductOverflow(90000));
    EXPECT_EQ(clip.convertTo(large, 90000), large / 3u * 90000u);
    EXPECT_EQ(clip.convertFrom(FixedPoint<16>(1ll << 45), 90000u), FixedPoint<16>(1ll << 45) / 90000u * 3u);
}

TEST_F(Clip, CountsItsTicks) {
    TestClip& clip = audio.addClip(MediaEncodingType::Aac, 48000, 1024, 375);
    EXPECT_EQ(clip.convertTo(48000), FixedPoint<16>(384000));
    EXPECT_EQ(clip.convertTo(100), FixedPoint<16>(800));
}

TEST_F(Clip, PrintsAudioAndVideoWithItsLength) {
    TestClip& pcm = audio.addClip(MediaEncodingType::Pcm, 48000, 1, 10);
    pcm.m_channels = 2;
    pcm.m_bitsPerUnit = 24;
    pcm.m_bitrate = 3000000000u;
    EXPECT_STREQ(pcm.toString().get(), "audio,pcm,2chan,48khz,bendian,24bpu,3000000000bps,len=10");
    TestClip& aac = audio.addClip(MediaEncodingType::Aac, 48000, 1024, 10);
    EXPECT_STREQ(aac.toString().get(), "audio,aac,0chan,48000/1024hz,bendian,0bpu,0bps,len=10");
    video.m_width = 720;
    video.m_height = 576;
    video.m_videoRate = MediaVideoRate::Pal25;
    TestClip& dv = video.addClip(MediaEncodingType::Dv, 25, 1, 7);
    EXPECT_STREQ(dv.toString().get(), "video,dv,720x576,25/1hz,pal,no chroma,unknown,0bpu,0bps,len=7");
    TestClip& mpeg = video.addClip(MediaEncodingType::Mpeg, 25, 1, 7);
    mpeg.m_coding = SequenceCodingType::LongGop;
    EXPECT_STREQ(mpeg.toString().get(), "video,mpeg,720x576,25/1hz,pal,no chroma,unknown,long-gop,0bpu,0bps,len=7");
    TestTrack& data = movie.addTrack(MediaDataType::Data);
    EXPECT_STREQ(data.addClip(MediaEncodingType::Data, 25, 1, 7).toString().get(), "?,data,0bpu,0bps,len=7");
}

TEST_F(Clip, MpegCodingsAreThreeOfThem) {
    for (unsigned int encoding = 0; encoding < 22; ++encoding) {
        EXPECT_EQ(isMpeg(static_cast<MediaEncodingType>(encoding)), encoding >= 3 && encoding <= 5);
    }
}

namespace {

// A writer whose clips can fill, for the kinds of essence that the tests below ask for.
class FillingClip : public TestClip {
public:
    using TestClip::TestClip;
    bool fillBlack(MediaSampleBuf&, FixedPoint<16> first, FixedPoint<16> second, bool flag) const override {
        s_calls.push_back("black " + std::to_string(first.intValue()) + " " + std::to_string(second.intValue()) +
                          (flag ? " true" : " false"));
        return true;
    }
    bool fillFwdRepeat(MediaSampleBuf&) const override {
        s_calls.push_back("forward");
        return true;
    }
    bool fillBakRepeat(MediaSampleBuf&) const override {
        s_calls.push_back("backward");
        return true;
    }
    static std::vector<std::string> s_calls;
};

std::vector<std::string> FillingClip::s_calls;

class FillingTrack : public TestTrack {
public:
    using TestTrack::createClip;
    using TestTrack::TestTrack;
    MediaClipDesc* createClip(const MediaClipParam& param, OpResult& result) override {
        if (s_refuse) return nullptr;
        m_clip = std::make_unique<FillingClip>(*this);
        result = m_clip->setParam(param);
        return m_clip.get();
    }
    OpResult setProperty(const MediaProperty& property) override {
        s_properties.push_back(property.toString().get());
        if (s_refuseProperty) {
            OpResult result = MO_WARNING(1, nullptr);
            result.discard();
            return result;
        }
        return TestTrack::setProperty(property);
    }
    static bool s_refuse;
    static bool s_refuseProperty;
    static std::vector<std::string> s_properties;

private:
    std::unique_ptr<FillingClip> m_clip;
};

bool FillingTrack::s_refuse = false;
bool FillingTrack::s_refuseProperty = false;
std::vector<std::string> FillingTrack::s_properties;

class FillingMovie : public TestMovie {
public:
    FillingMovie() : TestMovie(CacheRefValue::Cached) { ++s_live; }
    ~FillingMovie() override { --s_live; }
    MediaTrackDesc* createTrack(const MediaClipParam& param, OpResult& result) override {
        m_track = std::make_unique<FillingTrack>(*this, MediaDataType::Unknown, 0);
        result = m_track->setParam(param);
        return m_track.get();
    }
    static MediaObj* open(MediaFileType, OpResult& result) {
        ++s_made;
        result = OpResult(OpResult::Ok);
        return new FillingMovie;
    }
    static int s_live;
    static int s_made;

private:
    std::unique_ptr<FillingTrack> m_track;
};

int FillingMovie::s_live = 0;
int FillingMovie::s_made = 0;

class Fill : public Clip {
protected:
    void SetUp() override {
        static const bool once = [] {
            for (const auto type : {MediaFileType::Hdcam, MediaFileType::Vbi, MediaFileType::Mxf}) {
                MediaWriterDesc writer;
                writer.m_fileType = type;
                writer.m_open = FillingMovie::open;
                MediaObj::registerCreator(writer, 1);
            }
            return true;
        }();
        static_cast<void>(once);
        FillingClip::s_calls.clear();
        FillingTrack::s_properties.clear();
        FillingTrack::s_refuse = false;
        FillingTrack::s_refuseProperty = false;
        FillingMovie::s_made = 0;
    }
    void TearDown() override { EXPECT_EQ(FillingMovie::s_live, 0); }

    TestClip& clipOf(MediaEncodingType encoding) { return video.addClip(encoding, 25, 1, 10); }
};

}  // namespace

TEST_F(Fill, IsDoneByAScratchClipOfTheKindsOwnWriter) {
    TestClip& clip = clipOf(MediaEncodingType::Hdcam);
    MediaSampleBuf buf(clip);
    EXPECT_TRUE(clip.fillBlack(buf, FixedPoint<16>(3), FixedPoint<16>(4), true));
    EXPECT_TRUE(clip.fillFwdRepeat(buf));
    EXPECT_TRUE(clip.fillBakRepeat(buf));
    EXPECT_EQ(FillingClip::s_calls, (std::vector<std::string>{"black 3 4 true", "forward", "backward"}));
    EXPECT_TRUE(FillingTrack::s_properties.empty());
}

TEST_F(Fill, OfLineDataInMxfIsRefusedWithoutMakingAnObject) {
    for (const auto encoding : {MediaEncodingType::S436mVbi, MediaEncodingType::S436mAnc}) {
        TestClip& clip = clipOf(encoding);
        MediaSampleBuf buf(clip);
        EXPECT_FALSE(clip.fillBlack(buf, FixedPoint<16>(0), FixedPoint<16>(0), false));
    }
    EXPECT_EQ(FillingMovie::s_made, 0);
}

TEST_F(Fill, OfAnUnknownTypeIsRefusedAfterTheScratchClipIsMade) {
    TestClip& clip = clipOf(MediaEncodingType::Hdcam);
    MediaSampleBuf buf(clip);
    EXPECT_FALSE(clip.fill(static_cast<MediaClipDesc::FillType>(3), buf, FixedPoint<16>(0), FixedPoint<16>(0), false));
    EXPECT_EQ(FillingMovie::s_made, 1);
    EXPECT_TRUE(FillingClip::s_calls.empty());
}

TEST_F(Fill, OfVbiClearsTheLineMaskOfTheScratchTrack) {
    TestClip& clip = clipOf(MediaEncodingType::Vbi);
    MediaSampleBuf buf(clip);
    EXPECT_TRUE(clip.fillFwdRepeat(buf));
    ASSERT_FALSE(FillingTrack::s_properties.empty());
    EXPECT_EQ(FillingTrack::s_properties.back(), "vbiMask=0");
    FillingTrack::s_refuseProperty = true;
    EXPECT_FALSE(clip.fillFwdRepeat(buf));
}

TEST_F(Fill, WithoutAWriterOrAClipIsRefused) {
    CapturedLog log;
    TestClip& orphan = clipOf(MediaEncodingType::Jpeg2000);
    MediaSampleBuf buf(orphan);
    EXPECT_FALSE(orphan.fillBakRepeat(buf));
    FillingTrack::s_refuse = true;
    EXPECT_FALSE(clipOf(MediaEncodingType::Hdcam).fillBakRepeat(buf));
}
