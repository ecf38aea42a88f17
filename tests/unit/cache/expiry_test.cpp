#include <gtest/gtest.h>

#include <thread>

#include "services/file/change_watch.h"
#include "services/file/fs_file_io.h"
#include "shared/include/object/switches.h"
#include "support/clock.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/wait_for.h"

using kit::formatted;
using kit::Gate;
using kit::MovieScript;
using kit::ScriptedMovie;
using kit::TempTree;
namespace Scripts = kit::Scripts;

namespace {

constexpr long long s_zombieTime = 1000000;  // µs, as the scene sets it
constexpr unsigned long long s_nobody = 0xabcdef;

class Expiry : public kit::CacheScene {
protected:
    // An object that the cache has and nobody holds, with a count of its deletion.
    ScriptedMovie* idle(const std::string& name, std::atomic<int>& deleted) {
        ScriptedMovie* movie = open(scripted(name, MovieScript()));
        movie->m_deleted = &deleted;
        movie->release();
        return movie;
    }
    // Zombies that nobody holds and whose clock never started, so that they are due at any time.
    void makeZombies(unsigned count, std::atomic<int>& deleted) {
        for (unsigned i = 0; i < count; ++i) {
            ScriptedMovie* movie = new ScriptedMovie(MovieScript());
            movie->m_deleted = &deleted;
            movie->release();
            m_cache.pushZombie(movie);
        }
    }
    // The object's clock set to a known time.
    static long long restart(ScriptedMovie* movie) {
        const long long time = Clock::nowRelative();
        movie->impl().setLastRefTime(time);
        return time;
    }

    std::atomic<int> m_deleted{0};
};

}  // namespace

TEST_F(Expiry, PassOverAnEmptyCacheDoesNothing) {
    m_cache->expireZombies(farFuture(), nullptr);
    EXPECT_EQ(m_cache.mapSize(), 0u);
    EXPECT_EQ(m_cache.zombieCount(), 0u);
    EXPECT_TRUE(m_log.lines().empty()) << m_log.text();
}

TEST_F(Expiry, IdleObjectStaysForTheZombieTimeAndThenGoesInOnePass) {
    ScriptedMovie* movie = idle("a.hdcam", m_deleted);
    const long long since = restart(movie);
    m_cache->expireZombies(since + s_zombieTime - 1, nullptr);
    EXPECT_EQ(m_cache.mapSize(), 1u);
    EXPECT_EQ(movie->m_closes, 0);
    m_cache->expireZombies(since + s_zombieTime, nullptr);
    EXPECT_EQ(m_cache.mapSize(), 0u);
    EXPECT_EQ(m_cache.zombieCount(), 0u);
    EXPECT_EQ(m_deleted, 1);
}

TEST_F(Expiry, PassWithNothingDueRemembersSinceWhenTheOldestIsIdle) {
    ScriptedMovie* older = idle("a.hdcam", m_deleted);
    ScriptedMovie* newer = idle("b.hdcam", m_deleted);
    const long long since = restart(newer) - s_zombieTime / 2;
    older->impl().setLastRefTime(since);
    for (int i = 0; i < 2; ++i) {
        m_cache->expireZombies(since + s_zombieTime - 1, nullptr);
        EXPECT_EQ(MediaObjImpl::getOldestRefTime(), since);
        EXPECT_EQ(m_cache.mapSize(), 2u);
    }
    m_cache->expireZombies(since + s_zombieTime, nullptr);
    EXPECT_EQ(m_deleted, 1);
    EXPECT_EQ(m_cache.mapSize(), 1u);
    // What it knew is gone with the oldest.
    EXPECT_EQ(MediaObjImpl::getOldestRefTime(), 0);
    const long long next = restart(newer);
    m_cache->expireZombies(next + s_zombieTime - 1, nullptr);
    EXPECT_EQ(MediaObjImpl::getOldestRefTime(), next);
    m_cache->expireZombies(next + s_zombieTime, nullptr);
    EXPECT_EQ(m_deleted, 2);
}

