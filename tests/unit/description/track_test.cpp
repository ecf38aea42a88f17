#include <gtest/gtest.h>

#include "tests/unit/description/description_fixture.h"

using Name = MediaPropertyEnum::Name;

namespace {

class Track : public testing::Test {
protected:
    TestMovie movie;  // time base 100
    TestTrack& track = movie.addTrack(MediaDataType::Video);

    // Two clips of 100 samples, a sample a tick of the movie.
    void addTwoClips() {
        track.addClip(MediaEncodingType::Avc, 100, 1, 100);
        track.addClip(MediaEncodingType::Avc, 100, 1, 100);
    }
    const MediaClipDesc* at(FixedPoint<16> time) { return static_cast<const TestTrack&>(track).clipAt(time, start); }

    FixedPoint<16> start{-7};
};

}  // namespace

TEST_F(Track, ATimeWithinHalfASampleBelongsToTheNextClip) {
    addTwoClips();
    EXPECT_EQ(at(FixedPoint<16>(0)), &track.clip(0));
    EXPECT_EQ(start, FixedPoint<16>(0));
    EXPECT_EQ(at(FixedPoint<16>(99)), &track.clip(0));
    EXPECT_EQ(at(FixedPoint<16>(99.5)), &track.clip(1));
    EXPECT_EQ(start, FixedPoint<16>(100));
    EXPECT_EQ(at(FixedPoint<16>(99.25)), &track.clip(0));
}

TEST_F(Track, ATimePastTheEndBelongsToTheLastClip) {
    addTwoClips();
    EXPECT_EQ(at(FixedPoint<16>(500)), &track.clip(1));
    EXPECT_EQ(start, FixedPoint<16>(100));
}

TEST_F(Track, ATimeFarBelowZeroBelongsToNoClip) {
    addTwoClips();
    EXPECT_EQ(at(FixedPoint<16>(-0.5)), &track.clip(0));
    EXPECT_EQ(at(FixedPoint<16>(-1)), nullptr);
    EXPECT_EQ(start, FixedPoint<16>(0));
}

TEST_F(Track, WithoutClipsAnswersNoClip) {
    EXPECT_EQ(at(FixedPoint<16>(0)), nullptr);
    EXPECT_EQ(start, FixedPoint<16>(0));
    EXPECT_EQ(track.getEncoding(), MediaEncodingType::Unknown);
    EXPECT_EQ(track.getMediaRate(), FixedPoint<16>(1));
    EXPECT_EQ(track.getMaxLength(), FixedPoint<16>(0));
    EXPECT_EQ(track.getContainment(), MediaContainment::Unknown);
    EXPECT_EQ(track.commonId(), nullptr);
    EXPECT_FALSE(track.isSlave());
    EXPECT_EQ(track.getSlaveTrack(), nullptr);
    EXPECT_EQ(track.getParam().m_encoding, MediaEncodingType::Unknown);
}

TEST_F(Track, TheFirstClipIsLongerByWhatItsFirstEditSkips) {
    addTwoClips();
    track.clip(0).m_edits.emplace_back(10, 110);
    track.clip(1).m_edits.emplace_back(10, 110);
    EXPECT_EQ(at(FixedPoint<16>(105)), &track.clip(0));
    EXPECT_EQ(at(FixedPoint<16>(110)), &track.clip(1));
    EXPECT_EQ(start, FixedPoint<16>(110));
}

TEST_F(Track, ClipsOfDifferentRatesFollowEachOther) {
    track.addClip(MediaEncodingType::Pcm, 48000, 1, 48000);
    track.addClip(MediaEncodingType::Pcm, 50, 1, 50);
    EXPECT_EQ(at(FixedPoint<16>(99)), &track.clip(0));
    EXPECT_EQ(at(FixedPoint<16>(100)), &track.clip(1));
    EXPECT_EQ(start, FixedPoint<16>(100));
    EXPECT_EQ(track.clipAt(FixedPoint<16>(100), start), &track.clip(1));
}

