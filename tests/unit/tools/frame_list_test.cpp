// The video frames of tracks of all kinds, by what their indexes answer.

#include "tools/frame_list.h"

#include <gtest/gtest.h>

#include "tests/unit/description/description_fixture.h"

namespace {

// Gives the track the length of its clip. Requires: a clip whose rate goes into the movie's time base.
void fitLength(TestTrack& track) { track.m_length = track.getClip(0)->convertTo(100).uint64Value(); }

TestTrack& addSound(TestMovie& movie, unsigned rate, unsigned long long samples) {
    TestTrack& track = movie.addTrack(MediaDataType::Audio);
    track.addClip(MediaEncodingType::Pcm, rate, 1, samples);
    fitLength(track);
    return track;
}

unsigned long long samplesOf(const FrameList& frames) {
    unsigned long long sum = 0;
    for (unsigned long long i = 0; i < frames.count(); ++i) {
        FrameRow row;
        std::optional<Failure> failure;
        EXPECT_TRUE(frames.find(i, row, failure)) << i;
        EXPECT_EQ(row.m_sample, sum) << i;
        EXPECT_FALSE(failure);
        sum += row.m_count;
    }
    return sum;
}

FrameRow rowOf(const FrameList& frames, unsigned long long frame) {
    FrameRow row;
    std::optional<Failure> failure;
    EXPECT_TRUE(frames.find(frame, row, failure));
    return row;
}

}  // namespace

TEST(FrameList, APictureHasItsCodingWhereTheIndexKnowsIt) {
    TestMovie movie;
    TestTrack& track = movie.addTrack(MediaDataType::Video);
    track.m_videoRate = MediaVideoRate::Pal25;
    TestClip& clip = track.addClip(MediaEncodingType::Mpeg, 25, 1, 5);
    clip.lookup().m_codings = {SampleCodingType::I, SampleCodingType::B, SampleCodingType::P, SampleCodingType::Unknown,
                               static_cast<SampleCodingType>(9)};
    fitLength(track);
    const FrameList frames(track);
    ASSERT_EQ(frames.count(), 5u);
    EXPECT_TRUE(frames.hasCoding());
    EXPECT_STREQ(rowOf(frames, 0).m_coding, "I");
    EXPECT_STREQ(rowOf(frames, 1).m_coding, "B");
    EXPECT_STREQ(rowOf(frames, 2).m_coding, "P");
    EXPECT_EQ(rowOf(frames, 3).m_coding, nullptr);
    EXPECT_EQ(rowOf(frames, 4).m_coding, nullptr);
    EXPECT_FALSE(rowOf(frames, 3).document().contains("coding"));
    EXPECT_EQ(rowOf(frames, 1).document()["coding"], "B");
    EXPECT_EQ(clip.lookup().m_frameInfos, 7);
}

TEST(FrameList, SoundHasNoCoding) {
    TestMovie movie;
    const FrameList frames(addSound(movie, 48000, 4804));
    EXPECT_FALSE(frames.hasCoding());
    EXPECT_EQ(rowOf(frames, 0).m_coding, nullptr);
}

TEST(FrameList, EverySampleOfSoundIsInAFrameWhateverIsLeftOver) {
    for (const unsigned rate : {50u, 1000u, 8000u, 32000u, 44100u, 48000u, 96000u}) {
        for (const unsigned long long samples : {1ull, 2ull, 3ull, 1599ull, 1601ull, 8008ull, 8009ull, 100000ull}) {
            SCOPED_TRACE(std::to_string(rate) + " Hz, " + std::to_string(samples));
            TestMovie movie;
            const FrameList frames(addSound(movie, rate, samples));
            EXPECT_EQ(samplesOf(frames), samples);
        }
    }
}

TEST(FrameList, SoundThatIsSlowerThanThePictureLeavesFramesEmpty) {
    TestMovie movie;
    TestTrack& track = addSound(movie, 50, 101);
    track.m_videoRate = MediaVideoRate::Ntsc2997;
    const FrameList frames(track);
    unsigned empty = 0;
    for (unsigned long long i = 0; i < frames.count(); ++i)
        empty += rowOf(frames, i).m_count == 0 ? 1 : 0;
    EXPECT_GT(empty, 0u);
    EXPECT_EQ(samplesOf(frames), 101u);
    TrackUnits::Stretch stretch;
    std::optional<Failure> failure;
    ASSERT_TRUE(frames.locate(0, 1, 1, stretch, failure));
    EXPECT_EQ(stretch.m_units, 1u);
    EXPECT_EQ(stretch.m_where.m_count, 0u);
}

TEST(FrameList, OfATrackWithoutSamplesIsEmpty) {
    TestMovie movie;
    EXPECT_EQ(FrameList(addSound(movie, 48000, 0)).count(), 0u);
    EXPECT_EQ(FrameList(movie.addTrack(MediaDataType::Audio)).count(), 0u);
}

TEST(FrameList, AClipWithoutAnIndexHasNoFrameToTell) {
    TestMovie movie;
    TestTrack& track = addSound(movie, 48000, 16016);
    track.clip(0).dropLookup();
    const FrameList frames(track);
    EXPECT_EQ(frames.count(), 10u);
    EXPECT_EQ(rowOf(frames, 0).m_count, 0u);
    EXPECT_EQ(frames.bytesOf(0, 10), 0u);
}

TEST(FrameList, AFrameThatTheIndexRefusesIsAFailureWithItsReason) {
    TestMovie movie;
    TestTrack& track = addSound(movie, 48000, 16016);
    track.clip(0).lookup().m_refuse = true;
    const FrameList frames(track);
    TrackUnits::Stretch stretch;
    std::optional<Failure> failure;
    EXPECT_FALSE(frames.locate(1, 9, 1 << 20, stretch, failure));
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->m_number, MediaCode::OutOfRange);
}

TEST(FrameList, AFrameIsReadByItselfHoweverMuchIsAskedFor) {
    TestMovie movie;
    TestTrack& track = addSound(movie, 48000, 16016);
    track.clip(0).lookup().m_sampleSize = 4;
    const FrameList frames(track);
    TrackUnits::Stretch stretch;
    std::optional<Failure> failure;
    ASSERT_TRUE(frames.locate(3, 7, 1 << 20, stretch, failure));
    EXPECT_EQ(stretch.m_units, 1u);
    EXPECT_EQ(stretch.m_where.m_sample, 4804u);
    EXPECT_EQ(stretch.m_where.m_count, 1602u);
    EXPECT_EQ(frames.bytesOf(3, 2), (1602u + 1602u) * 4);
    EXPECT_EQ(frames.bytesOf(0, frames.count()), 16016u * 4);
}

TEST(FrameList, SoundInsideAPictureHasABytesCountOfWholeFrames) {
    TestMovie movie;
    TestTrack& track = addSound(movie, 48000, 16016);
    track.clip(0).m_slave = true;
    track.clip(0).lookup().m_sampleSize = 120000;
    EXPECT_EQ(FrameList(track).bytesOf(2, 3), 3u * 120000);
}
