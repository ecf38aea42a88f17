#include <gtest/gtest.h>

#include "mediautil/object/media_obj_impl.h"
#include "shared/include/object/switches.h"
#include "tests/kit/cache_scene.h"
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

namespace {

// A recorder's movie with a little essence in a file that was made for much of it.
class StripeStep : public kit::CacheScene {
protected:
    void SetUp() override {
        MovieScript script = MovieScript::ofTracks(2, 48000);
        script.m_tracks[0].m_clips[0].m_bitrate = 1536000;
        script.m_tracks.emplace_back();  // has no clip to add up
        m_movie = openWriter(scripted("m.hdcam", script), true);
        ASSERT_NE(m_movie, nullptr);
        files().advise(0, BasicIOTypes::SizeAdvice::LargeStripe);
    }
    void TearDown() override {
        if (m_movie != nullptr) m_movie->release(nullAgent(), true);
        CacheScene::TearDown();
    }
    MediaFileList& files() const { return m_movie->impl().m_fileList; }
    // Ends the morph, and looks whether the stripes were touched.
    void endMorphAndExpectNothing() {
        ASSERT_EQ(m_movie->getContainment(), MediaContainment::Embedded);
        const kit::SwitchGuard on(mediaObjDbg, MediaDbg::CacheActivity);
        m_log.clear();
        m_movie->endMorph();
        EXPECT_EQ(m_movie->m_clipPropsSet, 1);
        EXPECT_EQ(m_movie->m_syncComputed, 1);
        EXPECT_FALSE(m_log.has("Warning: * created for *")) << m_log.text();
        EXPECT_FALSE(m_log.has("CMO:updateId(*")) << m_log.text();
        EXPECT_EQ(files().getSizeAdvice(0), BasicIOTypes::SizeAdvice::LargeStripe);
    }

    ScriptedMovie* m_movie = nullptr;
};

}  // namespace

TEST_F(StripeStep, StaysDormantWhileTheFileIsHeldOpen) {
    AutoRefPtr<BasicFileIO> file = m_movie->getFp(m_result, m_movie->getMediaId(0), true, nullAgent());
    ASSERT_TRUE(file && file->open());
    endMorphAndExpectNothing();
}

TEST_F(StripeStep, StaysDormantWhileTheFileIsClosed) {
    AutoRefPtr<BasicFileIO> file = m_movie->getFp(m_result, m_movie->getMediaId(0), true, nullAgent());
    ASSERT_TRUE(file && file->close());
    endMorphAndExpectNothing();
}

TEST(Morph, EndOfAWritableMovieWithoutFilesIsQuiet) {
    LogCapture log;
    AutoReleasePtr<ScriptedMovie> movie(
        new ScriptedMovie(MovieScript::ofTracks(1, 48000), {}, true, MediaObj::CacheRefValue::None));
    movie->beginMorph();
    movie->endMorph();
    EXPECT_TRUE(log.lines().empty()) << log.text();
}