TEST_F(Track, ATimeInTheLastHalfOfALongSampleBelongsToTheClipOfShortOnesBehind) {
    track.addClip(MediaEncodingType::Pcm, 50, 1, 50);    // two ticks a sample
    track.addClip(MediaEncodingType::Pcm, 400, 1, 400);  // a quarter
    track.addClip(MediaEncodingType::Pcm, 400, 1, 400);
    EXPECT_EQ(at(FixedPoint<16>(98.75)), &track.clip(0));
    for (const double time : {99.0, 99.5, 99.75, 99.875, 100.0}) {
        EXPECT_EQ(at(FixedPoint<16>(time)), &track.clip(1)) << time;
        EXPECT_EQ(start, FixedPoint<16>(100)) << time;
    }
    EXPECT_EQ(at(FixedPoint<16>(199.75)), &track.clip(1));
    EXPECT_EQ(at(FixedPoint<16>(199.875)), &track.clip(2));
    EXPECT_EQ(at(FixedPoint<16>(-1.5)), nullptr);
    EXPECT_EQ(start, FixedPoint<16>(0));
}

TEST_F(Track, NoTimeOfATrackIsWithoutAClip) {
    for (const unsigned rate : {25u, 400u, 7u, 50u, 1000u, 1u, 100u})
        track.addClip(MediaEncodingType::Pcm, rate, 1, 3 * rate);
    const MediaClipDesc* before = nullptr;
    for (int time = 0; time <= 2200 * 16; ++time) {
        const MediaClipDesc* clip = at(FixedPoint<16>(time) / 16);
        ASSERT_NE(clip, nullptr) << time << " sixteenths";
        if (before) {
            ASSERT_GE(clip->getClipIndex(), before->getClipIndex()) << time << " sixteenths";
        }
        before = clip;
    }
    EXPECT_EQ(before, &track.clip(6));
}

TEST_F(Track, CountsFramesOfTheMoviesRate) {
    track.m_videoRate = MediaVideoRate::Pal25;
    track.m_length = 402;
    EXPECT_EQ(track.getFrameLength(), 101u);
    EXPECT_EQ(track.getDuration(), FixedPoint<16>(402) / 100u);
}

TEST_F(Track, ARateOfZeroCountsAFrameATick) {
    track.m_length = 402;  // a video track without rate and clips: the movie's rate is 0
    ASSERT_EQ(movie.getRealVideoRate(), FixedPoint<16>(0));
    EXPECT_EQ(track.getFrameLength(), 402u);
}

TEST_F(Track, ContainmentSumsItsClips) {
    const auto sum = [&](std::initializer_list<MediaContainment> containers) {
        TestTrack& made = movie.addTrack(MediaDataType::Video);
        for (const MediaContainment container : containers)
            made.addClip(container);
        return made.getContainment();
    };
    constexpr auto none = MediaContainment::Unknown;
    constexpr auto byRef = MediaContainment::ByRef;
    constexpr auto embedded = MediaContainment::Embedded;
    constexpr auto mixed = MediaContainment::Mixed;
    EXPECT_EQ(sum({byRef, embedded}), mixed);
    EXPECT_EQ(sum({none, byRef}), byRef);
    EXPECT_EQ(sum({byRef, none}), byRef);
    EXPECT_EQ(sum({embedded, embedded}), embedded);
    EXPECT_EQ(sum({byRef, mixed}), byRef);
    EXPECT_EQ(sum({mixed, byRef}), mixed);
}

TEST_F(Track, ContainmentIsKeptOnlyOnceThereIsEssence) {
    TestClip& clip = track.addClip(MediaContainment::ByRef);
    EXPECT_EQ(track.getContainment(), MediaContainment::ByRef);
    clip.m_container = MediaContainment::Embedded;
    EXPECT_EQ(track.getContainment(), MediaContainment::Embedded);
    clip.m_length = 1;
    clip.m_container = MediaContainment::ByRef;
    EXPECT_EQ(track.getContainment(), MediaContainment::Embedded);
}

TEST_F(Track, CommonIdIsTheOneFileBehindAllClips) {
    MediaIdRec* a = mediaId(1);
    TestClip& first = track.addClip();
    TestClip& second = track.addClip();
    first.m_mediaId = a;
    EXPECT_EQ(track.commonId(), nullptr);
    first.m_mediaId = nullptr;
    second.m_mediaId = a;
    EXPECT_EQ(track.commonId(), a);
    first.m_mediaId = a;
    EXPECT_EQ(track.commonId(), a);
    second.m_mediaId = mediaId(2);
    EXPECT_EQ(track.commonId(), nullptr);
}

