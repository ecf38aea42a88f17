#include "tools/control_connection.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fstream>
#include <sstream>

#include "shared/include/object/core_subsystem.h"
#include "tools/interrupt.h"
#include "tools/text_form.h"

namespace {

constexpr std::size_t s_largestReply = 64u << 20;  // bytes

Failure notFound(const std::string& file, const std::string& message) {
    return Failure::make(ExitCode::NotFound, MediaCode::FileNonExistent, file, message);
}

Failure notAllowed(const std::string& file, const std::string& message) {
    return Failure::make(ExitCode::NotFound, MediaCode::FileNotReadable, file, message);
}

Failure noSocket(const std::string& file, const std::string& message) {
    return Failure::make(ExitCode::BadFile, MediaCode::UnsupportedMediaType, file, message);
}

Failure ofSystem(const std::string& file, int error) {
    switch (error) {
        case ENOENT:
        case ENOTDIR:
        case ELOOP:
        case ENAMETOOLONG:
            return notFound(file, std::strerror(error));
        case EACCES:
        case EPERM:
            return notAllowed(file, std::strerror(error));
        default:
            return Failure::system(MediaCode::ReadError, file, error);
    }
}

// What the process was started with under that name. Fails: false when it can't be seen; `error` is an errno value.
bool variableOf(unsigned long long pid, const std::string& name, std::string& value, int& error) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/environ", std::ios::binary);
    std::ostringstream bytes;
    errno = 0;
    if (!file || !(bytes << file.rdbuf())) {
        error = errno;
        return error == 0;
    }
    std::istringstream entries(bytes.str());
    for (std::string entry; std::getline(entries, entry, '\0');) {
        if (entry.starts_with(name + "=")) value = entry.substr(name.size() + 1);
    }
    return true;
}

// A descriptor of a folder, closed at the end.
class Folder {
public:
    explicit Folder(const std::string& path) : m_fd(::open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {}
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    ~Folder() {
        if (m_fd >= 0) ::close(m_fd);
    }
    int fd() const { return m_fd; }

private:
    const int m_fd;
};

// By way of the folder's descriptor a path of any length fits.
bool makeAddress(const Folder& folder, const std::string& name, sockaddr_un& address) {
    address = {};
    address.sun_family = AF_UNIX;
    const std::string path = "/proc/self/fd/" + std::to_string(folder.fd()) + "/" + name;
    if (path.size() >= sizeof address.sun_path) return false;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return true;
}

}  // namespace

ControlConnection::~ControlConnection() {
    if (m_socket >= 0) ::close(m_socket);
}

std::optional<Failure> ControlConnection::open() {
    std::optional<Failure> failure = find();
    if (!failure) failure = connect();
    if (!failure) failure = checkPeer();
    return failure;
}

std::optional<Failure> ControlConnection::find() {
    const std::string& process = m_options.m_process;
    if (process.empty() || process.find_first_not_of("0123456789") != std::string::npos) {
        m_path = process;
        return std::nullopt;
    }
    const std::optional<unsigned long long> number = parseCount(process);
    if (!number || *number == 0 || *number > INT_MAX) return notFound(process, "no such process");
    return findByPid(*number);
}

std::optional<Failure> ControlConnection::findByPid(unsigned long long number) {
    const std::string& process = m_options.m_process;
    m_wanted = static_cast<pid_t>(number);
    if (::kill(m_wanted, 0) != 0 && errno == ESRCH) return notFound(process, "no such process");
    std::string folder = m_options.m_folder;
    if (folder.empty()) {
        int error = 0;
        if (!variableOf(number, "MEDIACORE_CTL", folder, error)) return ofSystem(process, error);
        if (folder.empty())
            return notFound(process, "it wasn't started with MEDIACORE_CTL; --ctl DIR names the folder");
        if (folder[0] != '/') folder.insert(0, "/proc/" + std::to_string(number) + "/cwd/");
    }
    m_path = folder + "/mediacore." + std::to_string(number) + ".sock";
    return std::nullopt;
}

