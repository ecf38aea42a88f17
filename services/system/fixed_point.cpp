#include "support/fixed_point.h"

#include <algorithm>
#include <cstdint>

#include "services/system/format_str.h"

namespace {

constexpr unsigned int s_fractionBits = 16;
constexpr std::uint64_t s_fractionUnit = 1u << s_fractionBits;

// Writes the decimals of a fraction, and answers whether the rest is a half or more.
bool writeDecimals(std::uint64_t fraction, char* digits, unsigned int count) {
    for (unsigned int i = 0; i < count; ++i) {
        fraction *= 10;
        digits[i] = static_cast<char>('0' + (fraction >> s_fractionBits));
        fraction &= s_fractionUnit - 1;
    }
    return fraction >= s_fractionUnit / 2;
}

// Adds one to the last decimal, and answers whether it carries into the integer part.
bool roundUp(char* digits, unsigned int count) {
    for (unsigned int i = count; i > 0; --i) {
        if (digits[i - 1] != '9') {
            ++digits[i - 1];
            return false;
        }
        digits[i - 1] = '0';
    }
    return true;
}

}  // namespace

template <>
AutoPtr<char> FixedPoint<16>::toString(unsigned int decimals) const {
    // Sixteen decimals are exact.
    const unsigned int count = std::min(decimals, s_fractionBits);
    const std::uint64_t size = magnitude(abs().m_raw);
    std::uint64_t integer = size >> s_fractionBits;
    char digits[s_fractionBits + 1] = {};
    if (writeDecimals(size & (s_fractionUnit - 1), digits, count) && roundUp(digits, count)) ++integer;

    const bool isZero = integer == 0 && std::all_of(digits, digits + count, [](char c) { return c == '0'; });
    FormatStr text("%s%llu", m_raw < 0 && !isZero ? "-" : "", static_cast<unsigned long long>(integer));
    if (count > 0) text.format(".%s", digits);
    return text;
}
