#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// The decoder's configuration of a stream of AVC (`avcC`), from the first access unit that has parameter sets. Units
// are behind lengths of four bytes. Source: ISO/IEC 14496-15 and 14496-10.
namespace MovAvcSets {

// Empty unless the access unit has a sequence's and a picture's parameter set.
std::vector<std::uint8_t> configurationOf(const std::uint8_t* bytes, std::size_t size);

}  // namespace MovAvcSets