std::optional<Failure> ControlConnection::connect() {
    const std::size_t slash = m_path.rfind('/');
    const std::string name = slash == std::string::npos ? m_path : m_path.substr(slash + 1);
    const Folder folder(slash == std::string::npos ? "." : m_path.substr(0, slash + 1));
    struct stat state {};
    if (folder.fd() < 0 || ::fstatat(folder.fd(), name.c_str(), &state, 0) != 0) return ofSystem(m_path, errno);
    if (!S_ISSOCK(state.st_mode)) return noSocket(m_path, "it is no socket");
    sockaddr_un address;
    if (!makeAddress(folder, name, address)) return ofSystem(m_path, ENAMETOOLONG);
    m_socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (m_socket < 0) return ofSystem(m_path, errno);
    const Clock::time_point end = deadline();
    // A queue that is full says so at once and has to be asked again.
    while (::connect(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        if (errno == ECONNREFUSED) return notFound(m_path, "no process listens there");
        if (errno == EPROTOTYPE) return noSocket(m_path, "it is a socket of another kind");
        if (errno != EAGAIN && errno != EINTR) return ofSystem(m_path, errno);
        if (Interrupt::isPending()) return Failure{ExitCode::Interrupted, 0, "interrupted", m_path, ""};
        if (Clock::now() > end) return Failure{ExitCode::Busy, 0, "timed out", m_path, "it takes no connection"};
        ::poll(nullptr, 0, 10);
    }
    return std::nullopt;
}

// Whoever can put a socket there could otherwise answer in the process's name.
std::optional<Failure> ControlConnection::checkPeer() {
    ucred peer{};
    socklen_t size = sizeof peer;
    if (::getsockopt(m_socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return ofSystem(m_path, errno);
    m_pid = peer.pid;
    if (peer.uid != ::geteuid() && peer.uid != 0 && ::geteuid() != 0)
        return notAllowed(m_path, "a process of another user answers there");
    if (m_wanted != 0 && m_pid != 0 && m_pid != m_wanted)
        return noSocket(m_path, "another process answers there, " + std::to_string(m_pid));
    return std::nullopt;
}

ControlConnection::Clock::time_point ControlConnection::deadline() const {
    return Clock::now() + std::chrono::seconds(m_options.m_timeout);
}

Failure ControlConnection::broken(const char* message) const { return noSocket(m_path, message); }

bool ControlConnection::await(short events, Clock::time_point end, std::optional<Failure>& failure) const {
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
        if (left <= 0) {
            failure = Failure{ExitCode::Busy, 0, "timed out", m_path, "no answer came"};
            return false;
        }
        pollfd one{m_socket, events, 0};
        const int ready = ::poll(&one, 1, static_cast<int>(std::min<long long>(left, 1000)));
        if (ready > 0) return true;
        if (Interrupt::isPending()) {
            failure = Failure{ExitCode::Interrupted, 0, "interrupted", m_path, ""};
            return false;
        }
        if (ready < 0 && errno != EINTR) {
            failure = ofSystem(m_path, errno);
            return false;
        }
    }
}

bool ControlConnection::send(const std::string& line, Clock::time_point end, std::optional<Failure>& failure) const {
    for (std::size_t sent = 0; sent < line.size();) {
        const ssize_t count = ::send(m_socket, line.data() + sent, line.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count > 0) {
            sent += static_cast<std::size_t>(count);
        } else if (errno != EAGAIN && errno != EINTR) {
            failure = broken("the connection was closed");
            return false;
        } else if (!await(POLLOUT, end, failure)) {
            return false;
        }
    }
    return true;
}

bool ControlConnection::receive(std::string& line, Clock::time_point end, std::optional<Failure>& failure) {
    std::array<char, 65536> bytes;
    for (std::size_t looked = 0;;) {
        const std::size_t stop = m_rest.find('\n', looked);
        if (stop != std::string::npos) {
            line = m_rest.substr(0, stop);
            m_rest.erase(0, stop + 1);
            return true;
        }
        looked = m_rest.size();
        if (looked > s_largestReply) {
            failure = broken("the answer has no end");
            return false;
        }
        const ssize_t count = ::recv(m_socket, bytes.data(), bytes.size(), MSG_DONTWAIT);
        if (count > 0) {
            m_rest.append(bytes.data(), static_cast<std::size_t>(count));
        } else if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
            failure = broken("the connection was closed");
            return false;
        } else if (!await(POLLIN, end, failure)) {
            return false;
        }
    }
}

bool ControlConnection::ask(const char* command, const Json& members, Reply& reply, std::optional<Failure>& failure) {
    const Clock::time_point end = deadline();
    const unsigned id = ++m_asked;
    Json request{{"id", id}, {"cmd", command}};
    request.update(members);
    // Names of switches are bytes too; the process takes them as they come.
    const std::string text = request.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
    std::string line;
    if (!send(text, end, failure) || !receive(line, end, failure)) return false;
    // What lies deeper is no answer of ours, and left out before it can overflow anything.
    const auto isShallow = [](int depth, Json::parse_event_t, Json&) { return depth < 16; };
    const Json answer = Json::parse(line, isShallow, false);
    const bool proper = answer.is_object() && answer.contains("ok") && answer["ok"].is_boolean() &&
                        answer.contains("id") && answer["id"] == id;
    const bool done = proper && answer["ok"].get<bool>();
    if (!proper || (done ? !answer.contains("result") : !(answer.contains("error") && answer["error"].is_string()))) {
        failure = broken("the answer isn't one of a control socket");
        return false;
    }
    reply.m_done = done;
    if (done) reply.m_result = answer["result"];
    if (!done) reply.m_reason = answer["error"].get<std::string>();
    return true;
}