TEST_F(Expiry, ObjectThatComesToBeIdleAfterAPassIsDueInItsTime) {
    ScriptedMovie* movie = open(scripted("a.hdcam", MovieScript()));
    movie->m_deleted = &m_deleted;
    m_cache->expireZombies(Clock::nowRelative(), nullptr);
    const long long known = MediaObjImpl::getOldestRefTime();
    EXPECT_GT(known, 0);
    movie->release();
    const long long since = movie->impl().getLastRefTime();
    EXPECT_LE(known, since);
    m_cache->expireZombies(since + s_zombieTime - 1, nullptr);
    EXPECT_EQ(m_deleted, 0);
    m_cache->expireZombies(since + s_zombieTime, nullptr);
    EXPECT_EQ(m_deleted, 1);
}

TEST_F(Expiry, NewObjectIsLookedAtWhateverThePassBeforeHasSeen) {
    idle("a.hdcam", m_deleted);
    m_cache->expireZombies(Clock::nowRelative(), nullptr);
    ASSERT_NE(MediaObjImpl::getOldestRefTime(), 0);
    ScriptedMovie* newer = open(scripted("b.hdcam", MovieScript()));
    EXPECT_EQ(MediaObjImpl::getOldestRefTime(), 0);
    newer->release();
}

TEST_F(Expiry, ShorterZombieTimeAndANamedObjectAreHeededAfterAPassWithNothingDue) {
    ScriptedMovie* named = idle("a.hdcam", m_deleted);
    idle("b.hdcam", m_deleted);
    m_cache->expireZombies(Clock::nowRelative(), nullptr);
    ASSERT_EQ(m_cache.mapSize(), 2u);
    m_cache->expireZombies(Clock::nowRelative(), named);
    EXPECT_EQ(m_cache.mapSize(), 1u);
    m_cache->expireZombies(Clock::nowRelative(), nullptr);
    EXPECT_EQ(m_cache.mapSize(), 1u);
    EXPECT_TRUE(mediaZombieTime.setFromOutside(0));
    m_cache->expireZombies(Clock::nowRelative(), nullptr);
    EXPECT_EQ(m_cache.mapSize(), 0u);
}

TEST_F(Expiry, DueObjectIsFlushedAndClosedBeforeItLeavesTheMap) {
    std::atomic<int> unused{0};
    ScriptedMovie* movie = idle("a.hdcam", unused);
    movie->m_deleteGate = std::make_shared<Gate>();
    movie->m_deleteGate->close();
    std::thread pass([&] { m_cache->expireZombies(farFuture(), nullptr); });
    ASSERT_TRUE(kit::waitFor([&] { return movie->m_deleteGate->waiting() == 1; }));
    EXPECT_EQ(movie->m_flushes, 1);
    EXPECT_EQ(movie->m_closes, 1);
    // Nothing long runs under the map's lock: while the destructor stands, the cache answers.
    EXPECT_EQ(m_cache.mapSize(), 0u);
    EXPECT_TRUE(m_cache->reserve(s_nobody));
    m_cache->cancel(s_nobody);
    movie->m_deleteGate->open();
    pass.join();
    EXPECT_EQ(unused, 1);
}

TEST_F(Expiry, ExpiryIsLoggedUnderCacheActivity) {
    idle("a.hdcam", m_deleted);
    mediaObjDbg.setBit(MediaDbg::CacheActivity);
    m_cache->expireZombies(farFuture(), nullptr);
    EXPECT_EQ(m_log.count(LogLevel::Debug, "CMO:expire(ro(0),a.hdcam,*)"), 1u) << m_log.text();
}

TEST_F(Expiry, ObjectWithAClientIsNeverDue) {
    ScriptedMovie* movie = open(scripted("a.hdcam", MovieScript()));
    movie->impl().setLastRefTime(1);
    m_cache->expireZombies(farFuture(), nullptr);
    EXPECT_EQ(m_cache.mapSize(), 1u);
    EXPECT_EQ(movie->m_closes, 0);
    movie->release();
}

TEST_F(Expiry, ReservationIsNeverDue) {
    ASSERT_TRUE(m_cache->reserve(s_nobody));
    m_cache->expireZombies(farFuture(), nullptr);
    EXPECT_TRUE(m_cache.has(s_nobody));
    m_cache->cancel(s_nobody);
}