TEST_F(Track, GuessesAnUnknownAspectFromItsHeight) {
    static const unsigned int rows[][2] = {{360, 3}, {479, 3}, {480, 1}, {576, 1}, {719, 1}, {720, 2}, {1080, 2}};
    for (const auto& row : rows) {
        track.m_height = row[0];
        const auto guess = track.getAspectRatio(MediaTrackDesc::GuessUnknownAspect());
        EXPECT_EQ(static_cast<unsigned int>(guess), row[1]) << row[0];
        EXPECT_EQ(track.getAspectRatio(), MediaAspectRatio::Unknown);
    }
    EXPECT_TRUE(track.setAspectRatio(MediaAspectRatio::Ratio4x3));
    EXPECT_EQ(track.getAspectRatio(MediaTrackDesc::GuessUnknownAspect()), MediaAspectRatio::Ratio4x3);
    EXPECT_FALSE(track.setAspectRatio(MediaAspectRatio::Ratio4x3));
    EXPECT_TRUE(track.setAspectRatio(MediaAspectRatio::Ratio16x9, AspectRatio::ViaAFD()));
    EXPECT_EQ(track.getAspectRatio(), MediaAspectRatio::Ratio16x9);
}

TEST_F(Track, ProxyEndsAt480LinesAndHighDefinitionBeginsAt720) {
    EXPECT_TRUE(MediaTrackDesc::isProxy(479));
    EXPECT_FALSE(MediaTrackDesc::isProxy(480));
    EXPECT_FALSE(MediaTrackDesc::isHighDef(719));
    EXPECT_TRUE(MediaTrackDesc::isHighDef(720));
    track.m_height = 720;
    EXPECT_TRUE(track.isHighDef());
    EXPECT_FALSE(track.isProxy());
}

TEST_F(Track, HandsARateToTheMovieEvenWhenItHasOne) {
    track.m_videoRate = MediaVideoRate::Hz50;
    track.inheritVideoRate(MediaVideoRate::Pal25);
    EXPECT_EQ(track.getVideoRate(), MediaVideoRate::Hz50);
    EXPECT_EQ(movie.getMovieDesc()->getStandard(), MediaVideoRate::Pal25);
}

TEST_F(Track, WithoutARateHasTheMovies) {
    movie.getMovieDesc()->setStandard(MediaVideoRate::Hz60);
    EXPECT_EQ(track.getVideoRate(), MediaVideoRate::Hz60);
    track.inheritVideoRate(MediaVideoRate::Pal25);
    EXPECT_EQ(track.getVideoRate(), MediaVideoRate::Pal25);
    EXPECT_EQ(movie.getMovieDesc()->getStandard(), MediaVideoRate::Hz60);
}

TEST_F(Track, TellsItsClipsADefaultRateUnlessItHasAnother) {
    TestClip& clip = track.addClip();
    track.setDefaultVideoRate(MediaVideoRate::Hz50);
    EXPECT_EQ(clip.m_toldRate, MediaVideoRate::Hz50);
    EXPECT_EQ(track.m_videoRate, MediaVideoRate::Unknown);
    track.m_videoRate = MediaVideoRate::Pal25;
    track.setDefaultVideoRate(MediaVideoRate::Hz60);
    EXPECT_EQ(clip.m_toldRate, MediaVideoRate::Hz50);
    track.setDefaultVideoRate(MediaVideoRate::Pal25);
    EXPECT_EQ(clip.m_toldRate, MediaVideoRate::Pal25);
}

TEST_F(Track, ClosesItsClips) {
    addTwoClips();
    track.close();
    EXPECT_EQ(track.clip(0).lookup().m_closes, 1);
    EXPECT_EQ(track.clip(1).lookup().m_closes, 1);
}

