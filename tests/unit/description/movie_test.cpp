#include <gtest/gtest.h>

#include "mediautil/description/priv_movie_desc.h"
#include "mediautil/object/media_obj_impl.h"
#include "tests/unit/description/description_fixture.h"

using Name = MediaPropertyEnum::Name;

namespace {

class Movie : public testing::Test {
protected:
    TestMovie movie;

    // Video, audio, data, audio.
    void addFourTracks() {
        movie.addTrack(MediaDataType::Video);
        movie.addTrack(MediaDataType::Audio);
        movie.addTrack(MediaDataType::Data);
        movie.addTrack(MediaDataType::Audio);
    }
    std::uint32_t next(MediaTrackEnum& track) {
        track = movie.getNext(track, index);
        return static_cast<std::uint32_t>(track);
    }

    unsigned index = 0;
};

}  // namespace

TEST_F(Movie, WalksVideoThenAudioAndPassesOverTheRest) {
    addFourTracks();
    MediaTrackEnum track = MediaTrackEnum::None;
    EXPECT_EQ(next(track), 0x10000u);
    EXPECT_EQ(index, 0u);
    EXPECT_EQ(next(track), 0x20000u);
    EXPECT_EQ(index, 1u);
    EXPECT_EQ(next(track), 0x20001u);
    EXPECT_EQ(index, 3u);
    EXPECT_EQ(next(track), 0xffffffffu);
    EXPECT_EQ(index, 0xffffffffu);
}

TEST_F(Movie, NamesTracksByIndex) {
    addFourTracks();
    EXPECT_EQ(static_cast<std::uint32_t>(movie.getTrackEnum(3)), 0x20001u);
    EXPECT_EQ(static_cast<std::uint32_t>(movie.getTrackEnum(2)), 0x30000u);
    EXPECT_EQ(static_cast<std::uint32_t>(movie.getTrackEnum(4)), 0u);
}

TEST_F(Movie, FindsTracksByName) {
    addFourTracks();
    EXPECT_EQ(movie.getTrackIndex(encodeMte(MediaDataType::Data, 2)), 2u);
    EXPECT_EQ(movie.getTrackIndex(encodeMte(MediaDataType::Audio, 1)), 3u);
    EXPECT_EQ(movie.getTrackIndex(encodeMte(MediaDataType::Audio, 2)), 0xffffffffu);
    EXPECT_EQ(movie.getTrackIndex(encodeMte(MediaDataType::Data, 4)), 0xffffffffu);
    EXPECT_EQ(movie.getTrack(encodeMte(MediaDataType::Audio, 0)), &movie.track(1));
    EXPECT_EQ(movie.getTrack(encodeMte(MediaDataType::Video, 1)), nullptr);
    const TestMovie& reader = movie;
    EXPECT_EQ(reader.getTrack(encodeMte(MediaDataType::Video, 0)), &movie.track(0));
}

TEST_F(Movie, FindsTheFirstClipOfAFile) {
    addFourTracks();
    TestClip& first = movie.track(1).addClip();
    TestClip& second = movie.track(3).addClip();
    first.m_mediaId = mediaId(2);
    second.m_mediaId = mediaId(2);
    EXPECT_EQ(movie.findClipUsing(mediaId(2)), &first);
    EXPECT_EQ(movie.findClipUsing(mediaId(1)), nullptr);
}

TEST_F(Movie, WithoutTracksAnswersZeros) {
    EXPECT_EQ(movie.calcEncoding(), MediaEncodingType::Unknown);
    EXPECT_EQ(movie.commonId(), nullptr);
    EXPECT_EQ(movie.getContainment(), MediaContainment::Unknown);
    EXPECT_EQ(movie.getVideoSequenceCoding(), SequenceCodingType::Intra);
    EXPECT_EQ(movie.getMovieGopLength(), 0u);
    EXPECT_EQ(movie.getFrameLength(), 0u);
    EXPECT_EQ(movie.getMaxLength(), FixedPoint<16>(0));
    EXPECT_EQ(movie.getTrackEnum(0), MediaTrackEnum::None);
}

