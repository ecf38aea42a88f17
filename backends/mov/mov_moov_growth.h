#pragma once

#include <cstdint>
#include <vector>

// How a `moov` takes in a piece of the `free` atom that follows it in the file, as a `free` of its own. It goes by
// steps each of which changes one byte of a size, and behind each of them, whichever it is, the file is whole: the
// `free` is cut in two, maybe more than once, and then the `moov` ends behind the first part.
// Sizes that differ in one byte are what it needs, so not every pair of atoms has a way.
// **Units:** bytes; places count from the start of the `moov`.
namespace MovMoovGrowth {

// A write. Those of several bytes go where nobody looks.
struct Step {
    std::uint64_t m_at;
    std::vector<std::uint8_t> m_bytes;
};

struct Plan {
    std::uint64_t m_taken = 0;  // 0: there is no way
    std::vector<Step> m_steps;
};

// The way to a piece of `wanted` bytes or more, the smallest that there is one to. Both atoms have sizes of 32 bits.
Plan make(std::uint32_t moovSize, std::uint32_t freeSize, std::uint32_t wanted);

}  // namespace MovMoovGrowth
