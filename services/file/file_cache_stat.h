#pragma once

#include <cstdint>

// How much of a file the system holds in memory.
struct FileCacheStat {
    std::uint64_t m_cached = 0;  // bytes, whole pages
    std::uint64_t m_dirty = 0;   // bytes that the device hasn't got yet; 0 where the kernel doesn't tell
};

// What the system holds of the range; a size of 0 is up to the end of the file. False when it can't be found out.
bool statCache(int fd, std::uint64_t offset, std::uint64_t size, FileCacheStat& stat);
// True when the whole range, as far as the file has it, is in memory.
bool isRangeCached(int fd, std::uint64_t offset, std::uint64_t size);
// The size of a page of memory.
std::uint64_t pageBytes();