TEST_F(Movie, EncodingIsMixedWhenTracksDiffer) {
    movie.addTrack(MediaDataType::Data);
    movie.addTrack(MediaDataType::Video, MediaEncodingType::Mpeg);
    movie.addTrack(MediaDataType::Video, MediaEncodingType::Mpeg);
    EXPECT_EQ(static_cast<int>(movie.calcEncoding()), 3);
    movie.addTrack(MediaDataType::Audio, MediaEncodingType::Pcm);
    EXPECT_EQ(static_cast<int>(movie.calcEncoding()), 17);
}

TEST_F(Movie, EncodingIsMixedWhenALaterTrackHasNone) {
    movie.addTrack(MediaDataType::Video, MediaEncodingType::Mpeg);
    movie.addTrack(MediaDataType::Data);
    EXPECT_EQ(movie.calcEncoding(), MediaEncodingType::Mixed);
}

TEST_F(Movie, CommonIdIsTheOneFileBehindAllTracks) {
    movie.addTrack(MediaDataType::Video).addClip().m_mediaId = nullptr;
    movie.addTrack(MediaDataType::Video).addClip().m_mediaId = mediaId(1);
    EXPECT_EQ(movie.commonId(), mediaId(1));
    movie.addTrack(MediaDataType::Audio).addClip().m_mediaId = mediaId(2);
    EXPECT_EQ(movie.commonId(), nullptr);
}

TEST_F(Movie, ContainmentSumsItsTracksAndIsKeptOnceThereIsLength) {
    movie.addTrack(MediaDataType::Data);
    TestTrack& video = movie.addTrack(MediaDataType::Video);
    video.addClip(MediaContainment::ByRef);
    EXPECT_EQ(movie.getContainment(), MediaContainment::ByRef);
    TestTrack& audio = movie.addTrack(MediaDataType::Audio);
    audio.addClip(MediaContainment::Embedded);
    EXPECT_EQ(movie.getContainment(), MediaContainment::Mixed);
    video.m_length = 5;
    ASSERT_TRUE(movie.notifyLength(video));
    audio.clip(0).m_container = MediaContainment::ByRef;
    EXPECT_EQ(movie.getContainment(), MediaContainment::Mixed);
}

TEST_F(Movie, SequenceCodingIsLongGopWhenAVideoTrackSaysSo) {
    movie.addTrack(MediaDataType::Audio).addClip().m_coding = SequenceCodingType::LongGop;
    movie.addTrack(MediaDataType::Video);
    TestTrack& video = movie.addTrack(MediaDataType::Video);
    video.addClip();
    video.addClip().m_coding = SequenceCodingType::LongGop;
    EXPECT_EQ(movie.getVideoSequenceCoding(), SequenceCodingType::Intra);
    video.clip(0).m_coding = SequenceCodingType::LongGop;
    EXPECT_EQ(movie.getVideoSequenceCoding(), SequenceCodingType::LongGop);
}

TEST_F(Movie, GopLengthIsTheGreatestOfItsTracks) {
    TestTrack& one = movie.addTrack(MediaDataType::Video);
    one.m_bag.set(MediaProperty(Name::PPictCount, 4u)).discard();
    EXPECT_EQ(movie.getMovieGopLength(), 5u);
    one.m_bag.set(MediaProperty(Name::BPictCount, 2u)).discard();
    EXPECT_EQ(movie.getMovieGopLength(), 15u);
    TestTrack& two = movie.addTrack(MediaDataType::Video);
    two.m_bag.set(MediaProperty(Name::BPictCount, 20u)).discard();
    EXPECT_EQ(movie.getMovieGopLength(), 21u);
}

TEST_F(Movie, FrameLengthFollowsTheTrackLastNotified) {
    TestTrack& video = movie.addTrack(MediaDataType::Video);
    video.m_videoRate = MediaVideoRate::Pal25;
    video.m_length = 402;
    EXPECT_TRUE(movie.notifyLength(video));
    EXPECT_EQ(movie.getFrameLength(), 101u);
    EXPECT_EQ(movie.getMovieDesc()->getLastTrackLength(), 402u);
}

TEST_F(Movie, ReadOnlyKeepsItsLength) {
    TestTrack& video = movie.addTrack(MediaDataType::Video);
    video.m_length = 402;
    movie.getMovieDesc()->setWritable(false);
    EXPECT_FALSE(movie.notifyLength(video));
    EXPECT_EQ(movie.getMovieDesc()->getLastTrackLength(), 0u);
}

