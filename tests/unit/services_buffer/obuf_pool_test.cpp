#include "services/buffer/obuf_pool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace {

using ObufDetail::Pool;

// Each test begins with no idle memory and the limits as they are at start.
class ObufPool : public testing::Test {
protected:
    void SetUp() override { obufTrim(); }
    void TearDown() override {
        obufSetIdleLimit(64ull << 20);
        obufSetMemoryLimit(0);
        obufTrim();
    }
};

TEST_F(ObufPool, SizeClassesCoverEverySizeWithAtMostAQuarterOfWaste) {
    std::size_t before = 0;
    for (unsigned c = 0; c < Pool::s_classes; ++c) {
        const std::size_t capacity = Pool::capacityOf(c);
        EXPECT_GT(capacity, before);
        EXPECT_EQ(0u, capacity % 4096);
        EXPECT_EQ(c, Pool::classOf(static_cast<unsigned>(capacity)));
        EXPECT_EQ(c, Pool::classOf(static_cast<unsigned>(before + 1)));
        if (capacity > 16384) {
            EXPECT_LE((capacity - before) * 4, capacity);
        }
        before = capacity;
    }
    EXPECT_EQ(32u << 20, before);
    EXPECT_EQ(Pool::s_unpooled, Pool::classOf(static_cast<unsigned>(before + 1)));
    EXPECT_EQ(Pool::s_unpooled, Pool::classOf(0xFFFFFFFFu));
}

TEST_F(ObufPool, SteadyUseTakesNoMemoryOfTheSystem) {
    obufFree(obufAllocate(0, 65536));
    const ObufStats before = obufStats();
    for (int i = 0; i < 1000; ++i)
        obufFree(obufAllocate(0, 65536 - static_cast<unsigned>(i % 7)));
    const ObufStats after = obufStats();
    EXPECT_EQ(before.m_mappings, after.m_mappings);
    EXPECT_EQ(before.m_idleBytes, after.m_idleBytes);
}

TEST_F(ObufPool, AllocationClassesKeepTheirMemoryApart) {
    obufFree(obufAllocate(11, 4096));
    const unsigned long long before = obufStats().m_mappings;
    obufFree(obufAllocate(12, 4096));
    EXPECT_EQ(before + 1, obufStats().m_mappings);
    obufFree(obufAllocate(11, 4096));
    obufFree(obufAllocate(12, 4096));
    EXPECT_EQ(before + 1, obufStats().m_mappings);
}

TEST_F(ObufPool, AnyAllocationClassIsLegalHoweverManyThereAre) {
    std::vector<phantom_OBUF*> buffers;
    for (unsigned i = 0; i < 300; ++i)
        buffers.push_back(obufAllocate(0xFFFFFFFFu - i * 977, 4096));
    for (phantom_OBUF* buf : buffers) {
        ASSERT_NE(nullptr, buf);
        obufFree(buf);
    }
    EXPECT_EQ(0u, obufStats().m_liveBlocks);
}

TEST_F(ObufPool, IdleMemoryStaysBelowItsLimit) {
    obufSetIdleLimit(1 << 20);
    std::vector<phantom_OBUF*> buffers;
    for (int i = 0; i < 64; ++i)
        buffers.push_back(obufAllocate(0, 65536));
    EXPECT_EQ(64u * 65536, obufStats().m_liveBytes);
    for (phantom_OBUF* buf : buffers)
        obufFree(buf);
    EXPECT_EQ(0u, obufStats().m_liveBytes);
    EXPECT_EQ(1u << 20, obufStats().m_idleBytes);
    obufTrim();
    EXPECT_EQ(0u, obufStats().m_idleBytes);
    EXPECT_EQ(0u, obufStats().m_idleBlocks);
}

TEST_F(ObufPool, BlocksBeyondTheLargestClassGoStraightBack) {
    phantom_OBUF* buf = obufAllocate(0, (32u << 20) + 1);
    ASSERT_NE(nullptr, buf);
    obufFirstByte(buf)[32u << 20] = 1;
    obufFree(buf);
    EXPECT_EQ(0u, obufStats().m_idleBytes);
}

TEST_F(ObufPool, AllocationAboveTheMemoryLimitAnswersNullAndHoldsNothing) {
    obufSetMemoryLimit(64 << 10);
    const ObufStats before = obufStats();
    EXPECT_EQ(nullptr, obufAllocate(0, 65537));
    phantom_OBUF* most = obufAllocate(0, 65536);
    EXPECT_NE(nullptr, most);
    EXPECT_EQ(nullptr, obufAllocate(0, 1));
    obufFree(most);
    EXPECT_EQ(before.m_liveBlocks, obufStats().m_liveBlocks);
    obufSetMemoryLimit(0);
    phantom_OBUF* again = obufAllocate(0, 1 << 20);
    EXPECT_NE(nullptr, again);
    obufFree(again);
}

TEST_F(ObufPool, ManyThreadsGetBuffersThatNobodyElseHas) {
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < 4; ++t) {
        threads.emplace_back([t, &wrong] {
            for (unsigned i = 0; i < 5000; ++i) {
                phantom_OBUF* buf = obufAllocate(t % 2, 64);
                unsigned char* bytes = obufFirstByte(buf);
                for (unsigned k = 0; k < 64; ++k)
                    bytes[k] = static_cast<unsigned char>(t + i);
                for (unsigned k = 0; k < 64; ++k)
                    wrong += bytes[k] != static_cast<unsigned char>(t + i) ? 1 : 0;
                obufFree(buf);
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(0, wrong);
    EXPECT_EQ(0u, obufStats().m_liveBlocks);
}

}  // namespace
