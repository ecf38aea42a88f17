// Reads and writes of a file handle.

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <climits>

#include "services/buffer/obuf.h"
#include "services/file/file_cache_stat.h"
#include "services/file/file_calls.h"
#include "services/file/file_ops.h"
#include "services/file/fs_file_io.h"

namespace {

constexpr unsigned long long maxOffset = LLONG_MAX;
// Space is reserved behind the end of a file that has grown past the first of these, a sixteenth of it each time.
constexpr unsigned long long reserveFrom = 4ull << 20;
constexpr unsigned long long minReserve = 1ull << 20;
constexpr unsigned long long maxReserve = 16ull << 20;

}  // namespace

bool FsFileIO::checkRange(unsigned long long offset, unsigned long long size, const char* what) {
    if (size <= INT_MAX && offset <= maxOffset - size) return true;
    return refuse(EINVAL, what, "the range is too large");
}

bool FsFileIO::checkWrite(unsigned long long offset, unsigned long long size) {
    if (!reportWrites()) return false;
    if (!writable()) return refuse(EBADF, "write", "the handle is for reading only");
    return checkRange(offset, size, "write");
}

int FsFileIO::readAt(unsigned long long offset, void* memory, unsigned size) {
    if (!checkRange(offset, size, "read")) return -1;
    Use use(*this, Use::Open);
    if (use.fd() < 0) return -1;
    FileOps::Scope op(FileOps::Kind::Read, getFileId(), getPath(), offset, size);
    const ssize_t count = FileCalls::readFully(use.fd(), memory, size, offset);
    if (count < 0) {
        op.fail(errno);
        refuse(errno, "read");
        return -1;
    }
    lookAhead(use.fd(), offset + static_cast<unsigned>(count));
    return static_cast<int>(count);
}

int FsFileIO::read(void* memory, unsigned size) {
    const int count = readAt(m_position, memory, size);
    if (count > 0) m_position += static_cast<unsigned>(count);
    return count;
}

int FsFileIO::writeAt(unsigned long long offset, const void* memory, unsigned size) {
    if (!checkWrite(offset, size)) return -1;
    Use use(*this, Use::Open);
    if (use.fd() < 0) return -1;
    FileOps::Scope op(FileOps::Kind::Write, getFileId(), getPath(), offset, size);
    const ssize_t count = FileCalls::writeFully(use.fd(), memory, size, offset);
    if (count != static_cast<ssize_t>(size)) {
        op.fail(errno);
        refuse(errno, "write");
    }
    if (count > 0) reserveAhead(use.fd(), offset + static_cast<unsigned>(count));
    return static_cast<int>(count);
}

int FsFileIO::write(const void* memory, unsigned size) {
    const int count = writeAt(m_position, memory, size);
    if (count > 0) m_position += static_cast<unsigned>(count);
    return count;
}

bool FsFileIO::readAsync(const BasicIOTypes::ReadReq& request) {
    if (!checkRange(request.m_offset, request.m_size, "read")) return false;
    Use use(*this, Use::Open);
    if (use.fd() < 0) return false;
    lookAhead(use.fd(), request.m_offset + request.m_size);
    m_requests.fetch_add(1, std::memory_order_relaxed);
    if (AsyncEngine::get().read(*this, use.fd(), request, this)) return true;
    m_requests.fetch_sub(1, std::memory_order_release);
    return refuse(EAGAIN, "read", "the asynchronous engine refused");
}

bool FsFileIO::writeAsync(unsigned long long offset, phantom_OBUF* obuf) {
    const unsigned size = obufSize(obuf);
    if (!checkWrite(offset, size)) {
        obufFree(obuf);
        return false;
    }
    Use use(*this, Use::Open);
    if (use.fd() < 0) {
        obufFree(obuf);
        return false;
    }
    m_pendingBytes.fetch_add(size, std::memory_order_relaxed);
    m_pendingWrites.fetch_add(1, std::memory_order_relaxed);
    m_requests.fetch_add(1, std::memory_order_relaxed);
    if (AsyncEngine::get().write(*this, use.fd(), offset, obuf, *this)) return true;
    endWrite(size);
    return refuse(EAGAIN, "write", "the asynchronous engine refused");
}

void FsFileIO::readDone(int error) {
    if (error != 0) setLastError(error);
    m_requests.fetch_sub(1, std::memory_order_release);
}