TEST_F(Movie, MaximumLengthIsTheLeastOfItsTracks) {
    movie.addTrack(MediaDataType::Video).m_maxTime = FixedPoint<16>(30);
    movie.addTrack(MediaDataType::Audio).m_maxTime = FixedPoint<16>(20);
    movie.addTrack(MediaDataType::Audio).m_maxTime = FixedPoint<16>(40);
    EXPECT_EQ(movie.getMaxLength(), FixedPoint<16>(20));
}

TEST_F(Movie, AddsATracksSyncAdjustment) {
    TestTrack& track = movie.addTrack(MediaDataType::Video);
    EXPECT_EQ(movie.getSyncAdjustedFrame(10, 0), 10u);
    track.setSyncAdjustment(1);
    EXPECT_EQ(movie.getSyncAdjustedFrame(10, 0), 11u);
    track.setSyncAdjustment(-3);
    EXPECT_EQ(movie.getSyncAdjustedFrame(0x100000000ull, 0), 0xfffffffdull);
}

namespace {

class SyncAdjustments : public testing::Test {
protected:
    // Adjustments of the VBI and the ANC track of a movie of one video track and those two.
    std::pair<int, int> adjust(MediaEncodingType video, SwVersion version, bool native) {
        TestMovie movie;
        movie.m_version = version;
        movie.m_native = native;
        movie.addTrack(MediaDataType::Video, video);
        TestTrack& vbi = movie.addTrack(MediaDataType::Data, MediaEncodingType::Vbi);
        TestTrack& anc = movie.addTrack(MediaDataType::Data, MediaEncodingType::S436mAnc);
        movie.computeSyncAdjustments();
        EXPECT_EQ(movie.track(0).getSyncAdjustment(), 0);
        return {vbi.getSyncAdjustment(), anc.getSyncAdjustment()};
    }
    const std::pair<int, int> none{0, 0};
    const std::pair<int, int> both{1, 1};
};

}  // namespace

TEST_F(SyncAdjustments, OfLineDataBesideMpegOfAnOldWriterAreOne) {
    EXPECT_EQ(adjust(MediaEncodingType::Mpeg, SwVersion(5, 3, 9, 0), true), both);
    EXPECT_EQ(adjust(MediaEncodingType::Mpeg, SwVersion(), true), both);
}

TEST_F(SyncAdjustments, AreNotMadeForNewerWritersOtherCodingsAndForeignMovies) {
    EXPECT_EQ(adjust(MediaEncodingType::Mpeg, SwVersion(5, 4, 0, 0), true), none);
    EXPECT_EQ(adjust(MediaEncodingType::Avc, SwVersion(5, 3, 9, 0), true), none);
    EXPECT_EQ(adjust(MediaEncodingType::Mpeg4, SwVersion(5, 3, 9, 0), true), none);
    EXPECT_EQ(adjust(MediaEncodingType::Mpeg, SwVersion(5, 3, 9, 0), false), none);
    EXPECT_EQ(adjust(MediaEncodingType::Mpeg, SwVersion(), false), none);
}

TEST_F(SyncAdjustments, ReachTheLastTrackOfAKindOnly) {
    TestMovie movie;
    movie.m_native = true;
    TestTrack& first = movie.addTrack(MediaDataType::Data, MediaEncodingType::Vbi);
    TestTrack& last = movie.addTrack(MediaDataType::Data, MediaEncodingType::S436mVbi);
    movie.addTrack(MediaDataType::Video, MediaEncodingType::Mpeg);
    movie.computeSyncAdjustments();
    EXPECT_EQ(first.getSyncAdjustment(), 0);
    EXPECT_EQ(last.getSyncAdjustment(), 1);
}

TEST_F(Movie, KeepsAStandardThatIsSet) {
    movie.inheritVideoRate(MediaVideoRate::Pal25);
    movie.inheritVideoRate(MediaVideoRate::Hz60);
    EXPECT_EQ(movie.getMovieDesc()->getStandard(), MediaVideoRate::Pal25);
}

