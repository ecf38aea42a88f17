#include "support/ref_count.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "support/atomic_ops.h"
#include "tests/unit/support/captured_log.h"

namespace {

class Counted : public RefCount {
public:
    Counted(bool autoDelete, int count, int* destroyed) : RefCount(autoDelete, count), m_destroyed(destroyed) {}
    ~Counted() override { ++*m_destroyed; }

private:
    int* const m_destroyed;
};

template <class Work>
void inThreads(int threads, Work work) {
    std::vector<std::thread> all;
    for (int i = 0; i < threads; ++i)
        all.emplace_back(work);
    for (std::thread& thread : all)
        thread.join();
}

}  // namespace

TEST(RefCount, PreserveAndReleaseAnswerTheNewCount) {
    RefCount count(false, 1);
    EXPECT_EQ(count.getCount(), 1);
    EXPECT_EQ(count.preserve(), 2);
    EXPECT_EQ(count.preserve(), 3);
    EXPECT_EQ(count.release(), 2);
    EXPECT_EQ(count.release(), 1);
    EXPECT_EQ(count.getCount(), 1);
}

TEST(RefCount, ReleaseDownToALimitStopsThere) {
    RefCount count(false, 4);
    EXPECT_EQ(count.releaseDownTo(2), 3);
    EXPECT_EQ(count.releaseDownTo(2), 2);
    EXPECT_EQ(count.releaseDownTo(2), -1);
    EXPECT_EQ(count.getCount(), 2);
    EXPECT_EQ(count.releaseDownTo(3), -1);
    EXPECT_EQ(count.release(), 1);
}

TEST(RefCount, ReleasesDownToALimitFromManyThreadsNeverPassIt) {
    constexpr int limit = 2;
    RefCount count(false, 10001);
    std::atomic<int> released{0};
    inThreads(4, [&] {
        for (int i = 0; i < 5000; ++i)
            released += count.releaseDownTo(limit) >= limit ? 1 : 0;
    });
    EXPECT_EQ(released, 9999);
    EXPECT_EQ(count.release(), limit - 1);
}

TEST(RefCount, LastReleaseDeletesThroughTheVirtualDestructor) {
    int destroyed = 0;
    RefCount* const object = new Counted(true, 2, &destroyed);
    EXPECT_EQ(object->release(), 1);
    EXPECT_EQ(destroyed, 0);
    EXPECT_EQ(object->release(), 0);
    EXPECT_EQ(destroyed, 1);
}

TEST(RefCount, ReleaseToZeroWithoutAutoDeleteKeepsTheObject) {
    int destroyed = 0;
    Counted object(false, 1, &destroyed);
    EXPECT_EQ(object.release(), 0);
    EXPECT_EQ(destroyed, 0);
    EXPECT_EQ(object.preserve(), 1);
}

TEST(RefCount, ReleasePastZeroIsReportedWithTheNegativeCount) {
    const CapturedLog log;
    RefCount count(false, 0);
    EXPECT_EQ(count.release(), -1);
    EXPECT_EQ(log.count(LogLevel::Error, "released more often than held, count=-1, "), 1);
    EXPECT_EQ(count.release(), -2);
    EXPECT_EQ(log.count(LogLevel::Error, "released more often than held, count=-2, "), 1);
}

TEST(RefCount, ReleasePastZeroWithAutoDeleteIsReportedAndDeletesNothing) {
    const CapturedLog log;
    int destroyed = 0;
    Counted object(true, 0, &destroyed);
    EXPECT_EQ(object.release(), -1);
    EXPECT_EQ(destroyed, 0);
    EXPECT_EQ(log.count(LogLevel::Error, "count=-1"), 1);
}

TEST(RefCount, DestructionWithSeveralHoldersIsReported) {
    const CapturedLog log;
    { const RefCount count(false, 2); }
    EXPECT_EQ(log.count(LogLevel::Error, "destroyed while still held, count=2, "), 1);
}

TEST(RefCount, DestructionWithOneOrNoReferenceIsSilent) {
    const CapturedLog log;
    { const RefCount none(false, 0); }
    { const RefCount one(true, 1); }
    EXPECT_TRUE(log.lines().empty());
}

TEST(RefCount, ManyThreadsDeleteOnce) {
    int destroyed = 0;
    RefCount* const object = new Counted(true, 8, &destroyed);
    inThreads(8, [object] {
        for (int i = 0; i < 10000; ++i) {
            object->preserve();
            object->release();
        }
        object->release();
    });
    EXPECT_EQ(destroyed, 1);
}

TEST(AtomicCounter, PrefixAnswersTheNewValueAndPostfixTheOld) {
    AtomicCounter counter(5);
    EXPECT_EQ(++counter, 6);
    EXPECT_EQ(counter++, 6);
    EXPECT_EQ(counter.getCount(), 7);
    EXPECT_EQ(--counter, 6);
    EXPECT_EQ(counter--, 6);
    EXPECT_TRUE(counter == 5);
    EXPECT_FALSE(counter == 6);
    static_assert(sizeof(AtomicCounter) == 4);
}

TEST(AtomicCounter, CountsAllOfManyThreads) {
    AtomicCounter counter(0);
    inThreads(8, [&counter] {
        for (int i = 0; i < 10000; ++i)
            ++counter;
    });
    EXPECT_EQ(counter.getCount(), 80000);
}

TEST(Atomics, ChangingFormsAnswerTheNewValue) {
    int cell = 0;
    EXPECT_EQ(atomicInc(&cell), 1);
    EXPECT_EQ(atomicAdd(&cell, 10), 11);
    EXPECT_EQ(atomicAdd(&cell, -20L), -9);
    EXPECT_EQ(atomicDec(&cell), -10);
    EXPECT_EQ(atomicGet(&cell), -10);
}

TEST(Atomics, ExchangeAndAddAnswersTheOldValue) {
    unsigned int cell = 7;
    EXPECT_EQ(__exchange_and_add32(&cell, -2), 7u);
    EXPECT_EQ(cell, 5u);
    EXPECT_EQ(atomicGet32(&cell), 5);
    EXPECT_EQ(atomicInc32(&cell), 6);
    EXPECT_EQ(atomicDec32(&cell), 5);
    EXPECT_EQ(atomicAdd32(&cell, 4), 9);
    EXPECT_EQ(__Atomics<4>::add(&cell, 1), 10);
}
