#pragma once

#include <cstdint>

#include "support/visibility.h"

// Which file this is, whatever its name. An inode number that the system has used again has another birth time.
struct FileKey {
    std::uint64_t m_device = 0;
    std::uint64_t m_inode = 0;
    std::int64_t m_birth = 0;  // ns since 1970; 0 where the file system doesn't keep it

    friend bool operator==(const FileKey&, const FileKey&) = default;
};

// Mixes a value into a hash.
constexpr std::uint64_t mixHash(std::uint64_t hash, std::uint64_t value) {
    std::uint64_t x = hash ^ (value + 0x9E3779B97F4A7C15ull + (hash << 6) + (hash >> 2));
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
    return x ^ (x >> 31);
}

std::uint64_t hashOf(const FileKey& key);

// What the system says about a file.
struct FileStat {
    FileKey m_key;
    std::int64_t m_modified = 0;  // ns since 1970
    std::uint64_t m_size = 0;     // bytes
    std::uint32_t m_mode = 0;     // kind and permissions, as the system has them
    bool m_undeletable = false;   // an attribute forbids its removal

    bool isRegular() const;
    bool isFolder() const;
    // Differs whenever the content may differ; never 0. The time of the last change of attributes is left out: a rename
    // or a new permission is no change of the content.
    std::uint64_t version() const;
};

// Each answers 0 or an errno value. `sync` asks a network file system's server.
int statPath(const char* path, FileStat& stat, bool sync = false);
int statFd(int fd, FileStat& stat);