TEST_F(Expiry, ObjectWhoseClockHasNotStartedIsNotDueAndGetsOne) {
    ScriptedMovie* movie = idle("a.hdcam", m_deleted);
    movie->impl().setLastRefTime(0);
    m_cache->expireZombies(farFuture(), nullptr);
    EXPECT_EQ(m_deleted, 0);
    EXPECT_NE(movie->impl().getLastRefTime(), 0);
    m_cache->expireZombies(farFuture(), nullptr);
    EXPECT_EQ(m_deleted, 1);
}

TEST_F(Expiry, ClientThatComesBackDuringTheCloseKeepsTheObjectInTheMap) {
    MovieScript slow;
    slow.m_closeGate = std::make_shared<Gate>();
    const std::string path = scripted("a.hdcam", slow);
    ScriptedMovie* movie = open(path);
    movie->m_deleted = &m_deleted;
    movie->release();
    slow.m_closeGate->close();
    std::thread pass([&] { m_cache->expireZombies(farFuture(), nullptr); });
    ASSERT_TRUE(kit::waitFor([&] { return slow.m_closeGate->waiting() == 1; }));
    EXPECT_TRUE(movie->impl().m_expiring);
    EXPECT_EQ(m_cache->find(TempTree::idOf(path), false, nullptr), movie);
    slow.m_closeGate->open();
    pass.join();
    EXPECT_EQ(m_cache.entry(TempTree::idOf(path)), movie);
    EXPECT_EQ(movie->impl().getLastRefTime(), 0);
    EXPECT_FALSE(movie->impl().m_expiring);
    EXPECT_TRUE(movie->impl().isCached());
    m_cache->expireZombies(farFuture(), nullptr);
    EXPECT_EQ(m_deleted, 0);
    movie->release();
    const long long since = restart(movie);
    m_cache->expireZombies(since + s_zombieTime - 1, nullptr);
    EXPECT_EQ(m_deleted, 0);
    m_cache->expireZombies(since + s_zombieTime, nullptr);
    EXPECT_EQ(m_deleted, 1);
}

TEST_F(Expiry, ObjectThatIsReplacedDuringItsCloseIsAZombieOnceAndItsSuccessorStays) {
    MovieScript slow;
    slow.m_closeGate = std::make_shared<Gate>();
    const std::string path = scripted("a.hdcam", slow);
    ScriptedMovie* movie = open(path);
    movie->m_deleted = &m_deleted;
    movie->release();
    slow.m_closeGate->close();
    std::thread pass([&] { m_cache->expireZombies(farFuture(), nullptr); });
    ASSERT_TRUE(kit::waitFor([&] { return slow.m_closeGate->waiting() == 1; }));
    Scripts::set(path, MovieScript());
    ScriptedMovie* successor = open(path, true);
    ASSERT_NE(successor, movie);
    slow.m_closeGate->open();
    pass.join();
    EXPECT_EQ(m_cache.entry(TempTree::idOf(path)), successor);
    EXPECT_TRUE(successor->impl().isCached());
    EXPECT_EQ(m_deleted, 1);
    EXPECT_EQ(m_cache.zombieCount(), 0u);
    EXPECT_EQ(m_log.count(LogLevel::Error, "*"), 0u) << m_log.text();
    successor->release();
}

TEST_F(Expiry, SecondPassWaitsForTheFirst) {
    MovieScript slow;
    slow.m_closeGate = std::make_shared<Gate>();
    ScriptedMovie* movie = open(scripted("a.hdcam", slow));
    movie->release();
    slow.m_closeGate->close();
    std::atomic<bool> secondDone{false};
    std::thread first([&] { m_cache->expireZombies(farFuture(), nullptr); });
    ASSERT_TRUE(kit::waitFor([&] { return slow.m_closeGate->waiting() == 1; }));
    std::thread second([&] {
        m_cache->expireZombies(farFuture(), nullptr);
        secondDone = true;
    });
    EXPECT_FALSE(secondDone);
    slow.m_closeGate->open();
    first.join();
    second.join();
    EXPECT_EQ(m_cache.mapSize(), 0u);
}

