#include "tests/unit/index/recording_movie.h"

using kit::isError;
using kit::isWarning;
using recording::Clip;
using recording::s_frame;
using recording::Track;
using testing::Test;
using U64 = unsigned long long;

// Samples on their way from a track to its clip, its index and the track that rides on it.

namespace {

class Recording : public recording::Scene {
protected:
    static Track& trackOf(Clip& clip) { return static_cast<Track&>(clip.getTrack()); }
};

// A video clip of some frames with audio that rides on it.
class RecordingPair : public Recording {
protected:
    RecordingPair() : m_master(video()), m_slave(audio()) { m_master.m_slave = &m_slave; }

    Clip& m_master;
    Clip& m_slave;
};

}  // namespace

TEST_F(Recording, TrackWithoutClipsTakesNoSamples) {
    EXPECT_FALSE(add(m_movie->addTrack(MediaDataType::Video), 0));
    EXPECT_TRUE(isError(m_result, 1));
    EXPECT_EQ(message(), "no clips for adding a sample!");
}

TEST_F(Recording, MovieThatIsNotWritableRefusesQuietlyEvenWithoutClips) {
    Clip& clip = video();
    m_movie->init(90000, false);
    m_result = MO_WARNING(9, nullptr);
    m_result.discard();
    EXPECT_FALSE(add(trackOf(clip), 0));
    EXPECT_TRUE(m_result);
    EXPECT_FALSE(add(m_movie->addTrack(MediaDataType::Video), 0));
    EXPECT_TRUE(m_result);
    EXPECT_TRUE(clip.placing().m_requests.empty());
    EXPECT_EQ(clip.getLength(), 0u);
}

TEST_F(Recording, ClipWithoutEditsRefusesQuietly) {
    Clip& clip = video();
    clip.m_edits.clear();
    clip.setLookup(nullptr);
    EXPECT_FALSE(add(trackOf(clip), 0));
    EXPECT_TRUE(m_result);
}

TEST_F(Recording, ClipWithoutIndexRefusesAndNamesItsTrack) {
    Clip& picture = video();
    Clip& sound = audio();
    for (Clip* clip : {&picture, &sound})
        clip->setLookup(nullptr);
    EXPECT_FALSE(add(trackOf(picture), 0));
    EXPECT_TRUE(isError(m_result, 1));
    EXPECT_EQ(message(), "video track 0, no offset lookup class!");
    m_result.discard();
    EXPECT_FALSE(add(trackOf(sound), 0));
    EXPECT_EQ(message(), "audio track 1, no offset lookup class!");
}

TEST_F(Recording, SampleSaysWhereInTheMovieItBelongs) {
    video();
    audio();
    Clip& clip = m_movie->track(1).addClip(MediaEncodingType::Pcm, 48000);
    clip.placing().m_place = 5000;
    m_sample.m_agent = MediaAgent(reinterpret_cast<const MediaAgent::Properties*>(this));
    m_sample.m_closeOther = true;
    SampleInfo info;
    info.reset(7680);
    EXPECT_TRUE(m_movie->track(1).addSamples(MediaRecordReq(0, 1920, info), m_sample, m_result));
    EXPECT_EQ(m_sample.m_agent.client(), nullptr);
    EXPECT_EQ(m_sample.m_mediaId, clip.getMediaId());
    EXPECT_EQ(m_sample.m_trackIndex, 1u);
    EXPECT_EQ(m_sample.m_clipIndex, 1u);
    EXPECT_EQ(m_sample.m_pathId, OsPathId(4711));
    EXPECT_FALSE(m_sample.m_closeOther);
    EXPECT_EQ(m_sample.m_chunks[0].m_offset, 5000u);
    EXPECT_EQ(m_sample.m_chunks[0].m_size, 7680u);
    EXPECT_EQ(m_sample.m_count, 1920u);
}

