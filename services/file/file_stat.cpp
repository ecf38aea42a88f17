#include "services/file/file_stat.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cerrno>

#include "services/file/file_calls.h"

namespace {

constexpr std::int64_t nsPerSecond = 1000000000;

template <class Time>
std::int64_t nanoseconds(const Time& time) {
    return static_cast<std::int64_t>(time.tv_sec) * nsPerSecond + static_cast<std::int64_t>(time.tv_nsec);
}

void fill(FileStat& stat, const struct statx& from) {
    stat.m_key.m_device = makedev(from.stx_dev_major, from.stx_dev_minor);
    stat.m_key.m_inode = from.stx_ino;
    stat.m_key.m_birth = (from.stx_mask & STATX_BTIME) != 0 ? nanoseconds(from.stx_btime) : 0;
    stat.m_modified = nanoseconds(from.stx_mtime);
    stat.m_size = from.stx_size;
    stat.m_mode = from.stx_mode;
    stat.m_undeletable = (from.stx_attributes & (STATX_ATTR_IMMUTABLE | STATX_ATTR_APPEND)) != 0;
}

void fill(FileStat& stat, const struct stat& from) {
    stat.m_key = FileKey{from.st_dev, from.st_ino, 0};
    stat.m_modified = nanoseconds(from.st_mtim);
    stat.m_size = static_cast<std::uint64_t>(from.st_size);
    stat.m_mode = from.st_mode;
    stat.m_undeletable = false;
}

// Containers may forbid the newer call and then answer ENOSYS or EPERM for it; they never do for the older one.
int statOldWay(int fd, const char* path, int flags, FileStat& stat) {
    struct stat found;
    if (::fstatat(fd, path, &found, flags & AT_EMPTY_PATH) != 0) return errno;
    fill(stat, found);
    return 0;
}

int statAt(int fd, const char* path, int flags, FileStat& stat) {
    for (;;) {
        struct statx found;
        if (!FileCalls::fails(FileCall::Stat, path, fd)) {
            if (::statx(fd, path, flags, STATX_BASIC_STATS | STATX_BTIME, &found) == 0) {
                fill(stat, found);
                return 0;
            }
            if (errno == ENOSYS || errno == EPERM) return statOldWay(fd, path, flags, stat);
        }
        if (errno != EINTR) return errno;
    }
}

}  // namespace

std::uint64_t hashOf(const FileKey& key) {
    return mixHash(mixHash(mixHash(0, key.m_device), key.m_inode), static_cast<std::uint64_t>(key.m_birth));
}

bool FileStat::isRegular() const { return S_ISREG(m_mode); }

bool FileStat::isFolder() const { return S_ISDIR(m_mode); }

std::uint64_t FileStat::version() const {
    std::uint64_t hash = mixHash(0, static_cast<std::uint64_t>(m_modified));
    hash = mixHash(hash, m_size);
    hash = mixHash(hash, m_key.m_inode);
    // The birth time tells a file from its predecessor of the same inode, size and copied modification time.
    hash = mixHash(hash, static_cast<std::uint64_t>(m_key.m_birth));
    return hash != 0 ? hash : 1;
}

int statPath(const char* path, FileStat& stat, bool sync) {
    return statAt(AT_FDCWD, path, sync ? AT_STATX_FORCE_SYNC : AT_STATX_SYNC_AS_STAT, stat);
}

int statFd(int fd, FileStat& stat) { return statAt(fd, "", AT_EMPTY_PATH, stat); }
