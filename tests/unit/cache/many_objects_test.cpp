#include <gtest/gtest.h>

#include <memory>

#include "services/file/change_watch.h"
#include "services/file/file_identity.h"
#include "support/clock.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/leak_check.h"
#include "tests/kit/wait_for.h"

using kit::MovieScript;
using kit::ScriptedMovie;

namespace {

constexpr unsigned s_many = 10000;

class ManyObjects : public kit::CacheScene {
protected:
    std::string pathOf(unsigned number) const { return m_tree.path("f" + std::to_string(number) + ".hdcam"); }
    void makeFiles() {
        for (unsigned i = 0; i < s_many; ++i)
            scripted("f" + std::to_string(i) + ".hdcam", MovieScript());
    }
    void openAndLetGo() {
        for (unsigned i = 0; i < s_many; ++i) {
            ScriptedMovie* movie = open(pathOf(i));
            movie->m_deleted = &m_deleted;
            movie->release();
        }
    }

    std::atomic<int> m_deleted{0};
};

// Takes its time to go.
class SlowMovie : public ScriptedMovie {
public:
    static constexpr unsigned s_msec = 6;

    using ScriptedMovie::ScriptedMovie;
    ~SlowMovie() override { waitMsec(s_msec); }
};

}  // namespace

TEST_F(ManyObjects, TenThousandIdleOnesGoByQuartersAndLeaveNothingBehind) {
    makeFiles();
    open(pathOf(0))->release();  // what the process keeps from its first use on
    expireAll();
    const kit::LeakCheck leaks;
    const unsigned files = FileTable::size();
    openAndLetGo();
    EXPECT_EQ(m_cache.mapSize(), s_many);
    EXPECT_EQ(ChangeWatch::get().size(), s_many);

    m_cache.setZombieTime(1000000000000ll);
    m_cache->expireZombies(Clock::nowRelative(), nullptr);
    EXPECT_EQ(m_cache.mapSize(), s_many);
    EXPECT_EQ(m_deleted, 0);

    m_cache.setZombieTime(1000000);
    for (unsigned left = s_many; left > 0;) {
        m_cache->expireZombies(farFuture(), nullptr);
        left -= (left + 3) / 4;
        ASSERT_EQ(m_cache.mapSize(), 0u);
        ASSERT_EQ(m_cache.zombieCount(), left);
        ASSERT_EQ(m_deleted, static_cast<int>(s_many - left));
    }
    EXPECT_EQ(ChangeWatch::get().size(), 0u);
    EXPECT_TRUE(kit::waitFor([files] { return FileTable::size() <= files; }));
    EXPECT_EQ(leaks.difference(), "");
}

TEST_F(ManyObjects, PassOverSlowOnesEndsAtItsTime) {
    constexpr unsigned zombies = 160;  // a quarter of them takes longer than a pass may
    for (unsigned i = 0; i < zombies; ++i) {
        SlowMovie* movie = new SlowMovie(MovieScript());
        movie->m_deleted = &m_deleted;
        movie->release();
        m_cache.pushZombie(movie);
    }
    m_cache.setZombieTime(0);
    m_cache->expireZombies(Clock::nowRelative(), nullptr);
    EXPECT_GE(m_deleted, 1);
    EXPECT_LE(m_deleted, static_cast<int>(200 / SlowMovie::s_msec + 1));
    EXPECT_EQ(m_cache.zombieCount(), zombies - static_cast<unsigned>(m_deleted));
}
