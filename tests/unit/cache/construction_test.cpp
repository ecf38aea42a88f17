#include <gtest/gtest.h>

#include "mediautil/object/media_obj_impl.h"
#include "shared/include/object/switches.h"
#include "tests/kit/cache_probe.h"
#include "tests/kit/log_capture.h"

// What happens when the process's cache is made, which is once.

TEST(CacheConstruction, SwitchThatWasSetBeforeTheCacheIsObeyedAndCleared) {
    if (CachedMediaObj::exists()) GTEST_SKIP() << "another test of this process has made the cache";
    kit::LogCapture log;
    mediaObjDbg.set(1u | 1u << MediaDbg::Morph);
    CachedMediaObj* cache = CachedMediaObj::getRef();
    ASSERT_NE(cache, nullptr);
    EXPECT_TRUE(CachedMediaObj::exists());
    EXPECT_EQ(log.count(LogLevel::Info, kit::formatted("0 cached media objects, 0 zombies, %d active.",
                                                       MediaObjImpl::active.getCount())),
              1u)
        << log.text();
    EXPECT_EQ(mediaObjDbg.get(), 1u << MediaDbg::Morph);
    mediaObjDbg.set(0u);
    const CacheProbe probe;
    EXPECT_TRUE(probe.threadRuns());
    EXPECT_EQ(probe.zombieTime(), mediaZombieTime.get() * 1000000ll);
    EXPECT_FALSE(probe.stopping());
}
