#include <gtest/gtest.h>

#include <string>

#include "mediautil/object/length_watch.h"
#include "mediautil/object/media_obj_impl.h"
#include "tests/kit/scripted_movie.h"
#include "tests/kit/temp_tree.h"

using kit::MovieScript;
using kit::ScriptedMovie;
using kit::TempTree;
using kit::TrackScript;

namespace {

// One second of audio at 25 frames, 1920 samples of 4 bytes each.
constexpr unsigned s_frameBytes = 1920 * 4;
constexpr long long s_start = 1000000000;

class GrowingMovie : public ::testing::Test {
protected:
    ScriptedMovie* make() {
        return new ScriptedMovie(MovieScript::ofTracks(1, 48000), m_path, false, MediaObj::CacheRefValue::None);
    }
    void growTo(unsigned frames, unsigned more = 0) { m_tree.writePattern("g.hdcam", s_frameBytes * frames + more); }

    TempTree m_tree;
    const std::string m_path = m_tree.writePattern("g.hdcam", s_frameBytes * 10);
};

}  // namespace

TEST_F(GrowingMovie, OnlyFramesWhollyInsideTheFileAreSafe) {
    AutoReleasePtr<ScriptedMovie> movie(make());
    LengthWatch watch;
    ASSERT_EQ(movie->getFrameLength(), 25u);
    EXPECT_EQ(watch.safeLengthAt(movie.get(), s_start), 10u);
    growTo(12, s_frameBytes - 1);
    EXPECT_EQ(watch.safeLengthAt(movie.get(), s_start + 1), 12u);
    growTo(25);
    EXPECT_EQ(watch.safeLengthAt(movie.get(), s_start + 2), 25u);
}

TEST_F(GrowingMovie, SafeLengthNeverFallsBackWhileTheMovieGrows) {
    AutoReleasePtr<ScriptedMovie> movie(make());
    LengthWatch watch;
    EXPECT_EQ(watch.safeLengthAt(movie.get(), s_start), 10u);
    growTo(4);
    EXPECT_EQ(watch.safeLengthAt(movie.get(), s_start + 1), 10u);
}

TEST_F(GrowingMovie, WithoutGrowthForTwentySecondsTheMovieCountsAsFinished) {
    AutoReleasePtr<ScriptedMovie> movie(make());
    LengthWatch watch;
    EXPECT_EQ(watch.safeLengthAt(movie.get(), s_start), 10u);
    EXPECT_EQ(watch.safeLengthAt(movie.get(), s_start + 20000000), 10u);
    growTo(11);
    EXPECT_EQ(watch.safeLengthAt(movie.get(), s_start + 20000000), 11u);
    EXPECT_EQ(watch.safeLengthAt(movie.get(), s_start + 40000000), 11u);
    EXPECT_EQ(watch.safeLengthAt(movie.get(), s_start + 40000001), 25u);
}

TEST_F(GrowingMovie, CopyStartsFromTheHistoryOfItsSource) {
    AutoReleasePtr<ScriptedMovie> movie(make());
    LengthWatch watch;
    EXPECT_EQ(watch.safeLengthAt(movie.get(), s_start), 10u);
    growTo(4);
    LengthWatch copy(watch);
    EXPECT_EQ(copy.safeLengthAt(movie.get(), s_start + 1), 10u);
    LengthWatch fresh;
    EXPECT_EQ(fresh.safeLengthAt(movie.get(), s_start + 1), 4u);
    fresh.takeOver(copy);
    EXPECT_EQ(fresh.safeLengthAt(movie.get(), s_start + 1), 10u);
}

TEST_F(GrowingMovie, WatchIsMadeOnceByTheFirstQuestion) {
    AutoReleasePtr<ScriptedMovie> movie(make());
    EXPECT_EQ(movie->impl().lengthWatch(), nullptr);
    EXPECT_EQ(movie->getReadSafeFrameLength(), 10u);
    const LengthWatch* made = movie->impl().lengthWatch();
    EXPECT_NE(made, nullptr);
    EXPECT_EQ(movie->getReadSafeFrameLength(), 10u);
    EXPECT_EQ(movie->impl().lengthWatch(), made);
}

TEST_F(GrowingMovie, HolderThatIsMovedTakesTheWatchAlong) {
    AutoReleasePtr<ScriptedMovie> first(make()), second(make()), third(make());
    MediaObj::Persist holder;
    first->preserve();
    holder = first.get();
    EXPECT_EQ(first->getReadSafeFrameLength(), 10u);
    growTo(4);
    first->replaceWith(second.get());
    ASSERT_NE(second->impl().lengthWatch(), nullptr);
    EXPECT_NE(second->impl().lengthWatch(), first->impl().lengthWatch());
    EXPECT_EQ(second->getReadSafeFrameLength(), 10u);
    third->preserve();
    holder = third.get();
    ASSERT_NE(third->impl().lengthWatch(), nullptr);
    EXPECT_EQ(third->getReadSafeFrameLength(), 10u);
}

TEST_F(GrowingMovie, WatchOfTheNewObjectIsOverwritten) {
    AutoReleasePtr<ScriptedMovie> first(make()), second(make());
    MediaObj::Persist holder;
    first->preserve();
    holder = first.get();
    EXPECT_EQ(first->getReadSafeFrameLength(), 10u);
    growTo(4);
    EXPECT_EQ(second->getReadSafeFrameLength(), 4u);
    first->replaceWith(second.get());
    EXPECT_EQ(second->getReadSafeFrameLength(), 10u);
}

TEST_F(GrowingMovie, WithoutAWatchNothingIsCopied) {
    AutoReleasePtr<ScriptedMovie> first(make()), second(make());
    MediaObj::Persist holder;
    first->preserve();
    holder = first.get();
    first->replaceWith(second.get());
    EXPECT_EQ(second->impl().lengthWatch(), nullptr);
}