TEST_F(Movie, PassesADefaultRateToItsTracks) {
    TestClip& clip = movie.addTrack(MediaDataType::Audio).addClip();
    movie.setDefaultVideoRate(MediaVideoRate::Hz50);
    EXPECT_EQ(clip.m_toldRate, MediaVideoRate::Hz50);
    EXPECT_EQ(movie.getVideoRate(), MediaVideoRate::Hz50);
}

TEST_F(Movie, HasTheRateOfItsFirstVideoTrack) {
    EXPECT_EQ(movie.getVideoRate(), MediaVideoRate::Ntsc2997);  // the default
    TestTrack& video = movie.addTrack(MediaDataType::Video);
    EXPECT_EQ(movie.getVideoRate(), MediaVideoRate::Ntsc2997);
    TestClip& clip = video.addClip(MediaEncodingType::Avc, 50, 1, 10);
    EXPECT_EQ(movie.getVideoRate(), MediaVideoRate::Hz50);
    EXPECT_EQ(movie.getRealVideoRate(), FixedPoint<16>(50));
    clip.setRate(17, 1);
    EXPECT_EQ(movie.getVideoRate(), MediaVideoRate::Ntsc2997);
    EXPECT_EQ(movie.getRealVideoRate(), FixedPoint<16>(17));
    video.m_videoRate = MediaVideoRate::Film24;
    EXPECT_EQ(movie.getVideoRate(), MediaVideoRate::Film24);
    EXPECT_EQ(movie.getRealVideoRate(), FixedPoint<16>(24));
}

TEST_F(Movie, TheExactRateOfAFirstClipIsComputedInDoublePrecision) {
    movie.addTrack(MediaDataType::Video).addClip(MediaEncodingType::Avc, 30000, 1001, 10);
    EXPECT_EQ(movie.getRealVideoRate(), FixedPoint<16>(30000.0 / 1001));
}

TEST_F(Movie, OfAudioOnlyStillHasAFrameRate) {
    movie.addTrack(MediaDataType::Audio);
    movie.setDefaultVideoRate(MediaVideoRate::Unknown);
    EXPECT_EQ(movie.getRealVideoRate(), FixedPoint<16>(29.97));
    movie.setDefaultVideoRate(MediaVideoRate::Pal25);
    EXPECT_EQ(movie.getRealVideoRate(), FixedPoint<16>(25));
    movie.getMovieDesc()->setStandard(MediaVideoRate::Hz60);
    EXPECT_EQ(movie.getRealVideoRate(), FixedPoint<16>(60));
}

TEST_F(Movie, WithoutTracksRateAndDefaultFallsBackTo2997) {
    movie.setDefaultVideoRate(MediaVideoRate::Unknown);
    EXPECT_EQ(movie.getRealVideoRate(), FixedPoint<16>(29.97));
    EXPECT_EQ(movie.getVideoRate(), MediaVideoRate::Unknown);
}

TEST(VideoRates, HaveTheirExactValues) {
    static const FixedPoint<16> rates[] = {
        FixedPoint<16>(1),  FixedPoint<16>(25), FixedPoint<16>(30000) / 1001, FixedPoint<16>(24000) / 1001,
        FixedPoint<16>(24), FixedPoint<16>(30), FixedPoint<16>(50),           FixedPoint<16>(60000) / 1001,
        FixedPoint<16>(60), FixedPoint<16>(1)};
    for (unsigned int rate = 0; rate < std::size(rates); ++rate) {
        EXPECT_EQ(MediaObj::getRealVideoRate(static_cast<MediaVideoRate>(rate)), rates[rate]);
    }
}

TEST(VideoRates, TheNearestOneIsFoundWithinTheTolerance) {
    for (unsigned int rate = 1; rate < 9; ++rate) {
        const auto value = static_cast<MediaVideoRate>(rate);
        EXPECT_EQ(MediaObj::getVideoRate(MediaObj::getRealVideoRate(value)), value);
    }
    EXPECT_EQ(MediaObj::getVideoRate(FixedPoint<16>(29.97)), MediaVideoRate::Ntsc2997);
    EXPECT_EQ(MediaObj::getVideoRate(FixedPoint<16>(29.0)), MediaVideoRate::Unknown);
    using Fixed = FixedPoint<16>;
    const Fixed edge = Fixed(25) + Fixed(327, Fixed::AlreadyFixed());
    EXPECT_EQ(MediaObj::getVideoRate(edge), MediaVideoRate::Pal25);
    EXPECT_EQ(MediaObj::getVideoRate(edge + Fixed(1, Fixed::AlreadyFixed())), MediaVideoRate::Unknown);
}

