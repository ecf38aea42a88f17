#include <gtest/gtest.h>

#include <thread>

#include "shared/include/object/switches.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/wait_for.h"

using kit::formatted;
using kit::Gate;
using kit::MovieScript;
using kit::ScriptedMovie;
using kit::TempTree;
namespace Scripts = kit::Scripts;

namespace {

constexpr unsigned long long s_nobody = 0xabcdef;

class CacheMap : public kit::CacheScene {
protected:
    ScriptedMovie* writerOf(const std::string& name, const MovieScript& script = MovieScript::ofTracks(1, 48000)) {
        const std::string path = m_tree.path(name);
        Scripts::set(path, script);
        return openWriter(path);
    }
};

}  // namespace

TEST(OsPathIdValue, IsNoneByDefaultAndOrdersUnsigned) {
    EXPECT_EQ(OsPathId().getId(), 0u);
    EXPECT_TRUE(OsPathId() == 0ull);
    EXPECT_TRUE(OsPathId(5) == OsPathId(5));
    EXPECT_TRUE(OsPathId(5) != OsPathId(6));
    EXPECT_TRUE(OsPathId(5) != 6ull);
    EXPECT_TRUE(OsPathId(1) < OsPathId(0x8000000000000000ull));
    EXPECT_FALSE(OsPathId(0x8000000000000000ull) < OsPathId(1));
}

TEST_F(CacheMap, ReservedIdIsNotFoundAndCannotBeReservedAgain) {
    mediaObjDbg.setBit(MediaDbg::CacheActivity);
    bool hasWriters = true;
    EXPECT_EQ(m_cache->find(s_nobody, false, &hasWriters), nullptr);
    EXPECT_FALSE(hasWriters);
    EXPECT_TRUE(m_cache->reserve(s_nobody));
    EXPECT_EQ(m_log.count(LogLevel::Debug, "CMO:reserve(0xabcdef)"), 1u) << m_log.text();
    EXPECT_EQ(m_cache.entry(s_nobody), nullptr);
    hasWriters = true;
    EXPECT_EQ(m_cache->find(s_nobody, true, &hasWriters), nullptr);
    EXPECT_FALSE(hasWriters);
    EXPECT_FALSE(m_cache->reserve(s_nobody));
    EXPECT_EQ(m_log.count("CMO:reserve(*"), 1u);
    m_cache->cancel(s_nobody);
    EXPECT_EQ(m_log.count(LogLevel::Debug, "CMO:reservation(0xabcdef) unused"), 1u) << m_log.text();
    EXPECT_FALSE(m_cache.has(s_nobody));
    EXPECT_TRUE(m_cache->reserve(s_nobody));
    m_cache->cancel(s_nobody);
}

TEST_F(CacheMap, CancelAfterAnInstallLeavesTheObjectAndReportsUsed) {
    const std::string path = scripted("a.hdcam", MovieScript());
    const OsPathId id = TempTree::idOf(path);
    ASSERT_TRUE(m_cache->reserve(id));
    ScriptedMovie* movie = parsed(path, MovieScript());
    EXPECT_EQ(m_cache->replace(movie, id, false, false), movie);
    mediaObjDbg.setBit(MediaDbg::CacheActivity);
    m_cache->cancel(id);
    EXPECT_EQ(m_log.count(LogLevel::Debug, formatted("CMO:reservation(0x%llx) used", id.getId())), 1u) << m_log.text();
    EXPECT_EQ(m_cache.entry(id), movie);
    movie->release();
}

TEST_F(CacheMap, CancelOfAnIdThatWasNeverReservedReportsNotFound) {
    mediaObjDbg.setBit(MediaDbg::CacheActivity);
    m_cache->cancel(s_nobody);
    EXPECT_EQ(m_log.count(LogLevel::Debug, "CMO:reservation(0xabcdef) not found"), 1u) << m_log.text();
    EXPECT_EQ(m_cache.mapSize(), 0u);
}