TEST_F(Expiry, ZombieWithAClientIsDeletedOneZombieTimeAfterTheClientLetsGo) {
    const std::string path = scripted("a.hdcam", MovieScript());
    ScriptedMovie* held = open(path);
    held->m_deleted = &m_deleted;
    ScriptedMovie* newer = open(path, true);
    ASSERT_TRUE(m_cache.isZombie(held));
    const long long minuteLater = Clock::nowRelative() + 60 * 1000000ll;
    m_cache->expireZombies(minuteLater, nullptr);
    EXPECT_EQ(m_deleted, 0);
    // Its wait starts anew with each look.
    EXPECT_EQ(held->impl().getLastRefTime(), minuteLater);
    held->release();
    const long long since = restart(held);
    m_cache->expireZombies(since + s_zombieTime - 1, nullptr);
    EXPECT_EQ(m_deleted, 0);
    m_cache->expireZombies(since + s_zombieTime, nullptr);
    EXPECT_EQ(m_deleted, 1);
    newer->release();
}

TEST_F(Expiry, NewerObjectOfTheSameFileKeepsTheWatch) {
    const std::string path = scripted("a.hdcam", MovieScript());
    ScriptedMovie* older = open(path);
    ScriptedMovie* newer = open(path, true);
    older->m_deleted = &m_deleted;
    older->release();
    m_cache->expireZombies(farFuture(), nullptr);
    ASSERT_EQ(m_deleted, 1);
    m_tree.append("a.hdcam", "more");
    EXPECT_TRUE(kit::waitFor([&] { return m_cache.queuedForce(TempTree::idOf(path)).has_value(); }));
    newer->release();
}

TEST_F(Expiry, LastObjectOfAFileTakesTheWatchAlong) {
    const unsigned watched = ChangeWatch::get().size();
    ScriptedMovie* movie = idle("a.hdcam", m_deleted);
    EXPECT_EQ(ChangeWatch::get().size(), watched + 1) << movie;
    m_cache->expireZombies(farFuture(), nullptr);
    ASSERT_EQ(m_deleted, 1);
    EXPECT_EQ(ChangeWatch::get().size(), watched);
}

TEST_F(Expiry, HundredDueZombiesGoByQuartersFromPassToPass) {
    makeZombies(100, m_deleted);
    m_cache->expireZombies(farFuture(), nullptr);
    EXPECT_EQ(m_deleted, 25);
    EXPECT_EQ(m_cache.zombieCount(), 75u);
    m_cache->expireZombies(farFuture(), nullptr);
    EXPECT_EQ(m_cache.zombieCount(), 56u);
    m_cache->expireZombies(farFuture(), nullptr);
    EXPECT_EQ(m_cache.zombieCount(), 42u);
}

TEST_F(Expiry, PassThatHasNoTimeLeftStillLooksAtTheFirstZombie) {
    makeZombies(10, m_deleted);
    m_cache->expireZombies(Clock::nowRelative() - 200000, nullptr);
    EXPECT_EQ(m_deleted, 1);
}

TEST_F(Expiry, ZombiesThatAreHeldOrNotYetDueGoToTheBackOfTheList) {
    makeZombies(3, m_deleted);
    const std::vector<MediaObj*> before = m_cache.zombies();
    before[0]->preserve();
    const long long now = farFuture();
    before[1]->impl().setLastRefTime(now);
    m_cache->expireZombies(now, nullptr);
    EXPECT_EQ(m_deleted, 1);
    EXPECT_EQ(m_cache.zombies(), (std::vector<MediaObj*>{before[0], before[1]}));
    before[0]->release();
    before[0]->impl().setLastRefTime(0);
    before[1]->impl().setLastRefTime(0);
}

TEST_F(Expiry, StrayPointerAmongTheZombiesIsToldAndDropped) {
    alignas(ScriptedMovie) static unsigned char memory[sizeof(ScriptedMovie)];
    ScriptedMovie* movie = new (memory) ScriptedMovie(MovieScript(), {}, false, MediaObj::CacheRefValue::None);
    movie->getRefCount()->release();
    movie->~ScriptedMovie();
    m_cache.pushZombie(movie);
    m_cache->expireZombies(farFuture(), nullptr);
    EXPECT_EQ(m_log.count(LogLevel::Error, formatted("CMO::expireZombies: obj(%p) is not valid,nLook=0,nDel=0,nz=1",
                                                     static_cast<void*>(static_cast<MediaObj*>(movie)))),
              1u)
        << m_log.text();
    EXPECT_EQ(m_cache.zombieCount(), 0u);
}

