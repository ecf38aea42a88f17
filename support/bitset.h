#pragma once

#include <bit>

// Questions about the bits of a number.
class Bitset {
public:
    // The index of the highest set bit, or -1 for 0.
    static constexpr int findLastSet(unsigned int bits) { return 31 - std::countl_zero(bits); }
    static constexpr int findLastSet(unsigned long long bits) { return 63 - std::countl_zero(bits); }
    static constexpr int findLastSet(unsigned long bits) { return findLastSet(static_cast<unsigned long long>(bits)); }
};
