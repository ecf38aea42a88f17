#include <gtest/gtest.h>

#include "shared/include/object/switches.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/hooks.h"
#include "tests/kit/wait_for.h"

using kit::formatted;
using kit::isWarning;
using kit::MovieScript;
using kit::ScriptedMovie;
using kit::TempTree;
namespace Scripts = kit::Scripts;

namespace {

constexpr unsigned long long s_nobody = 0xabcdef;

class Rereader : public kit::CacheScene {
protected:
    // As the file layer tells it.
    bool notify(const std::string& path, OsPathId id, bool force = false) {
        BasicIOTypes::Change change;
        change.m_path = path.c_str();
        change.m_id = id;
        change.m_force = force;
        return m_cache->changeCb(change);
    }
    void change(const std::string& path, const char* name, const MovieScript& script) {
        Scripts::set(path, script);
        m_tree.write(name, "changed and longer");
    }
    void onlyQueued(OsPathId id) {
        EXPECT_EQ(m_cache.queued(), 1u);
        EXPECT_TRUE(m_cache.queuedForce(id).has_value());
    }

    const MovieScript m_one = MovieScript::ofTracks(1, 48000);
    const MovieScript m_longer = MovieScript::ofTracks(1, 96000);
    const std::string m_path = scripted("a.hdcam", m_one);
    const OsPathId m_id = TempTree::idOf(m_path);
};

}  // namespace

TEST_F(Rereader, NewsOfAFileThatIsNotInTheCacheIsIgnored) {
    EXPECT_TRUE(notify("/some/file", s_nobody));
    EXPECT_TRUE(m_log.lines().empty());
    mediaObjDbg.setBit(MediaDbg::RereadActivity);
    EXPECT_TRUE(notify("/some/file", s_nobody));
    EXPECT_EQ(m_log.count(LogLevel::Debug, "CMO:changeCb: /some/file,#abcdef not in cache"), 1u) << m_log.text();
    EXPECT_EQ(m_cache.queued(), 0u);
}

TEST_F(Rereader, NewsOfAFileThatIsBeingParsedIsIgnoredInSilence) {
    ASSERT_TRUE(m_cache->reserve(s_nobody));
    mediaObjDbg.setBit(MediaDbg::RereadActivity);
    EXPECT_TRUE(notify("/some/file", s_nobody));
    EXPECT_TRUE(m_log.lines().empty()) << m_log.text();
    EXPECT_EQ(m_cache.queued(), 0u);
    m_cache->cancel(s_nobody);
}

TEST_F(Rereader, NewsOfAFileThatIsWrittenHereCausesNoParse) {
    const std::string path = m_tree.path("w.hdcam");
    Scripts::set(path, m_one);
    ScriptedMovie* writer = openWriter(path);
    mediaObjDbg.setBit(MediaDbg::RereadActivity);
    EXPECT_TRUE(notify(path, writer->impl().getCacheId(), true));
    EXPECT_EQ(m_log.count(LogLevel::Debug, "CMO:changeCb: cancel reread of rec,rw(1),w.hdcam,*"), 1u) << m_log.text();
    EXPECT_EQ(m_cache.queued(), 0u);
    // The recording flag alone is enough.
    writer->getMovieDesc()->setWritable(false);
    EXPECT_TRUE(notify(path, writer->impl().getCacheId(), true));
    EXPECT_EQ(m_cache.queued(), 0u);
    writer->getMovieDesc()->setWritable(true);
    mediaObjDbg.set(0u);
    writer->release(nullAgent(), true);
}

TEST_F(Rereader, TenNotificationsBetweenTwoTicksAreOneParse) {
    ScriptedMovie* movie = open(m_path);
    m_cache.stopNews();
    change(m_path, "a.hdcam", m_longer);
    mediaObjDbg.setBit(MediaDbg::RereadActivity);
    for (int i = 0; i < 10; ++i)
        EXPECT_TRUE(notify(m_path, m_id));
    onlyQueued(m_id);
    EXPECT_EQ(m_log.count("CMO:changeCb: *"), 10u) << m_log.text();
    EXPECT_EQ(m_log.count(LogLevel::Debug, "CMO:changeCb: sched reread of ro(0),a.hdcam,*"), 1u) << m_log.text();
    EXPECT_EQ(m_log.count(LogLevel::Debug, "CMO:changeCb: ignore dup reread of ro(0),a.hdcam,*"), 9u) << m_log.text();
    EXPECT_TRUE(m_cache.serveOne());
    EXPECT_EQ(Scripts::opens(m_path), 2u);
    EXPECT_TRUE(m_cache.isZombie(movie));
    movie->release();
}

TEST_F(Rereader, ElementThatWaitsKeepsItsPlaceAndItsForce) {
    ScriptedMovie* a = open(m_path);
    const std::string other = scripted("b.hdcam", m_one);
    ScriptedMovie* b = open(other);
    notify(m_path, m_id, false);
    notify(other, TempTree::idOf(other), false);
    notify(m_path, m_id, true);
    EXPECT_EQ(m_cache.queued(), 2u);
    EXPECT_EQ(m_cache.queuedForce(m_id), false);
    mediaObjDbg.setBit(MediaDbg::RereadActivity);
    EXPECT_TRUE(m_cache.serveOne());
    EXPECT_EQ(m_log.count("CMO:Reread *a.hdcam,* done in *us"), 1u) << m_log.text();
    EXPECT_TRUE(m_cache.serveOne());
    EXPECT_EQ(m_log.count("CMO:Reread *b.hdcam,* done in *us"), 1u) << m_log.text();
    EXPECT_FALSE(m_cache.serveOne());
    a->release();
    b->release();
}

