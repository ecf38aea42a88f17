#include "services/system/control_client.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "services/system/control_commands.h"

ControlClient::~ControlClient() { ::close(m_socket); }

short ControlClient::getEvents() const { return isReplyPending() ? POLLOUT : POLLIN; }

bool ControlClient::handle(short events) {
    if ((events & (POLLERR | POLLNVAL)) != 0) return false;
    if (!flush()) return false;
    if (!isReplyPending() && !m_ended && (events & (POLLIN | POLLHUP)) != 0 && !receive()) return false;
    if (!runLines()) return false;
    return !m_ended || isReplyPending();
}

bool ControlClient::receive() {
    char bytes[16384];
    const ssize_t size = ::recv(m_socket, bytes, sizeof(bytes), MSG_DONTWAIT);
    if (size < 0) return errno == EINTR || errno == EAGAIN;
    if (size > 0) {
        m_in.append(bytes, static_cast<std::size_t>(size));
        return true;
    }
    m_ended = true;
    // The last line needs no end.
    if (!m_in.empty()) m_in.push_back('\n');
    return true;
}

// Takes the next whole line, if there is one; what is too long is answered at once and dropped up to its end.
bool ControlClient::takeLine(std::string& line) {
    const std::size_t end = m_in.find('\n');
    const bool whole = end != std::string::npos;
    const std::size_t length = whole ? end : m_in.size();
    if (!m_skipping && length > s_maxLine) {
        m_skipping = true;
        reply(ControlCommands::refuse("the line is longer than 65536 bytes"));
    }
    const bool skipped = m_skipping;
    if (skipped || whole) {
        line.assign(m_in, 0, skipped ? 0 : length);
        m_in.erase(0, whole ? end + 1 : length);
    }
    if (whole) m_skipping = false;
    return whole;
}

bool ControlClient::runLines() {
    std::string line;
    while (!isReplyPending() && takeLine(line)) {
        answer(line);
        if (!flush()) return false;
    }
    return flush();
}

void ControlClient::answer(const std::string& line) {
    if (line.find_first_not_of(" \t\r") == std::string::npos) return;
    reply(ControlCommands::execute(line));
}

void ControlClient::reply(std::string_view text) {
    m_out.append(text);
    m_out.push_back('\n');
}

bool ControlClient::flush() {
    while (isReplyPending()) {
        const ssize_t size =
            ::send(m_socket, m_out.data() + m_sent, m_out.size() - m_sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (size < 0 && errno == EINTR) continue;
        if (size < 0) return errno == EAGAIN;
        m_sent += static_cast<std::size_t>(size);
    }
    m_out.clear();
    // A listing of the whole ring isn't kept for the life of a connection.
    if (m_out.capacity() > s_maxLine) m_out.shrink_to_fit();
    m_sent = 0;
    return true;
}