TEST_F(Recording, SamplesLengthenEditClipAndTrackAndTheMovieIsTold) {
    Clip& clip = video();
    clip.hold(10, 3);
    trackOf(clip).setLength(10 * s_frame);
    EXPECT_TRUE(add(trackOf(clip), 13, 4));
    EXPECT_TRUE(m_result);
    EXPECT_EQ(clip.edit().getIn(), 3u);
    EXPECT_EQ(clip.edit().getOut(), 17u);
    EXPECT_EQ(clip.getLength(), 14u);
    EXPECT_EQ(trackOf(clip).getLength(), 14 * s_frame);
    EXPECT_EQ(m_movie->m_desc.getLastTrackLength(), 14 * s_frame);
    EXPECT_EQ(m_movie->m_notified, 1u);
    EXPECT_TRUE(m_movie->m_desc.m_selected.empty());
}

TEST_F(Recording, NoSamplesChangeNothingAndTellNobody) {
    Clip& clip = video();
    clip.hold(10);
    EXPECT_TRUE(add(trackOf(clip), 10, 0));
    EXPECT_EQ(clip.getLength(), 10u);
    EXPECT_EQ(trackOf(clip).getLength(), 0u);
    EXPECT_EQ(m_movie->m_notified, 0u);
}

TEST_F(Recording, SamplesGoToTheLastEditOfTheLastClip) {
    Clip& first = video();
    Track& track = trackOf(first);
    Clip& last = track.addClip(MediaEncodingType::Dv, 25);
    first.hold(10);
    last.m_edits = {{0, 5}, {8, 10}};
    track.setLength(10 * s_frame);
    EXPECT_TRUE(add(track, 10, 2));
    EXPECT_EQ(first.getLength(), 10u);
    EXPECT_EQ(last.m_edits[0].getOut(), 5u);
    EXPECT_EQ(last.m_edits[1].getOut(), 12u);
    EXPECT_EQ(last.getLength(), 2u);
    EXPECT_EQ(track.getLength(), 12 * s_frame);
}

// An in point behind the out point: the edit has no length until the samples reach it.
TEST_F(Recording, SamplesBeforeTheInPointDoNotLengthenTheClip) {
    Clip& clip = video();
    clip.m_edits[0] = MediaEditDesc(5, 3);
    EXPECT_TRUE(add(trackOf(clip), 3, 2));
    EXPECT_EQ(clip.edit().getOut(), 5u);
    EXPECT_EQ(clip.getLength(), 0u);
    EXPECT_EQ(m_movie->m_notified, 0u);
    EXPECT_TRUE(add(trackOf(clip), 5, 2));
    EXPECT_EQ(clip.getLength(), 2u);
    EXPECT_EQ(trackOf(clip).getLength(), 2 * s_frame);
}

// A frame lasts 1601.6 ticks, and what the track had before stays in front.
TEST_F(Recording, TrackStaysExactAcrossManySmallAdditions) {
    m_movie->init(48000, true);
    Clip& clip = video(30000, 1001, MediaVideoRate::Ntsc2997);
    trackOf(clip).setLength(77);
    for (U64 sample = 0; sample < 1000; ++sample) {
        ASSERT_TRUE(add(trackOf(clip), sample));
        ASSERT_EQ(trackOf(clip).getLength(), 77 + (sample + 1) * 1001 * 48000 / 30000) << sample;
    }
}

TEST_F(Recording, RefusedSamplesLeaveEverythingAsItIsAndTheSlaveIsNotAsked) {
    Clip& clip = video();
    Clip& slave = audio();
    clip.m_slave = &slave;
    clip.hold(10);
    clip.setTargetRollout(5);
    clip.placing().m_refuses = true;
    clip.placing().m_gap = 7;
    EXPECT_FALSE(add(trackOf(clip), 10, 4));
    EXPECT_TRUE(isWarning(m_result, MediaCode::OutOfRange));
    EXPECT_EQ(message(), "refused");
    EXPECT_EQ(clip.edit().getOut(), 10u);
    EXPECT_EQ(clip.getLength(), 10u);
    EXPECT_EQ(clip.m_lengthsSet, 0u);
    EXPECT_EQ(clip.getRollout(), 0u);
    EXPECT_EQ(trackOf(clip).getLength(), 0u);
    EXPECT_EQ(m_movie->m_notified, 0u);
    EXPECT_TRUE(slave.placing().m_requests.empty());
}