TEST_F(Rereader, UnchangedFileIsNotParsedUnlessForced) {
    ScriptedMovie* movie = open(m_path);
    notify(m_path, m_id, false);
    EXPECT_TRUE(m_cache.serveOne());
    EXPECT_EQ(Scripts::opens(m_path), 1u);
    EXPECT_EQ(m_cache.entry(m_id), movie);
    notify(m_path, m_id, true);
    EXPECT_TRUE(m_cache.serveOne());
    EXPECT_EQ(Scripts::opens(m_path), 2u);
    EXPECT_NE(m_cache.entry(m_id), movie);
    movie->release();
}

TEST_F(Rereader, ReferenceOfTheParseIsGivenBackAtOnce) {
    ScriptedMovie* movie = open(m_path);
    notify(m_path, m_id, false);
    EXPECT_TRUE(m_cache.serveOne());
    EXPECT_EQ(movie->getReferenceCount(), 2);
    movie->release();
}

TEST_F(Rereader, FileThatHasGoneBeforeTheTickLeavesNoTrace) {
    ScriptedMovie* movie = open(m_path);
    m_cache.stopNews();
    m_tree.remove("a.hdcam");
    notify(m_path, m_id, true);
    mediaObjDbg.setBit(MediaDbg::RereadActivity);
    m_log.clear();
    EXPECT_TRUE(m_cache.serveOne());
    EXPECT_EQ(m_cache.queuedForce(m_id), std::nullopt);
    EXPECT_FALSE(m_log.has("CMO:Reread *")) << m_log.text();
    EXPECT_EQ(Scripts::opens(m_path), 1u);
    EXPECT_EQ(m_cache.entry(m_id), movie);
    movie->release();
}

TEST_F(Rereader, FailedParseLeavesTheOldObjectAndIsToldWithThePath) {
    ScriptedMovie* movie = open(m_path);
    m_cache.stopNews();
    change(m_path, "a.hdcam", MovieScript().refuse(OpResult::Type::Error, 15, "half written"));
    notify(m_path, m_id, false);
    mediaObjDbg.setBit(MediaDbg::RereadActivity);
    EXPECT_TRUE(m_cache.serveOne());
    EXPECT_EQ(m_log.count(LogLevel::Debug, "CMO:Reread " + m_path + " failed in *us"), 1u) << m_log.text();
    EXPECT_EQ(m_log.count(LogLevel::Error, "*"), 0u) << m_log.text();
    EXPECT_EQ(m_cache.entry(m_id), movie);
    movie->release();
}

TEST_F(Rereader, ChangedFileMovesTheHoldersByItself) {
    kit::ChangedHook changed;
    MediaObj::Persist holder(&changed);
    ScriptedMovie* movie = open(m_path);
    holder = movie;
    m_cache.startThread();
    change(m_path, "a.hdcam", m_longer);
    EXPECT_TRUE(kit::waitFor([&] { return changed.count() >= 1; }));
    m_cache.stopThread();
    AutoReleasePtr<MediaObj> seen(holder.preserve());
    EXPECT_NE(seen.get(), movie);
    EXPECT_EQ(seen->getMovieDesc()->getLastTrackLength(), 96000u);
}

TEST_F(Rereader, QueueIsNotServedAfterTheShutdownSignalAndTheCacheEmpties) {
    ScriptedMovie* held = open(m_path);
    std::atomic<int> deleted{0};
    ScriptedMovie* idle = open(scripted("b.hdcam", m_one));
    idle->m_deleted = &deleted;
    m_cache.startThread();
    m_cache->shutdownSignalCb();
    // The main loop may be in the middle of its last tick; the emptying of the cache comes behind it.
    idle->release();
    ASSERT_TRUE(kit::waitFor([&] { return deleted == 1; }));
    notify(m_path, m_id, true);
    idle = open(scripted("c.hdcam", m_one));
    idle->m_deleted = &deleted;
    idle->release();
    ASSERT_TRUE(kit::waitFor([&] { return deleted == 2; }));
    EXPECT_EQ(m_cache.queuedForce(m_id), true);
    EXPECT_EQ(Scripts::opens(m_path), 1u);
    m_cache.stopThread();
    held->release();
}

TEST_F(Rereader, RereadOfAMovieThatIsWrittenHereIsOkAndParsesNothing) {
    const std::string path = m_tree.path("w.hdcam");
    Scripts::set(path, m_one);
    ScriptedMovie* writer = openWriter(path);
    EXPECT_TRUE(writer->reread());
    EXPECT_TRUE(writer->setRecording(false));
    EXPECT_TRUE(writer->reread());
    EXPECT_EQ(Scripts::opens(path), 0u);
    writer->release(nullAgent(), true);
}

TEST_F(Rereader, RereadParsesAnUnchangedFileAgainOnTheCallersThread) {
    ScriptedMovie* movie = open(m_path);
    mediaObjDbg.setBit(MediaDbg::RereadActivity);
    EXPECT_TRUE(movie->reread());
    EXPECT_EQ(Scripts::opens(m_path), 2u);
    EXPECT_EQ(m_log.count(LogLevel::Debug, "CMO:Reread ro(0),a.hdcam,* done in *us"), 1u) << m_log.text();
    EXPECT_NE(m_cache.entry(m_id), movie);
    movie->release();
}

TEST_F(Rereader, RereadOfAFileThatHasGoneIsToldAndOfOneThatIsBrokenToo) {
    ScriptedMovie* movie = open(m_path);
    Scripts::set(m_path, MovieScript().refuse(OpResult::Type::Error, 15));
    EXPECT_TRUE(isWarning(movie->reread(), 8));
    m_tree.remove("a.hdcam");
    EXPECT_TRUE(isWarning(movie->reread(), 6));
    EXPECT_EQ(m_cache.entry(m_id), movie);
    movie->release();
}
