#include "shared/include/index/media_red_zone.h"
#include "tests/unit/index/recording_movie.h"

using kit::isWarning;
using recording::Clip;
using recording::LookAheadFile;
using recording::s_frame;
using recording::Track;
using U64 = unsigned long long;
using PropertyName = MediaPropertyEnum::Name;

// What lies before a clip's in point and behind its out point, and the hints that go with it.

namespace {

class Precharge : public recording::Scene {
protected:
    static Track& trackOf(Clip& clip) { return static_cast<Track&>(clip.getTrack()); }
    // Audio of which a frame has 1601.6 samples.
    Clip& oddAudio(MediaEncodingType encoding, U64 length, U64 in = 0, U64 rollout = 0) {
        Clip& clip = audio(encoding, MediaVideoRate::Ntsc2997);
        clip.hold(length, in);
        clip.setRollout(rollout);
        return clip;
    }
};

class Rollout : public Precharge {
protected:
    // A clip of 100 frames that has as much in its rollout, and the track is as long as the clip.
    Clip& held(U64 rollout, U64 target) {
        Clip& clip = video();
        clip.hold(100);
        clip.setRollout(rollout);
        clip.setTargetRollout(target);
        trackOf(clip).setLength(100 * s_frame);
        return clip;
    }
};

class LookAhead : public recording::Scene {};

constexpr U64 s_rolledOut = 0xFFFFFFFFFFFFFFFF;

}  // namespace

TEST_F(Precharge, EmptyTrackTakesNoneOfIt) {
    Track& track = m_movie->addTrack(MediaDataType::Video);
    EXPECT_TRUE(track.setPrecharge(0));
    m_result = track.setPrecharge(5);
    EXPECT_TRUE(isWarning(m_result, 1));
    m_result.discard();
    track.addClip(MediaEncodingType::Dv, 25).m_edits.clear();
    EXPECT_TRUE(track.setPrecharge(0));
    m_result = track.setPrecharge(1);
    EXPECT_TRUE(isWarning(m_result, 1));
}

TEST_F(Precharge, TakesItsSamplesFromTheFrontOfTheClip) {
    Clip& clip = video();
    clip.hold(100);
    trackOf(clip).setLength(100 * s_frame);
    EXPECT_TRUE(trackOf(clip).setPrecharge(10));
    EXPECT_EQ(clip.edit().getIn(), 10u);
    EXPECT_EQ(clip.edit().getOut(), 100u) << "stays";
    EXPECT_EQ(clip.getLength(), 90u);
    EXPECT_EQ(trackOf(clip).getLength(), 90 * s_frame);
    EXPECT_EQ(m_movie->m_notified, 0u);
}

TEST_F(Precharge, BelongsToTheFirstEditOfTheFirstClip) {
    Clip& clip = video();
    clip.m_edits = {{0, 50}, {60, 100}};
    clip.setLength(90);
    Clip& last = trackOf(clip).addClip(MediaEncodingType::Dv, 25);
    last.hold(30);
    EXPECT_TRUE(trackOf(clip).setPrecharge(7));
    EXPECT_EQ(clip.m_edits[0].getIn(), 7u);
    EXPECT_EQ(clip.m_edits[1].getIn(), 60u);
    EXPECT_EQ(clip.getLength(), 83u);
    EXPECT_EQ(last.edit().getIn(), 0u);
    EXPECT_EQ(last.getLength(), 30u);
}

TEST_F(Precharge, SecondOneTakesTheLengthOnceMore) {
    Clip& clip = video();
    clip.hold(100);
    EXPECT_TRUE(trackOf(clip).setPrecharge(10));
    EXPECT_TRUE(trackOf(clip).setPrecharge(10));
    EXPECT_EQ(clip.edit().getIn(), 10u);
    EXPECT_EQ(clip.getLength(), 80u);
}

TEST_F(Precharge, TwoAudioSamplesTooManyAreARounding) {
    Clip& clip = oddAudio(MediaEncodingType::Pcm, 1600);
    EXPECT_TRUE(trackOf(clip).setPrecharge(1));
    EXPECT_EQ(clip.edit().getIn(), 1600u);
    EXPECT_EQ(clip.getLength(), 0u);
}

