#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/clock.h"
#include "support/singleton_helper.h"
#include "support/thread_method.h"

namespace {

// Waits until it is asked to stop.
class Worker {
public:
    explicit Worker(const char* name = "worker", unsigned int priority = 10, unsigned int stackSize = 16384)
        : m_thread(*this, &Worker::work, name, priority, stackSize) {}
    virtual ~Worker() = default;

    virtual void work() {
        char name[32] = {};
        pthread_getname_np(pthread_self(), name, sizeof name);
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_name = name;
        }
        ++m_runs;
        while (!m_thread.stopRequested())
            waitMsec(1);
    }

    void waitForRuns(int runs) const {
        while (m_runs < runs)
            waitMsec(1);
    }
    std::string nameSeen() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_name;
    }

    std::atomic<int> m_runs{0};
    std::mutex m_mutex;
    std::string m_name;
    ThreadMethod<Worker> m_thread;
};

template <class T>
struct Task {
    explicit Task(T task) : m_task(task), m_thread(*this, &Task::run, "task", 10, 0) {}
    void run() { m_task(m_thread); }
    T m_task;
    ThreadMethod<Task> m_thread;
};

struct Single : SingletonHelper<Single> {
    Single() {
        // Long enough that the others come while it is being made.
        waitMsec(20);
        ++s_made;
    }
    static std::atomic<int> s_made;
    static Single* s_slot;
    int m_value = 42;
};
std::atomic<int> Single::s_made{0};
Single* Single::s_slot = nullptr;

}  // namespace

TEST(Thread, RunsTheMemberFunctionUntilItIsStopped) {
    Worker worker;
    EXPECT_FALSE(worker.m_thread.running());
    EXPECT_FALSE(worker.m_thread.stopRequested());
    ASSERT_TRUE(worker.m_thread.start());
    EXPECT_TRUE(worker.m_thread.running());
    worker.waitForRuns(1);
    EXPECT_TRUE(worker.m_thread.stop(true));
    EXPECT_TRUE(worker.m_thread.stopRequested());
    EXPECT_FALSE(worker.m_thread.running());
}

TEST(Thread, StopWithoutWaitingOnlyAsks) {
    std::atomic<bool> goOn{false};
    Task task([&](const BaseThread& thread) {
        while (!goOn || !thread.stopRequested())
            waitMsec(1);
    });
    ASSERT_TRUE(task.m_thread.start());
    EXPECT_FALSE(task.m_thread.stop(false));
    EXPECT_TRUE(task.m_thread.running());
    goOn = true;
    task.m_thread.wait();
    EXPECT_FALSE(task.m_thread.running());
    EXPECT_TRUE(task.m_thread.stop(false));
}

TEST(Thread, StartsAgainAfterAStop) {
    Worker worker;
    for (int run = 1; run <= 3; ++run) {
        ASSERT_TRUE(worker.m_thread.start());
        worker.waitForRuns(run);
        EXPECT_FALSE(worker.m_thread.stopRequested());
        EXPECT_TRUE(worker.m_thread.stop(true));
    }
    EXPECT_EQ(worker.m_runs, 3);
}

TEST(Thread, StartsAgainAfterItEndedByItself) {
    std::atomic<int> runs{0};
    Task task([&](const BaseThread&) { ++runs; });
    ASSERT_TRUE(task.m_thread.start());
    while (task.m_thread.running())
        waitMsec(1);
    ASSERT_TRUE(task.m_thread.start());
    task.m_thread.wait();
    EXPECT_EQ(runs, 2);
}

TEST(Thread, SecondStartIsRefusedWhileItRuns) {
    Worker worker;
    ASSERT_TRUE(worker.m_thread.start());
    EXPECT_FALSE(worker.m_thread.start());
    EXPECT_TRUE(worker.m_thread.stop(true));
    EXPECT_EQ(worker.m_runs, 1);
}

TEST(Thread, StopAndWaitWithoutAStartReturnAtOnce) {
    Worker worker;
    worker.m_thread.wait();
    EXPECT_TRUE(worker.m_thread.stop(true));
}

TEST(Thread, DestructorStopsAndWaits) {
    std::atomic<bool> over{false};
    {
        Task task([&](const BaseThread& thread) {
            while (!thread.stopRequested())
                waitMsec(1);
            over = true;
        });
        ASSERT_TRUE(task.m_thread.start());
    }
    EXPECT_TRUE(over);
}

TEST(Thread, NameIsCutToWhatTheKernelKeeps) {
    Worker worker("a name that is too long", 10, 16384);
    ASSERT_TRUE(worker.m_thread.start());
    worker.waitForRuns(1);
    EXPECT_EQ(worker.nameSeen(), "a name that is ");
}

TEST(Thread, RealTimePriorityRunsWithTheRightToItAndWithout) {
    Worker worker("real time", 93, 16384);
    ASSERT_TRUE(worker.m_thread.start());
    worker.waitForRuns(1);
    EXPECT_EQ(worker.nameSeen(), "real time");
    EXPECT_TRUE(worker.m_thread.stop(true));
}

TEST(Thread, StackSizeIsAFloor) {
    std::atomic<std::size_t> small{0};
    Task task([&](const BaseThread&) {
        pthread_attr_t attributes;
        ASSERT_EQ(pthread_getattr_np(pthread_self(), &attributes), 0);
        std::size_t size = 0;
        pthread_attr_getstacksize(&attributes, &size);
        pthread_attr_destroy(&attributes);
        small = size;
    });
    ASSERT_TRUE(task.m_thread.start());
    task.m_thread.wait();
    EXPECT_GE(small, 256u * 1024);
}