TEST_F(Track, ReportsWhatItsClipsSayOfSlaves) {
    addTwoClips();
    EXPECT_FALSE(track.isSlave());
    track.clip(1).m_slave = true;
    EXPECT_TRUE(track.isSlave());
    TestTrack& slave = movie.addTrack(MediaDataType::Audio);
    track.clip(1).m_slaveClip = &slave.addClip();
    EXPECT_EQ(track.getSlaveTrack(), &slave);
}

TEST_F(Track, MaximumLengthIsWhatACountOfSamplesCanName) {
    track.addClip(MediaEncodingType::Pcm, 48000, 1, 10);
    EXPECT_EQ(track.getMaxLength().rawValue(), 0x7fffffffffffffffll / 48000);
}

TEST_F(Track, WithoutABagOfItsOwnSharesTheEmptyOne) {
    track.m_hasBag = false;
    EXPECT_EQ(track.getProperties().getPropertyCount(), 0u);
    EXPECT_EQ(&track.getPropertiesForUpd(), &track.getProperties());
    OpResult result = track.setProperty(MediaProperty(Name::NBlack, 1u));
    EXPECT_EQ(result.getType(), OpResult::Type::Warning);
    EXPECT_EQ(result.getCode(), 1);
    result.discard();
    EXPECT_EQ(track.getProperty(Name::NBlack), nullptr);
    EXPECT_EQ(track.get(MediaPropertyEnum::VbiMask()).value(), 0u);
}

TEST_F(Track, SetsAndReadsPropertiesOfItsBag) {
    EXPECT_TRUE(track.setProperty(VbiMaskProperty(9)).success());
    EXPECT_EQ(track.get(MediaPropertyEnum::VbiMask()).value(), 9u);
    EXPECT_EQ(track.getProperty(Name::VbiMask)->uintValue(), 9u);
}

TEST_F(Track, TakesParametersButNotWhatBelongsToAClip) {
    MediaClipParam param(MediaEncodingType::Avc, MediaDataType::Audio, MediaVideoRate::Pal25, 1920, 1080,
                         AspectRatio());
    param.m_aspect.set(MediaAspectRatio::Ratio4x3);
    param.m_aspect.set(MediaAspectRatio::Ratio16x9, AspectRatio::ViaAFD());
    for (const Name name : {Name::NBlack, Name::VbiMask, Name::NPrecharge, Name::AfdValue}) {
        param.setParam(MediaProperty(name, 1u)).discard();
    }
    ASSERT_TRUE(track.setParam(param).success());
    EXPECT_EQ(track.getDataType(), MediaDataType::Audio);
    EXPECT_EQ(track.getWidth(), 1920u);
    EXPECT_EQ(track.getHeight(), 1080u);
    EXPECT_EQ(track.getAspectRatio(), MediaAspectRatio::Ratio16x9);
    EXPECT_EQ(track.getVideoRate(), MediaVideoRate::Pal25);
    EXPECT_EQ(movie.getMovieDesc()->getStandard(), MediaVideoRate::Pal25);
    EXPECT_EQ(track.getProperty(Name::NBlack), nullptr);
    EXPECT_EQ(track.getProperty(Name::NPrecharge), nullptr);
    ASSERT_EQ(track.m_bag.getPropertyCount(), 2u);
    EXPECT_EQ(track.m_bag.get(0u)->getName(), Name::AfdValue);  // from last to first
    EXPECT_EQ(track.m_bag.get(1u)->getName(), Name::VbiMask);
}

TEST_F(Track, WithEssenceChangesNothing) {
    track.m_length = 1;
    MediaClipParam param;
    param.m_dataType = MediaDataType::Audio;
    OpResult result = track.setParam(param);
    EXPECT_EQ(result.getType(), OpResult::Type::Warning);
    EXPECT_EQ(result.getCode(), 1);
    result.discard();
    EXPECT_EQ(track.getDataType(), MediaDataType::Video);
}