// Space is reserved here, since the system call would hold up the one who hands the block over.
int FsFileIO::prepareWrite(int fd, unsigned long long end) {
    const int error = m_writeError.load(std::memory_order_relaxed);
    if (error == 0) reserveAhead(fd, end);
    return error;
}

// The first failure is the one that is told.
void FsFileIO::writeDone(unsigned long long, unsigned size, int error) {
    int none = 0;
    if (error != 0) m_writeError.compare_exchange_strong(none, error, std::memory_order_relaxed);
    if (error == 0) m_writesDone.fetch_add(1, std::memory_order_release);
    endWrite(size);
}

void FsFileIO::endWrite(unsigned size) {
    m_pendingBytes.fetch_sub(size, std::memory_order_relaxed);
    m_pendingWrites.fetch_sub(1, std::memory_order_release);
    m_requests.fetch_sub(1, std::memory_order_release);
}

// A failure is forgotten once nothing is left behind it: what is still under way was meant to follow what has failed.
bool FsFileIO::reportWrites() {
    int error = m_writeError.load(std::memory_order_relaxed);
    if (error == 0) return true;
    if (m_pendingWrites.load(std::memory_order_acquire) == 0)
        error = m_writeError.exchange(0, std::memory_order_relaxed);
    return error == 0 || refuse(error, "write");
}

bool FsFileIO::flush() {
    waitWritten();
    const bool written = reportWrites();
    Use use(*this, Use::IfOpen);
    if (use.fd() < 0) return written;
    FileOps::Scope op(FileOps::Kind::Flush, getFileId(), getPath(), 0, 0);
    if (FileCalls::sync(use.fd()) == 0) return written;
    op.fail(errno);
    return refuse(errno, "flush");
}

void FsFileIO::setLookAhead(unsigned bytes) { m_lookAhead.store(bytes, std::memory_order_relaxed); }

void FsFileIO::resetLookAhead() {
    m_lookAhead.store(0, std::memory_order_relaxed);
    m_aheadTo.store(0, std::memory_order_relaxed);
}

// Asks for more only when half of what was asked for is used up, so that a stream of small reads stays cheap.
void FsFileIO::lookAhead(int fd, unsigned long long end) {
    const unsigned bytes = m_lookAhead.load(std::memory_order_relaxed);
    if (bytes == 0) return;
    const unsigned long long wanted = end + bytes;
    const unsigned long long asked = m_aheadTo.load(std::memory_order_relaxed);
    const bool inStream = asked >= end && asked <= wanted;
    if (inStream && asked - end >= bytes / 2) return;
    const unsigned long long from = inStream ? asked : end;
    m_aheadTo.store(wanted, std::memory_order_relaxed);
    ::posix_fadvise(fd, static_cast<off_t>(from), static_cast<off_t>(wanted - from), POSIX_FADV_WILLNEED);
}

// A refusal costs nothing but the hint.
void FsFileIO::reserveAhead(int fd, unsigned long long end) {
    if (end < reserveFrom || end < m_reservedTo.load(std::memory_order_relaxed) || !isLarge()) return;
    const unsigned long long bytes = std::clamp(end / 16, minReserve, maxReserve);
    m_reservedTo.store(end + bytes, std::memory_order_relaxed);
    if (FileCalls::fails(FileCall::Reserve, getPath(), fd)) return;
    ::fallocate(fd, FALLOC_FL_KEEP_SIZE, static_cast<off_t>(end), static_cast<off_t>(bytes));
}

bool FsFileIO::isCached(unsigned long long offset, unsigned size) {
    Use use(*this, Use::Open);
    return use.fd() >= 0 && isRangeCached(use.fd(), offset, size);
}

unsigned long long FsFileIO::getCachedBytes() {
    Use use(*this, Use::IfOpen);
    FileCacheStat stat;
    return use.fd() >= 0 && statCache(use.fd(), 0, 0, stat) ? stat.m_cached : 0;
}

unsigned long long FsFileIO::getDirtyBytes() {
    Use use(*this, Use::IfOpen);
    FileCacheStat stat;
    return use.fd() >= 0 && statCache(use.fd(), 0, 0, stat) ? stat.m_dirty : 0;
}

void FsFileIO::dropCached() {
    Use use(*this, Use::IfOpen);
    if (use.fd() >= 0) ::posix_fadvise(use.fd(), 0, 0, POSIX_FADV_DONTNEED);
}
