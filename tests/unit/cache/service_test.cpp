#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "services/system/switch_bank.h"
#include "shared/include/object/switches.h"
#include "support/clock.h"
#include "support/fixed_point.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/leak_check.h"
#include "tests/kit/switch_guard.h"
#include "tests/kit/wait_for.h"

using kit::formatted;
using kit::MovieScript;
using kit::ScriptedMovie;
using kit::TempTree;
namespace Scripts = kit::Scripts;

namespace {

constexpr unsigned long long s_nobody = 0xabcdef;

class Service : public kit::CacheScene {
protected:
    std::string statusLine(unsigned objects, unsigned zombies) {
        return formatted("%u cached media objects, %u zombies, %d active.", objects, zombies,
                         MediaObjImpl::active.getCount());
    }
    unsigned infoLines() const { return m_log.count(LogLevel::Info, "*"); }
};

// Holds the cache's map for as long as it lives.
class MapHolder {
public:
    explicit MapHolder(const CacheProbe& cache) {
        m_thread = std::thread([this, &cache] {
            cache.lockMap();
            m_held = true;
            while (!m_letGo)
                waitMsec(1);
            cache.unlockMap();
        });
        kit::waitFor([this] { return m_held.load(); });
    }
    ~MapHolder() {
        m_letGo = true;
        m_thread.join();
    }

private:
    std::atomic<bool> m_held{false}, m_letGo{false};
    std::thread m_thread;
};

std::string secondsOf(long long raw) { return FixedPoint<16>(raw, FixedPoint<16>::AlreadyFixed()).toString(2).get(); }

}  // namespace

TEST_F(Service, ListAndStatusTogetherGiveTheListAndBothBitsAreCleared) {
    const std::string path = scripted("a.hdcam", MovieScript());
    ScriptedMovie* movie = open(path);
    EXPECT_TRUE(mediaObjDbg.setFromOutside(3u | 1u << MediaDbg::Morph));
    EXPECT_EQ(mediaObjDbg.get(), 1u << MediaDbg::Morph);
    EXPECT_EQ(m_log.count(LogLevel::Info, statusLine(1, 0)), 1u) << m_log.text();
    EXPECT_EQ(m_log.count(LogLevel::Info,
                          formatted("o#1[0x%llx]: %s", TempTree::idOf(path).getId(), movie->toString(true).get())),
              1u)
        << m_log.text();
    EXPECT_EQ(infoLines(), 2u) << m_log.text();
    movie->release();
}

TEST_F(Service, StatusAloneIsOneLine) {
    ScriptedMovie* movie = open(scripted("a.hdcam", MovieScript()));
    EXPECT_TRUE(mediaObjDbg.setFromOutside(1u << MediaDbg::Status | 1u << MediaDbg::FlushAll));
    EXPECT_EQ(mediaObjDbg.get(), 0u);
    EXPECT_EQ(m_log.count(LogLevel::Info, statusLine(1, 0)), 1u) << m_log.text();
    EXPECT_EQ(infoLines(), 1u) << m_log.text();
    movie->release();
}

TEST_F(Service, FlushTellsTheStatusFirstAndThenLetsGo) {
    ScriptedMovie* movie = open(scripted("a.hdcam", MovieScript()));
    movie->release();
    const std::string before = statusLine(1, 0);
    EXPECT_TRUE(mediaObjDbg.setFromOutside(1u << MediaDbg::FlushAll));
    EXPECT_EQ(m_log.count(LogLevel::Info, before), 1u) << m_log.text();
    EXPECT_EQ(m_cache.mapSize(), 0u);
}

