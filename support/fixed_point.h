#pragma once

#include <compare>

#include "support/auto_ptr.h"
#include "support/bitset.h"
#include "support/visibility.h"

// The number for positions and rates: a signed 64-bit count of 1 / 2^Bits. Only 16 bits of fraction are in use.
// Nothing here checks for overflow but checkProductOverflow(); what overflows wraps. Dividing by 0 is a fault.
template <unsigned int Bits>
class FixedPoint {
public:
    // Tag: the number given is the raw count.
    struct AlreadyFixed {};
    // Tag: the largest value, a limit that never binds.
    struct MaxValue {};

    constexpr FixedPoint() = default;
    constexpr FixedPoint(int value) : FixedPoint(static_cast<long long>(value)) {}
    constexpr FixedPoint(unsigned int value) : FixedPoint(static_cast<long long>(value)) {}
    constexpr FixedPoint(long value) : FixedPoint(static_cast<long long>(value)) {}
    constexpr FixedPoint(unsigned long value) : FixedPoint(static_cast<long long>(value)) {}
    constexpr FixedPoint(long long value) : m_raw(value << Bits) {}
    constexpr FixedPoint(unsigned long long value) : FixedPoint(static_cast<long long>(value)) {}
    // Truncates toward zero.
    constexpr FixedPoint(double value) : m_raw(static_cast<long long>(value * static_cast<double>(1LL << Bits))) {}
    constexpr FixedPoint(long long raw, AlreadyFixed) : m_raw(raw) {}
    constexpr FixedPoint(MaxValue) : m_raw(0x7fffffffffffffffLL) {}

    // The integer part; a negative value goes down to the next integer.
    constexpr int intValue() const { return static_cast<int>(m_raw >> Bits); }
    constexpr unsigned int uintValue() const { return static_cast<unsigned int>(m_raw >> Bits); }
    constexpr unsigned int uint32Value() const { return static_cast<unsigned int>(m_raw >> Bits); }
    constexpr long long int64Value() const { return m_raw >> Bits; }
    constexpr unsigned long long uint64Value() const { return static_cast<unsigned long long>(m_raw >> Bits); }
    // The count itself.
    constexpr long long rawValue() const { return m_raw; }

    static constexpr long long fractionMask() { return (1LL << Bits) - 1; }

    // To the nearest integer; halves go up, also below zero.
    constexpr FixedPoint round() const {
        return FixedPoint(wrapAdd(m_raw, 1LL << (Bits - 1)) & ~fractionMask(), AlreadyFixed());
    }
    constexpr FixedPoint abs() const { return m_raw < 0 ? FixedPoint(wrapSub(0, m_raw), AlreadyFixed()) : *this; }

    constexpr FixedPoint& operator+=(const FixedPoint& other) {
        m_raw = wrapAdd(m_raw, other.m_raw);
        return *this;
    }
    constexpr FixedPoint& operator-=(const FixedPoint& other) {
        m_raw = wrapSub(m_raw, other.m_raw);
        return *this;
    }
    constexpr FixedPoint operator+(const FixedPoint& other) const { return FixedPoint(*this) += other; }
    constexpr FixedPoint operator-(const FixedPoint& other) const { return FixedPoint(*this) -= other; }
    constexpr FixedPoint operator-(unsigned int value) const { return *this - FixedPoint(value); }
    constexpr FixedPoint operator-(int value) const { return *this - FixedPoint(value); }

    friend constexpr bool operator==(const FixedPoint&, const FixedPoint&) = default;
    friend constexpr auto operator<=>(const FixedPoint&, const FixedPoint&) = default;

    constexpr FixedPoint operator*(const FixedPoint& other) const {
        if (magnitude(m_raw | other.m_raw) >> 31) return longProduct(other);
        return FixedPoint((m_raw * other.m_raw) >> Bits, AlreadyFixed());
    }
    constexpr FixedPoint operator*(int value) const { return *this * FixedPoint(value); }
    constexpr FixedPoint operator*(unsigned int value) const { return *this * FixedPoint(value); }
    friend constexpr FixedPoint operator*(unsigned int value, const FixedPoint& other) {
        return FixedPoint(value) * other;
    }
    friend constexpr FixedPoint operator*(int value, const FixedPoint& other) { return FixedPoint(value) * other; }

    // All divisions truncate toward zero.
    constexpr FixedPoint operator/(const FixedPoint& other) const {
        if (magnitude(abs().m_raw) >> (63 - Bits)) return longQuotient(other);
        return FixedPoint((m_raw << Bits) / other.m_raw, AlreadyFixed());
    }
    constexpr FixedPoint operator/(int value) const { return FixedPoint(m_raw / value, AlreadyFixed()); }
    constexpr FixedPoint operator/(unsigned int value) const {
        if (value >> 31) return *this / FixedPoint(value);
        return *this / static_cast<int>(value);
    }
    friend constexpr FixedPoint operator/(unsigned int value, const FixedPoint& other) {
        return FixedPoint(value) / other;
    }
    friend constexpr FixedPoint operator/(int value, const FixedPoint& other) { return FixedPoint(value) / other; }
    friend constexpr FixedPoint operator/(unsigned long long value, const FixedPoint& other) {
        return FixedPoint(value) / other;
    }

    // Whether the product with that number might not fit. The fraction doesn't count.
    constexpr bool checkProductOverflow(unsigned long long value) const {
        return Bitset::findLastSet(uint64Value()) + Bitset::findLastSet(value) + 2 > static_cast<int>(63 - Bits);
    }

    // The value in decimal, rounded to that many decimals; more than Bits of them are never needed nor given.
    // Gives: array text.
    AutoPtr<char> toString(unsigned int decimals) const;

private:
    static constexpr unsigned long long magnitude(long long raw) { return static_cast<unsigned long long>(raw); }

    static constexpr long long wrapAdd(long long a, long long b) {
        long long sum = 0;
        static_cast<void>(__builtin_add_overflow(a, b, &sum));
        return sum;
    }
    static constexpr long long wrapSub(long long a, long long b) {
        long long difference = 0;
        static_cast<void>(__builtin_sub_overflow(a, b, &difference));
        return difference;
    }
    static constexpr long long wrapMul(long long a, long long b) {
        long long product = 0;
        static_cast<void>(__builtin_mul_overflow(a, b, &product));
        return product;
    }

    // By parts, for numbers whose raw product may need more than 64 bits.
    constexpr FixedPoint longProduct(const FixedPoint& other) const {
        const long long fraction = m_raw & fractionMask();
        const long long otherFraction = other.m_raw & fractionMask();
        const long long raw = wrapAdd(wrapMul(other.m_raw, int64Value()), wrapMul(fraction, other.int64Value()));
        return FixedPoint(wrapAdd(raw, (fraction * otherFraction) >> Bits), AlreadyFixed());
    }

    // Integer part and rest apart, for a dividend that can't be shifted up.
    constexpr FixedPoint longQuotient(const FixedPoint& other) const {
        const long long quotient = m_raw / other.m_raw;
        const long long rest = ((m_raw - other.m_raw * quotient) << Bits) / other.m_raw;
        return FixedPoint(wrapAdd(quotient << Bits, rest), AlreadyFixed());
    }

    long long m_raw = 0;
};

template <>
MO_PUBLIC AutoPtr<char> FixedPoint<16>::toString(unsigned int decimals) const;