TEST_F(Recording, RefusalOfAFixedIndexIsHandedOn) {
    Clip& clip = video();
    clip.setLookup(new recording::FixedIndex(clip, 100, 1000));
    SampleInfo info;
    info.reset(100);
    EXPECT_TRUE(trackOf(clip).addSamples(MediaRecordReq(0, 1, info, 1000), m_sample, m_result));
    EXPECT_FALSE(trackOf(clip).addSamples(MediaRecordReq(1, 1, info, 1101), m_sample, m_result));
    EXPECT_TRUE(isError(m_result, 1));
    EXPECT_EQ(message(), "FixedMediaLookup: req off=1101 calc off=1100");
    EXPECT_EQ(clip.getLength(), 1u);
    EXPECT_EQ(trackOf(clip).getLength(), s_frame);
}

TEST_F(Recording, SamplesFillTheRolloutUpToItsTargetAndThenLengthenTheClip) {
    Clip& clip = video();
    clip.hold(100);
    clip.setTargetRollout(10);
    U64 sample = 100;
    for (const U64 rollout : {4u, 8u, 12u}) {
        EXPECT_TRUE(add(trackOf(clip), sample, 4));
        EXPECT_EQ(clip.getRollout(), rollout);
        EXPECT_EQ(clip.edit().getOut(), 100u);
        EXPECT_EQ(clip.getLength(), 100u);
        sample += 4;
    }
    EXPECT_EQ(m_movie->m_notified, 0u);
    EXPECT_TRUE(add(trackOf(clip), sample, 4));
    EXPECT_EQ(clip.getRollout(), 12u);
    EXPECT_EQ(clip.getTargetRollout(), 10u);
    EXPECT_EQ(clip.edit().getOut(), 104u);
    EXPECT_EQ(clip.getLength(), 104u);
    EXPECT_EQ(trackOf(clip).getLength(), 4 * s_frame);
}

TEST_F(Recording, AudioWithinTwoSamplesOfItsTargetIsThere) {
    Clip& clip = audio();
    for (const unsigned rollout : {98u, 99u}) {
        clip.setRollout(0);
        clip.setTargetRollout(100);
        EXPECT_TRUE(add(trackOf(clip), 0, rollout));
        EXPECT_EQ(clip.getRollout(), rollout);
        EXPECT_EQ(clip.getTargetRollout(), rollout);
    }
    EXPECT_EQ(clip.edit().getOut(), 0u);
    EXPECT_TRUE(add(trackOf(clip), 99, 10));
    EXPECT_EQ(clip.edit().getOut(), 10u);
    EXPECT_EQ(clip.getRollout(), 99u);
}

TEST_F(Recording, AudioThreeSamplesBelowItsTargetIsNotThere) {
    Clip& clip = audio();
    clip.setTargetRollout(100);
    EXPECT_TRUE(add(trackOf(clip), 0, 97));
    EXPECT_EQ(clip.getTargetRollout(), 100u);
    EXPECT_TRUE(add(trackOf(clip), 97, 10));
    EXPECT_EQ(clip.getRollout(), 107u);
    EXPECT_EQ(clip.edit().getOut(), 0u);
}

TEST_F(Recording, OtherThanAudioMustReachItsTarget) {
    Clip& data = m_movie->addTrack(MediaDataType::Data).addClip(MediaEncodingType::Unknown, 25);
    for (Clip* clip : {&video(), &data}) {
        clip->setTargetRollout(100);
        EXPECT_TRUE(add(trackOf(*clip), 0, 98));
        EXPECT_EQ(clip->getTargetRollout(), 100u);
        EXPECT_TRUE(add(trackOf(*clip), 98, 1));
        EXPECT_EQ(clip->getRollout(), 99u);
        EXPECT_EQ(clip->getTargetRollout(), 100u);
        EXPECT_EQ(clip->edit().getOut(), 0u);
    }
}

TEST_F(Recording, GapBeforeTheFirstSamplesMovesTheSelectIn) {
    Clip& clip = video();
    clip.placing().m_gap = 5;
    EXPECT_TRUE(add(trackOf(clip), 5));
    EXPECT_EQ(m_movie->m_desc.getSelectIn(), 5 * s_frame);
    EXPECT_TRUE(add(trackOf(clip), 6));
    EXPECT_EQ(m_movie->m_desc.m_selected.size(), 1u) << "the clip has a length by now";
}

