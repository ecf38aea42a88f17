#include "services/file/file_cache_stat.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>

#ifndef SYS_cachestat
#define SYS_cachestat 451
#endif

namespace {

struct CacheRange {
    std::uint64_t m_offset;
    std::uint64_t m_size;
};

struct CacheAnswer {
    std::uint64_t m_cached;
    std::uint64_t m_dirty;
    std::uint64_t m_writeback;
    std::uint64_t m_evicted;
    std::uint64_t m_recentlyEvicted;
};

std::atomic<bool> s_haveCachestat{true};

bool askKernel(int fd, std::uint64_t offset, std::uint64_t size, FileCacheStat& stat) {
    if (!s_haveCachestat.load(std::memory_order_relaxed)) return false;
    CacheRange range{offset, size};
    CacheAnswer answer{};
    if (::syscall(SYS_cachestat, fd, &range, &answer, 0u) != 0) {
        if (errno == ENOSYS || errno == EPERM) s_haveCachestat.store(false, std::memory_order_relaxed);
        return false;
    }
    stat.m_cached = answer.m_cached * pageBytes();
    stat.m_dirty = (answer.m_dirty + answer.m_writeback) * pageBytes();
    return true;
}

// Counts resident pages of one window of at most 1 MiB.
bool countWindow(int fd, std::uint64_t offset, std::uint64_t size, std::uint64_t& pages) {
    void* const memory = ::mmap(nullptr, size, PROT_READ, MAP_SHARED, fd, static_cast<off_t>(offset));
    if (memory == MAP_FAILED) return false;
    unsigned char flags[256];
    const bool told = ::mincore(memory, size, flags) == 0;
    const std::uint64_t count = (size + pageBytes() - 1) / pageBytes();
    for (std::uint64_t i = 0; told && i < count; ++i)
        pages += flags[i] & 1u;
    ::munmap(memory, size);
    return told;
}

// The way for kernels before 6.5.
bool countPages(int fd, std::uint64_t offset, std::uint64_t end, FileCacheStat& stat) {
    const std::uint64_t window = pageBytes() * 256;
    std::uint64_t pages = 0;
    for (std::uint64_t at = offset / pageBytes() * pageBytes(); at < end; at += window) {
        if (!countWindow(fd, at, std::min(window, end - at), pages)) return false;
    }
    stat.m_cached = pages * pageBytes();
    stat.m_dirty = 0;
    return true;
}

std::uint64_t endOfFile(int fd) {
    struct stat found;
    return ::fstat(fd, &found) == 0 ? static_cast<std::uint64_t>(found.st_size) : 0;
}

}  // namespace

std::uint64_t pageBytes() {
    static const std::uint64_t bytes = static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
    return bytes;
}

bool statCache(int fd, std::uint64_t offset, std::uint64_t size, FileCacheStat& stat) {
    if (askKernel(fd, offset, size, stat)) return true;
    const std::uint64_t end = endOfFile(fd);
    return countPages(fd, offset, size == 0 ? end : std::min(end, offset + size), stat);
}

bool isRangeCached(int fd, std::uint64_t offset, std::uint64_t size) {
    const std::uint64_t end = endOfFile(fd);
    if (size == 0 || offset >= end) return size == 0;
    const std::uint64_t last = offset + std::min(size, end - offset) - 1;
    const std::uint64_t needed = (last / pageBytes() - offset / pageBytes() + 1) * pageBytes();
    FileCacheStat stat;
    return statCache(fd, offset, last - offset + 1, stat) && stat.m_cached >= needed;
}