TEST_F(CacheMap, AutoCancelGivesUpOnlyWhatItWasToldIsReserved) {
    ASSERT_TRUE(m_cache->reserve(s_nobody));
    { const CachedMediaObj::AutoCancel none(m_cache.cache(), s_nobody, false); }
    EXPECT_TRUE(m_cache.has(s_nobody));
    { const CachedMediaObj::AutoCancel cancel(m_cache.cache(), s_nobody, true); }
    EXPECT_FALSE(m_cache.has(s_nobody));
}

TEST_F(CacheMap, FindGivesOneReference) {
    const std::string path = scripted("a.hdcam", MovieScript());
    ScriptedMovie* movie = open(path);
    bool hasWriters = true;
    EXPECT_EQ(m_cache->find(TempTree::idOf(path), false, &hasWriters), movie);
    EXPECT_FALSE(hasWriters);
    EXPECT_EQ(movie->getReferenceCount(), 3);
    EXPECT_EQ(m_cache->find(TempTree::idOf(path), false, nullptr), movie);
    movie->release();
    movie->release();
    movie->release();
}

TEST_F(CacheMap, WriterFindOnAPlainReadOnlyObjectAddsNoWriter) {
    const std::string path = scripted("a.hdcam", MovieScript());
    ScriptedMovie* movie = open(path);
    bool hasWriters = true;
    EXPECT_EQ(m_cache->find(TempTree::idOf(path), true, &hasWriters), movie);
    EXPECT_FALSE(hasWriters);
    EXPECT_EQ(movie->impl().getWriterCount(), 0);
    movie->release();
    movie->release();
}

TEST_F(CacheMap, WriterFindOnAWrittenObjectAddsOneAndTellsIt) {
    ScriptedMovie* movie = writerOf("w.hdcam");
    mediaObjDbg.setBit(MediaDbg::PermissionChange);
    bool hasWriters = false;
    EXPECT_EQ(
        m_cache->find(movie->getPathId(nullptr) == 0ull ? movie->impl().getCacheId() : OsPathId(), true, &hasWriters),
        movie);
    EXPECT_TRUE(hasWriters);
    EXPECT_EQ(movie->impl().getWriterCount(), 2);
    EXPECT_EQ(m_log.count(LogLevel::Debug, "CMO:find inc W: rec,rw(2),w.hdcam,*"), 1u) << m_log.text();
    // A reader is told of the writers too, and adds none.
    EXPECT_EQ(m_cache->find(movie->impl().getCacheId(), false, &hasWriters), movie);
    EXPECT_TRUE(hasWriters);
    EXPECT_EQ(movie->impl().getWriterCount(), 2);
    movie->release();
    movie->release(nullAgent(), true);
    movie->release(nullAgent(), true);
}

TEST_F(CacheMap, ObjectWhoseFileIdDiffersIsFoundUnderBothIds) {
    const std::string path = scripted("a.hdcam", MovieScript());
    const OsPathId fileId = TempTree::idOf(path);
    mediaObjDbg.setBit(MediaDbg::CacheActivity);
    ScriptedMovie* movie = parsed(path, MovieScript());
    EXPECT_EQ(m_cache->replace(movie, OsPathId(s_nobody), false, false), movie);
    EXPECT_EQ(m_log.count(LogLevel::Debug,
                          formatted("CMO::replace: adding an additional cache entry of 0x%llx for *", fileId.getId())),
              1u)
        << m_log.text();
    EXPECT_EQ(m_cache.mapSize(), 2u);
    EXPECT_EQ(movie->impl().getCacheId(), OsPathId(s_nobody));
    EXPECT_EQ(movie->getFileId(), fileId);
    EXPECT_EQ(m_cache->find(fileId, false, nullptr), movie);
    EXPECT_EQ(m_cache->find(OsPathId(s_nobody), false, nullptr), movie);
    EXPECT_EQ(movie->getReferenceCount(), 4);
    for (int i = 0; i < 3; ++i)
        movie->release();
}