TEST_F(Precharge, ThreeAudioSamplesTooManyStayAsAsked) {
    Clip& clip = oddAudio(MediaEncodingType::Pcm, 1599);
    EXPECT_TRUE(trackOf(clip).setPrecharge(1));
    EXPECT_EQ(clip.edit().getIn(), 1602u);
    EXPECT_EQ(clip.getLength(), 0u);
}

TEST_F(Precharge, AacAndVideoStayAsAsked) {
    Clip& aac = oddAudio(MediaEncodingType::Aac, 1600);
    EXPECT_TRUE(trackOf(aac).setPrecharge(1));
    EXPECT_EQ(aac.edit().getIn(), 1602u);
    EXPECT_EQ(aac.getLength(), 0u);
    Clip& picture = video();
    picture.hold(8);
    EXPECT_TRUE(trackOf(picture).setPrecharge(10));
    EXPECT_EQ(picture.edit().getIn(), 10u);
    EXPECT_EQ(picture.getLength(), 0u);
}

TEST_F(Precharge, WhatTheClipCanGiveUpCountsItsInPointAndItsRollout) {
    Clip& clip = oddAudio(MediaEncodingType::Pcm, 500, 1000, 100);
    EXPECT_TRUE(trackOf(clip).setPrecharge(1));
    EXPECT_EQ(clip.edit().getIn(), 1600u);
    EXPECT_EQ(clip.getLength(), 0u);
    EXPECT_EQ(clip.getRollout(), 0u);
    EXPECT_EQ(clip.edit().getOut(), 1600u) << "the rollout's samples, all of which the precharge takes";
}

TEST_F(Precharge, DeficitComesFromTheRollout) {
    Clip& clip = video();
    clip.hold(10);
    clip.setRollout(50);
    EXPECT_TRUE(trackOf(clip).setPrecharge(30));
    EXPECT_EQ(clip.edit().getIn(), 30u);
    EXPECT_EQ(clip.edit().getOut(), 30u);
    EXPECT_EQ(clip.getRollout(), 30u);
    EXPECT_EQ(clip.getLength(), 0u);
}

TEST_F(Precharge, DeficitAboveTheRolloutTakesAllOfIt) {
    Clip& clip = video();
    clip.hold(10);
    clip.setRollout(5);
    EXPECT_TRUE(trackOf(clip).setPrecharge(30));
    EXPECT_EQ(clip.edit().getIn(), 30u);
    EXPECT_EQ(clip.edit().getOut(), 15u);
    EXPECT_EQ(clip.getRollout(), 0u);
    EXPECT_EQ(clip.getLength(), 0u);
}

TEST_F(Precharge, DeficitOfAllTheRolloutLeavesNone) {
    Clip& clip = video();
    clip.hold(10);
    clip.setRollout(20);
    EXPECT_TRUE(trackOf(clip).setPrecharge(30));
    EXPECT_EQ(clip.edit().getOut(), 30u);
    EXPECT_EQ(clip.getRollout(), 0u);
}

TEST_F(Precharge, TrackIsNeverShorterThanNothing) {
    Clip& clip = video();
    clip.hold(100);
    trackOf(clip).setLength(9 * s_frame);
    EXPECT_TRUE(trackOf(clip).setPrecharge(9));
    EXPECT_EQ(trackOf(clip).getLength(), 0u);
    trackOf(clip).setLength(9 * s_frame);
    EXPECT_TRUE(trackOf(clip).setPrecharge(10));
    EXPECT_EQ(trackOf(clip).getLength(), 0u);
}

TEST_F(Precharge, AnswerIsKeptWhileTheClipHasLength) {
    Clip& clip = video();
    clip.hold(100);
    EXPECT_TRUE(trackOf(clip).setPrecharge(10));
    EXPECT_EQ(trackOf(clip).getPrecharge(), 10u);
    EXPECT_TRUE(trackOf(clip).setPrecharge(20));
    EXPECT_EQ(trackOf(clip).getPrecharge(), 10u);
    clip.m_edits.clear();
    EXPECT_EQ(trackOf(clip).getPrecharge(), 10u);
}