TEST_F(Expiry, ZombieWhoseCountIsWrongIsToldAndLeftAlone) {
    makeZombies(1, m_deleted);
    MediaObj* movie = m_cache.zombies()[0];
    movie->getRefCount()->release();
    m_cache->expireZombies(farFuture(), nullptr);
    EXPECT_EQ(m_log.count(LogLevel::Error, "CMO::expireZombies: ro(0),*,ref=-1"), 1u) << m_log.text();
    EXPECT_EQ(m_deleted, 0);
    EXPECT_EQ(m_cache.zombieCount(), 0u);
    movie->getRefCount()->preserve();
    delete movie;
}

TEST_F(Expiry, ObjectWithTwoEntriesLosesBoth) {
    const std::string path = scripted("a.hdcam", MovieScript());
    ScriptedMovie* movie = parsed(path, MovieScript());
    ASSERT_EQ(m_cache->replace(movie, OsPathId(s_nobody), false, false), movie);
    ASSERT_EQ(m_cache.mapSize(), 2u);
    const unsigned long long other = std::max(s_nobody, TempTree::idOf(path).getId());
    movie->m_deleted = &m_deleted;
    movie->release();
    mediaObjDbg.setBit(MediaDbg::CacheActivity);
    m_cache->expireZombies(farFuture(), nullptr);
    EXPECT_EQ(m_log.count(LogLevel::Debug,
                          formatted("CMO:expireZombies: found duplicate cache entry 0x%llx for ro(0),*", other)),
              1u)
        << m_log.text();
    EXPECT_EQ(m_cache.mapSize(), 0u);
    EXPECT_EQ(m_deleted, 1);
}

TEST_F(Expiry, ObjectThatStandsUnderAStrangeIdIsToldAndRemoved) {
    ScriptedMovie* movie = idle("a.hdcam", m_deleted);
    const OsPathId real = movie->impl().getCacheId();
    movie->setCacheId(OsPathId(0x11));
    movie->setCachedFileId(OsPathId(0x22));
    m_cache->expireZombies(farFuture(), nullptr);
    EXPECT_EQ(m_log.count(LogLevel::Warning,
                          "CMO::expireZombies: cacheId(0x11), fileId(0x22) is not valid for ro(0),a.hdcam,*"),
              1u)
        << m_log.text();
    EXPECT_EQ(m_cache.mapSize(), 0u);
    EXPECT_EQ(m_deleted, 1);
    FsFileIO::removeCb(m_cache->getCbInfo(), real);
}

TEST_F(Expiry, ObjectThatGetsAnotherKeyDuringItsCloseIsNotLeftInTheMap) {
    MovieScript slow;
    slow.m_closeGate = std::make_shared<Gate>();
    const std::string path = scripted("a.hdcam", slow);
    ScriptedMovie* movie = parsed(path, slow);
    movie->m_deleted = &m_deleted;
    movie->setCachedFileId(OsPathId(s_nobody));
    ASSERT_EQ(m_cache->replace(movie, OsPathId(s_nobody), false, false), movie);
    movie->release();
    slow.m_closeGate->close();
    std::thread pass([&] { m_cache->expireZombies(farFuture(), nullptr); });
    ASSERT_TRUE(kit::waitFor([&] { return slow.m_closeGate->waiting() == 1; }));
    m_cache->updateId(movie);
    ASSERT_EQ(m_cache.entry(TempTree::idOf(path)), movie);
    slow.m_closeGate->open();
    pass.join();
    EXPECT_EQ(m_cache.mapSize(), 0u);
    EXPECT_EQ(m_deleted, 1);
}