namespace {

class Append : public testing::Test {
protected:
    TestMovie movie;
    TestMovie source;
    MediaEncodingType encoding = MediaEncodingType::Mixed;
};

}  // namespace

TEST_F(Append, OfAnAudioOnlyMovieFitsOneWithVideoAndAudio) {
    movie.addTrack(MediaDataType::Video, MediaEncodingType::Mpeg);
    movie.addTrack(MediaDataType::Audio, MediaEncodingType::Pcm);
    source.addTrack(MediaDataType::Audio, MediaEncodingType::Pcm);
    EXPECT_TRUE(movie.canReceive(source, encoding));
    EXPECT_EQ(encoding, MediaEncodingType::Pcm);
    EXPECT_FALSE(source.canReceive(movie, encoding));
}

TEST_F(Append, OfEmptyTracksFitsAMovieWithoutClips) {
    movie.addTrack(MediaDataType::Video);
    source.addTrack(MediaDataType::Video);
    source.addTrack(MediaDataType::Data, MediaEncodingType::Data);
    EXPECT_TRUE(movie.canReceive(source, encoding));
    EXPECT_EQ(encoding, MediaEncodingType::Unknown);
}

TEST_F(Append, NeedsAClipToFollow) {
    movie.addTrack(MediaDataType::Video);
    source.addTrack(MediaDataType::Video, MediaEncodingType::Mpeg);
    EXPECT_FALSE(movie.canReceive(source, encoding));
}

TEST_F(Append, LooksAtTheTwoClipsAtTheSeamOnly) {
    TestTrack& ours = movie.addTrack(MediaDataType::Video, MediaEncodingType::Dv);
    ours.addClip().m_encoding = MediaEncodingType::Mpeg;
    TestTrack& theirs = source.addTrack(MediaDataType::Video, MediaEncodingType::Mpeg);
    theirs.addClip().m_encoding = MediaEncodingType::Avc;
    EXPECT_TRUE(movie.canReceive(source, encoding));
    theirs.clip(0).m_encoding = MediaEncodingType::Dv;
    EXPECT_FALSE(movie.canReceive(source, encoding));
}

TEST_F(Append, OfSeveralEncodingsIsMixed) {
    for (TestMovie* each : {&movie, &source}) {
        each->addTrack(MediaDataType::Video, MediaEncodingType::Mpeg);
        each->addTrack(MediaDataType::Audio, MediaEncodingType::Pcm);
        each->addTrack(MediaDataType::Audio, MediaEncodingType::Pcm);
    }
    EXPECT_TRUE(movie.canReceive(source, encoding));
    EXPECT_EQ(encoding, MediaEncodingType::Mixed);
}

namespace {

class Copying : public Append {
protected:
    TestTrack& from = source.addTrack(MediaDataType::Video);
    OpResult result;
};

}  // namespace

TEST_F(Copying, ATrackWithoutClipsMakesNone) {
    EXPECT_EQ(movie.createClip(from, MediaContainment::Embedded, result), nullptr);
    EXPECT_EQ(result.getType(), OpResult::Type::Warning);
    EXPECT_EQ(result.getCode(), 1);
    EXPECT_EQ(movie.getTrackCount(), 0u);
    result.discard();
}

TEST_F(Copying, MakesATrackWithOneClipLikeTheFirst) {
    from.addClip(MediaEncodingType::Dv, 25, 1, 10);
    from.addClip(MediaEncodingType::Dv, 25, 1, 10);
    movie.setDefaultVideoRate(MediaVideoRate::Hz50);
    MediaTrackDesc* made = movie.createClip(from, MediaContainment::Embedded, result);
    ASSERT_NE(made, nullptr);
    EXPECT_TRUE(result.success());
    EXPECT_EQ(made->getDataType(), MediaDataType::Video);
    ASSERT_EQ(made->getClipCount(), 1u);
    EXPECT_EQ(made->getClip(0)->getEncoding(), MediaEncodingType::Dv);
    EXPECT_EQ(movie.track(0).clip(0).m_toldRate, MediaVideoRate::Hz50);
}

