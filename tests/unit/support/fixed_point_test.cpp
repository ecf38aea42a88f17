#include "support/fixed_point.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <random>
#include <string>

namespace {

using Fixed = FixedPoint<16>;

Fixed raw(long long value) { return Fixed(value, Fixed::AlreadyFixed()); }
std::string text(const Fixed& value, unsigned int decimals) { return value.toString(decimals).get(); }

// The product and the quotient as they would be without a limit on width.
__extension__ typedef __int128 Wide;
Wide wideProduct(long long a, long long b) { return (static_cast<Wide>(a) * b) >> 16; }
Wide wideQuotient(long long a, long long b) { return (static_cast<Wide>(a) << 16) / b; }

}  // namespace

TEST(FixedPoint, IsOneNumberWideAndZeroAtFirst) {
    static_assert(sizeof(Fixed) == 8);
    EXPECT_EQ(Fixed().rawValue(), 0);
}

TEST(FixedPoint, IntegersAreShiftedUp) {
    EXPECT_EQ(Fixed(3).rawValue(), 3 * 65536);
    EXPECT_EQ(Fixed(-3).rawValue(), -3 * 65536);
    EXPECT_EQ(Fixed(0xFFFFFFFFu).rawValue(), 0xFFFFFFFFll * 65536);
    EXPECT_EQ(Fixed(1ll << 40).rawValue(), 1ll << 56);
    EXPECT_EQ(Fixed(1ull << 40).rawValue(), 1ll << 56);
    EXPECT_EQ(Fixed(std::int64_t{5}).rawValue(), 5 * 65536);
    EXPECT_EQ(Fixed(std::uint64_t{5}).rawValue(), 5 * 65536);
}

TEST(FixedPoint, DoubleIsTruncatedTowardZero) {
    EXPECT_EQ(Fixed(29.97).rawValue(), 1964113);
    EXPECT_EQ(Fixed(-29.97).rawValue(), -1964113);
    EXPECT_EQ(Fixed(0.5).rawValue(), 0x8000);
}

TEST(FixedPoint, RawAndLargestValues) {
    EXPECT_EQ(raw(327).rawValue(), 327);
    EXPECT_EQ(Fixed(Fixed::MaxValue()).rawValue(), 0x7fffffffffffffffll);
    EXPECT_EQ(Fixed::fractionMask(), 0xffff);
}

TEST(FixedPoint, RateConstantsHaveTheirRawValues) {
    EXPECT_EQ((Fixed(1) / 200).rawValue(), 327);
    EXPECT_EQ((Fixed(30000) / 1001).rawValue(), 1964115);
}

TEST(FixedPoint, IntegerPartGoesTowardMinusInfinity) {
    EXPECT_EQ(raw(-1).intValue(), -1);
    EXPECT_EQ(raw(-65536).intValue(), -1);
    EXPECT_EQ(raw(-65537).intValue(), -2);
    EXPECT_EQ(raw(65535).intValue(), 0);
    EXPECT_EQ(raw(-1).int64Value(), -1);
    EXPECT_EQ(raw(-1).uintValue(), 0xFFFFFFFFu);
    EXPECT_EQ(raw(-1).uint32Value(), 0xFFFFFFFFu);
    EXPECT_EQ(raw(-1).uint64Value(), 0xFFFFFFFFFFFFFFFFull);
    EXPECT_EQ(Fixed((1ll << 40) + 7).uint32Value(), 7u);
    EXPECT_EQ(Fixed((1ll << 40) + 7).uint64Value(), (1ull << 40) + 7);
}

TEST(FixedPoint, RoundPutsHalvesUp) {
    EXPECT_EQ(Fixed(29.97).round(), Fixed(30));
    EXPECT_EQ(Fixed(23.976).round(), Fixed(24));
    EXPECT_EQ(Fixed(59.94).round(), Fixed(60));
    EXPECT_EQ(Fixed(2.5).round(), Fixed(3));
    EXPECT_EQ(Fixed(-2.5).round(), Fixed(-2));
    EXPECT_EQ(Fixed(-2.75).round(), Fixed(-3));
    EXPECT_EQ(Fixed(2.25).round(), Fixed(2));
}

TEST(FixedPoint, AbsoluteValue) {
    EXPECT_EQ(Fixed(-2.5).abs(), Fixed(2.5));
    EXPECT_EQ(Fixed(2.5).abs(), Fixed(2.5));
}

