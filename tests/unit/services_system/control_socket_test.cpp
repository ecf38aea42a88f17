#include "services/system/control_socket.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "child_process.h"
#include "collecting_sink.h"
#include "services/system/debugger_on.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

constexpr int s_limitMsec = 60000;
constexpr const char* s_version = R"({"id":1,"cmd":"version"})";

bool fillAddress(const std::string& path, sockaddr_un& address) {
    address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) return false;
    path.copy(address.sun_path, path.size());
    return true;
}

const ChildJob openJob("control socket", [] {
    const bool started = ControlSocket::startFromEnvironment();
    std::printf("started=%d path=%s\n", started ? 1 : 0, ControlSocket::getPath().get());
});

// A connection as an operator's tool has it.
class Client {
public:
    explicit Client(const std::string& path) : m_socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address;
        m_connected = fillAddress(path, address) &&
                      ::connect(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0;
    }
    ~Client() { ::close(m_socket); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    bool isConnected() const { return m_connected; }

    void send(const std::string& bytes) const {
        std::size_t sent = 0;
        while (sent < bytes.size()) {
            const ssize_t size = ::send(m_socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
            if (size <= 0) break;
            sent += static_cast<std::size_t>(size);
        }
    }
    // Sends what goes out at once.
    std::size_t sendSome(const std::string& bytes) const {
        const ssize_t size = ::send(m_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        return size > 0 ? static_cast<std::size_t>(size) : 0;
    }
    void endSending() const { ::shutdown(m_socket, SHUT_WR); }

    // The next line without its end, or "(closed)", or "(nothing)" after a generous limit.
    std::string readLine() {
        for (;;) {
            const std::size_t end = m_read.find('\n');
            if (end != std::string::npos) {
                const std::string line = m_read.substr(0, end);
                m_read.erase(0, end + 1);
                return line;
            }
            pollfd poll = {m_socket, POLLIN, 0};
            if (::poll(&poll, 1, s_limitMsec) <= 0) return "(nothing)";
            char bytes[65536];
            const ssize_t size = ::recv(m_socket, bytes, sizeof(bytes), 0);
            if (size <= 0) return "(closed)";
            m_read.append(bytes, static_cast<std::size_t>(size));
        }
    }
    std::string ask(const std::string& line) {
        send(line + "\n");
        return readLine();
    }

private:
    int m_socket;
    bool m_connected = false;
    std::string m_read;
};

class ControlSocketTest : public testing::Test {
protected:
    ControlSocketTest() {
        char folder[] = "/tmp/mediacore-control-XXXXXX";
        m_folder = ::mkdtemp(folder);
        m_path = m_folder + "/mediacore." + std::to_string(::getpid()) + ".sock";
    }
    ~ControlSocketTest() override {
        ControlSocket::stop();
        ::unlink(m_path.c_str());
        ::rmdir(m_folder.c_str());
    }

    mode_t getMode() const {
        struct stat state = {};
        return ::lstat(m_path.c_str(), &state) == 0 ? state.st_mode : 0;
    }

    std::string m_folder;
    std::string m_path;
};

}  // namespace

TEST_F(ControlSocketTest, IsOffUntilAskedFor) {
    ::unsetenv("MEDIACORE_CTL");
    EXPECT_FALSE(ControlSocket::startFromEnvironment());
    EXPECT_FALSE(ControlSocket::isRunning());
    EXPECT_STREQ(ControlSocket::getPath().get(), "");
    EXPECT_TRUE(ControlSocket::stop());
}

TEST_F(ControlSocketTest, AnswersOnASocketNamedWithTheProcessId) {
    ASSERT_TRUE(ControlSocket::start(m_folder.c_str()));
    EXPECT_TRUE(ControlSocket::isRunning());
    EXPECT_EQ(ControlSocket::getPath().get(), m_path);
    Client client(m_path);
    EXPECT_THAT(client.ask(s_version), StartsWith(R"({"id":1,"ok":true,"result":")"));
}

TEST_F(ControlSocketTest, TheEnvironmentNamesTheFolder) {
    ::setenv("MEDIACORE_CTL", m_folder.c_str(), 1);
    EXPECT_TRUE(ControlSocket::startFromEnvironment());
    EXPECT_TRUE(ControlSocket::startFromEnvironment());
    ::unsetenv("MEDIACORE_CTL");
    EXPECT_TRUE(Client(m_path).isConnected());
}

TEST_F(ControlSocketTest, OnlyItsOwnerMayOpenItWhateverTheUmask) {
    const mode_t before = ::umask(0);
    const bool started = ControlSocket::start(m_folder.c_str());
    ::umask(before);
    ASSERT_TRUE(started);
    EXPECT_EQ(getMode(), static_cast<mode_t>(S_IFSOCK | 0600));
}

TEST_F(ControlSocketTest, StopClosesConnectionsAndUnlinksTheFile) {
    ASSERT_TRUE(ControlSocket::start(m_folder.c_str()));
    Client client(m_path);
    client.ask(s_version);
    EXPECT_TRUE(ControlSocket::stop());
    EXPECT_FALSE(ControlSocket::isRunning());
    EXPECT_EQ(client.readLine(), "(closed)");
    EXPECT_EQ(getMode(), 0u);
    EXPECT_TRUE(ControlSocket::start(m_folder.c_str()));
    EXPECT_THAT(Client(m_path).ask(s_version), HasSubstr("\"ok\":true"));
}

TEST_F(ControlSocketTest, StartingTwiceIsRefusedAndTheFirstStays) {
    ASSERT_TRUE(ControlSocket::start(m_folder.c_str()));
    CollectingSink sink;
    EXPECT_FALSE(ControlSocket::start(m_folder.c_str()));
    EXPECT_EQ(sink.getLines().back(), "control socket: it is open already: " + m_path);
    EXPECT_THAT(Client(m_path).ask(s_version), HasSubstr("\"ok\":true"));
}

TEST_F(ControlSocketTest, AFolderThatIsntThereOrIsNoneIsRefusedWithTheReason) {
    CollectingSink sink;
    EXPECT_FALSE(ControlSocket::start((m_folder + "/none").c_str()));
    EXPECT_EQ(sink.getLines().back(), "control socket: " + m_folder + "/none: No such file or directory");
    EXPECT_FALSE(ControlSocket::start("/dev/null"));
    EXPECT_EQ(sink.getLines().back(), "control socket: /dev/null: Not a directory");
    EXPECT_FALSE(ControlSocket::start(""));
    EXPECT_FALSE(ControlSocket::start(nullptr));
    EXPECT_EQ(sink.getLines().back(), "control socket: no folder is given");
    EXPECT_FALSE(ControlSocket::isRunning());
}

TEST_F(ControlSocketTest, AFolderInWhichEverybodyReplacesFilesIsRefused) {
    CollectingSink sink;
    ::chmod(m_folder.c_str(), 0777);
    EXPECT_FALSE(ControlSocket::start(m_folder.c_str()));
    EXPECT_EQ(sink.getLines().back(), "control socket: " + m_folder + ": everybody may replace files in it");
    ::chmod(m_folder.c_str(), 01777);
    EXPECT_TRUE(ControlSocket::start(m_folder.c_str()));
}

TEST_F(ControlSocketTest, AFolderWithAVeryLongPathServes) {
    std::string folder = m_folder;
    std::vector<std::string> made;
    for (int i = 0; i < 4; ++i) {
        folder += "/" + std::string(50, 'd');
        ASSERT_EQ(::mkdir(folder.c_str(), 0700), 0);
        made.push_back(folder);
    }
    ASSERT_TRUE(ControlSocket::start(folder.c_str()));
    struct stat state = {};
    EXPECT_EQ(::lstat(ControlSocket::getPath().get(), &state), 0);
    EXPECT_TRUE(ControlSocket::stop());
    while (!made.empty()) {
        EXPECT_EQ(::rmdir(made.back().c_str()), 0);
        made.pop_back();
    }
}

TEST_F(ControlSocketTest, TheFileOfADeadProcessIsReplaced) {
    const int dead = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address;
    ASSERT_TRUE(fillAddress(m_path, address));
    ASSERT_EQ(::bind(dead, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    ::close(dead);
    ASSERT_TRUE(ControlSocket::start(m_folder.c_str()));
    EXPECT_THAT(Client(m_path).ask(s_version), HasSubstr("\"ok\":true"));
}

TEST_F(ControlSocketTest, ANameThatALivingSocketOrAnotherFileHasIsLeftAlone) {
    CollectingSink sink;
    const int living = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address;
    ASSERT_TRUE(fillAddress(m_path, address));
    ASSERT_EQ(::bind(living, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    ASSERT_EQ(::listen(living, 1), 0);
    EXPECT_FALSE(ControlSocket::start(m_folder.c_str()));
    EXPECT_EQ(sink.getLines().back(), "control socket: " + m_path + ": the name is taken");
    EXPECT_TRUE(S_ISSOCK(getMode()));
    ::close(living);
    ::unlink(m_path.c_str());

    ::close(::open(m_path.c_str(), O_CREAT | O_WRONLY, 0600));
    EXPECT_FALSE(ControlSocket::start(m_folder.c_str()));
    EXPECT_TRUE(S_ISREG(getMode()));
}

TEST_F(ControlSocketTest, StopLeavesAFileThatSomebodyElsePutThere) {
    ASSERT_TRUE(ControlSocket::start(m_folder.c_str()));
    const std::string other = m_folder + "/other";
    ::close(::open(other.c_str(), O_CREAT | O_WRONLY, 0600));
    ASSERT_EQ(::rename(other.c_str(), m_path.c_str()), 0);
    EXPECT_TRUE(ControlSocket::stop());
    EXPECT_TRUE(S_ISREG(getMode()));
}

TEST_F(ControlSocketTest, HostileLinesGetAReasonAndKeepTheConnection) {
    ASSERT_TRUE(ControlSocket::start(m_folder.c_str()));
    Client client(m_path);
    EXPECT_THAT(client.ask("nonsense"), HasSubstr("the line isn't JSON"));
    EXPECT_THAT(client.ask(std::string("\0\0\0", 3)), HasSubstr("the line isn't JSON"));
    EXPECT_THAT(client.ask("\xff\xfe{}"), HasSubstr("the line isn't JSON"));
    EXPECT_THAT(client.ask(std::string(60000, '[')), HasSubstr("the nesting is too deep"));
    EXPECT_THAT(client.ask("{\"id\":\"\xff\",\"cmd\":\"\xff\"}"), HasSubstr("\"ok\":false"));
    EXPECT_THAT(client.ask(R"({"id":2,"cmd":"%s%n%s"})"), HasSubstr("no command is named"));
    EXPECT_THAT(client.ask(s_version), HasSubstr("\"ok\":true"));
}

TEST_F(ControlSocketTest, BlankLinesAreNoRequests) {
    ASSERT_TRUE(ControlSocket::start(m_folder.c_str()));
    Client client(m_path);
    EXPECT_THAT(client.ask("\n \r\n\t\n" + std::string(s_version) + "\r"), StartsWith(R"({"id":1,"ok":true)"));
}

TEST_F(ControlSocketTest, ALineOfTheLimitIsTakenAndALongerOneIsCutOff) {
    ASSERT_TRUE(ControlSocket::start(m_folder.c_str()));
    Client client(m_path);
    std::string line = s_version;
    line.append(65536 - line.size(), ' ');
    EXPECT_THAT(client.ask(line), HasSubstr("\"ok\":true"));
    EXPECT_EQ(client.ask(line + " "), R"({"id":null,"ok":false,"error":"the line is longer than 65536 bytes"})");
    EXPECT_THAT(client.ask(s_version), HasSubstr("\"ok\":true"));
}

TEST_F(ControlSocketTest, AnEndlessLineIsAnsweredOnceAndTheNextLineIsHeard) {
    ASSERT_TRUE(ControlSocket::start(m_folder.c_str()));
    Client client(m_path);
    client.send(std::string(1000000, 'x'));
    EXPECT_EQ(client.readLine(), R"({"id":null,"ok":false,"error":"the line is longer than 65536 bytes"})");
    client.send(std::string(300000, 'y'));
    EXPECT_THAT(client.ask("\n" + std::string(s_version)), HasSubstr("\"ok\":true"));
}

TEST_F(ControlSocketTest, ARequestMayComeInPiecesAndManyInOne) {
    ASSERT_TRUE(ControlSocket::start(m_folder.c_str()));
    Client client(m_path);
    for (const char c : std::string(s_version)) {
        client.send(std::string(1, c));
    }
    EXPECT_THAT(client.ask(""), HasSubstr("\"ok\":true"));
    std::string many;
    for (int i = 0; i < 500; ++i) {
        many += "{\"id\":" + std::to_string(i) + ",\"cmd\":\"version\"}\n";
    }
    client.send(many);
    for (int i = 0; i < 500; ++i) {
        EXPECT_THAT(client.readLine(), StartsWith("{\"id\":" + std::to_string(i) + ",\"ok\":true"));
    }
}

TEST_F(ControlSocketTest, TheLastLineNeedsNoEnd) {
    ASSERT_TRUE(ControlSocket::start(m_folder.c_str()));
    Client client(m_path);
    client.send(s_version);
    client.endSending();
    EXPECT_THAT(client.readLine(), HasSubstr("\"ok\":true"));
    EXPECT_EQ(client.readLine(), "(closed)");
}

TEST_F(ControlSocketTest, AWrongValueChangesNothingAndARightOneRunsTheCallback) {
    DebuggerOn bits("socketBits", 2, "one", "two");
    ASSERT_TRUE(ControlSocket::start(m_folder.c_str()));
    Client client(m_path);
    EXPECT_EQ(client.ask(R"({"id":7,"cmd":"switch.set","name":"socketBits","value":"three"})"),
              R"({"id":7,"ok":false,"error":"socketBits has no bit named \"three\""})");
    EXPECT_EQ(bits.get(), 0u);
    EXPECT_EQ(client.ask(R"({"id":8,"cmd":"switch.set","name":"socketBits","value":"two"})"),
              R"({"id":8,"ok":true,"result":{"name":"socketBits","value":2,"on":["two"],"bits":["one","two"]}})");
    EXPECT_EQ(bits.get(), 2u);
}

TEST_F(ControlSocketTest, AClientThatDoesntReadHoldsUpNobody) {
    static const bool s_added =
        ControlSocket::addCommand("test.large", "a large reply", [](const ControlRequest&, ControlReply& reply) {
            reply.result().string(std::string(1000000, 'z'));
            return true;
        });
    ASSERT_TRUE(s_added);
    ASSERT_TRUE(ControlSocket::start(m_folder.c_str()));
    Client slow(m_path);
    int asked = 0;
    const std::string request = "{\"id\":1,\"cmd\":\"test.large\"}\n";
    while (asked < 3 && slow.sendSome(request) == request.size()) {
        ++asked;
    }
    ASSERT_EQ(asked, 3);
    Client quick(m_path);
    for (int i = 0; i < 20; ++i) {
        EXPECT_THAT(quick.ask(s_version), HasSubstr("\"ok\":true"));
    }
    for (int i = 0; i < asked; ++i) {
        EXPECT_EQ(slow.readLine().size(), 1000000 + std::string(R"({"id":1,"ok":true,"result":""})").size());
    }
}

TEST_F(ControlSocketTest, AClientThatLeavesInTheMiddleIsForgotten) {
    ASSERT_TRUE(ControlSocket::start(m_folder.c_str()));
    for (int i = 0; i < 200; ++i) {
        Client client(m_path);
        client.send(i % 2 == 0 ? std::string(s_version) : std::string(s_version) + "\n{\"id\"");
    }
    EXPECT_THAT(Client(m_path).ask(s_version), HasSubstr("\"ok\":true"));
}

TEST_F(ControlSocketTest, SomeDozensOfClientsAreServedAndTheNextIsToldWhy) {
    ASSERT_TRUE(ControlSocket::start(m_folder.c_str()));
    std::vector<std::unique_ptr<Client>> clients;
    for (unsigned i = 0; i < ControlSocket::s_maxClients; ++i) {
        clients.push_back(std::make_unique<Client>(m_path));
        EXPECT_THAT(clients.back()->ask(s_version), HasSubstr("\"ok\":true"));
    }
    Client late(m_path);
    EXPECT_EQ(late.readLine(), R"({"id":null,"ok":false,"error":"too many connections"})");
    EXPECT_EQ(late.readLine(), "(closed)");
    EXPECT_THAT(clients.front()->ask(s_version), HasSubstr("\"ok\":true"));
}

TEST_F(ControlSocketTest, ACommandCantStopTheSocketThatItRunsOn) {
    static const bool s_added =
        ControlSocket::addCommand("test.stop", "tries to stop", [](const ControlRequest&, ControlReply& reply) {
            reply.result().boolean(ControlSocket::stop());
            return true;
        });
    ASSERT_TRUE(s_added);
    ASSERT_TRUE(ControlSocket::start(m_folder.c_str()));
    Client client(m_path);
    EXPECT_EQ(client.ask(R"({"id":1,"cmd":"test.stop"})"), R"({"id":1,"ok":true,"result":false})");
    EXPECT_THAT(client.ask(s_version), HasSubstr("\"ok\":true"));
}

TEST_F(ControlSocketTest, AStrangerIsTurnedAway) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can become a stranger";
    ASSERT_TRUE(ControlSocket::start(m_folder.c_str()));
    // As if the file had been opened to others: the peer's user still decides.
    ::chmod(m_folder.c_str(), 0755);
    ::chmod(m_path.c_str(), 0666);
    const pid_t child = ::fork();
    if (child == 0) {
        if (::setresuid(65534, 65534, 65534) != 0) ::_exit(3);
        Client client(m_path);
        ::_exit(!client.isConnected() ? 4 : client.ask(s_version) == "(closed)" ? 0 : 5);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(ControlSocketTest, WhenDescriptorsRunOutItGoesOnAfterwards) {
    ASSERT_TRUE(ControlSocket::start(m_folder.c_str()));
    Client early(m_path);
    EXPECT_THAT(early.ask(s_version), HasSubstr("\"ok\":true"));
    CollectingSink sink;
    auto late = std::make_unique<Client>(m_path);
    late->ask(s_version);
    rlimit limit = {};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    const int mine = ::socket(AF_UNIX, SOCK_STREAM, 0);
    const rlimit tight = {static_cast<rlim_t>(mine) + 1, limit.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &tight);
    sockaddr_un address;
    const bool connected =
        fillAddress(m_path, address) && ::connect(mine, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0;
    for (int i = 0; i < s_limitMsec && sink.getLines().empty(); ++i) {
        ::usleep(1000);
    }
    const std::string served = early.ask(s_version);
    ::setrlimit(RLIMIT_NOFILE, &limit);
    ::close(mine);
    EXPECT_TRUE(connected);
    ASSERT_FALSE(sink.getLines().empty());
    EXPECT_EQ(sink.getLines()[0], "control socket: a connection is refused: Too many open files");
    EXPECT_THAT(served, HasSubstr("\"ok\":true"));
    EXPECT_THAT(Client(m_path).ask(s_version), HasSubstr("\"ok\":true"));
}

TEST_F(ControlSocketTest, AForkedChildLeavesTheFileToItsParent) {
    ASSERT_TRUE(ControlSocket::start(m_folder.c_str()));
    const pid_t child = ::fork();
    if (child == 0) {
        const bool running = ControlSocket::isRunning();
        ControlSocket::stop();
        ::_exit(running ? 1 : 0);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_THAT(Client(m_path).ask(s_version), HasSubstr("\"ok\":true"));
}

TEST_F(ControlSocketTest, TheFileIsGoneWhenTheProcessHasEnded) {
    const ChildResult child = runChild("control socket", {{"MEDIACORE_CTL", m_folder}});
    EXPECT_EQ(child.m_exit, 0);
    EXPECT_THAT(child.m_out, HasSubstr("started=1 path=" + m_folder + "/mediacore."));
    EXPECT_EQ(::rmdir(m_folder.c_str()), 0);
}