TEST_F(CacheMap, SecondEntryTakesAReservationOver) {
    const std::string path = scripted("a.hdcam", MovieScript());
    const OsPathId fileId = TempTree::idOf(path);
    ASSERT_TRUE(m_cache->reserve(fileId));
    mediaObjDbg.setBit(MediaDbg::CacheActivity);
    ScriptedMovie* movie = parsed(path, MovieScript());
    EXPECT_EQ(m_cache->replace(movie, OsPathId(s_nobody), false, false), movie);
    EXPECT_EQ(m_cache.entry(fileId), movie);
    EXPECT_EQ(
        m_log.count(LogLevel::Debug, formatted("CMO::replace additional cache entry 0x%llx for *", fileId.getId())), 1u)
        << m_log.text();
    movie->release();
}

TEST_F(CacheMap, SecondEntryRetiresAnOlderObjectAndMovesItsHolders) {
    const std::string path = scripted("a.hdcam", MovieScript());
    const OsPathId fileId = TempTree::idOf(path);
    ScriptedMovie* older = open(path);
    MediaObj::Persist holder;
    holder = older;
    ScriptedMovie* movie = parsed(path, MovieScript());
    EXPECT_EQ(m_cache->replace(movie, OsPathId(s_nobody), false, false), movie);
    EXPECT_EQ(m_cache.entry(fileId), movie);
    EXPECT_TRUE(m_cache.isZombie(older));
    EXPECT_FALSE(older->impl().isCached());
    AutoReleasePtr<MediaObj> seen(holder.preserve());
    EXPECT_EQ(seen.get(), movie);
    movie->release();
}

TEST_F(CacheMap, SecondEntryThatCannotBeHadFailsTheInstallAndTheObjectWaitsAmongTheZombies) {
    const std::string path = scripted("a.hdcam", MovieScript::ofTracks(2, 48000));
    ScriptedMovie* older = open(path);
    ScriptedMovie* movie = parsed(path, MovieScript::ofTracks(3, 48000));
    movie->setVersion(older->getVersion() + 1, false);
    EXPECT_EQ(m_cache->replace(movie, OsPathId(s_nobody), false, false), nullptr);
    EXPECT_EQ(m_log.count(LogLevel::Error, "CMO::addToCache: failed to replace ro(0),a.hdcam,* w/ ro(0),a.hdcam,*"), 1u)
        << m_log.text();
    EXPECT_TRUE(m_cache.isZombie(movie));
    EXPECT_FALSE(movie->impl().isCached());
    EXPECT_EQ(m_cache.entry(TempTree::idOf(path)), older);
    // The caller's reference isn't released in this case, which is kept: the object stays until somebody does.
    EXPECT_EQ(movie->getReferenceCount(), 2);
    expireAll();
    EXPECT_TRUE(m_cache.isZombie(movie));
    movie->impl().setLastRefTime(0);
    movie->getRefCount()->release();
    older->release();
}

TEST_F(CacheMap, WriterFindDuringTheUnlockedCloseWaitsAndThenFindsNoWriters) {
    MovieScript slow = MovieScript::ofTracks(1, 48000);
    slow.m_closeGate = std::make_shared<Gate>();
    ScriptedMovie* movie = writerOf("w.hdcam", slow);
    const OsPathId id = movie->impl().getCacheId();
    movie->preserve();
    mediaObjDbg.setBit(MediaDbg::PermissionChange);
    slow.m_closeGate->close();
    std::thread closer([&] { movie->release(nullAgent(), true); });
    ASSERT_TRUE(kit::waitFor([&] { return slow.m_closeGate->waiting() == 1; }));
    bool hasWriters = true;
    MediaObj* found = nullptr;
    std::thread finder([&] { found = m_cache->find(id, true, &hasWriters); });
    ASSERT_TRUE(
        kit::waitFor([&] { return m_log.has(LogLevel::Debug, "CMO:find: wait for ro change: rec,rw(0),w.hdcam,*"); }));
    slow.m_closeGate->open();
    closer.join();
    finder.join();
    EXPECT_EQ(found, movie);
    EXPECT_FALSE(hasWriters);
    EXPECT_EQ(movie->impl().getWriterCount(), 0);
    EXPECT_EQ(m_log.count(LogLevel::Debug, "CMO:find: wait done @*ms: *"), 1u) << m_log.text();
    movie->release();
    movie->release();
}