TEST_F(Recording, FirstSamplesWithoutAGapLeaveTheSelectInAlone) {
    EXPECT_TRUE(add(trackOf(video()), 0));
    EXPECT_TRUE(m_movie->m_desc.m_selected.empty());
}

// 5 * 1001 / 30000 s are 166.83 ticks, and 2 * 1001 / 30000 s are 66.73.
TEST_F(Recording, SelectInIsTheNearestTick) {
    m_movie->init(1000, true);
    Clip& clip = video(30000, 1001, MediaVideoRate::Ntsc2997);
    clip.placing().m_gap = 5;
    EXPECT_TRUE(add(trackOf(clip), 5));
    EXPECT_EQ(m_movie->m_desc.getSelectIn(), 167u);
    EXPECT_EQ(trackOf(clip).getLength(), 33u) << "lengths are cut";
}

TEST_F(Recording, OverlapOfTheFirstSamplesIsHandedOnBelowZero) {
    Clip& clip = video();
    clip.placing().m_gap = -5;
    EXPECT_TRUE(add(trackOf(clip), 0));
    EXPECT_EQ(static_cast<long long>(m_movie->m_desc.getSelectIn()), -5ll * static_cast<long long>(s_frame));
}

TEST_F(Recording, GapCountsForAsLongAsTheRolloutTakesAllSamples) {
    Clip& clip = video();
    clip.placing().m_gap = 5;
    clip.setTargetRollout(2);
    for (U64 sample = 0; sample < 4; ++sample)
        EXPECT_TRUE(add(trackOf(clip), sample));
    EXPECT_EQ(m_movie->m_desc.m_selected.size(), 3u) << "two in the rollout, and the first of the clip";
}

TEST_F(Recording, MovieWithoutInPointsDoesNotFailForAGap) {
    Clip& clip = video();
    clip.placing().m_gap = 5;
    m_movie->m_desc.m_refuses = true;
    EXPECT_TRUE(add(trackOf(clip), 5));
    EXPECT_TRUE(m_result);
    EXPECT_EQ(m_movie->m_desc.m_selected.size(), 1u);
    EXPECT_TRUE(m_log.lines().empty()) << m_log.text();
}

TEST_F(RecordingPair, SlaveTakesTheSamplesOfTheMastersFrameAtItsPlace) {
    m_master.hold(3);
    m_master.placing().m_place = 123456789012;
    SampleInfo info;
    info.reset(288000);
    info.setEncoding(SampleCodingType::P);
    info.m_ref1 = 3;
    info.m_ref2 = 4;
    EXPECT_TRUE(trackOf(m_master).addSamples(MediaRecordReq(3, 1, info), m_sample, m_result));
    ASSERT_EQ(m_slave.placing().m_requests.size(), 1u);
    const MediaRecordReq& req = m_slave.placing().m_requests[0];
    EXPECT_EQ(req.m_sample, 3u * 1920);
    EXPECT_EQ(req.m_count, 1920u);
    EXPECT_TRUE(req.m_hasOffset);
    EXPECT_EQ(req.m_offset, 123456789012u);
    EXPECT_EQ(req.m_info.getSize(), 288000u);
    EXPECT_EQ(req.m_info.getEncoding(), SampleCodingType::P);
    EXPECT_EQ(req.m_info.m_ref1, 3u);
    EXPECT_EQ(req.m_info.m_ref2, 4u);
    EXPECT_EQ(m_slave.getLength(), 1920u);
    EXPECT_EQ(trackOf(m_slave).getLength(), s_frame);
    EXPECT_EQ(m_sample.m_trackIndex, 0u) << "the caller's record stays the master's";
    EXPECT_EQ(m_sample.m_sample, 3u);
    EXPECT_EQ(m_movie->m_notified, 2u);
}

