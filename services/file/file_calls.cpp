#include "services/file/file_calls.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace FileCalls {

std::atomic<FaultHook> s_fault{nullptr};

void setFault(FaultHook hook) { s_fault.store(hook, std::memory_order_release); }

bool failsSlowly(FileCall call, const char* path, int fd, std::size_t& size) {
    const FaultHook hook = s_fault.load(std::memory_order_acquire);
    const int error = hook != nullptr ? hook(call, path, fd, size) : 0;
    if (error == 0) return false;
    errno = error;
    return true;
}

int open(const char* path, int flags, unsigned mode) {
    for (;;) {
        const int fd = fails(FileCall::Open, path) ? -1 : ::open(path, flags, mode);
        if (fd >= 0 || errno != EINTR) return fd;
    }
}

// An interrupted close has closed the descriptor all the same; a second try could hit somebody else's.
void close(int fd) {
    std::size_t size = 0;
    fails(FileCall::Close, nullptr, fd, size);
    ::close(fd);
}

ssize_t readAt(int fd, void* memory, std::size_t size, std::uint64_t offset) {
    for (;;) {
        const ssize_t count =
            fails(FileCall::Read, nullptr, fd, size) ? -1 : ::pread(fd, memory, size, static_cast<off_t>(offset));
        if (count >= 0 || errno != EINTR) return count;
    }
}

ssize_t writeAt(int fd, const void* memory, std::size_t size, std::uint64_t offset) {
    for (;;) {
        const ssize_t count =
            fails(FileCall::Write, nullptr, fd, size) ? -1 : ::pwrite(fd, memory, size, static_cast<off_t>(offset));
        if (count >= 0 || errno != EINTR) return count;
    }
}

ssize_t readFully(int fd, void* memory, std::size_t size, std::uint64_t offset) {
    std::size_t done = 0;
    while (done < size) {
        const ssize_t count = readAt(fd, static_cast<char*>(memory) + done, size - done, offset + done);
        if (count < 0) return done > 0 ? static_cast<ssize_t>(done) : -1;
        if (count == 0) break;
        done += static_cast<std::size_t>(count);
    }
    return static_cast<ssize_t>(done);
}

ssize_t writeFully(int fd, const void* memory, std::size_t size, std::uint64_t offset) {
    std::size_t done = 0;
    while (done < size) {
        const ssize_t count = writeAt(fd, static_cast<const char*>(memory) + done, size - done, offset + done);
        if (count > 0) {
            done += static_cast<std::size_t>(count);
            continue;
        }
        if (count == 0) errno = EIO;
        return done > 0 ? static_cast<ssize_t>(done) : -1;
    }
    return static_cast<ssize_t>(done);
}

int sync(int fd) {
    for (;;) {
        const int result = fails(FileCall::Sync, nullptr, fd) ? -1 : ::fsync(fd);
        if (result == 0 || errno != EINTR) return result;
    }
}

static int setLock(int fd, short type) {
    struct flock range = {};
    range.l_type = type;
    range.l_whence = SEEK_SET;
    return ::fcntl(fd, F_OFD_SETLK, &range);
}

int lockWhole(int fd) { return fails(FileCall::Lock, nullptr, fd) ? -1 : setLock(fd, F_WRLCK); }

void unlockWhole(int fd) { setLock(fd, F_UNLCK); }

// The way for file systems that can't refuse a taken name: a link never replaces.
static int renameByLink(const char* from, const char* to) {
    if (fails(FileCall::Link, to) || ::link(from, to) != 0) return -1;
    if (!fails(FileCall::Unlink, from) && ::unlink(from) == 0) return 0;
    const int error = errno;
    ::unlink(to);
    errno = error;
    return -1;
}

int rename(const char* from, const char* to) {
    if (!fails(FileCall::Rename, from) && ::renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0) return 0;
    if (errno != EINVAL && errno != ENOSYS) return -1;
    return renameByLink(from, to);
}

int unlink(const char* path) { return fails(FileCall::Unlink, path) ? -1 : ::unlink(path); }

int makeFolder(const char* path) { return fails(FileCall::MakeFolder, path) ? -1 : ::mkdir(path, 0777); }

}  // namespace FileCalls