TEST(FixedPoint, SumAndDifferenceAreThoseOfTheCounts) {
    Fixed value(1);
    value += raw(3);
    EXPECT_EQ(value.rawValue(), 65539);
    value -= Fixed(2);
    EXPECT_EQ(value.rawValue(), -65533);
    EXPECT_EQ(Fixed(5) + Fixed(-7), Fixed(-2));
    EXPECT_EQ(Fixed(5) - Fixed(7), Fixed(-2));
    EXPECT_EQ(Fixed(5) - 7u, Fixed(-2));
    EXPECT_EQ(Fixed(5) - 0xFFFFFFFFu, Fixed(5ll - 0xFFFFFFFFll));
    EXPECT_EQ(Fixed(5) - -7, Fixed(12));
}

TEST(FixedPoint, SumBeyondTheLimitWraps) {
    EXPECT_EQ((Fixed(Fixed::MaxValue()) + raw(1)).rawValue(), std::numeric_limits<long long>::min());
    EXPECT_EQ((raw(std::numeric_limits<long long>::min()) - raw(1)).rawValue(), 0x7fffffffffffffffll);
}

TEST(FixedPoint, ComparesAsASignedNumber) {
    EXPECT_LT(Fixed(-1), Fixed(0));
    EXPECT_LE(Fixed(1), Fixed(1));
    EXPECT_GT(raw(1), Fixed(0));
    EXPECT_GE(Fixed(2), 2);
    EXPECT_TRUE(Fixed(2) == 2u);
    EXPECT_TRUE(Fixed(2) != raw(2));
    EXPECT_LT(Fixed(1000000), Fixed(Fixed::MaxValue()));
}

TEST(FixedPoint, ShortProductTruncates) {
    EXPECT_EQ(Fixed(1.5) * Fixed(2.5), Fixed(3.75));
    EXPECT_EQ((raw(3) * raw(0x8000)).rawValue(), 1);
    EXPECT_EQ((raw(0x7fffffff) * raw(0x7fffffff)).rawValue(), (0x7fffffffll * 0x7fffffffll) >> 16);
}

TEST(FixedPoint, LongProductIsExactWhereItFits) {
    EXPECT_EQ(Fixed(100000) * Fixed(48000), Fixed(4800000000ll));
    EXPECT_EQ(Fixed(-1.5) * Fixed(2.5), Fixed(-3.75));
    EXPECT_EQ(Fixed(-1.5) * Fixed(-2.5), Fixed(3.75));
    EXPECT_EQ((raw(-1) * raw(1)).rawValue(), -1);
}

TEST(FixedPoint, ProductsAgreeWithWideArithmetic) {
    std::mt19937_64 random(1);
    for (int i = 0; i < 100000; ++i) {
        const long long a = static_cast<long long>(random()) >> (random() % 63);
        const long long b = static_cast<long long>(random()) >> (random() % 63);
        const Wide exact = wideProduct(a, b);
        if (exact > std::numeric_limits<long long>::max() || exact < std::numeric_limits<long long>::min()) continue;
        ASSERT_EQ((raw(a) * raw(b)).rawValue(), static_cast<long long>(exact)) << a << " * " << b;
    }
}

TEST(FixedPoint, ProductWithAnInteger) {
    EXPECT_EQ(Fixed(1.5) * 3, Fixed(4.5));
    EXPECT_EQ(Fixed(1.5) * -3, Fixed(-4.5));
    EXPECT_EQ(Fixed(1.5) * 3u, Fixed(4.5));
    EXPECT_EQ(3u * Fixed(1.5), Fixed(4.5));
    EXPECT_EQ(-3 * Fixed(1.5), Fixed(-4.5));
    EXPECT_EQ(Fixed(1.5) * 0x80000000u, Fixed(3221225472ll));
}

TEST(FixedPoint, ShortQuotientTruncatesTowardZero) {
    EXPECT_EQ(Fixed(7.5) / Fixed(2.5), Fixed(3));
    EXPECT_EQ((Fixed(1) / Fixed(3)).rawValue(), 21845);
    EXPECT_EQ((Fixed(-1) / Fixed(3)).rawValue(), -21845);
    EXPECT_EQ((raw((1ll << 47) - 1) / Fixed(3)).rawValue(), (1ll << 47) / 3);
}

TEST(FixedPoint, LongQuotientTakesIntegerPartAndRestApart) {
    EXPECT_EQ(Fixed(1ll << 40) / Fixed(4), Fixed(1ll << 38));
    EXPECT_EQ((raw((1ll << 47) + 1) / Fixed(3)).rawValue(), ((1ll << 47) + 1) / 3);
    EXPECT_EQ((raw(-(1ll << 47) - 1) / Fixed(3)).rawValue(), -((1ll << 47) + 1) / 3);
}