TEST_F(RecordingPair, SlaveSamplesGoToTheSlaveTracksLastClip) {
    Clip& last = trackOf(m_slave).addClip(MediaEncodingType::Pcm, 24000);
    EXPECT_TRUE(add(trackOf(m_master), 2));
    EXPECT_EQ(m_slave.getLength(), 0u);
    ASSERT_EQ(last.placing().m_requests.size(), 1u);
    EXPECT_EQ(last.placing().m_requests[0].m_sample, 2u * 960) << "counted as that clip counts";
    EXPECT_EQ(last.getLength(), 960u);
}

TEST_F(RecordingPair, SamplesOfTheMasterStayWhenTheSlaveFails) {
    m_slave.placing().m_refuses = true;
    EXPECT_FALSE(add(trackOf(m_master), 0));
    EXPECT_TRUE(isWarning(m_result, MediaCode::OutOfRange));
    EXPECT_EQ(m_master.getLength(), 1u);
    EXPECT_EQ(trackOf(m_master).getLength(), s_frame);
    EXPECT_EQ(m_slave.getLength(), 0u);
}

TEST_F(RecordingPair, SlaveWithoutEditsIsAQuietNo) {
    m_slave.m_edits.clear();
    EXPECT_FALSE(add(trackOf(m_master), 0));
    EXPECT_TRUE(m_result);
    EXPECT_EQ(m_master.getLength(), 1u);
}

TEST_F(RecordingPair, SlaveTrackWithoutClipsFails) {
    EXPECT_FALSE(m_movie->addTrack(MediaDataType::Audio)
                     .addSlaveSamples(m_master, MediaRecordReq(0, 1, SampleInfo()), m_sample, m_result));
    EXPECT_TRUE(isError(m_result, 1));
    EXPECT_EQ(message(), "no clips for adding a sample!");
}

TEST_F(RecordingPair, ClipItselfDoesNotAskItsSlave) {
    EXPECT_TRUE(add(m_master, 0));
    EXPECT_EQ(m_slave.getLength(), 0u);
    EXPECT_TRUE(m_master.addSlaveSamples(MediaRecordReq(0, 1, SampleInfo()), m_sample, m_result));
    EXPECT_EQ(m_slave.getLength(), 1920u);
    m_master.m_slave = nullptr;
    EXPECT_TRUE(m_master.addSlaveSamples(MediaRecordReq(1, 1, SampleInfo()), m_sample, m_result));
    EXPECT_EQ(m_slave.getLength(), 1920u);
}

TEST_F(Recording, EmptyEditNeedsAWritableMovieAndThenAClip) {
    Track& track = m_movie->addTrack(MediaDataType::Video);
    OpResult result = track.addEmptyEdit(5);
    EXPECT_TRUE(isError(result, 1));
    EXPECT_STREQ(result.getMessage(), "no clips for adding a sample!");
    result.discard();
    m_movie->init(90000, false);
    result = track.addEmptyEdit(5);
    EXPECT_TRUE(isWarning(result, 5));
    result.discard();
}

TEST_F(Recording, EmptyEditNeedsAnEditAndThenAnIndex) {
    Clip& clip = video();
    clip.setLookup(nullptr);
    OpResult result = trackOf(clip).addEmptyEdit(5);
    EXPECT_TRUE(isError(result, 1));
    EXPECT_STREQ(result.getMessage(), "video track 0, no offset lookup class!");
    result.discard();
    clip.m_edits.clear();
    result = trackOf(clip).addEmptyEdit(5);
    EXPECT_TRUE(isWarning(result, 1));
    EXPECT_EQ(result.getMessage(), nullptr);
    result.discard();
}

TEST_F(Recording, EmptyEditThatIsNotPastTheOutPointChangesNothing) {
    Clip& clip = video();
    clip.hold(10);
    for (const U64 sample : {0ull, 9ull, 10ull}) {
        OpResult result = trackOf(clip).addEmptyEdit(sample);
        EXPECT_TRUE(isWarning(result, 1)) << sample;
        result.discard();
    }
    EXPECT_TRUE(clip.placing().m_emptyEdits.empty());
    EXPECT_EQ(clip.edit().getOut(), 10u);
    EXPECT_EQ(clip.getLength(), 10u);
    EXPECT_EQ(m_movie->m_notified, 0u);
}

