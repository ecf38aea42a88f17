#include "tools/byte_output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "shared/include/object/core_subsystem.h"
#include "tools/interrupt.h"

namespace {

constexpr int s_pipeBytes = 1 << 20;

// Whether the file is one of those that the movie lives in.
bool belongsTo(const MediaObj& movie, const struct stat& file) {
    for (unsigned i = 0; i < movie.getMediaCount(); ++i) {
        struct stat other;
        if (::stat(movie.getPath(movie.getMediaId(i)), &other) != 0) continue;
        if (other.st_dev == file.st_dev && other.st_ino == file.st_ino) return true;
    }
    return false;
}

// Cuts the pieces down to `bytes`; answers how many of them are left.
int cut(iovec* pieces, int count, std::size_t bytes) {
    for (int i = 0; i < count; ++i) {
        pieces[i].iov_len = std::min(pieces[i].iov_len, bytes);
        bytes -= pieces[i].iov_len;
        if (bytes == 0) return i + 1;
    }
    return count;
}

}  // namespace

ByteOutput::~ByteOutput() {
    if (m_owned) ::close(m_fd);
}

std::optional<Failure> ByteOutput::open(const std::string& target, const MediaObj& source) {
    const bool isStandard = target.empty() || target == "-";
    m_name = isStandard ? "standard output" : target;
    if (!isStandard) return openFile(target, source);
    m_fd = STDOUT_FILENO;
    // A shell may have opened the movie itself for appending.
    struct stat file;
    if (::fstat(m_fd, &file) == 0 && S_ISREG(file.st_mode) && belongsTo(source, file)) {
        return Failure::usage("standard output is a file of the movie itself");
    }
    // Fewer wake-ups of the reader; without room for it the pipe stays as it is.
    ::fcntl(m_fd, F_SETPIPE_SZ, s_pipeBytes);
    return std::nullopt;
}

std::optional<Failure> ByteOutput::openFile(const std::string& target, const MediaObj& source) {
    m_fd = ::open(target.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOCTTY, 0666);
    if (m_fd < 0) {
        const int error = errno;
        const bool isFull = error == ENOSPC || error == EDQUOT || error == EIO;
        return Failure::system(isFull ? MediaCode::WriteError : MediaCode::FileNotWritable, target, error);
    }
    m_owned = true;
    struct stat file;
    if (::fstat(m_fd, &file) != 0 || !S_ISREG(file.st_mode)) return std::nullopt;
    if (belongsTo(source, file)) return Failure::usage("-o " + target + ": this is a file of the movie itself");
    // Emptied only now that it is known not to be the source.
    if (::ftruncate(m_fd, 0) != 0) return Failure::system(MediaCode::WriteError, target, errno);
    return std::nullopt;
}

int ByteOutput::write(const phantom_OBUF* data, unsigned bytes) {
    std::array<iovec, 512> pieces;
    int count = cut(pieces.data(), obufNTranslateHost(data, pieces.data(), static_cast<int>(pieces.size())), bytes);
    for (iovec* at = pieces.data(); count > 0;) {
        const ssize_t done = ::writev(m_fd, at, count);
        if (done < 0 && errno != EINTR) return errno;
        if (done < 0 && Interrupt::isPending()) return EINTR;
        if (done < 0) continue;
        m_written += static_cast<unsigned long long>(done);
        auto rest = static_cast<std::size_t>(done);
        for (; count > 0 && rest >= at->iov_len; ++at, --count)
            rest -= at->iov_len;
        if (count == 0) break;
        at->iov_base = static_cast<char*>(at->iov_base) + rest;
        at->iov_len -= rest;
    }
    return 0;
}

int ByteOutput::close() {
    if (!m_owned) return 0;
    m_owned = false;
    return ::close(m_fd) == 0 || errno == EINTR ? 0 : errno;
}
