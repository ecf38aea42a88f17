#include "services/system/control_listener.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

constexpr int s_backlog = 16;

bool failSystem(std::string& reason, const std::string& what) {
    reason = what + ": " + std::strerror(errno);
    return false;
}

// The file by way of the directory's descriptor: the directory that was checked is the one that is used, and a long
// path fits.
bool makeAddress(int directory, const std::string& name, sockaddr_un& address) {
    address = {};
    address.sun_family = AF_UNIX;
    const std::string path = "/proc/self/fd/" + std::to_string(directory) + "/" + name;
    if (path.size() >= sizeof(address.sun_path)) return false;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return true;
}

int makeSocket() { return ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0); }

// Whether nobody listens on the file any more.
bool isDead(const sockaddr_un& address) {
    const int probe = makeSocket();
    if (probe < 0) return false;
    const int connected = ::connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    const bool dead = connected < 0 && errno == ECONNREFUSED;
    ::close(probe);
    return dead;
}

}  // namespace

bool ControlListener::open(const char* directory, std::string& reason) {
    m_name = "mediacore." + std::to_string(::getpid()) + ".sock";
    m_path = std::string(directory) + "/" + m_name;
    if (openDirectory(directory, reason) && bindFile(reason) && checkFile(reason)) return true;
    close();
    return false;
}

bool ControlListener::openDirectory(const char* directory, std::string& reason) {
    m_directory = ::open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    struct stat state = {};
    if (m_directory < 0 || ::fstat(m_directory, &state) != 0) return failSystem(reason, directory);
    if ((state.st_mode & S_IWOTH) == 0 || (state.st_mode & S_ISVTX) != 0) return true;
    reason = std::string(directory) + ": everybody may replace files in it";
    return false;
}

bool ControlListener::bindOnce() {
    sockaddr_un address;
    if (!makeAddress(m_directory, m_name, address)) {
        errno = ENAMETOOLONG;
        return false;
    }
    m_socket = makeSocket();
    if (m_socket < 0) return false;
    // The mode that the socket itself has becomes that of its file, so that there is no moment at which others may
    // connect, and the process's umask is left alone.
    if (::fchmod(m_socket, S_IRUSR | S_IWUSR) == 0 &&
        ::bind(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) {
        return true;
    }
    const int error = errno;
    ::close(m_socket);
    m_socket = -1;
    errno = error;
    return false;
}

bool ControlListener::removeStale(std::string& reason) {
    struct stat state = {};
    if (::fstatat(m_directory, m_name.c_str(), &state, AT_SYMLINK_NOFOLLOW) != 0) return failSystem(reason, m_path);
    sockaddr_un address;
    const bool own = S_ISSOCK(state.st_mode) && state.st_uid == ::geteuid();
    if (!own || !makeAddress(m_directory, m_name, address) || !isDead(address)) {
        reason = m_path + ": the name is taken";
        return false;
    }
    return ::unlinkat(m_directory, m_name.c_str(), 0) == 0 || failSystem(reason, m_path);
}

bool ControlListener::bindFile(std::string& reason) {
    m_bound = bindOnce();
    if (!m_bound && errno == EADDRINUSE) {
        if (!removeStale(reason)) return false;
        m_bound = bindOnce();
    }
    return m_bound || failSystem(reason, m_path);
}

bool ControlListener::checkFile(std::string& reason) {
    struct stat state = {};
    if (::fstatat(m_directory, m_name.c_str(), &state, AT_SYMLINK_NOFOLLOW) != 0) return failSystem(reason, m_path);
    m_inode = state.st_ino;
    if (!S_ISSOCK(state.st_mode) || (state.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        reason = m_path + ": the file system doesn't keep it to its owner";
        return false;
    }
    return ::listen(m_socket, s_backlog) == 0 || failSystem(reason, m_path);
}

void ControlListener::close() {
    struct stat state = {};
    if (m_bound && ::fstatat(m_directory, m_name.c_str(), &state, AT_SYMLINK_NOFOLLOW) == 0 &&
        state.st_ino == m_inode) {
        ::unlinkat(m_directory, m_name.c_str(), 0);
    }
    m_bound = false;
    if (m_socket >= 0) ::close(m_socket);
    if (m_directory >= 0) ::close(m_directory);
    m_socket = -1;
    m_directory = -1;
}

int ControlListener::accept() {
    const int client = ::accept4(m_socket, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (client < 0) return client;
    ucred peer = {};
    socklen_t size = sizeof(peer);
    const bool known = ::getsockopt(client, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0;
    if (known && (peer.uid == ::geteuid() || peer.uid == 0)) return client;
    ::close(client);
    errno = EACCES;
    return -1;
}