TEST_F(Recording, EmptyEditReachesToItsSample) {
    Clip& clip = video();
    clip.hold(10, 2);
    trackOf(clip).setLength(10 * s_frame);
    clip.setTargetRollout(100);
    EXPECT_TRUE(trackOf(clip).addEmptyEdit(20));
    EXPECT_EQ(clip.placing().m_emptyEdits, std::vector<U64>{20});
    EXPECT_EQ(clip.edit().getOut(), 20u);
    EXPECT_EQ(clip.getLength(), 18u);
    EXPECT_EQ(clip.getRollout(), 0u);
    EXPECT_EQ(trackOf(clip).getLength(), 18 * s_frame);
    EXPECT_EQ(m_movie->m_notified, 1u);
    EXPECT_TRUE(m_movie->m_desc.m_selected.empty());
}

TEST_F(Recording, FirstEmptyEditMovesTheSelectInByOneSample) {
    m_movie->init(1000, true);
    Clip& clip = video(30000, 1001, MediaVideoRate::Ntsc2997);
    EXPECT_TRUE(trackOf(clip).addEmptyEdit(8));
    EXPECT_EQ(m_movie->m_desc.m_selected, std::vector<U64>{33});
    EXPECT_TRUE(trackOf(clip).addEmptyEdit(9));
    EXPECT_EQ(m_movie->m_desc.m_selected.size(), 1u);
    EXPECT_EQ(trackOf(clip).getLength(), 300u);
}

TEST_F(Recording, EmptyEditThatTheIndexRefusesChangesNothing) {
    Clip& clip = video();
    clip.placing().m_refuses = true;
    OpResult result = trackOf(clip).addEmptyEdit(8);
    EXPECT_TRUE(isWarning(result, MediaCode::OutOfRange));
    EXPECT_STREQ(result.getMessage(), "refused");
    result.discard();
    EXPECT_EQ(clip.edit().getOut(), 0u);
    EXPECT_EQ(clip.getLength(), 0u);
    EXPECT_TRUE(m_movie->m_desc.m_selected.empty());
}

TEST_F(Recording, DecodedLengthTakesThePlaceOfAllLengths) {
    Clip& clip = video();
    clip.m_edits = {{0, 4}, {3, 10}};
    m_movie->init(90000, false);
    EXPECT_TRUE(clip.updateDecodedLength(20));
    EXPECT_EQ(clip.getLength(), 20u);
    EXPECT_EQ(clip.m_lengthsSet, 0u) << "past setLength";
    EXPECT_EQ(clip.m_edits[0].getOut(), 4u);
    EXPECT_EQ(clip.m_edits[1].getIn(), 3u);
    EXPECT_EQ(clip.m_edits[1].getOut(), 23u);
    EXPECT_EQ(trackOf(clip).getLength(), 20 * s_frame);
    EXPECT_EQ(m_movie->m_desc.getLastTrackLength(), 20 * s_frame) << "writable or not";
    EXPECT_EQ(m_movie->m_notified, 0u);
}

TEST_F(Recording, DecodedLengthNeedsAnEdit) {
    Clip& clip = video();
    clip.m_edits.clear();
    EXPECT_FALSE(clip.updateDecodedLength(20));
    EXPECT_EQ(clip.getLength(), 0u);
    EXPECT_EQ(trackOf(clip).getLength(), 0u);
}

TEST_F(Recording, LookupIsChainedBehindTheClipsOwn) {
    Clip& clip = video();
    recording::PlacingLookup* const next = new recording::PlacingLookup(clip);
    EXPECT_FALSE(clip.appendLookupChain(next)) << "doesn't ask to be chained";
    next->m_wantsChain = true;
    EXPECT_TRUE(clip.appendLookupChain(next));
    EXPECT_EQ(next->release(), 1) << "the chain holds it";
    clip.setLookup(nullptr);
    EXPECT_FALSE(clip.appendLookupChain(nullptr));
}

TEST_F(Recording, ClipThatCannotBeTrimmedSaysSo) {
    Clip& clip = video();
    clip.hold(10);
    unsigned in = 7;
    unsigned out = 8;
    EXPECT_FALSE(clip.trim(1, 2));
    EXPECT_FALSE(clip.getInOut(in, out));
    EXPECT_EQ(in, 7u);
    EXPECT_EQ(out, 8u);
    EXPECT_EQ(clip.edit().getOut(), 10u);
}