// ------------------------------------------------------------------------------- what a whole frame is at each rate

namespace {

class WholeFrames : public ::testing::Test {
protected:
    // Sound of 48 kHz and 4 bytes a sample in a movie of 29.97 frames.
    static MovieScript soundAt2997(MediaVideoRate own, unsigned long long samples) {
        MovieScript script = MovieScript::ofTracks(1, samples);
        script.m_standard = MediaVideoRate::Ntsc2997;
        script.m_tracks[0].m_rate = own;
        return script;
    }
    // Pictures of `size` bytes, of which one takes 1001 ticks of 30000.
    static TrackScript picturesAt2997(unsigned long long count, unsigned size) {
        kit::ClipScript clip;
        clip.m_encoding = MediaEncodingType::Dv;
        clip.m_sampleRate = 30000;
        clip.m_ticksPerSample = 1001;
        clip.m_samples = count;
        clip.m_sampleSize = size;
        TrackScript track;
        track.m_type = MediaDataType::Video;
        track.m_rate = MediaVideoRate::Ntsc2997;
        track.m_clips.push_back(clip);
        return track;
    }
    // The safe length at the first look, with so many bytes of the movie in its file.
    unsigned long long safeAt(const MovieScript& script, unsigned long long bytes) {
        const std::string path = m_tree.writePattern("s.hdcam", static_cast<std::size_t>(bytes));
        AutoReleasePtr<ScriptedMovie> movie(new ScriptedMovie(script, path, false, MediaObj::CacheRefValue::None));
        LengthWatch watch;
        return watch.safeLengthAt(movie.get(), s_start);
    }

    TempTree m_tree;
};

// Where the frames of 29.97 Hz begin in sound of 48 kHz.
unsigned long long sampleOfFrame(unsigned long long frame) {
    constexpr unsigned begins[] = {0, 1600, 3202, 4804, 6406};
    return frame / 5 * 8008 + begins[frame % 5];
}

}  // namespace

TEST_F(WholeFrames, SoundAt2997HzIsSafeUpToTheVerySampleOfTheFramesEnd) {
    for (const MediaVideoRate own : {MediaVideoRate::Ntsc2997, MediaVideoRate::Unknown}) {
        MovieScript script = soundAt2997(own, sampleOfFrame(1200));
        script.m_standard = own;
        for (const unsigned long long frame : {1, 2, 3, 4, 5, 6, 599, 600, 601, 1199}) {
            const unsigned long long bytes = sampleOfFrame(frame) * 4;
            EXPECT_EQ(safeAt(script, bytes), frame);
            EXPECT_EQ(safeAt(script, bytes - 1), frame - 1) << frame;
        }
    }
}

TEST_F(WholeFrames, SoundThatNoTableCutsIsCountedByTime) {
    MovieScript script = soundAt2997(MediaVideoRate::Unknown, 96000);
    script.m_standard = MediaVideoRate::Unknown;
    script.m_timeBase = 96000;
    script.m_tracks[0].m_clips[0].m_sampleRate = 96000;
    script.m_tracks[0].m_length = 96000;
    EXPECT_EQ(safeAt(script, 3203 * 4), 1u);  // a frame is 3203.2 samples
    EXPECT_EQ(safeAt(script, 3202 * 4), 0u);
}

TEST_F(WholeFrames, PicturesAt2997HzAreSafeOneByOne) {
    MovieScript script;
    script.m_timeBase = 30000;
    script.m_standard = MediaVideoRate::Ntsc2997;
    script.m_tracks.push_back(picturesAt2997(1000, 16));
    for (const unsigned long long frame : {1, 2, 3, 333, 999}) {
        EXPECT_EQ(safeAt(script, frame * 16), frame);
        EXPECT_EQ(safeAt(script, frame * 16 - 1), frame - 1) << frame;
    }
    EXPECT_EQ(safeAt(script, 16000), 1000u);
}

TEST_F(WholeFrames, LastPartOfASoundFrameCountsWhenTheWholeTrackIsThere) {
    const unsigned long long samples = sampleOfFrame(10) + 1000;
    const MovieScript script = soundAt2997(MediaVideoRate::Ntsc2997, samples);
    EXPECT_EQ(safeAt(script, samples * 4), 11u);  // as the movie's own length has it
    EXPECT_EQ(safeAt(script, samples * 4 - 1), 10u);
}

TEST_F(WholeFrames, ShorterTrackThatIsAllThereBoundsNoOther) {
    MovieScript script = soundAt2997(MediaVideoRate::Ntsc2997, sampleOfFrame(7) + 1000);
    script.m_timeBase = 30000;
    script.m_tracks.push_back(picturesAt2997(100, 16 * 1024));
    EXPECT_EQ(safeAt(script, 100 * 16 * 1024), 100u);
    EXPECT_EQ(safeAt(script, 50 * 16 * 1024), 50u);
}

TEST_F(WholeFrames, ClipBehindAnotherIsCutAtItsOwnFrames) {
    MovieScript script = soundAt2997(MediaVideoRate::Ntsc2997, 8008);
    kit::ClipScript second = script.m_tracks[0].m_clips[0];
    second.m_base = 8008 * 4;
    script.m_tracks[0].m_clips.push_back(second);
    EXPECT_EQ(safeAt(script, (8008 + 3202) * 4), 7u);
    EXPECT_EQ(safeAt(script, (8008 + 3202) * 4 - 1), 6u);
    EXPECT_EQ(safeAt(script, 8008 * 4), 5u);
    EXPECT_EQ(safeAt(script, 2 * 8008 * 4), 10u);
}