TEST_F(Copying, LeavesTheTrackThatWasMadeWhenItsClipFails) {
    from.addClip(MediaEncodingType::Dv, 25, 1, 10);
    EXPECT_EQ(movie.createClip(from, MediaContainment::ByRef, result), nullptr);
    EXPECT_EQ(result.getCode(), 17);
    EXPECT_EQ(movie.getTrackCount(), 1u);
    result.discard();
}

namespace {

// A movie whose tracks can refer to essence elsewhere.
class ReferringTrack : public TestTrack {
public:
    using TestTrack::createClip;
    using TestTrack::TestTrack;
    MediaClipDesc* createClip(const MediaClipDesc&, MediaContainment containment, OpResult& result) override {
        result = OpResult(OpResult::Ok);
        return &addClip(containment);
    }
};

class ReferringMovie : public TestMovie {
public:
    MediaTrackDesc* createTrack(const MediaClipParam& param, OpResult& result) override {
        m_made = std::make_unique<ReferringTrack>(*this, MediaDataType::Unknown, 0);
        result = m_made->setParam(param);
        return m_made.get();
    }
    std::unique_ptr<ReferringTrack> m_made;
};

}  // namespace

TEST_F(Copying, AReferenceKnowsItsSampleLayoutAtOnce) {
    from.addClip(MediaEncodingType::Dv, 25, 1, 10).lookup().update(MediaOffsetSummary(1, 2, 3, 4)).discard();
    ReferringMovie target;
    ASSERT_NE(target.createClip(from, MediaContainment::ByRef, result), nullptr);
    EXPECT_EQ(target.m_made->clip(0).lookup().m_baseOffset, 2u);
    ASSERT_NE(target.createClip(from, MediaContainment::Embedded, result), nullptr);
    EXPECT_EQ(target.m_made->clip(0).lookup().m_updates, 0);
}

TEST_F(Copying, CopiesEveryClipInOrder) {
    from.addClip(MediaEncodingType::Dv, 25, 1, 10);
    from.addClip(MediaEncodingType::Dv, 25, 1, 20);
    movie.m_canCopy = true;
    MediaTrackDesc* made = movie.copyClips(from, result);
    ASSERT_NE(made, nullptr);
    ASSERT_EQ(made->getClipCount(), 2u);
    EXPECT_EQ(made->getClip(0)->getLength(), 10u);
    EXPECT_EQ(made->getClip(1)->getLength(), 20u);
}

TEST_F(Copying, AClipThatCannotBeCopiedEndsTheCopyAndLeavesTheTrack) {
    from.addClip(MediaEncodingType::Dv, 25, 1, 10);
    EXPECT_EQ(movie.copyClips(from, result), nullptr);
    EXPECT_EQ(result.getCode(), 1);
    EXPECT_EQ(movie.getTrackCount(), 1u);
    result.discard();
}

TEST_F(Movie, HasNoStylesByItself) {
    EXPECT_TRUE(movie.requestStyle(nullptr, false).success());
    OpResult result = movie.requestStyle("x", false);
    EXPECT_EQ(result.getType(), OpResult::Type::Warning);
    EXPECT_EQ(result.getCode(), 1);
    result.discard();
    EXPECT_EQ(movie.getStyle(), nullptr);
    unsigned count = 7;
    EXPECT_EQ(movie.getStyles(count), nullptr);
    EXPECT_EQ(count, 0u);
}

TEST_F(Movie, HasNoTimecodeByItself) {
    EXPECT_FALSE(movie.getTimecode().isValid());
    OpResult result = movie.setTimecode(MediaTimecode());
    EXPECT_EQ(result.getType(), OpResult::Type::Warning);
    EXPECT_EQ(result.getCode(), 17);
    result.discard();
    result = movie.setTimecode(MediaAgent(nullptr), 0, MediaTimecode());
    EXPECT_EQ(result.getType(), OpResult::Type::Warning);
    EXPECT_EQ(result.getCode(), 1);
    result.discard();
}