TEST_F(Recording, FlagNeedsAWritableMovie) {
    EXPECT_FALSE(m_movie->isRecording());
    EXPECT_TRUE(m_movie->setRecording(true));
    EXPECT_TRUE(m_movie->isRecording());
    m_movie->init(90000, false);
    for (const bool recording : {false, true}) {
        m_movie->m_desc.setRecording(!recording);
        m_result = m_movie->setRecording(recording);
        EXPECT_TRUE(isWarning(m_result, 5));
        EXPECT_EQ(m_movie->isRecording(), !recording);
        m_result.discard();
    }
}

TEST_F(Recording, SamplesAreLoggedUnderEitherSwitchOnceTheIndexHasThem) {
    Clip& clip = video();
    EXPECT_TRUE(add(trackOf(clip), 0, 4));
    mediaObjDbg.set(1u << MediaDbg::Record2);
    EXPECT_TRUE(add(trackOf(clip), 4, 4));
    EXPECT_EQ(m_log.count(LogLevel::Debug, "as,t0,c0,I,4s@4,0b@0,"), 1u) << m_log.text();
    EXPECT_EQ(m_log.lines().size(), 1u) << m_log.text();
    clip.placing().m_refuses = true;
    EXPECT_FALSE(add(trackOf(clip), 8, 4));
    m_result.discard();
    EXPECT_EQ(m_log.lines().size(), 1u) << m_log.text();
    clip.placing().m_refuses = false;
    mediaObjDbg.set(1u << MediaDbg::Record1);
    EXPECT_TRUE(add(trackOf(clip), 9, 1));
    EXPECT_EQ(m_log.count(LogLevel::Debug, "write,sgap 8-9"), 1u) << m_log.text();
    EXPECT_EQ(m_log.lines().size(), 2u) << m_log.text();
}

TEST_F(Recording, WholeRecordingPutsItsBytesWhereTheIndexFindsThem) {
    const kit::TempTree tree;
    const std::string path = tree.path("media.raw");
    Clip& clip = video();
    clip.m_mediaId = m_movie->allocMediaId(path.c_str());
    clip.setLookup(new recording::FixedIndex(clip, 4, 1000));
    mediaObjDbg.set(1u << MediaDbg::Record1);
    EXPECT_TRUE(m_movie->setRecording(true));
    EXPECT_TRUE(trackOf(clip).setTargetRollout(2));
    SampleInfo info;
    info.reset(4);
    std::string all;
    for (unsigned sample = 0; sample < 8; ++sample) {
        const std::string bytes = kit::formatted("%04u", sample);
        all += bytes;
        ASSERT_TRUE(trackOf(clip).addSamples(MediaRecordReq(sample, 1, info), m_sample, m_result));
        if (sample % 2 == 0) {
            MediaIoBuf buf;
            kit::fill(buf, bytes);
            EXPECT_TRUE(m_movie->vsWrite(m_sample, buf));
        } else {
            EXPECT_TRUE(m_movie->vaWrite(m_sample, kit::obufOf(bytes)));
        }
    }
    EXPECT_EQ(clip.getLength(), 6u);
    EXPECT_TRUE(m_movie->beginRollout());
    EXPECT_EQ(clip.getLength(), 8u);
    EXPECT_EQ(m_movie->m_desc.getLastTrackLength(), 8 * s_frame);
    EXPECT_TRUE(m_movie->setRecording(false));
    m_movie->flush(clip.m_mediaId);
    EXPECT_EQ(kit::bytesAt(path, 1000, 100), all);
    EXPECT_TRUE(clip.getMediaOffset(MediaPlayReq(5, 1), m_sample, m_result));
    EXPECT_EQ(kit::bytesAt(path, m_sample.m_chunks[0].m_offset, m_sample.m_chunks[0].m_size), "0005");
    EXPECT_TRUE(m_log.lines().empty()) << "neither a gap nor an overlap: " << m_log.text();
}
