#include <gtest/gtest.h>

#include "mediautil/object/media_obj_impl.h"
#include "shared/include/object/switches.h"
#include "tests/kit/log_capture.h"
#include "tests/kit/scripted_movie.h"
#include "tests/kit/switch_guard.h"
#include "tests/kit/temp_tree.h"

using kit::LogCapture;
using kit::MovieScript;
using kit::ScriptedMovie;

namespace {

ScriptedMovie* lonely(const std::string& path = {}, bool writable = false) {
    return new ScriptedMovie(MovieScript(), path, writable, MediaObj::CacheRefValue::None);
}

}  // namespace

TEST(Morph, NestsAndRunsItsEndOnlyWhenTheLastOneEnds) {
    AutoReleasePtr<ScriptedMovie> movie(lonely({}, true));
    movie->beginMorph();
    movie->beginMorph();
    movie->endMorph();
    EXPECT_TRUE(movie->isMorphing());
    EXPECT_EQ(movie->m_syncComputed, 0);
    EXPECT_EQ(movie->m_clipPropsSet, 0);
    movie->endMorph();
    EXPECT_FALSE(movie->isMorphing());
    EXPECT_EQ(movie->m_syncComputed, 1);
    EXPECT_EQ(movie->m_clipPropsSet, 1);
}

TEST(Morph, EndOfAReadOnlyMovieSetsNoClipProperties) {
    AutoReleasePtr<ScriptedMovie> movie(lonely());
    movie->beginMorph();
    movie->endMorph();
    EXPECT_EQ(movie->m_clipPropsSet, 0);
    EXPECT_EQ(movie->m_syncComputed, 1);
}

TEST(Morph, EndGivesTheReferencesOfAWrittenMovieTheirWriter) {
    AutoReleasePtr<ScriptedMovie> first(lonely()), second(lonely()), movie(lonely());
    movie->addWriter();
    movie->beginMorph();
    movie->m_references = {second.get(), first.get(), second.get()};
    movie->endMorph();
    EXPECT_EQ(first->impl().getWriterCount(), 1);
    EXPECT_EQ(second->impl().getWriterCount(), 1);
    AutoReleasePtr<ScriptedMovie> unwritten(lonely());
    unwritten->m_references = {first.get()};
    unwritten->beginMorph();
    unwritten->endMorph();
    EXPECT_EQ(first->impl().getWriterCount(), 1);
}

TEST(Morph, EndWithoutABeginIsToldOnceAndDoesNothing) {
    kit::TempTree tree;
    LogCapture log;
    const std::string path = tree.write("m.hdcam", "x");
    AutoReleasePtr<ScriptedMovie> movie(lonely(path, true));
    movie->endMorph();
    movie->endMorph();
    EXPECT_EQ(log.count(LogLevel::Error, "MO::endMorph: too many calls for " + path), 1u) << log.text();
    EXPECT_EQ(log.lines().size(), 1u) << log.text();
    EXPECT_EQ(movie->m_syncComputed, 0);
    EXPECT_EQ(movie->m_clipPropsSet, 0);
    EXPECT_FALSE(movie->isMorphing());
    // The state stays as it is: two begins only make up for the two ends.
    movie->beginMorph();
    EXPECT_FALSE(movie->isMorphing());
    movie->beginMorph();
}

TEST(Morph, IsLoggedUnderItsSwitch) {
    kit::TempTree tree;
    LogCapture log;
    const std::string path = tree.write("m.hdcam", "x");
    AutoReleasePtr<ScriptedMovie> movie(lonely(path));
    movie->beginMorph();
    EXPECT_TRUE(log.lines().empty());
    const kit::SwitchGuard on(mediaObjDbg, MediaDbg::Morph);
    movie->beginMorph();
    EXPECT_TRUE(log.has(LogLevel::Debug, "MO::beginMorph(" + path + ")-->2")) << log.text();
    movie->endMorph();
    EXPECT_TRUE(log.has(LogLevel::Debug, "MO::endMorph(" + path + ")-->1")) << log.text();
    movie->endMorph();
}

TEST(Morph, OperationsThatNeedOneWarnOncePerProcess) {
    LogCapture log;
    AutoReleasePtr<ScriptedMovie> movie(lonely());
    EXPECT_FALSE(movie->ensureMorphing("Back::end"));
    EXPECT_FALSE(movie->ensureMorphing("Other::end"));
    EXPECT_EQ(log.count(LogLevel::Warning, "Back::end: morphing not set."), 1u) << log.text();
    EXPECT_EQ(log.lines().size(), 1u) << log.text();
    movie->beginMorph();
    EXPECT_TRUE(movie->ensureMorphing("Back::end"));
    movie->endMorph();
}

TEST(FilterDupObjects, SortsByAddressAndKeepsOneOfEach) {
    AutoReleasePtr<ScriptedMovie> movie(lonely()), a(lonely()), b(lonely());
    MediaObj* const low = std::min<MediaObj*>(a.get(), b.get());
    MediaObj* const high = std::max<MediaObj*>(a.get(), b.get());
    EXPECT_EQ(movie->filterDupObjects({high, low, high}), (std::list<MediaObj*>{low, high}));
    EXPECT_EQ(movie->filterDupObjects({low, low}), (std::list<MediaObj*>{low}));
    EXPECT_TRUE(movie->filterDupObjects({}).empty());
}
