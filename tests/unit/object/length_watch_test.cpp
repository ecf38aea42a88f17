#include <gtest/gtest.h>

#include "mediautil/object/length_watch.h"
#include "mediautil/object/media_obj_impl.h"
#include "tests/kit/scripted_movie.h"
#include "tests/kit/temp_tree.h"

using kit::MovieScript;
using kit::ScriptedMovie;
using kit::TempTree;

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