TEST_F(Service, ListShowsReservationsAndZombies) {
    const std::string path = scripted("a.hdcam", MovieScript());
    ScriptedMovie* older = open(path);
    ScriptedMovie* newer = open(path, true);
    ASSERT_TRUE(m_cache->reserve(OsPathId(3)));
    older->impl().setLastRefTime(Clock::nowRelative() - 12340000);
    MediaObj::trace(MediaObj::Trace::List);
    EXPECT_EQ(m_log.count(LogLevel::Info, statusLine(2, 1)), 1u) << m_log.text();
    EXPECT_EQ(m_log.count(LogLevel::Info, "o#1[0x3]: 0x3 reserved"), 1u) << m_log.text();
    EXPECT_EQ(m_log.count(LogLevel::Info, formatted("o#2[0x%llx]: ro(0),a.hdcam,*", TempTree::idOf(path).getId())), 1u)
        << m_log.text();
    EXPECT_EQ(m_log.count(LogLevel::Info, "z#1: 1*.*s old, ro(0),a.hdcam,*"), 1u) << m_log.text();
    m_cache->cancel(OsPathId(3));
    older->release();
    newer->release();
}

TEST_F(Service, LockThatCannotBeHadIsToldAndTheListComesAllTheSame) {
    ASSERT_TRUE(m_cache->reserve(s_nobody));
    {
        const MapHolder held(m_cache);
        m_cache->trace(MediaObj::Trace::List);
    }
    EXPECT_EQ(m_log.count(LogLevel::Info, "cache locked! " + statusLine(1, 0)), 1u) << m_log.text();
    EXPECT_EQ(m_log.count(LogLevel::Info, "o#1[0xabcdef]: 0xabcdef reserved"), 1u) << m_log.text();
    m_cache->cancel(s_nobody);
}

TEST_F(Service, CacheDurationWithinItsLimitsIsAccepted) {
    const kit::SwitchGuard keep(mediaCacheDuration);
    for (const unsigned raw : {32768u, 0x10000u, 0x50000u}) {
        m_log.clear();
        EXPECT_TRUE(mediaCacheDuration.setFromOutside(raw));
        EXPECT_EQ(mediaCacheDuration.get(), raw);
        EXPECT_EQ(infoLines(), 1u) << m_log.text();
        EXPECT_EQ(m_log.count(LogLevel::Info, "media cache duration is now " + secondsOf(raw) + "s"), 1u)
            << m_log.text();
    }
}

TEST_F(Service, CacheDurationOutOfRangeComesBackToOneSecond) {
    const kit::SwitchGuard keep(mediaCacheDuration);
    for (const unsigned raw : {0u, 32767u, 0x50001u, 0xFFFFFFFFu}) {
        m_log.clear();
        EXPECT_TRUE(mediaCacheDuration.setFromOutside(raw));
        EXPECT_EQ(mediaCacheDuration.get(), 0x10000u);
        const char* const word = raw < 32768 ? "small" : "large";
        EXPECT_EQ(m_log.count(LogLevel::Info, "requested media cache duration " + secondsOf(raw) + "s is too " + word),
                  1u)
            << m_log.text();
        EXPECT_EQ(m_log.count(LogLevel::Info, "media cache duration is now 1.00s"), 1u) << m_log.text();
        EXPECT_EQ(infoLines(), 2u) << m_log.text();
    }
}

TEST_F(Service, ZombieTimeFollowsItsSwitch) {
    EXPECT_TRUE(mediaZombieTime.setFromOutside(7));
    EXPECT_EQ(m_cache.zombieTime(), 7000000);
    EXPECT_TRUE(mediaZombieTime.setFromOutside(1));
}

TEST_F(Service, CheckWithObjectsLeftIsFalseAndSilentUnlessAReportIsAsked) {
    const std::string path = scripted("a.hdcam", MovieScript());
    ScriptedMovie* older = open(path);
    ScriptedMovie* newer = open(path, true);
    ASSERT_TRUE(m_cache->reserve(OsPathId(3)));
    EXPECT_FALSE(m_cache->checkFinishedCb(false));
    EXPECT_TRUE(m_log.lines().empty()) << m_log.text();
    EXPECT_FALSE(m_cache->checkFinishedCb(true));
    EXPECT_EQ(m_log.count(LogLevel::Error, "CMO::checkFinishedCb, map[0]: obj=nil"), 1u) << m_log.text();
    EXPECT_EQ(m_log.count(LogLevel::Error, "CMO::checkFinishedCb, map[1]: obj=ro(0),a.hdcam,*"), 1u) << m_log.text();
    EXPECT_EQ(m_log.count(LogLevel::Error, "CMO::checkFinishedCb, zombies[0]: obj=ro(0),a.hdcam,*"), 1u)
        << m_log.text();
    m_cache->cancel(OsPathId(3));
    older->release();
    newer->release();
}