TEST_F(Movie, HasNoPropertiesByItself) {
    EXPECT_EQ(movie.getProperties().getPropertyCount(), 0u);
    EXPECT_EQ(movie.get(MediaPropertyEnum::ClipProps()).value(), nullptr);
    EXPECT_EQ(&movie.getPropertiesForUpd(), &movie.getProperties());
    OpResult result = movie.setProperty(ClipPropsProperty("a"));
    EXPECT_EQ(result.getType(), OpResult::Type::Warning);
    EXPECT_EQ(result.getCode(), 1);
    result.discard();
}

TEST_F(Movie, MakesATrackOfTheParametersOfAnother) {
    TestMovie source;
    TestTrack& from = source.addTrack(MediaDataType::Audio);
    from.addClip(MediaEncodingType::Pcm, 48000, 1, 10);
    OpResult result;
    MediaTrackDesc* made = static_cast<MediaObj&>(movie).createTrack(from, result);
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(made->getDataType(), MediaDataType::Audio);
}

TEST(MovieDescriptor, StartsWithWhatItIsGivenAndZeros) {
    PrivMovieDesc<MediaObj> desc(nullptr, MediaFileType::Gxf, 90000, true, MediaEncodingType::Mpeg,
                                 MediaVideoRate::Pal25);
    EXPECT_EQ(desc.getObj(), nullptr);
    EXPECT_EQ(desc.getFileType(), MediaFileType::Gxf);
    EXPECT_EQ(desc.getTimeBase(), 90000u);
    EXPECT_TRUE(desc.isWritable());
    EXPECT_FALSE(desc.isRecording());
    EXPECT_EQ(desc.getSelectIn(), 0u);
    EXPECT_EQ(desc.getSelectOut(), 0u);
    EXPECT_EQ(desc.getNumMedia(), 0u);
    EXPECT_EQ(desc.getEncoding(), MediaEncodingType::Mpeg);
    EXPECT_EQ(desc.getStandard(), MediaVideoRate::Pal25);
    EXPECT_EQ(desc.getLastTrackLength(), 0u);
    EXPECT_EQ(desc.getMaxTrackLength(), 0u);
}

TEST(MovieDescriptor, StoresWhatItIsTold) {
    PrivMovieDesc<MediaObj> desc(nullptr);
    desc.setWritable(true);
    desc.setRecording(true);
    desc.setNumMedia(3);
    desc.setStandard(MediaVideoRate::Hz50);
    EXPECT_TRUE(desc.isWritable());
    EXPECT_TRUE(desc.isRecording());
    EXPECT_EQ(desc.getNumMedia(), 3u);
    EXPECT_EQ(desc.getStandard(), MediaVideoRate::Hz50);
    const PrivMovieDesc<MediaObj> copy(desc);
    EXPECT_TRUE(copy.isRecording());
}

TEST(MovieDescriptor, TheGreatestLengthNeverGoesDown) {
    TestMovie movie;
    TestTrack& track = movie.addTrack(MediaDataType::Video);
    MediaMovieDesc& desc = *movie.getMovieDesc();
    track.m_length = 100;
    desc.setLength(track);
    EXPECT_EQ(desc.getLastTrackLength(), 100u);
    EXPECT_EQ(desc.getMaxTrackLength(), 100u);
    track.m_length = 40;
    desc.setLength(track);
    EXPECT_EQ(desc.getLastTrackLength(), 40u);
    EXPECT_EQ(desc.getMaxTrackLength(), 100u);
}

TEST(MovieDescriptor, SelectPointsAreUnsupported) {
    PrivMovieDesc<MediaObj> desc(nullptr);
    OpResult results[] = {desc.setSelectIn(1), desc.setSelectOut(2)};
    for (OpResult& result : results) {
        EXPECT_EQ(result.getType(), OpResult::Type::Warning);
        EXPECT_EQ(result.getCode(), 17);
        EXPECT_STREQ(MediaCoreOpSubsystem::getErrorName(result.getCode()), "operation unsupported");
        result.discard();
    }
    EXPECT_EQ(desc.getSelectIn(), 0u);
    EXPECT_EQ(desc.getSelectOut(), 0u);
}

TEST(MovieDescriptor, OfAnObjectAnswersTheObject) {
    TestMovie movie;
    EXPECT_EQ(movie.getMovieDesc()->getObj(), &movie);
}
