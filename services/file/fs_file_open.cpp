// The descriptor of a file handle: opening, keeping it open while it is used, closing.

#include <fcntl.h>

#include <cerrno>
#include <cstdio>

#include "services/file/file_calls.h"
#include "services/file/file_system_kind.h"
#include "services/file/fs_file_io.h"
#include "support/clock.h"

using ZarnexPosix::JMutex;
using Scope = ZarnexPosix::ScopeLock<JMutex>;

namespace {

constexpr unsigned long long headBytes = 1 << 20;  // what is dropped from the cache before a re-parse

// What is waited for takes microseconds as a rule; after that it is polled for.
template <class Done>
void waitUntil(Done done) {
    for (int i = 0; i < 200; ++i) {
        if (done()) return;
        WordWait::relax();
    }
    for (;;) {
        // On an engine's thread, in a hook: what is waited for may be in this thread's own hands.
        AsyncEngine::serveMeanwhile();
        if (done()) return;
        waitMsec(1);
    }
}

}  // namespace

int FsFileIO::getFlags() const {
    const int access = writable() ? O_RDWR : O_RDONLY;
    // A name may have been given to a pipe since it was looked at: opening that must not wait for its other end.
    return access | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
}

int FsFileIO::openChecked(const char* path, int flags, FileStat& stat) const {
    const int fd = FileCalls::open(path, flags, 0666);
    if (fd < 0) return -errno;
    int error = statFd(fd, stat);
    if (error == 0 && !stat.isRegular()) error = stat.isFolder() ? EISDIR : ENOTSUP;
    if (error == 0) {
        // The asynchronous engine takes the flag as a wish not to wait for the device.
        ::fcntl(fd, F_SETFL, 0);
        return fd;
    }
    FileCalls::close(fd);
    return -error;
}

// Looks before it opens, since the mere opening of a device may do something. Between the two the name may be given to
// another file; then it is looked at again.
int FsFileIO::openFile(FileStat& stat) {
    constexpr int attempts = 3;
    for (int i = 0;; ++i) {
        FileStat seen;
        const int error = i == 0 ? look(seen) : lookAnew(seen);
        const bool create = error == ENOENT && getMode() == BasicIOTypes::Mode::Create && m_ref.hasPath();
        if (error != 0 && !create) return -error;
        const int fd = openChecked(getPath(), getFlags() | (create ? O_CREAT : 0), stat);
        const bool last = i + 1 == attempts;
        if (fd < 0 && (fd != -ENOENT || last)) return fd;
        if (fd >= 0 && (create || last || stat.m_key == seen.m_key)) return fd;
        if (fd >= 0) FileCalls::close(fd);
    }
}

// The name may show another file by now, or none; the descriptor of the one who has the file open leads to it for sure.
int FsFileIO::openTwin(int held, const FileKey& key, FileStat& stat) {
    const int fd = openFile(stat);
    if (fd >= 0 && stat.m_key == key) return fd;
    if (fd >= 0) FileCalls::close(fd);
    char link[32];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", held);
    return openChecked(link, getFlags(), stat);
}

void FsFileIO::install(int fd) {
    FileIdentity* const identity = m_ref.identity();
    if (identity != nullptr) identity->addOpen(m_link, fd);
    m_aheadTo.store(0, std::memory_order_relaxed);
    m_reservedTo.store(0, std::memory_order_relaxed);
    applyHints(fd);
    m_fdWritable.store(writable(), std::memory_order_relaxed);
    const std::uint64_t generation = generationOf(m_slot.load(std::memory_order_relaxed));
    m_slot.store(generation << 32 | (static_cast<std::uint32_t>(fd) + 1), std::memory_order_seq_cst);
}

void FsFileIO::applyHints(int fd) {
    const bool stream = m_cacheAdvice.load(std::memory_order_relaxed) == BasicIOTypes::CacheAdvice::Stream;
    if (stream || isLarge()) ::posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
    const bool distrust = m_distrust.exchange(false, std::memory_order_relaxed);
    if (distrust && hasUnseenWriters(fd)) ::posix_fadvise(fd, 0, headBytes, POSIX_FADV_DONTNEED);
}

bool FsFileIO::isLarge() const {
    constexpr auto large = BasicIOTypes::SizeAdvice::LargeStripe;
    if (m_advice.load(std::memory_order_relaxed) == large) return true;
    const FileIdentity* const identity = m_ref.identity();
    return identity != nullptr &&
           identity->m_keptAdvice.load(std::memory_order_relaxed) == static_cast<std::uint32_t>(large);
}