TEST_F(Precharge, AnswerOfAnEmptyClipIsWorkedOutAnew) {
    Clip& clip = video();
    clip.hold(20);
    EXPECT_TRUE(trackOf(clip).setPrecharge(10));
    EXPECT_EQ(trackOf(clip).getPrecharge(), 10u);
    EXPECT_TRUE(trackOf(clip).setPrecharge(15));
    ASSERT_EQ(clip.getLength(), 0u);
    EXPECT_EQ(trackOf(clip).getPrecharge(), 15u);
    clip.setLength(5);
    EXPECT_EQ(trackOf(clip).getPrecharge(), 15u) << "and kept";
    trackOf(clip).forgetPrecharge();
    clip.m_edits[0].setPrecharge(3);
    EXPECT_EQ(trackOf(clip).getPrecharge(), 3u) << "or worked out when none is kept";
}

TEST_F(Precharge, AnswerIsTheNearestFrame) {
    Clip& clip = oddAudio(MediaEncodingType::Pcm, 0);
    const struct {
        U64 m_in;
        unsigned m_frames;
    } rows[] = {{0, 0}, {800, 0}, {801, 1}, {1602, 1}, {2402, 1}, {2403, 2}, {4804, 3}};
    for (const auto& row : rows) {
        clip.m_edits[0].setPrecharge(row.m_in);
        EXPECT_EQ(trackOf(clip).getPrecharge(), row.m_frames) << row.m_in;
    }
}

TEST_F(Precharge, TrackWithoutClipsOrEditsHasNone) {
    Track& track = m_movie->addTrack(MediaDataType::Video);
    EXPECT_EQ(track.getPrecharge(), 0u);
    track.addClip(MediaEncodingType::Dv, 25).m_edits.clear();
    EXPECT_EQ(track.getPrecharge(), 0u);
}

TEST_F(Precharge, MovieHasTheLongestOfItsTracks) {
    EXPECT_EQ(m_movie->getMoviePrecharge(), 0u);
    for (const unsigned frames : {3u, 7u, 0u}) {
        Clip& clip = video();
        clip.hold(100);
        EXPECT_TRUE(trackOf(clip).setPrecharge(frames));
    }
    EXPECT_EQ(m_movie->getMoviePrecharge(), 7u);
}

TEST_F(Precharge, NeedsPicturesThatDependOnOthers) {
    unsigned gop = 77;
    EXPECT_FALSE(m_movie->canPrecharge());
    EXPECT_FALSE(m_movie->canPrecharge(gop));
    EXPECT_EQ(gop, 0u);
    Track& track = m_movie->addTrack(MediaDataType::Video);
    track.m_bag.set(MediaProperty(PropertyName::PPictCount, 0u)).discard();
    EXPECT_FALSE(m_movie->canPrecharge());
    EXPECT_FALSE(m_movie->canPrecharge(gop));
    EXPECT_EQ(gop, 1u);
    track.m_bag.set(MediaProperty(PropertyName::PPictCount, 1u)).discard();
    EXPECT_TRUE(m_movie->canPrecharge());
    EXPECT_TRUE(m_movie->canPrecharge(gop));
    EXPECT_EQ(gop, 2u);
}

TEST_F(Rollout, TargetNeedsAClipAndThenALicenceToRecord) {
    Track& track = m_movie->addTrack(MediaDataType::Video);
    m_movie->init(90000, false);
    m_result = track.setTargetRollout(5);
    EXPECT_TRUE(isWarning(m_result, 1));
    m_result.discard();
    Clip& clip = track.addClip(MediaEncodingType::Dv, 25);
    m_result = track.setTargetRollout(5);
    EXPECT_TRUE(isWarning(m_result, 5));
    m_result.discard();
    EXPECT_EQ(clip.getTargetRollout(), 0u);
    m_movie->m_desc.setRecording(true);
    EXPECT_TRUE(track.setTargetRollout(5));
    EXPECT_EQ(clip.getTargetRollout(), 5u);
    m_movie->m_desc.setRecording(false);
    m_movie->m_desc.setWritable(true);
    EXPECT_TRUE(track.setTargetRollout(6));
    EXPECT_EQ(clip.getTargetRollout(), 6u);
}