TEST_F(Track, TakesTheKindOfAnotherTrack) {
    TestTrack& other = movie.addTrack(MediaDataType::Video);
    other.m_width = 720;
    other.m_height = 576;
    other.m_videoRate = MediaVideoRate::Pal25;
    other.m_bag.set(MediaProperty(Name::NPrecharge, 1u)).discard();
    other.m_bag.set(MediaProperty(Name::CodePage, 2u)).discard();
    ASSERT_TRUE(track.setParam(other).success());
    EXPECT_EQ(track.getWidth(), 720u);
    EXPECT_EQ(track.m_videoRate, MediaVideoRate::Pal25);
    EXPECT_EQ(track.m_bag.getPropertyCount(), 1u);
    EXPECT_EQ(track.getProperty(Name::CodePage)->uintValue(), 2u);
}

TEST_F(Track, RefusesTheKindOfATrackOfAnotherTypeOrOnceItHasEssence) {
    TestTrack& other = movie.addTrack(MediaDataType::Audio);
    const auto refuses = [&] {
        OpResult result = track.setParam(other);
        result.discard();
        return result.getType() == OpResult::Type::Warning && result.getCode() == 1;
    };
    EXPECT_TRUE(refuses());
    other.m_type = MediaDataType::Video;
    track.m_length = 1;
    EXPECT_TRUE(refuses());
    track.m_length = 0;
    track.m_type = MediaDataType::Unknown;
    EXPECT_TRUE(track.setParam(other).success());
    EXPECT_EQ(track.getDataType(), MediaDataType::Video);
}

TEST_F(Track, ItsParametersAreThoseOfTheFirstClipAndItsPicture) {
    track.m_width = 1920;
    track.m_height = 1080;
    track.m_bag.set(MediaProperty(Name::VbiMask, 1u)).discard();
    track.m_bag.set(MediaProperty(Name::CodePage, 2u)).discard();
    TestClip& clip = track.addClip(MediaEncodingType::Mpeg, 25, 1, 10);
    clip.m_coding = SequenceCodingType::LongGop;
    clip.m_chroma = MediaChromaSample::C422;
    clip.m_vscan = MediaVideoScanType::Interlaced;
    clip.m_channels = 1;
    clip.m_bitsPerUnit = 8;
    clip.m_bitrate = 50000000;
    clip.lookup().update(MediaOffsetSummary(1, 2, 3, 4)).discard();
    const MediaClipParam param = track.getParam();
    EXPECT_EQ(param.m_encoding, MediaEncodingType::Mpeg);
    EXPECT_EQ(param.m_dataType, MediaDataType::Video);
    EXPECT_EQ(param.m_width, 1920u);
    EXPECT_EQ(param.m_coding, SequenceCodingType::LongGop);
    EXPECT_EQ(param.m_chroma, MediaChromaSample::C422);
    EXPECT_EQ(param.m_vscan, MediaVideoScanType::Interlaced);
    EXPECT_EQ(param.m_bitrate, 50000000u);
    EXPECT_EQ(param.m_offsets.m_baseOffset, 2u);
    ASSERT_EQ(param.getParams().getPropertyCount(), 2u);
    EXPECT_EQ(param.getParams().get(0u)->getName(), Name::CodePage);  // reversed
    clip.dropLookup();
    EXPECT_EQ(track.getParam().m_encoding, MediaEncodingType::Unknown);
}

TEST_F(Track, MakesOnlyEmbeddedClipsByItself) {
    TestMovie other;
    TestTrack& source = other.addTrack(MediaDataType::Video);
    TestClip& clip = source.addClip(MediaEncodingType::Dv, 25, 1, 10);
    OpResult result;
    MediaClipDesc* made = track.createClip(clip, MediaContainment::Embedded, result);
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(made->getEncoding(), MediaEncodingType::Dv);
    EXPECT_EQ(track.createClip(clip, MediaContainment::ByRef, result), nullptr);
    EXPECT_EQ(result.getType(), OpResult::Type::Error);
    EXPECT_EQ(result.getCode(), 17);
    EXPECT_STREQ(result.getMessage(), "\"byRef\" containment requested, \"embedded\" required");
    result.discard();
}

TEST_F(Track, CopiesNoClipsByItself) {
    OpResult result;
    EXPECT_EQ(track.copyClip(track.addClip(), result), nullptr);
    EXPECT_EQ(result.getType(), OpResult::Type::Warning);
    EXPECT_EQ(result.getCode(), 1);
    result.discard();
}