TEST(Thread, VirtualMemberFunctionRunsAsOverridden) {
    struct Derived : Worker {
        ~Derived() override { m_thread.stop(true); }
        void work() override { m_derived = true; }
        std::atomic<bool> m_derived{false};
    };
    Derived worker;
    ASSERT_TRUE(worker.m_thread.start());
    worker.m_thread.wait();
    EXPECT_TRUE(worker.m_derived);
    EXPECT_EQ(worker.m_runs, 0);
}

TEST(Thread, MayAskItselfToStopAndDoesNotWaitForItself) {
    std::atomic<bool> answer{true};
    Task task([&](BaseThread& thread) {
        answer = thread.stop(true);
        thread.wait();
        EXPECT_FALSE(thread.start());
    });
    ASSERT_TRUE(task.m_thread.start());
    task.m_thread.wait();
    EXPECT_FALSE(answer);
}

TEST(Thread, SeveralMayWaitForOneEnd) {
    Worker worker;
    ASSERT_TRUE(worker.m_thread.start());
    worker.waitForRuns(1);
    std::vector<std::thread> waiters;
    for (int i = 0; i < 4; ++i) {
        waiters.emplace_back([&] {
            worker.m_thread.stop(true);
            EXPECT_FALSE(worker.m_thread.running());
        });
    }
    for (std::thread& waiter : waiters)
        waiter.join();
}

TEST(Thread, SignalsOfTheHostAreLeftToItsOwnThreads) {
    std::atomic<bool> blocked{false};
    Task task([&](const BaseThread&) {
        sigset_t mask;
        pthread_sigmask(SIG_SETMASK, nullptr, &mask);
        blocked = sigismember(&mask, SIGTERM) == 1 && sigismember(&mask, SIGSEGV) == 0;
    });
    ASSERT_TRUE(task.m_thread.start());
    task.m_thread.wait();
    EXPECT_TRUE(blocked);
    sigset_t here;
    pthread_sigmask(SIG_SETMASK, nullptr, &here);
    EXPECT_EQ(sigismember(&here, SIGTERM), 0);
}

TEST(Thread, StopIsNotLostToAStartAtTheSameMoment) {
    // A run that never heard of the request would be waited for without end.
    Worker worker;
    std::atomic<bool> over{false};
    std::vector<std::thread> starters;
    for (int i = 0; i < 2; ++i) {
        starters.emplace_back([&] {
            while (!over)
                worker.m_thread.start();
        });
    }
    for (int i = 0; i < 300; ++i)
        worker.m_thread.stop(true);
    over = true;
    for (std::thread& starter : starters)
        starter.join();
    EXPECT_TRUE(worker.m_thread.stop(true));
    EXPECT_FALSE(worker.m_thread.running());
}

TEST(Thread, ForkedChildHasNoThreadAndWaitsForNone) {
    Worker worker;
    ASSERT_TRUE(worker.m_thread.start());
    worker.waitForRuns(1);
    std::thread waiter([&] { worker.m_thread.wait(); });
    const pid_t child = fork();
    if (child == 0) {
        // Whoever waits here for what isn't there is ended by the clock.
        alarm(30);
        const bool fine = !worker.m_thread.running() && !worker.m_thread.start() && worker.m_thread.stop(true);
        worker.m_thread.wait();
        _exit(fine ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_TRUE(worker.m_thread.running());
    EXPECT_TRUE(worker.m_thread.stop(true));
    waiter.join();
}

TEST(Singleton, FiftyThreadsGetOneObjectThatIsMadeOnce) {
    std::atomic<bool> go{false};
    std::vector<Single*> got(50, nullptr);
    std::vector<std::thread> threads;
    for (Single*& mine : got) {
        threads.emplace_back([&mine, &go] {
            while (!go)
                std::this_thread::yield();
            mine = Single::newSingleton(Single::s_slot);
            EXPECT_EQ(mine->m_value, 42);
        });
    }
    go = true;
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(Single::s_made, 1);
    EXPECT_NE(got[0], nullptr);
    for (const Single* const one : got)
        EXPECT_EQ(one, got[0]);
    EXPECT_EQ(Single::newSingleton(Single::s_slot), got[0]);
}

TEST(Clock, NeverGoesBackAndCountsMicroseconds) {
    const long long before = Clock::nowRelative();
    waitMsec(3);
    const long long after = Clock::nowRelative();
    EXPECT_GE(after - before, 3000);
}

TEST(Clock, SleepOutlastsSignals) {
    struct sigaction action = {};
    struct sigaction before = {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGUSR1, &action, &before), 0);
    const pthread_t sleeper = pthread_self();
    std::atomic<bool> over{false};
    std::thread disturber([&] {
        while (!over) {
            pthread_kill(sleeper, SIGUSR1);
            waitMsec(1);
        }
    });
    const long long begin = Clock::nowRelative();
    waitMsec(20);
    const long long slept = Clock::nowRelative() - begin;
    over = true;
    disturber.join();
    sigaction(SIGUSR1, &before, nullptr);
    EXPECT_GE(slept, 20000);
}