TEST_F(Expiry, NamedObjectLeavesTheMapWhateverItsIdleTime) {
    ScriptedMovie* named = idle("a.hdcam", m_deleted);
    ScriptedMovie* other = idle("b.hdcam", m_deleted);
    const long long now = restart(named);
    restart(other);
    m_cache->expireZombies(now, named);
    EXPECT_TRUE(m_cache.isZombie(named));
    EXPECT_FALSE(m_cache.isZombie(other));
    EXPECT_EQ(m_cache.mapSize(), 1u);
    EXPECT_FALSE(named->impl().isCached());
}

TEST_F(Expiry, NamedObjectThatIsHeldIsWaitedForUntilItsReferencesGo) {
    const std::string path = scripted("a.hdcam", MovieScript());
    ScriptedMovie* movie = open(path);
    movie->m_deleted = &m_deleted;
    std::atomic<bool> done{false};
    std::thread pass([&] {
        m_cache->expireZombies(farFuture(), movie);
        done = true;
    });
    ASSERT_TRUE(kit::waitFor([&] { return movie->m_closes >= 2; }));
    EXPECT_FALSE(done);
    movie->release();
    pass.join();
    EXPECT_EQ(m_deleted, 1);
    EXPECT_EQ(m_cache.mapSize(), 0u);
}

TEST_F(Expiry, FlushAllWithAClientReturnsAfterOnePass) {
    ScriptedMovie* held = open(scripted("a.hdcam", MovieScript()));
    idle("b.hdcam", m_deleted);
    mediaObjDbg.setBit(MediaDbg::CacheActivity);
    m_cache->flushAll(nullptr);
    EXPECT_EQ(m_deleted, 1);
    EXPECT_EQ(m_cache.mapSize(), 1u);
    EXPECT_FALSE(m_log.has("CMO::flushAll: *")) << m_log.text();
    held->release();
}

TEST_F(Expiry, FlushAllLetsGoOfEverythingThatNobodyHolds) {
    for (const char* name : {"a.hdcam", "b.hdcam", "c.601"})
        idle(name, m_deleted);
    MediaObj::flushAll(nullptr);
    EXPECT_EQ(m_deleted, 3);
    EXPECT_EQ(m_cache.mapSize(), 0u);
    EXPECT_EQ(m_cache.zombieCount(), 0u);
}

TEST_F(Expiry, FlushAllGivesUpOnZombiesThatClientsHold) {
    makeZombies(1, m_deleted);
    MediaObj* movie = m_cache.zombies()[0];
    movie->preserve();
    m_cache->flushAll(nullptr);
    EXPECT_EQ(m_log.count(LogLevel::Debug, "CMO::flushAll: cache[0],zombies[1]"), 1u) << m_log.text();
    EXPECT_EQ(m_deleted, 0);
    movie->release();
    movie->impl().setLastRefTime(0);
}

TEST_F(Expiry, FlushAllThatHadToWaitTellsSoOnlyUnderItsSwitchWhenNothingIsLeft) {
    for (const bool told : {false, true}) {
        mediaObjDbg.set(told ? 1u << MediaDbg::CacheActivity : 0u);
        makeZombies(5, m_deleted);  // more than a quarter a pass, so that passes must follow each other
        m_cache->flushAll(nullptr);
        EXPECT_EQ(m_cache.zombieCount(), 0u);
        EXPECT_EQ(m_log.count(LogLevel::Debug, "CMO::flushAll: cache[0],zombies[0]"), told ? 1u : 0u) << m_log.text();
    }
}

TEST_F(Expiry, ZombieTimeOfZeroLetsIdleObjectsGoAtTheNextTick) {
    EXPECT_TRUE(mediaZombieTime.setFromOutside(0));
    EXPECT_EQ(m_cache.zombieTime(), 0);
    idle("a.hdcam", m_deleted);
    m_cache->expireZombies(Clock::nowRelative(), nullptr);
    EXPECT_EQ(m_deleted, 1);
    EXPECT_TRUE(mediaZombieTime.setFromOutside(1));
    EXPECT_EQ(m_cache.zombieTime(), s_zombieTime);
}

TEST_F(Expiry, CachesOwnThreadLetsIdleObjectsGo) {
    idle("a.hdcam", m_deleted);
    m_cache.startThread();
    EXPECT_TRUE(kit::waitFor([&] { return m_deleted == 1; }));
    m_cache.stopThread();
}
