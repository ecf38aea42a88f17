#include "services/system/control_socket.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "services/system/control_client.h"
#include "services/system/control_listener.h"
#include "services/system/log.h"
#include "services/system/msg_clamp.h"
#include "services/system/switch_environment.h"
#include "services/system/text.h"
#include "support/base_thread.h"

namespace {

constexpr unsigned s_priority = 20;
constexpr unsigned s_stackSize = 262144;  // bytes; commands of other rooms run on it
constexpr int s_pauseMsec = 100;          // before connections are taken again, when descriptors have run out

thread_local bool t_isServer = false;

class Server : public BaseThread {
public:
    Server() : BaseThread("mc-control", s_priority, s_stackSize) {}
    ~Server() override;

    bool open(const char* directory, std::string& reason);
    void close();
    const std::string& getPath() const { return m_listener.getPath(); }
    // A child process has the object, and neither the thread nor any right to the file.
    bool isOwn() const { return m_pid == ::getpid(); }

private:
    void startMethod() override;
    void fillPolls(std::vector<pollfd>& polls) const;
    void handleClients(const std::vector<pollfd>& polls);
    void acceptClient();

    const pid_t m_pid = ::getpid();
    int m_wake = -1;  // an eventfd that ends the poll
    ControlListener m_listener;
    std::vector<std::unique_ptr<ControlClient>> m_clients;  // of the thread
    bool m_pause = false;                                   // no descriptor was left for a connection
    MsgClamp m_clamp;
};

Server::~Server() {
    close();
    if (m_wake >= 0) ::close(m_wake);
}

bool Server::open(const char* directory, std::string& reason) {
    m_wake = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (m_wake < 0) {
        reason = std::strerror(errno);
        return false;
    }
    if (!m_listener.open(directory, reason)) return false;
    if (start()) return true;
    reason = "no thread";
    return false;
}

void Server::close() {
    BaseThread::stop(false);
    const std::uint64_t one = 1;
    if (m_wake >= 0 && ::write(m_wake, &one, sizeof(one)) < 0)
        m_clamp.warning("control socket: %s\n", std::strerror(errno));
    wait();
    m_listener.close();
}

void Server::fillPolls(std::vector<pollfd>& polls) const {
    polls.clear();
    polls.push_back({m_wake, POLLIN, 0});
    // A descriptor below 0 is passed over.
    polls.push_back({m_pause ? -1 : m_listener.getSocket(), POLLIN, 0});
    for (const auto& client : m_clients) {
        polls.push_back({client->getSocket(), client->getEvents(), 0});
    }
}

void Server::handleClients(const std::vector<pollfd>& polls) {
    std::vector<std::unique_ptr<ControlClient>> kept;
    for (std::size_t i = 0; i < m_clients.size(); ++i) {
        const short events = polls[i + 2].revents;
        if (events == 0 || m_clients[i]->handle(events)) kept.push_back(std::move(m_clients[i]));
    }
    m_clients = std::move(kept);
}

void Server::acceptClient() {
    const int socket = m_listener.accept();
    m_pause = socket < 0 && (errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS);
    if (socket < 0) {
        if (errno != EAGAIN && errno != EINTR && errno != ECONNABORTED)
            m_clamp.warning("control socket: a connection is refused: %s\n", std::strerror(errno));
        return;
    }
    auto client = std::make_unique<ControlClient>(socket);
    if (m_clients.size() < ControlSocket::s_maxClients) {
        m_clients.push_back(std::move(client));
        return;
    }
    const std::string reply = ControlCommands::refuse("too many connections") + "\n";
    if (::send(socket, reply.data(), reply.size(), MSG_NOSIGNAL | MSG_DONTWAIT) < 0)
        m_clamp.debug("control socket: %s\n", std::strerror(errno));
}

void Server::startMethod() {
    t_isServer = true;
    std::vector<pollfd> polls;
    while (!stopRequested()) {
        fillPolls(polls);
        if (::poll(polls.data(), polls.size(), m_pause ? s_pauseMsec : -1) < 0) {
            if (errno == EINTR) continue;
            errorMsg("control socket: poll: %s\n", std::strerror(errno));
            break;
        }
        m_pause = false;
        handleClients(polls);
        if ((polls[1].revents & POLLIN) != 0) acceptClient();
    }
    m_clients.clear();
    t_isServer = false;
}

constinit std::mutex s_lock;
constinit Server* s_server = nullptr;  // owned, under s_lock

// Ends the socket before the first static object goes: commands reach many of them.
void stopAtExit() {
    static const int s_registered = std::atexit([] { ControlSocket::stop(); });
    if (s_registered != 0) warningMsg("control socket: its file will stay when the process ends\n");
}

}  // namespace

bool ControlSocket::start(const char* directory) {
    const std::lock_guard<std::mutex> guard(s_lock);
    std::string reason;
    if (directory == nullptr || *directory == 0) {
        reason = "no folder is given";
    } else if (s_server != nullptr && s_server->isOwn()) {
        reason = "it is open already: " + s_server->getPath();
    } else {
        auto server = std::make_unique<Server>();
        if (server->open(directory, reason)) {
            s_server = server.release();
            stopAtExit();
            return true;
        }
    }
    warningMsg("control socket: %s\n", reason.c_str());
    return false;
}

bool ControlSocket::startFromEnvironment() {
    SwitchEnvironment::reportUnknown();
    if (isRunning()) return true;
    const char* const directory = std::getenv("MEDIACORE_CTL");
    return directory != nullptr && *directory != 0 && start(directory);
}

bool ControlSocket::stop() {
    if (t_isServer) return false;
    Server* server = nullptr;
    {
        const std::lock_guard<std::mutex> guard(s_lock);
        std::swap(server, s_server);
    }
    // Without the lock, since the command that is waited for may ask for it. What a fork has copied is left as it is:
    // its thread isn't there to be waited for.
    if (server != nullptr && server->isOwn()) delete server;
    return true;
}

bool ControlSocket::isRunning() {
    const std::lock_guard<std::mutex> guard(s_lock);
    return s_server != nullptr && s_server->isOwn();
}

AutoPtr<char> ControlSocket::getPath() {
    const std::lock_guard<std::mutex> guard(s_lock);
    return AutoPtr<char>(System::copy(s_server != nullptr && s_server->isOwn() ? s_server->getPath().c_str() : ""));
}

bool ControlSocket::addCommand(const char* name, const char* help, ControlCommand command) {
    return ControlCommands::add(name, help, std::move(command));
}