TEST_F(Rollout, TargetIsTheLastClipsInItsOwnSamples) {
    Clip& first = audio(MediaEncodingType::Pcm, MediaVideoRate::Ntsc2997);
    Clip& last = trackOf(first).addClip(MediaEncodingType::Pcm, 48000);
    EXPECT_TRUE(trackOf(first).setTargetRollout(3));
    EXPECT_EQ(first.getTargetRollout(), 0u);
    EXPECT_EQ(last.getTargetRollout(), 4805u) << "4804.8";
    EXPECT_TRUE(trackOf(first).setTargetRollout(0));
    EXPECT_EQ(last.getTargetRollout(), 0u);
}

TEST_F(Rollout, TrackWhoseRateIsUnknownCountsSecondsForFrames) {
    m_movie->m_desc.init(MediaFileType::Unknown, 90000, true, MediaEncodingType::Unknown, MediaVideoRate::Unknown);
    Clip& clip = audio(MediaEncodingType::Pcm, MediaVideoRate::Unknown);
    EXPECT_TRUE(trackOf(clip).setTargetRollout(2));
    EXPECT_EQ(clip.getTargetRollout(), 96000u);
}

TEST_F(Rollout, BeginNeedsALicenceToRecordAndThenAClip) {
    Track& track = m_movie->addTrack(MediaDataType::Video);
    m_result = track.beginRollout();
    EXPECT_TRUE(isWarning(m_result, 1));
    m_result.discard();
    m_movie->init(90000, false);
    m_result = track.beginRollout();
    EXPECT_TRUE(isWarning(m_result, 5));
    m_result.discard();
    track.addClip(MediaEncodingType::Dv, 25);
    m_movie->m_desc.setRecording(true);
    EXPECT_TRUE(track.beginRollout());
}

TEST_F(Rollout, BeginNeedsAnEdit) {
    Clip& clip = held(8, 8);
    clip.m_edits.clear();
    m_result = trackOf(clip).beginRollout();
    EXPECT_TRUE(isWarning(m_result, 1));
    EXPECT_EQ(clip.getRollout(), 8u);
    EXPECT_EQ(clip.getTargetRollout(), 8u);
    EXPECT_EQ(m_movie->m_notified, 0u);
}

TEST_F(Rollout, BeginFoldsItIntoTheClipAndHoldsAllLaterSamplesBack) {
    Clip& clip = held(8, 8);
    EXPECT_TRUE(m_movie->beginRollout());
    EXPECT_EQ(clip.edit().getOut(), 108u);
    EXPECT_EQ(clip.getLength(), 108u);
    EXPECT_EQ(clip.getRollout(), 0u);
    EXPECT_EQ(clip.getTargetRollout(), s_rolledOut);
    EXPECT_EQ(trackOf(clip).getLength(), 108 * s_frame);
    EXPECT_EQ(m_movie->m_notified, 1u);
    EXPECT_EQ(m_movie->m_desc.getLastTrackLength(), 108 * s_frame);
    for (const U64 rollout : {4u, 8u}) {
        EXPECT_TRUE(add(trackOf(clip), 104 + rollout, 4));
        EXPECT_EQ(clip.getRollout(), rollout);
    }
    EXPECT_EQ(clip.edit().getOut(), 108u);
    EXPECT_EQ(clip.getLength(), 108u);
    EXPECT_EQ(trackOf(clip).getLength(), 108 * s_frame);
}

TEST_F(Rollout, BeginOfAnUnfilledRolloutFoldsWhatThereIs) {
    Clip& clip = held(3, 10);
    EXPECT_TRUE(trackOf(clip).beginRollout());
    EXPECT_EQ(clip.edit().getOut(), 103u);
    EXPECT_EQ(clip.getTargetRollout(), s_rolledOut);
}

TEST_F(Rollout, BeginWithoutOneChangesNothingAndTellsTheMovie) {
    Clip& clip = held(0, 0);
    EXPECT_TRUE(trackOf(clip).beginRollout());
    EXPECT_EQ(clip.edit().getOut(), 100u);
    EXPECT_EQ(clip.getTargetRollout(), 0u);
    EXPECT_EQ(clip.m_lengthsSet, 0u);
    EXPECT_EQ(trackOf(clip).getLength(), 100 * s_frame);
    EXPECT_EQ(m_movie->m_notified, 1u);
    EXPECT_TRUE(add(trackOf(clip), 100, 4));
    EXPECT_EQ(clip.edit().getOut(), 104u) << "goes on extending";
}