bool FsFileIO::open() {
    Scope lock(m_openLock);
    if (isOpen()) return true;
    FileStat stat;
    const int fd = openFile(stat);
    if (fd < 0) return refuse(-fd, "open");
    const BasicIOTypes::SizeAdvice advice = m_advice.load(std::memory_order_relaxed);
    // An advice from before the file was there is kept with it only now.
    const bool late = m_ref.identity() == nullptr && advice != BasicIOTypes::SizeAdvice::None;
    if (m_ref.bind(stat) && late) storeAdvice(advice);
    install(fd);
    return true;
}

bool FsFileIO::openLike(FsFileIO& held) {
    Use use(held, Use::IfOpen);
    FileStat wanted;
    if (use.fd() < 0 || statFd(use.fd(), wanted) != 0) return open();
    Scope lock(m_openLock);
    if (isOpen()) return true;
    FileStat stat;
    const int fd = openTwin(use.fd(), wanted.m_key, stat);
    if (fd < 0) return refuse(-fd, "open");
    install(fd);
    return true;
}

bool FsFileIO::statOpen(FileStat& stat) {
    Use use(*this, Use::IfOpen);
    return use.fd() >= 0 && statFd(use.fd(), stat) == 0;
}

bool FsFileIO::isAtPath() {
    FileStat open;
    FileStat there;
    return statOpen(open) && statPath(getPath(), there) == 0 && open.m_key == there.m_key;
}

bool FsFileIO::claim() {
    const int error = m_claim.take(*this);
    if (error != 0) setLastError(error);
    return error == 0;
}

int FsFileIO::duplicate() {
    Use use(*this, Use::IfOpen);
    if (use.fd() >= 0) return ::fcntl(use.fd(), F_DUPFD_CLOEXEC, 0);
    errno = EBADF;
    return -1;
}

std::uint64_t FsFileIO::beginUse(Use::Kind kind) {
    for (;;) {
        const std::uint64_t slot = m_slot.load(std::memory_order_acquire);
        if (fdOf(slot) < 0) {
            if (kind == Use::IfOpen || !open()) return 0;
            continue;
        }
        m_users[generationOf(slot) % 2].fetch_add(1, std::memory_order_seq_cst);
        if (m_slot.load(std::memory_order_seq_cst) == slot) return slot;
        endUse(slot);
    }
}

void FsFileIO::waitWritten() const {
    waitUntil([this] { return m_pendingWrites.load(std::memory_order_acquire) == 0; });
}

// The lock is not held over the wait: what is waited for may want to open the file again. A call that began before
// counts its request before it ends, so the requests are looked at last.
void FsFileIO::closeDescriptor() {
    std::uint64_t slot = 0;
    {
        Scope lock(m_openLock);
        slot = m_slot.load(std::memory_order_relaxed);
        if (fdOf(slot) < 0) return;
        m_slot.store(static_cast<std::uint64_t>(generationOf(slot) + 1) << 32, std::memory_order_seq_cst);
        FileIdentity* const identity = m_ref.identity();
        if (identity != nullptr) identity->removeOpen(m_link);
    }
    const std::atomic<unsigned>& users = m_users[generationOf(slot) % 2];
    waitUntil([&users] { return users.load(std::memory_order_seq_cst) == 0; });
    waitUntil([this] { return m_requests.load(std::memory_order_acquire) == 0; });
    FileCalls::close(fdOf(slot));
}

bool FsFileIO::close() {
    closeDescriptor();
    m_position = 0;
    return reportWrites();
}

bool FsFileIO::drain() {
    waitWritten();
    return reportWrites();
}

// A descriptor that may write serves a reader as well; only the other way round it has to be opened anew.
void FsFileIO::modeChanged() {
    if (writable() && !m_fdWritable.load(std::memory_order_relaxed)) closeDescriptor();
}

void FsFileIO::adviseReparse(int value) {
    if (value != 1) return;
    refresh();
    m_distrust.store(true, std::memory_order_relaxed);
    Use use(*this, Use::IfOpen);
    if (use.fd() >= 0) applyHints(use.fd());
}

void FsFileIO::advise(BasicIOTypes::CacheAdvice advice) {
    m_cacheAdvice.store(advice, std::memory_order_relaxed);
    Use use(*this, Use::IfOpen);
    if (use.fd() >= 0) applyHints(use.fd());
}
