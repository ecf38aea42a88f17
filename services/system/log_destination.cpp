#include "services/system/log_destination.h"

#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

struct Date {
    int m_year;
    unsigned m_month;
    unsigned m_day;
};

// The calendar date of a day counted from 1970-01-01. Worked out here, since gmtime_r reads the time zone's files under
// a lock.
Date toDate(std::int64_t day) {
    const std::int64_t shifted = day + 719468;
    const std::int64_t era = (shifted >= 0 ? shifted : shifted - 146096) / 146097;
    const unsigned dayOfEra = static_cast<unsigned>(shifted - era * 146097);
    const unsigned year = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const unsigned dayOfYear = dayOfEra - (365 * year + year / 4 - year / 100);
    const unsigned month = (5 * dayOfYear + 2) / 153;
    Date date;
    date.m_day = dayOfYear - (153 * month + 2) / 5 + 1;
    date.m_month = month < 10 ? month + 3 : month - 9;
    date.m_year = static_cast<int>(year + static_cast<unsigned>(era * 400)) + (date.m_month <= 2 ? 1 : 0);
    return date;
}

int formatHead(const LogMessage& message, char* head, std::size_t size) {
    const std::int64_t seconds = message.m_time / 1000000;
    const unsigned micros = static_cast<unsigned>(message.m_time % 1000000);
    const unsigned ofDay = static_cast<unsigned>(seconds % 86400);
    const Date date = toDate(seconds / 86400);
    return std::snprintf(head, size, "%04d-%02u-%02uT%02u:%02u:%02u.%06uZ %-7s [%s %u] ", date.m_year, date.m_month,
                         date.m_day, ofDay / 3600, ofDay / 60 % 60, ofDay % 60, micros,
                         getLogLevelName(message.m_level), message.m_threadName, message.m_threadId);
}

iovec piece(const char* text, std::size_t length) { return {const_cast<char*>(text), length}; }

// Keeps a closed pipe at the other end of standard error from ending the process, for this thread's writes only.
class PipeSignalHeld {
public:
    PipeSignalHeld() {
        ::sigemptyset(&m_pipe);
        ::sigaddset(&m_pipe, SIGPIPE);
        ::pthread_sigmask(SIG_BLOCK, &m_pipe, &m_before);
    }
    ~PipeSignalHeld() {
        // Who blocks it already takes it himself, or never.
        if (::sigismember(&m_before, SIGPIPE) == 1) return;
        const timespec atOnce = {};
        while (::sigtimedwait(&m_pipe, nullptr, &atOnce) < 0 && errno == EINTR) {
        }
        ::pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
    }
    PipeSignalHeld(const PipeSignalHeld&) = delete;
    PipeSignalHeld& operator=(const PipeSignalHeld&) = delete;

private:
    sigset_t m_pipe;
    sigset_t m_before;
};

// Goes over what is written already.
void advance(iovec*& pieces, int& count, std::size_t written) {
    while (count > 0 && written >= pieces->iov_len) {
        written -= pieces->iov_len;
        ++pieces;
        --count;
    }
    if (count == 0) return;
    pieces->iov_base = static_cast<char*>(pieces->iov_base) + written;
    pieces->iov_len -= written;
}

// A line that a signal cuts in two goes on. A full pipe that doesn't block loses a line that hasn't begun; one that has
// is waited for a little, so that the next doesn't start in the middle of it.
void writeAll(int file, iovec* pieces, int count) {
    constexpr int patienceMsec = 100;
    bool begun = false;
    while (count > 0) {
        const ssize_t written = ::writev(file, pieces, count);
        if (written > 0) {
            begun = true;
            advance(pieces, count, static_cast<std::size_t>(written));
            continue;
        }
        if (written < 0 && errno == EINTR) continue;
        pollfd room = {file, POLLOUT, 0};
        if (written == 0 || errno != EAGAIN || !begun || ::poll(&room, 1, patienceMsec) <= 0) return;
    }
}

// The numbers of syslog.
int getPriority(LogLevel level) {
    switch (level) {
        case LogLevel::Error:
            return 3;
        case LogLevel::Warning:
            return 4;
        case LogLevel::Info:
            return 6;
        default:
            return 7;
    }
}

}  // namespace

void writeLogToStandardError(const LogMessage& message) {
    char head[128];
    const int length = formatHead(message, head, sizeof(head));
    if (length <= 0) return;
    const std::size_t headLength =
        static_cast<std::size_t>(length) < sizeof(head) ? static_cast<std::size_t>(length) : sizeof(head) - 1;
    iovec pieces[] = {piece(head, headLength), piece(message.m_text, message.m_length), piece("\n", 1)};
    PipeSignalHeld held;
    writeAll(STDERR_FILENO, pieces, 3);
}

int JournalLog::openSocket() {
    const int open = m_socket.load(std::memory_order_acquire);
    if (open >= 0) return open;
    const int made = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (made < 0) return made;
    int expected = -1;
    if (m_socket.compare_exchange_strong(expected, made, std::memory_order_acq_rel)) return made;
    ::close(made);
    return expected;
}

bool JournalLog::write(const LogMessage& message) {
    const int socket = openSocket();
    if (socket < 0) return false;
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (std::strlen(m_path) >= sizeof(address.sun_path)) return false;
    std::strcpy(address.sun_path, m_path);

    char head[160];
    const int length = std::snprintf(
        head, sizeof(head),
        "PRIORITY=%d\nSYSLOG_IDENTIFIER=%s\nTID=%u\nTHREAD_NAME=%s\nMESSAGE=", getPriority(message.m_level),
        program_invocation_short_name, message.m_threadId, message.m_threadName);
    if (length <= 0 || static_cast<std::size_t>(length) >= sizeof(head)) return false;
    iovec pieces[] = {piece(head, static_cast<std::size_t>(length)), piece(message.m_text, message.m_length),
                      piece("\n", 1)};
    msghdr header = {};
    header.msg_name = &address;
    header.msg_namelen = sizeof(address);
    header.msg_iov = pieces;
    header.msg_iovlen = 3;
    ssize_t sent;
    do {
        sent = ::sendmsg(socket, &header, MSG_NOSIGNAL | MSG_DONTWAIT);
    } while (sent < 0 && errno == EINTR);
    return sent >= 0;
}
