#include "support/numeric.h"

#include <gtest/gtest.h>

#include "support/bitset.h"
#include "tests/unit/support/captured_log.h"

TEST(Bitset, FindsTheHighestSetBit) {
    EXPECT_EQ(Bitset::findLastSet(0u), -1);
    EXPECT_EQ(Bitset::findLastSet(1u), 0);
    EXPECT_EQ(Bitset::findLastSet(0x80000000u), 31);
    EXPECT_EQ(Bitset::findLastSet(0xFFFFFFFFu), 31);
    EXPECT_EQ(Bitset::findLastSet(0ull), -1);
    EXPECT_EQ(Bitset::findLastSet(1ull << 40), 40);
    EXPECT_EQ(Bitset::findLastSet((1ull << 40) + 1), 40);
    EXPECT_EQ(Bitset::findLastSet(0xFFFFFFFFFFFFFFFFull), 63);
    for (int bit = 0; bit < 32; ++bit)
        EXPECT_EQ(Bitset::findLastSet(1u << bit), bit);
    for (int bit = 0; bit < 64; ++bit)
        EXPECT_EQ(Bitset::findLastSet(1ull << bit), bit);
}

TEST(Numeric, ReduceAnswersTheQuotientAndLeavesTheRest) {
    int value = 100;
    EXPECT_EQ(reduce(value, 7), 14);
    EXPECT_EQ(value, 2);
    int counter = 107892 + 5;
    EXPECT_EQ(reduce(counter, 107892u), 1);
    EXPECT_EQ(counter, 5);
    int below = 6;
    EXPECT_EQ(reduce(below, 7), 0);
    EXPECT_EQ(below, 6);
}

TEST(Numeric, RangeExcludesItsEnds) {
    EXPECT_FALSE(inRangeExclusive(1, 1, 3));
    EXPECT_TRUE(inRangeExclusive(1, 2, 3));
    EXPECT_FALSE(inRangeExclusive(1, 3, 3));
    EXPECT_FALSE(inRangeExclusive(1, 0, 3));
    EXPECT_FALSE(inRangeExclusive(1, 4, 3));
}

TEST(Numeric, FailedExpectationIsReportedWithItsPlace) {
    const CapturedLog log;
    EXPECT_FALSE(logIfFalse(false, "alloc", "mediautil", 12));
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].m_level, LogLevel::Error);
    EXPECT_EQ(log.lines()[0].m_text, "expectation failed at alloc (mediautil:12)");
}

TEST(Numeric, ExpectationThatHoldsIsSilent) {
    const CapturedLog log;
    EXPECT_TRUE(logIfFalse(true, "alloc", "mediautil", 12));
    EXPECT_TRUE(log.lines().empty());
}