TEST_F(Rollout, BeginTakesTheLastClipsLastEdit) {
    Clip& first = held(8, 8);
    Clip& last = trackOf(first).addClip(MediaEncodingType::Dv, 25);
    last.m_edits = {{0, 5}, {8, 10}};
    last.setLength(7);
    last.setRollout(2);
    EXPECT_TRUE(trackOf(first).beginRollout());
    EXPECT_EQ(first.getRollout(), 8u);
    EXPECT_EQ(last.m_edits[0].getOut(), 5u);
    EXPECT_EQ(last.m_edits[1].getOut(), 12u);
    EXPECT_EQ(last.getLength(), 9u);
}

// 7 frames of 1601.6 ticks, of which the track has its share in front already.
TEST_F(Rollout, BeginLengthensTheTrackByTheNearestTick) {
    m_movie->init(48000, true);
    Clip& clip = video(30000, 1001, MediaVideoRate::Ntsc2997);
    clip.hold(1);
    clip.setRollout(7);
    trackOf(clip).setLength(1601);
    EXPECT_TRUE(trackOf(clip).beginRollout());
    EXPECT_EQ(trackOf(clip).getLength(), 1601u + 11211u) << "11211.2";
}

TEST_F(Rollout, BeginOfAMovieStopsAtTheFirstTrackThatFails) {
    Clip& first = held(8, 8);
    Track& broken = m_movie->addTrack(MediaDataType::Video);
    Clip& last = held(8, 8);
    m_result = m_movie->beginRollout();
    EXPECT_TRUE(isWarning(m_result, 1));
    EXPECT_EQ(first.getRollout(), 0u);
    EXPECT_EQ(broken.m_rolloutsBegun, 1u);
    EXPECT_EQ(trackOf(last).m_rolloutsBegun, 0u);
    EXPECT_EQ(last.getRollout(), 8u);
}

TEST_F(Rollout, MovieWithoutTracksHasNothingToBegin) { EXPECT_TRUE(m_movie->beginRollout()); }

TEST_F(Rollout, EditTrailsTheIndexOnceTheTargetIsReached) {
    Clip& clip = held(0, 0);
    EXPECT_TRUE(trackOf(clip).setTargetRollout(6));
    for (U64 sample = 100; sample < 120; sample += 2)
        EXPECT_TRUE(add(trackOf(clip), sample, 2));
    EXPECT_EQ(clip.getRollout(), 6u);
    EXPECT_EQ(clip.edit().getOut(), 114u);
    EXPECT_TRUE(trackOf(clip).beginRollout());
    EXPECT_EQ(clip.edit().getOut(), 120u);
    EXPECT_EQ(trackOf(clip).getLength(), 120 * s_frame);
}

TEST_F(Rollout, CapacityIsTheLastClipsAfterTheOthersHaveHadTheirs) {
    Clip& first = video();
    first.hold(100);
    Clip& second = trackOf(first).addClip(MediaEncodingType::Dv, 30000, 1001);
    second.hold(30);
    Clip& last = trackOf(first).addClip(MediaEncodingType::Dv, 50);
    last.hold(40);
    m_movie->adviseCapacity(10 * 90000);
    EXPECT_TRUE(first.m_capacities.empty());
    EXPECT_TRUE(second.m_capacities.empty());
    // 10 s less 4 s and 1.001 s, of 50 ticks a second: 249.95.
    EXPECT_EQ(last.m_capacities, std::vector<U64>{250});
    EXPECT_TRUE(m_log.lines().empty()) << m_log.text();
}

TEST_F(Rollout, CapacityGoesToEveryTrack) {
    Clip& picture = video();
    m_movie->addTrack(MediaDataType::Data);
    Clip& sound = audio();
    m_movie->adviseCapacity(90000);
    EXPECT_EQ(picture.m_capacities, std::vector<U64>{25});
    EXPECT_EQ(sound.m_capacities, std::vector<U64>{48000});
}