TEST_F(CacheMap, ReaderFindDuringTheUnlockedCloseDoesNotWait) {
    MovieScript slow = MovieScript::ofTracks(1, 48000);
    slow.m_closeGate = std::make_shared<Gate>();
    ScriptedMovie* movie = writerOf("w.hdcam", slow);
    slow.m_closeGate->close();
    std::thread closer([&] { movie->release(nullAgent(), true); });
    ASSERT_TRUE(kit::waitFor([&] { return slow.m_closeGate->waiting() == 1; }));
    EXPECT_EQ(m_cache->find(movie->impl().getCacheId(), false, nullptr), movie);
    slow.m_closeGate->open();
    closer.join();
    movie->release();
}

TEST_F(CacheMap, CloseThatTakesLongerThanThreeSecondsGivesTheWaiterNullAndNamesTheTime) {
    MovieScript slow = MovieScript::ofTracks(1, 48000);
    slow.m_closeGate = std::make_shared<Gate>();
    ScriptedMovie* movie = writerOf("w.hdcam", slow);
    movie->preserve();
    slow.m_closeGate->close();
    std::thread closer([&] { movie->release(nullAgent(), true); });
    ASSERT_TRUE(kit::waitFor([&] { return slow.m_closeGate->waiting() == 1; }));
    bool hasWriters = true;
    EXPECT_EQ(m_cache->find(movie->impl().getCacheId(), true, &hasWriters), nullptr);
    EXPECT_FALSE(hasWriters);
    EXPECT_EQ(m_log.count(LogLevel::Error, "CMO:find: ro timeout @3*ms: rec,rw(0),w.hdcam,*"), 1u) << m_log.text();
    EXPECT_EQ(movie->getReferenceCount(), 3);
    slow.m_closeGate->open();
    closer.join();
    movie->release();
}

TEST_F(CacheMap, ReleaseOfOneOfTwoWritersOnlyLowersTheCount) {
    ScriptedMovie* movie = writerOf("w.hdcam");
    ASSERT_EQ(m_cache->find(movie->impl().getCacheId(), true, nullptr), movie);
    const int closes = movie->m_closes;
    mediaObjDbg.setBit(MediaDbg::PermissionChange);
    movie->release(nullAgent(), true);
    EXPECT_EQ(movie->impl().getWriterCount(), 1);
    EXPECT_EQ(movie->m_closes, closes);
    EXPECT_TRUE(movie->getMovieDesc()->isWritable());
    EXPECT_EQ(m_log.count(LogLevel::Debug, "CMO:release: set W=1: rec,rw(1),w.hdcam,*"), 1u) << m_log.text();
    movie->release(nullAgent(), true);
}

TEST_F(CacheMap, LastWriterClosesTheObjectTurnsItReadOnlyAndTakesTheFilesVersion) {
    ScriptedMovie* movie = writerOf("w.hdcam");
    movie->preserve();
    m_tree.write("w.hdcam", "what the writer wrote");
    mediaObjDbg.setBit(MediaDbg::PermissionChange);
    movie->release(nullAgent(), true);
    EXPECT_EQ(movie->m_closes, 1);
    EXPECT_FALSE(movie->getMovieDesc()->isWritable());
    EXPECT_EQ(movie->impl().getVersion(), movie->impl().m_fileList.getVersion());
    EXPECT_EQ(m_log.count(LogLevel::Debug, "CMO:release: set W=0: rec,ro(0),w.hdcam,*"), 1u) << m_log.text();
    // Its file is watched from now on.
    mediaObjDbg.set(0u);
    ASSERT_TRUE(movie->isRecording());
    movie->getMovieDesc()->setRecording(false);
    m_tree.append("w.hdcam", "somebody else's");
    EXPECT_TRUE(kit::waitFor([&] { return m_cache.queuedForce(movie->impl().getCacheId()).has_value(); }));
    movie->release();
}