TEST_F(Service, CheckFlushesWhenTheThreadDoesNotRun) {
    ScriptedMovie* movie = open(scripted("a.hdcam", MovieScript()));
    movie->release();
    EXPECT_FALSE(m_cache.threadRuns());
    EXPECT_TRUE(m_cache->checkFinishedCb(true));
    EXPECT_TRUE(m_log.lines().empty()) << m_log.text();
}

TEST_F(Service, CheckThatCannotHaveTheLockIsFalseAndSaysSoInAReport) {
    m_cache.startThread();
    const std::string line = "CMO::checkFinishedCb, lock appears stuck";
    // A pass of the cache's own thread that is under way holds the check up until the map is free again: then once
    // more.
    for (int i = 0; i < 50 && !m_log.has(LogLevel::Error, line); ++i) {
        std::atomic<bool> done{false};
        auto held = std::make_unique<MapHolder>(m_cache);
        std::thread check([&] {
            m_cache->checkFinishedCb(true);
            done = true;
        });
        kit::waitFor([&] { return done.load(); }, std::chrono::seconds(1));
        held.reset();
        check.join();
    }
    EXPECT_EQ(m_log.count(LogLevel::Error, line), 1u) << m_log.text();
    m_cache.stopThread();
}

TEST_F(Service, InitWhileTheThreadRunsRestartsItAndSaysSo) {
    m_cache.startThread();
    ASSERT_TRUE(m_cache.threadRuns());
    EXPECT_TRUE(m_log.lines().empty()) << m_log.text();
    EXPECT_TRUE(m_cache->initCb());
    EXPECT_EQ(m_log.count(LogLevel::Error, "CMO::initCb, thread already running"), 1u) << m_log.text();
    EXPECT_TRUE(m_cache.threadRuns());
    EXPECT_TRUE(m_cache->stopThreadsCb());
    EXPECT_FALSE(m_cache.threadRuns());
}

TEST_F(Service, InitAfterTheShutdownSignalMakesTheCacheWorkAsBefore) {
    EXPECT_TRUE(m_cache->shutdownSignalCb());
    EXPECT_TRUE(m_cache.stopping());
    EXPECT_EQ(m_cache.zombieTime(), 0);
    EXPECT_TRUE(m_cache->initCb());
    EXPECT_FALSE(m_cache.stopping());
    EXPECT_EQ(m_cache.zombieTime(), mediaZombieTime.get() * 1000000ll);
    const std::string path = scripted("a.hdcam", MovieScript());
    ScriptedMovie* movie = open(path);
    EXPECT_EQ(open(path), movie);
    movie->release();
    movie->release();
    m_cache.stopThread();
}

TEST_F(Service, InitSignalThatFindsTheThreadRunningRestartsItOnce) {
    m_cache.startThread();
    EXPECT_TRUE(MediaObj::init());
    EXPECT_EQ(m_log.count("CMO::initCb, thread already running"), 1u) << m_log.text();
    EXPECT_TRUE(m_cache.threadRuns());
    ScriptedMovie* movie = open(scripted("a.hdcam", MovieScript()));
    std::atomic<int> deleted{0};
    movie->m_deleted = &deleted;
    movie->release();
    EXPECT_TRUE(kit::waitFor([&] { return deleted == 1; }));
    m_cache.stopThread();
}