TEST(FixedPoint, QuotientsAgreeWithWideArithmetic) {
    std::mt19937_64 random(2);
    for (int i = 0; i < 100000; ++i) {
        const long long a = static_cast<long long>(random()) >> (random() % 63);
        const long long b = static_cast<long long>(random()) >> (17 + random() % 46);
        if (b == 0) continue;
        const Wide exact = wideQuotient(a, b);
        if (exact > std::numeric_limits<long long>::max() || exact < std::numeric_limits<long long>::min()) continue;
        ASSERT_EQ((raw(a) / raw(b)).rawValue(), static_cast<long long>(exact)) << a << " / " << b;
    }
}

TEST(FixedPoint, QuotientByAnInteger) {
    EXPECT_EQ(raw(7) / 2, raw(3));
    EXPECT_EQ(raw(-7) / 2, raw(-3));
    EXPECT_EQ(raw(7) / -2, raw(-3));
    EXPECT_EQ(raw(7) / 2u, raw(3));
    EXPECT_EQ(raw(-7) / 2u, raw(-3));
    EXPECT_EQ(Fixed(Fixed::MaxValue()) / 48000u, raw(0x7fffffffffffffffll / 48000));
    EXPECT_EQ(Fixed(0x80000000u) / 0x80000000u, Fixed(1));
    EXPECT_EQ(Fixed(-5) / 0x80000000u, raw(0));
}

TEST(FixedPoint, QuotientOfAnInteger) {
    EXPECT_EQ(1u / Fixed(4), Fixed(0.25));
    EXPECT_EQ(-1 / Fixed(4), Fixed(-0.25));
    EXPECT_EQ((1ull << 40) / Fixed(4), Fixed(1ll << 38));
}

TEST(FixedPoint, OverflowTestAddsTheHighestBitsOfTheIntegerParts) {
    EXPECT_FALSE(Fixed(0).checkProductOverflow(0));
    EXPECT_FALSE(Fixed(0).checkProductOverflow(0xFFFFFFFFull));
    // Bits 29 and 16: exactly 47.
    EXPECT_FALSE(Fixed(1 << 29).checkProductOverflow(1 << 16));
    EXPECT_TRUE(Fixed(1 << 30).checkProductOverflow(1 << 16));
    // The fraction doesn't count.
    EXPECT_FALSE((Fixed(1 << 29) + raw(0xffff)).checkProductOverflow((1 << 16) + 1));
    // A negative number has its top bit set.
    EXPECT_TRUE(Fixed(-1).checkProductOverflow(1));
    EXPECT_TRUE(Fixed(-1).checkProductOverflow(0));
}

TEST(FixedPoint, TextHasTheDecimalsAskedFor) {
    EXPECT_EQ(text(Fixed(1), 2), "1.00");
    EXPECT_EQ(text(Fixed(1), 0), "1");
    EXPECT_EQ(text(Fixed(0.5), 1), "0.5");
    EXPECT_EQ(text(Fixed(30000) / 1001, 3), "29.970");
    EXPECT_EQ(text(raw(0x50000), 2), "5.00");
    EXPECT_EQ(text(Fixed(), 3), "0.000");
}

TEST(FixedPoint, TextIsRounded) {
    EXPECT_EQ(text(Fixed(0.75), 1), "0.8");
    EXPECT_EQ(text(Fixed(0.5), 0), "1");
    EXPECT_EQ(text(raw(65535), 2), "1.00");
    EXPECT_EQ(text(raw(9 * 65536 + 65535), 3), "10.000");
    EXPECT_EQ(text(raw(21845), 4), "0.3333");
}

TEST(FixedPoint, TextOfNegativeValuesHasTheSignInFront) {
    EXPECT_EQ(text(Fixed(-1.5), 2), "-1.50");
    EXPECT_EQ(text(Fixed(-0.25), 2), "-0.25");
    EXPECT_EQ(text(raw(-1), 2), "0.00");
    EXPECT_EQ(text(raw(-1), 5), "-0.00002");
}

TEST(FixedPoint, TextOfTheLimits) {
    EXPECT_EQ(text(Fixed(Fixed::MaxValue()), 4), "140737488355328.0000");
    EXPECT_EQ(text(raw(std::numeric_limits<long long>::min()), 1), "-140737488355328.0");
    EXPECT_EQ(text(raw(1), 16), "0.0000152587890625");
    EXPECT_EQ(text(raw(1), 1000), "0.0000152587890625");
}