TEST_F(CacheMap, LastWriterOfAMovieReleasesTheWritersOfItsReferences) {
    ScriptedMovie* referenced = writerOf("ref.hdcam");
    ScriptedMovie* movie = writerOf("w.hdcam");
    movie->beginMorph();
    movie->m_references = {referenced, referenced};
    movie->endMorph();
    EXPECT_EQ(referenced->impl().getWriterCount(), 2);
    movie->preserve();
    movie->release(nullAgent(), true);
    // Once by the count that follows the movie's own, and once by the release of the references themselves.
    EXPECT_EQ(referenced->impl().getWriterCount(), 0);
    EXPECT_FALSE(referenced->getMovieDesc()->isWritable());
    movie->m_references.clear();
    movie->release();
    referenced->release();
}

TEST_F(CacheMap, UpdateOfAnUnchangedIdIsIgnored) {
    const std::string path = scripted("a.hdcam", MovieScript());
    ScriptedMovie* movie = open(path);
    const unsigned long long id = movie->impl().getCacheId().getId();
    mediaObjDbg.setBit(MediaDbg::CacheActivity);
    const std::string text = movie->toString(false).get();
    m_cache->updateId(movie);
    EXPECT_EQ(m_log.count(LogLevel::Debug, formatted("CMO:updateId(%s,0x%llx==>%llx) ignored", text.c_str(), id, id)),
              1u)
        << m_log.text();
    EXPECT_EQ(m_cache.entry(OsPathId(id)), movie);
    movie->release();
}

TEST_F(CacheMap, UpdateMovesAnObjectToItsNewId) {
    const std::string path = scripted("a.hdcam", MovieScript());
    ScriptedMovie* movie = open(path);
    const OsPathId fileId = TempTree::idOf(path);
    // As after a change of the primary file: the object stands under an id that is no longer its file's.
    mediaObjDbg.setBit(MediaDbg::CacheActivity);
    movie->setCacheId(OsPathId(s_nobody));
    m_cache->updateId(movie);
    EXPECT_EQ(m_log.count(LogLevel::Debug, formatted("CMO:updateId(*,0xabcdef==>%llx) not in cache", fileId.getId())),
              1u)
        << m_log.text();
    ASSERT_TRUE(m_cache->reserve(s_nobody));
    m_cache->updateId(movie);
    EXPECT_EQ(
        m_log.count(LogLevel::Debug, formatted("CMO:updateId(*,0xabcdef==>%llx) error: cache entry=0", fileId.getId())),
        1u)
        << m_log.text();
    m_cache->cancel(s_nobody);
    movie->setCacheId(fileId);
    movie->release();
    expireAll();

    ScriptedMovie* moved = parsed(path, MovieScript());
    moved->setCachedFileId(OsPathId(s_nobody));
    ASSERT_EQ(m_cache->replace(moved, OsPathId(s_nobody), false, false), moved);
    m_cache->updateId(moved);
    EXPECT_EQ(m_log.count(LogLevel::Debug, formatted("CMO:updateId(*,0xabcdef==>%llx) udpated", fileId.getId())), 1u)
        << m_log.text();
    EXPECT_FALSE(m_cache.has(s_nobody));
    EXPECT_EQ(m_cache.entry(fileId), moved);
    EXPECT_EQ(moved->impl().getCacheId(), fileId);
    moved->release();
}

TEST_F(CacheMap, ValidateNamesAnObjectThatIsGone) {
    alignas(ScriptedMovie) static unsigned char memory[sizeof(ScriptedMovie)];
    ScriptedMovie* movie = new (memory) ScriptedMovie(MovieScript(), {}, false, MediaObj::CacheRefValue::None);
    EXPECT_EQ(m_cache.fault(movie), "");
    movie->getRefCount()->release();
    movie->~ScriptedMovie();
    EXPECT_EQ(m_cache.fault(movie),
              formatted("obj(%p) is not valid", static_cast<void*>(static_cast<MediaObj*>(movie))));
}

TEST(CacheSingleton, HookForChangesIsTheCachesOwn) {
    const CacheProbe cache;
    EXPECT_TRUE(CachedMediaObj::exists());
    EXPECT_EQ(CachedMediaObj::getRef(), &cache.cache());
    EXPECT_NE(cache->getCbInfo(), nullptr);
    EXPECT_TRUE(cache->getCbInfo()->callCb(BasicIOTypes::Change()));
}
