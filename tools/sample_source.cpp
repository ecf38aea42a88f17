#include "tools/sample_source.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "shared/include/object/core_subsystem.h"
#include "support/clock.h"
#include "tools/interrupt.h"

namespace {

constexpr unsigned s_step = 20;  // ms of a wait, between two looks for a signal

}  // namespace

SampleSource::~SampleSource() {
    if (m_owned) ::close(m_fd);
}

std::optional<Failure> SampleSource::open(const std::string& path) {
    const bool isStandard = path == "-";
    m_name = isStandard ? "standard input" : path;
    m_fd = isStandard ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
    if (m_fd < 0) {
        const bool isMissing = errno == ENOENT || errno == ENOTDIR;
        return Failure::system(isMissing ? MediaCode::FileNonExistent : MediaCode::FileNotReadable, path, errno);
    }
    m_owned = !isStandard;
    struct stat state {};
    if (::fstat(m_fd, &state) != 0) return std::nullopt;
    if (S_ISDIR(state.st_mode))
        return Failure::make(ExitCode::BadFile, MediaCode::UnsupportedMediaType, m_name, "it is a folder");
    if (S_ISREG(state.st_mode)) m_size = static_cast<unsigned long long>(state.st_size);
    return std::nullopt;
}

bool SampleSource::peek(unsigned char* memory, std::size_t size, std::optional<Failure>& failure) {
    std::size_t bytes = 0;
    read(memory, size, bytes, failure);
    m_ahead.assign(reinterpret_cast<const char*>(memory), bytes);
    return bytes == size;
}

bool SampleSource::read(unsigned char* memory, std::size_t size, std::size_t& bytes, std::optional<Failure>& failure) {
    bytes = std::min(size, m_ahead.size());
    std::copy_n(m_ahead.data(), bytes, memory);
    m_ahead.erase(0, bytes);
    while (bytes < size) {
        const ssize_t count = ::read(m_fd, memory + bytes, size - bytes);
        if (count > 0) bytes += static_cast<std::size_t>(count);
        if (count == 0) return false;
        if (count >= 0) continue;
        if (errno == EINTR && !Interrupt::isPending()) continue;
        if (errno != EINTR) failure = Failure::system(MediaCode::ReadError, m_name, errno);
        return errno == EINTR;
    }
    return true;
}

void Pace::waitFor(unsigned long long samples) const {
    if (m_rate <= 0) return;
    const auto due = m_start + std::chrono::duration<double>(static_cast<double>(samples) / m_rate);
    while (!Interrupt::isPending()) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(due - std::chrono::steady_clock::now()).count();
        if (left <= 0) return;
        waitMsec(static_cast<unsigned>(std::min<long long>(left, s_step)));
    }
}