TEST_F(Service, ShutdownNamesWhatClientsStillHoldAndLeavesItToThem) {
    const std::string path = scripted("a.hdcam", MovieScript::ofTracks(2, 48000));
    ScriptedMovie* older = open(path);
    ScriptedMovie* held = open(path, true);
    std::atomic<int> deleted{0};
    older->m_deleted = held->m_deleted = &deleted;
    m_cache.startThread();
    EXPECT_FALSE(Subsystem::Registry::shutdownSubsystems(100));
    EXPECT_EQ(m_log.count(LogLevel::Error, "CMO::checkFinishedCb, map[0]: obj=ro(0),a.hdcam,*"), 1u) << m_log.text();
    EXPECT_EQ(m_log.count(LogLevel::Error, "CMO::checkFinishedCb, zombies[0]: obj=ro(0),a.hdcam,*"), 1u)
        << m_log.text();
    EXPECT_EQ(m_log.count(LogLevel::Error, "*"), 2u) << m_log.text();
    EXPECT_FALSE(m_cache.threadRuns());
    EXPECT_EQ(deleted, 0);
    // Both are whole, and are deleted by the next run once their clients have gone.
    EXPECT_EQ(held->getTrackCount(), 2u);
    EXPECT_EQ(older->getTrackCount(), 2u);
    EXPECT_TRUE(MediaObj::init());
    EXPECT_EQ(open(path), held);
    held->release();
    held->release();
    older->release();
    EXPECT_TRUE(kit::waitFor([&] { return deleted == 2; }));
    m_cache.stopThread();
}

TEST_F(Service, ShutdownWaitsForAClientThatLetsGoInTime) {
    ScriptedMovie* held = open(scripted("a.hdcam", MovieScript()));
    std::atomic<int> deleted{0};
    held->m_deleted = &deleted;
    m_cache.startThread();
    bool finished = false;
    std::thread host([&] { finished = Subsystem::Registry::shutdownSubsystems(50000); });
    EXPECT_TRUE(kit::waitFor([&] { return m_cache.stopping(); }));
    held->release();
    host.join();
    EXPECT_TRUE(finished);
    EXPECT_EQ(deleted, 1);
    EXPECT_FALSE(m_log.has("CMO::checkFinishedCb*")) << m_log.text();
}

TEST_F(Service, WholeSequenceOfStopAndStartLeavesNothingAndWorksAgain) {
    const std::string path = scripted("a.hdcam", MovieScript());
    open(path)->release();
    expireAll();
    const kit::LeakCheck leaks;
    EXPECT_TRUE(MediaObj::init());
    EXPECT_TRUE(m_cache.threadRuns());
    open(path)->release();
    EXPECT_TRUE(MediaObj::shutdown());
    EXPECT_FALSE(m_cache.threadRuns());
    EXPECT_EQ(m_cache.mapSize(), 0u);
    EXPECT_EQ(m_cache.zombieCount(), 0u);
    EXPECT_TRUE(MediaObj::init());
    open(path)->release();
    EXPECT_TRUE(MediaObj::shutdown());
    EXPECT_EQ(Scripts::opens(path), 3u);
    EXPECT_EQ(leaks.difference(), "");
}

TEST(Switches, AreMadeInTheirOrder) {
    std::vector<std::string> names;
    SwitchBank::visit(
        [](DebuggerOn& item, void* all) {
            const std::string name = item.getName();
            if (name.starts_with("media")) static_cast<std::vector<std::string>*>(all)->push_back(name);
        },
        &names);
    EXPECT_EQ(names,
              (std::vector<std::string>{"mediaObjDbg", "mediaValidate", "mediaCacheDuration", "mediaZombieTime"}));
}

TEST(Switches, HaveTheirNamesAndInitialValues) {
    EXPECT_STREQ(mediaObjDbg.getName(), "mediaObjDbg");
    EXPECT_STREQ(mediaZombieTime.getName(), "mediaZombieTime");
    EXPECT_EQ(mediaZombieTime.get(), 1u);
    EXPECT_STREQ(mediaCacheDuration.getName(), "mediaCacheDuration");
    EXPECT_EQ(mediaCacheDuration.get(), 0x10000u);
}
