#include "services/system/locks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "collecting_sink.h"

// The misuse here is meant, and the compiler would see it.
#if defined(__clang__)
#pragma clang diagnostic ignored "-Wthread-safety-analysis"
#endif

using namespace ZarnexPosix;
using testing::HasSubstr;

namespace {

using TrackLock = JMultiTrackLock<JLWSemaphore>;
using MultiLock = JMultiLock<JMutex>;

// Whether another thread can have the lock now.
template <class Lock>
bool isFree(Lock& lock) {
    bool got = false;
    std::thread([&lock, &got] {
        got = lock.trylock();
        if (got) lock.unlock();
    }).join();
    return got;
}

// Adds up under the lock on several threads; a lock that doesn't exclude loses some.
template <class Lock>
int countOnThreads(Lock& lock) {
    int sum = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&lock, &sum] {
            for (int i = 0; i < 5000; ++i) {
                const ScopeLock<Lock> guard(lock);
                ++sum;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    return sum;
}

// Notes in which order a scope lock asks for its lock, and disturbs errno as a failing system call would.
class LoudLock {
public:
    void lock() {
        m_calls += 'l';
        errno = EAGAIN;
    }
    void unlock() {
        m_calls += 'u';
        errno = EINTR;
    }
    std::string m_calls;
};

}  // namespace

TEST(JMutexTest, ExcludesOtherThreads) {
    JMutex mutex;
    EXPECT_EQ(countOnThreads(mutex), 20000);
}

TEST(JMutexTest, TrylockFailsWhileAnotherThreadHasIt) {
    JMutex mutex;
    EXPECT_TRUE(isFree(mutex));
    mutex.lock();
    EXPECT_FALSE(isFree(mutex));
    mutex.unlock();
    EXPECT_TRUE(isFree(mutex));
}

TEST(JMutexTest, TrylockFailsForItsOwnerToo) {
    JMutex mutex;
    ASSERT_TRUE(mutex.trylock());
    EXPECT_FALSE(mutex.trylock());
    mutex.unlock();
}

TEST(JMultiLockTest, ItsOwnerMayTakeItAgainAndGivesItBackAsOften) {
    MultiLock lock;
    lock.lock();
    lock.lock();
    EXPECT_TRUE(lock.trylock());
    lock.unlock();
    lock.unlock();
    EXPECT_FALSE(isFree(lock));
    lock.unlock();
    EXPECT_TRUE(isFree(lock));
}

TEST(JMultiLockTest, ExcludesOtherThreads) {
    MultiLock lock;
    EXPECT_EQ(countOnThreads(lock), 20000);
}

TEST(JMultiTrackLockTest, ExcludesOtherThreads) {
    TrackLock lock;
    EXPECT_EQ(countOnThreads(lock), 20000);
}

TEST(JMultiTrackLockTest, ItIsFreeOnlyAfterTheLastOfItsOwnersUnlocks) {
    TrackLock lock;
    std::atomic<bool> got{false};
    lock.lock();
    lock.lock();
    std::thread other([&lock, &got] {
        lock.lock();
        got = true;
        lock.unlock();
    });
    lock.unlock();
    for (int i = 0; i < 1000; ++i) {
        std::this_thread::yield();
        EXPECT_FALSE(got.load());
    }
    lock.unlock();
    other.join();
    EXPECT_TRUE(got.load());
}

TEST(JMultiTrackLockTest, AForeignUnlockIsReportedAndChangesNothing) {
    CollectingSink sink;
    TrackLock lock;
    lock.lock();
    std::thread([&lock] { lock.unlock(); }).join();
    ASSERT_EQ(sink.getLines().size(), 1u);
    EXPECT_EQ(sink.getLevels()[0], LogLevel::Error);
    EXPECT_THAT(sink.getLines()[0], testing::StartsWith("jlock_error: code 0 on lock 0x"));
    lock.lock();
    lock.unlock();
    lock.unlock();
    EXPECT_EQ(sink.getLines().size(), 1u);
}

TEST(JMultiTrackLockTest, UnlockWithoutALockIsReported) {
    CollectingSink sink;
    TrackLock lock;
    lock.unlock();
    EXPECT_EQ(sink.getLines().size(), 1u);
    lock.lock();
    lock.unlock();
}

TEST(JLWSemaphoreTest, CountsFromItsFirstValue) {
    JLWSemaphore semaphore(2);
    semaphore.wait();
    semaphore.lock();
    std::atomic<bool> through{false};
    std::thread waiter([&semaphore, &through] {
        semaphore.wait();
        through = true;
    });
    for (int i = 0; i < 1000; ++i) {
        std::this_thread::yield();
        EXPECT_FALSE(through.load());
    }
    semaphore.post();
    waiter.join();
    semaphore.unlock();
    semaphore.wait();
}

TEST(JLWSemaphoreTest, EveryPostLetsOneThrough) {
    JLWSemaphore semaphore(0);
    std::atomic<int> through{0};
    std::vector<std::thread> waiters;
    for (int t = 0; t < 4; ++t) {
        waiters.emplace_back([&semaphore, &through] {
            for (int i = 0; i < 500; ++i) {
                semaphore.wait();
                ++through;
            }
        });
    }
    for (int i = 0; i < 2000; ++i) {
        semaphore.post();
    }
    for (std::thread& waiter : waiters) {
        waiter.join();
    }
    EXPECT_EQ(through.load(), 2000);
}

TEST(JlockGetCurrentTask, DiffersBetweenLivingThreadsAndIsNeverNull) {
    const jlock_Task mine = jlock_getCurrentTask();
    jlock_Task other = 0;
    std::thread([&other] { other = jlock_getCurrentTask(); }).join();
    EXPECT_NE(mine, 0u);
    EXPECT_NE(other, 0u);
    EXPECT_NE(mine, other);
    EXPECT_EQ(mine, jlock_getCurrentTask());
}

TEST(ScopeLockTest, LocksForTheScope) {
    LoudLock lock;
    {
        const ScopeLock<LoudLock> guard(lock);
        EXPECT_EQ(lock.m_calls, "l");
    }
    EXPECT_EQ(lock.m_calls, "lu");
}

TEST(ScopeLockTest, UnlockAndLockActOnlyIfTheStateDiffers) {
    LoudLock lock;
    {
        ScopeLock<LoudLock> guard(lock);
        guard.lock();
        EXPECT_EQ(lock.m_calls, "l");
        guard.unlock();
        guard.unlock();
        EXPECT_EQ(lock.m_calls, "lu");
        guard.lock();
        guard.lock();
        EXPECT_EQ(lock.m_calls, "lul");
    }
    EXPECT_EQ(lock.m_calls, "lulu");
}

TEST(ScopeLockTest, AScopeThatEndsUnlockedUnlocksNoMore) {
    LoudLock lock;
    {
        ScopeLock<LoudLock> guard(lock);
        guard.unlock();
    }
    EXPECT_EQ(lock.m_calls, "lu");
}

TEST(ScopeLockTest, TheScopesEndLeavesErrnoAsItWas) {
    LoudLock lock;
    {
        const ScopeLock<LoudLock> guard(lock);
        errno = ENOSPC;
    }
    EXPECT_EQ(errno, ENOSPC);
}

// The race detector reports such misuse itself, and would end the program for it.
#if !defined(__SANITIZE_THREAD__)
TEST(JMutexTest, AForeignUnlockIsReportedAndChangesNothing) {
    CollectingSink sink;
    JMutex mutex;
    mutex.lock();
    std::thread([&mutex] { mutex.unlock(); }).join();
    ASSERT_EQ(sink.getLines().size(), 1u);
    EXPECT_THAT(sink.getLines()[0], HasSubstr("code " + std::to_string(EPERM)));
    EXPECT_FALSE(isFree(mutex));
    mutex.unlock();
}

TEST(JMutexTest, TakingItTwiceIsReportedAndDoesntHang) {
    CollectingSink sink;
    JMutex mutex;
    mutex.lock();
    mutex.lock();
    ASSERT_EQ(sink.getLines().size(), 1u);
    EXPECT_THAT(sink.getLines()[0], HasSubstr("code " + std::to_string(EDEADLK)));
    mutex.unlock();
    EXPECT_TRUE(isFree(mutex));
}
#endif
