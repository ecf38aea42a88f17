#pragma once

// What the measurements of movies share: a folder of WAV files that lie in the page cache, and as many descriptors as
// the process may have.

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <limits>

#include "bench/bench_kit.h"
#include "mediautil/cache/cached_media_obj.h"
#include "shared/include/object/media_obj.h"

namespace bench {

[[noreturn]] inline void fail(const char* what, const std::string& about) {
    std::fprintf(stderr, "%s: %s: %s\n", what, about.c_str(), std::strerror(errno));
    std::exit(1);
}

// Raises the limit of open files as far as it goes. Answers it.
inline unsigned raiseOpenFiles() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return 0;
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
    return static_cast<unsigned>(std::min<rlim_t>(limit.rlim_cur, 1u << 20));
}

// A folder that goes with all that is in it.
class Folder {
public:
    explicit Folder(const Options& options) {
        std::string name = options.m_folder + "/mediacore-bench-XXXXXX";
        if (::mkdtemp(name.data()) == nullptr) fail("mkdtemp", name);
        m_root = name;
    }
    ~Folder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_root, ignored);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    std::string path(const std::string& name) const { return m_root + "/" + name; }

private:
    std::string m_root;
};

constexpr unsigned s_wavBlock = 4;  // bytes of one sample of both channels
constexpr unsigned s_wavRate = 48000;

// 48 kHz, two channels of 16 bits. A chunk that nobody needs moves the essence to `dataAt`; 44 is a file without it.
inline std::string wavHeader(unsigned dataBytes, unsigned dataAt) {
    std::string bytes;
    const auto number = [&bytes](std::uint32_t value, unsigned count) {
        for (unsigned i = 0; i < count; ++i)
            bytes += static_cast<char>(value >> (8 * i));
    };
    bytes += "RIFF", number(dataAt - 8 + dataBytes, 4), bytes += "WAVEfmt ", number(16, 4);
    number(1, 2), number(2, 2), number(s_wavRate, 4), number(s_wavRate * s_wavBlock, 4), number(s_wavBlock, 2),
        number(16, 2);
    if (dataAt > 52) bytes += "JUNK", number(dataAt - 52, 4), bytes.append(dataAt - 52, ' ');
    bytes += "data", number(dataBytes, 4);
    return bytes;
}

// Out of the cache and in again by large steps, so that every case reads the same large folios.
inline void loadFile(int fd, unsigned long long size) {
    ::fdatasync(fd);
    ::posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED);
    std::vector<unsigned char> block(1 << 20);
    for (unsigned long long at = 0; at < size; at += block.size()) {
        if (::pread(fd, block.data(), block.size(), static_cast<off_t>(at)) <= 0) std::abort();
    }
}

inline void writeWav(const std::string& path, unsigned dataBytes, unsigned dataAt = 44) {
    const std::string header = wavHeader(dataBytes, dataAt);
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0 || ::write(fd, header.data(), header.size()) < 0) fail("write", path);
    std::vector<unsigned char> block(std::min(dataBytes, 1u << 20));
    for (std::size_t i = 0; i < block.size(); ++i)
        block[i] = static_cast<unsigned char>(i * 131 >> 3);
    for (unsigned at = 0; at < dataBytes; at += static_cast<unsigned>(block.size())) {
        if (::write(fd, block.data(), std::min<std::size_t>(block.size(), dataBytes - at)) < 0) fail("write", path);
    }
    if (dataBytes >= 1u << 20) loadFile(fd, header.size() + dataBytes);
    ::close(fd);
}

// Many short recordings. Answers their paths.
inline std::vector<std::string> writeWavs(const Folder& folder, unsigned count, unsigned dataBytes = 4800) {
    std::vector<std::string> paths;
    for (unsigned i = 0; i < count; ++i) {
        paths.push_back(folder.path("take" + std::to_string(i) + ".wav"));
        writeWav(paths.back(), dataBytes);
    }
    return paths;
}

inline MediaObj* openMovie(const std::string& path) {
    OpResult result;
    MediaObj* const object = MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadOnly, result);
    if (object == nullptr)
        fail("openReader", path + ": " + (result.getMessage() != nullptr ? result.getMessage() : ""));
    return object;
}

// The cache lets go of everything that nobody holds, as if much time had gone by.
inline void expireMovies() {
    CachedMediaObj::getRef()->expireZombies(std::numeric_limits<long long>::max() / 2, nullptr);
}

// Seconds of the thread for an open with nothing of the file in the cache.
inline double firstOpen(const std::string& path) {
    const double begin = threadSeconds();
    openMovie(path)->release();
    const double spent = threadSeconds() - begin;
    expireMovies();
    return spent;
}

// The mean of many of them.
inline std::function<double()> firstOpens(const std::string& path, bool quick) {
    const unsigned count = quick ? 4 : 200;
    return [path, count] {
        double spent = 0;
        for (unsigned i = 0; i < count; ++i)
            spent += firstOpen(path);
        return spent / count;
    };
}

// Numbers below a limit in an order that no prefetcher foresees; cheap enough to stand inside a measured loop.
class Random {
public:
    explicit Random(std::uint64_t seed = 1) : m_state(seed * 0x9E3779B97F4A7C15ull + 1) {}
    std::uint32_t below(std::uint32_t limit) {
        m_state = m_state * 6364136223846793005ull + 1442695040888963407ull;
        return static_cast<std::uint32_t>((m_state >> 32) * limit >> 32);
    }

private:
    std::uint64_t m_state;
};

}  // namespace bench