TEST_F(Rollout, CapacityBelowWhatThereIsIsComplainedOfAndNotPassedOn) {
    Clip& first = video();
    first.hold(100);
    Clip& last = trackOf(first).addClip(MediaEncodingType::Dv, 25);
    trackOf(first).adviseCapacity(98 * s_frame);
    EXPECT_TRUE(last.m_capacities.empty());
    EXPECT_EQ(m_log.count(LogLevel::Error, "MediaTrackDesc::adviseCapacity: -2?"), 1u) << m_log.text();
    trackOf(first).adviseCapacity(100 * s_frame);
    EXPECT_EQ(last.m_capacities, std::vector<U64>{0});
    EXPECT_EQ(m_log.lines().size(), 1u) << m_log.text();
}

// Short of it by a part of the clip's tick: below zero, though it rounds to nothing.
TEST_F(Rollout, CapacityThatIsShortOfAFractionIsComplainedOfToo) {
    Clip& first = video();
    first.hold(100);
    Clip& last = trackOf(first).addClip(MediaEncodingType::Dv, 25);
    trackOf(first).adviseCapacity(100 * s_frame - 2);
    EXPECT_TRUE(last.m_capacities.empty());
    EXPECT_EQ(m_log.count(LogLevel::Error, "MediaTrackDesc::adviseCapacity: 0?"), 1u) << m_log.text();
}

TEST_F(LookAhead, AdviceGoesToTheIndexAndComesBackAsItAnswers) {
    Clip& clip = video();
    EXPECT_TRUE(clip.adviseLookAhead(MediaPlayReq(33, 1), true, 5));
    EXPECT_EQ(clip.placing().m_advised, 33u);
    EXPECT_TRUE(clip.placing().m_advisedFlag);
    EXPECT_EQ(clip.placing().m_advisedAllocation, 5u);
    clip.placing().m_refuses = true;
    m_result = clip.adviseLookAhead(MediaPlayReq(34, 1), false, 6);
    EXPECT_TRUE(isWarning(m_result, MediaCode::OutOfRange));
    m_result.discard();
    clip.setLookup(nullptr);
    m_result = clip.adviseLookAhead(MediaPlayReq(35, 1), false, 6);
    EXPECT_TRUE(isWarning(m_result, 1));
}

TEST_F(LookAhead, EveryFileOfTheAgentIsResetAndToldAndThoseWithoutAHandleAreSkipped) {
    const AutoRefPtr<LookAheadFile> first(new LookAheadFile);
    const AutoRefPtr<LookAheadFile> second(new LookAheadFile);
    m_movie->m_files = {first.get(), nullptr, second.get(), nullptr};
    m_movie->setLookAhead(MediaAgent(), 4096);
    EXPECT_EQ(first->m_asked, "reset 4096 ");
    EXPECT_EQ(second->m_asked, "reset 4096 ");
    m_movie->setLookAhead(MediaAgent(), 0);
    EXPECT_EQ(first->m_asked, "reset 4096 reset 0 ");
    EXPECT_TRUE(m_log.lines().empty()) << "failures are not reported: " << m_log.text();
}

TEST_F(LookAhead, MovieWithoutFilesHasNobodyToTell) {
    m_movie->setLookAhead(MediaAgent(), 4096);
    EXPECT_TRUE(m_log.lines().empty()) << m_log.text();
}

TEST_F(LookAhead, NothingOfAMovieIsHeldBackFromACopy) {
    for (const bool flag : {true, false}) {
        const MediaRedZone zone = m_movie->getRedZone(flag);
        EXPECT_EQ(zone.m_type, MediaRedZone::ZoneType::Bytes);
        EXPECT_EQ(zone.m_size, 0u);
    }
}

TEST(RedZone, TellsWhatMustNotBeCopied) {
    EXPECT_STREQ(MediaRedZone::okToCopy().toString().get(), "0 bytes");
    EXPECT_STREQ(MediaRedZone(MediaRedZone::ZoneType::Bytes, ~0ull).toString().get(), "18446744073709551615 bytes");
    EXPECT_STREQ(MediaRedZone(MediaRedZone::ZoneType::WholeFile, 4096).toString().get(), "4096 whole file");
    EXPECT_STREQ(MediaRedZone(static_cast<MediaRedZone::ZoneType>(7), 4096).toString().get(), "?redZone=7");
}
