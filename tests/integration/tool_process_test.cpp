// Asking a process that runs: status and switch.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <thread>

#include "tests/integration/tool_kit.h"
#include "tests/kit/open_metrics_check.h"
#include "tests/kit/wait_for.h"

using nlohmann::json;
using testing::HasSubstr;

namespace {

class ToolProcess : public testing::Test {
protected:
    ToolProcess() { std::filesystem::create_directory(m_tree.path("ctl")); }

    // A process that holds a movie and has its socket open.
    std::unique_ptr<kit::Process> start(const std::string& movie) {
        kit::Command command = toolCommand({"watch", "--jsonl", movie});
        command.m_environment = {{"MEDIACORE_CTL", m_tree.path("ctl")}};
        auto process = std::make_unique<kit::Process>(command);
        EXPECT_TRUE(process->waitForOutput("\"opened\"")) << process->err();
        return process;
    }
    std::string socketOf(const kit::Process& process) const {
        return m_tree.path("ctl/mediacore." + std::to_string(process.pid()) + ".sock");
    }

    kit::TempTree m_tree;
    const std::string m_movie = writeWav(m_tree, "movie.wav");
};

// A socket of that name at whose other end the test sits.
class Foreign {
public:
    explicit Foreign(const std::string& path) : m_socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        EXPECT_EQ(::bind(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(::listen(m_socket, 4), 0);
    }
    ~Foreign() {
        if (m_thread.joinable()) m_thread.join();
        ::close(m_socket);
    }
    Foreign(const Foreign&) = delete;
    Foreign& operator=(const Foreign&) = delete;

    // Answers the next question so, and hangs up.
    void answerOnce(const std::string& text) {
        m_thread = std::thread([this, text] {
            const int client = ::accept(m_socket, nullptr, nullptr);
            char bytes[4096];
            EXPECT_GT(::recv(client, bytes, sizeof bytes, 0), 0);
            EXPECT_EQ(::send(client, text.data(), text.size(), MSG_NOSIGNAL), static_cast<ssize_t>(text.size()));
            ::close(client);
        });
    }

private:
    const int m_socket;
    std::thread m_thread;
};

void expectFailure(const std::vector<std::string>& arguments, int exit, const std::string& sentence) {
    const kit::Outcome outcome = runTool(arguments);
    EXPECT_EQ(outcome.m_exit, exit) << outcome.m_err;
    EXPECT_EQ(outcome.m_err, "mediacore: " + sentence + "\n");
    EXPECT_EQ(outcome.m_out, "");
    std::vector<std::string> withJson = arguments;
    withJson.insert(withJson.begin() + 1, "--json");
    const kit::Outcome again = runTool(withJson);
    EXPECT_EQ(again.m_exit, exit);
    EXPECT_THAT(sentence, HasSubstr(documentOf(again, "error")["error"]["code"].get<std::string>()));
}

}  // namespace

TEST_F(ToolProcess, StatusShowsWhatTheProcessHolds) {
    const std::unique_ptr<kit::Process> process = start(m_movie);
    const std::string pid = std::to_string(process->pid());
    const json status = documentOf(runTool({"status", pid, "--json"}), "status")["status"];
    EXPECT_EQ(status["pid"], process->pid());
    EXPECT_EQ(status["socket"], socketOf(*process));
    ASSERT_EQ(status["objects"].size(), 1u) << status.dump(2);
    EXPECT_EQ(status["objects"][0]["path"], m_movie);
    EXPECT_EQ(status["objects"][0]["holders"], 1);
    EXPECT_EQ(status["objects"][0]["writers"], 0);
    EXPECT_GT(status["ops"]["done"]["read"], 0);
    const std::string text = runTool({"status", socketOf(*process)}).m_out;
    EXPECT_THAT(text, HasSubstr("process " + pid + ", library "));
    EXPECT_THAT(text, HasSubstr("objects: 1\n  cached "));
    EXPECT_THAT(text, HasSubstr(m_movie + ": references 2, holders 1, writers 0"));
    EXPECT_THAT(text, HasSubstr("under way: read 0, write 0, flush 0\n"));
    EXPECT_EQ(runTool({"status", pid, "--field", "status.verdicts.vetoed"}).m_out, "0\n");
}

TEST_F(ToolProcess, StatusShowsWhoRecordsAndWithHowManyFiles) {
    m_tree.write("take.raw", std::string(48000 * 4 * 20, 'r'));
    kit::Command command = toolCommand({"record", m_tree.path("take.wav"), "--from", m_tree.path("take.raw"), "--rate",
                                        "48000", "--channels", "2", "--bits", "16", "--realtime", "--jsonl"});
    command.m_environment = {{"MEDIACORE_CTL", m_tree.path("ctl")}};
    kit::Process recorder(command);
    ASSERT_TRUE(recorder.waitForOutput("\n")) << recorder.err();
    const std::string pid = std::to_string(recorder.pid());
    const json status = documentOf(runTool({"status", pid, "--json"}), "status")["status"];
    ASSERT_EQ(status["objects"].size(), 1u) << status.dump(2);
    const json& object = status["objects"][0];
    EXPECT_EQ(object["path"], m_tree.path("take.wav"));
    EXPECT_EQ(object["writers"], 1);
    EXPECT_EQ(object["recording"], true);
    EXPECT_EQ(object["waiting"], 0);
    if (object["agents"].is_array()) {
        EXPECT_EQ(object["agents"], json::parse(R"([{"agent":null,"files":1}])"));
    }
    EXPECT_TRUE(status["ops"]["current"].is_array());
    recorder.signal(SIGINT);
    EXPECT_EQ(recorder.wait().m_exit, 0);
}

TEST_F(ToolProcess, CountersAreATextForCollectors) {
    const std::unique_ptr<kit::Process> process = start(m_movie);
    const std::string pid = std::to_string(process->pid());
    const kit::Outcome outcome = runTool({"status", "--openmetrics", pid});
    EXPECT_EQ(outcome.m_exit, 0) << outcome.m_err;
    EXPECT_EQ(kit::checkOpenMetrics(outcome.m_out), "") << outcome.m_out;
    EXPECT_THAT(outcome.m_out, HasSubstr("\nmediacore_objects 1\n"));
    EXPECT_EQ(runTool({"status", "--openmetrics", "--json", pid}).m_exit, 2);
    EXPECT_EQ(runTool({"status", "--openmetrics", "2147483647"}).m_exit, 3);
}

TEST_F(ToolProcess, VerdictsAreCountedWhenTheFileChanges) {
    const std::unique_ptr<kit::Process> process = start(m_movie);
    const std::string before = readFile(m_movie);
    m_tree.write("movie.wav", before);
    EXPECT_TRUE(process->waitForOutput("\"replaced\"")) << process->err();
    const json status = documentOf(runTool({"status", socketOf(*process), "--json"}), "status")["status"];
    EXPECT_GE(status["verdicts"]["update"], 1) << status.dump(2);
}

TEST_F(ToolProcess, SwitchesAreListedSetAndCleared) {
    const std::unique_ptr<kit::Process> process = start(m_movie);
    const std::string pid = std::to_string(process->pid());
    EXPECT_THAT(runTool({"switch", pid}).m_out, HasSubstr("mediaZombieTime = 1\n"));
    EXPECT_EQ(runTool({"switch", pid, "set", "mediaZombieTime", "5"}).m_out, "mediaZombieTime = 5\n");
    EXPECT_EQ(runTool({"switch", pid, "get", "mediaZombieTime"}).m_out, "mediaZombieTime = 5\n");
    EXPECT_EQ(runTool({"switch", pid, "setbit", "mediaObjDbg", "cache activity"}).m_out,
              "mediaObjDbg = 256 (cache activity)\n");
    EXPECT_EQ(runTool({"switch", pid, "clear", "mediaObjDbg", "8"}).m_out, "mediaObjDbg = 0\n");
    EXPECT_EQ(runTool({"switch", pid, "clear", "mediaZombieTime"}).m_out, "mediaZombieTime = 0\n");
    const json list = documentOf(runTool({"switch", pid, "--json"}), "switch")["switch"];
    EXPECT_EQ(list["action"], "list");
    EXPECT_GE(list["switches"].size(), 4u);
    const json one = documentOf(runTool({"switch", "--json", pid, "get", "mediaObjDbg"}), "switch")["switch"];
    EXPECT_EQ(one["switches"][0]["value"], 0);
    const json trace = documentOf(runTool({"switch", "--json", pid, "trace", "status"}), "switch")["switch"];
    EXPECT_EQ(trace["trace"]["entries"], 1);
}

TEST_F(ToolProcess, WhatTheProcessRefusesIsWrongUsageAndChangesNothing) {
    const std::unique_ptr<kit::Process> process = start(m_movie);
    const std::string pid = std::to_string(process->pid());
    expectFailure({"switch", pid, "get", "none"}, 2, pid + ": wrong usage: no switch is named \"none\"");
    for (const std::string value : {"soon", "", "[1]", "99999999999999999999", "\xff\n{\"cmd\":\"help\"}", "a|b"}) {
        const kit::Outcome outcome = runTool({"switch", pid, "set", "mediaZombieTime", value});
        EXPECT_EQ(outcome.m_exit, 2) << value;
        EXPECT_EQ(outcome.m_out, "");
    }
    EXPECT_EQ(runTool({"switch", pid, "set", std::string(60000, 'n'), "1"}).m_exit, 2);
    EXPECT_EQ(runTool({"switch", pid, "trace", "everything"}).m_exit, 2);
    EXPECT_EQ(runTool({"switch", pid, "get", "mediaZombieTime"}).m_out, "mediaZombieTime = 1\n");
}

TEST_F(ToolProcess, WrongUsageIsTwoBeforeAnybodyIsAsked) {
    expectFailure({"switch", "1", "get"}, 2, "wrong usage: get takes name");
    expectFailure({"switch", "1", "set", "a"}, 2, "wrong usage: set takes name and value");
    expectFailure({"switch", "1", "list", "a"}, 2, "wrong usage: list takes nothing");
    expectFailure({"switch", "1", "clear", "a", "b", "c"}, 2, "wrong usage: clear takes name and perhaps bit");
    EXPECT_EQ(runTool({"switch", "1", "burn"}).m_exit, 2);
    EXPECT_EQ(runTool({"status"}).m_exit, 2);
    EXPECT_EQ(runTool({"status", "1", "--timeout", "0"}).m_exit, 2);
}

TEST_F(ToolProcess, AProcessThatIsNotThereIsThree) {
    expectFailure({"status", "2147483647"}, 3, "2147483647: file non-existant: no such process");
    expectFailure({"status", "99999999999999999999"}, 3, "99999999999999999999: file non-existant: no such process");
    expectFailure({"status", "0"}, 3, "0: file non-existant: no such process");
    expectFailure({"switch", ""}, 3, "'': file non-existant: No such file or directory");
    const std::string none = m_tree.path("none.sock");
    expectFailure({"status", none}, 3, none + ": file non-existant: No such file or directory");
}

TEST_F(ToolProcess, AProcessWithoutASocketIsThree) {
    kit::Command command = toolCommand({"watch", "--jsonl", m_movie});
    command.m_environment = {{"MEDIACORE_CTL", std::nullopt}};
    kit::Process process(command);
    ASSERT_TRUE(process.waitForOutput("\"opened\"")) << process.err();
    const std::string pid = std::to_string(process.pid());
    expectFailure({"status", pid}, 3,
                  pid + ": file non-existant: it wasn't started with MEDIACORE_CTL; --ctl DIR names the folder");
    const std::string folder = m_tree.path("ctl");
    expectFailure({"status", pid, "--ctl", folder}, 3,
                  folder + "/mediacore." + pid + ".sock: file non-existant: No such file or directory");
}

TEST_F(ToolProcess, ASocketThatADeadProcessLeftIsThree) {
    const std::unique_ptr<kit::Process> process = start(m_movie);
    const std::string socket = socketOf(*process);
    process->signal(SIGKILL);
    EXPECT_EQ(process->wait().m_signal, SIGKILL);
    expectFailure({"status", socket}, 3, socket + ": file non-existant: no process listens there");
}

TEST_F(ToolProcess, WhatIsNoSuchSocketIsFour) {
    expectFailure({"status", m_movie}, 4, m_movie + ": unsupported media type: it is no socket");
    expectFailure({"status", m_tree.path("ctl")}, 4, m_tree.path("ctl") + ": unsupported media type: it is no socket");
    const std::string path = m_tree.path("foreign");
    for (const std::string answer :
         {"hello\n", "[]\n", "{\"id\":7,\"ok\":true,\"result\":1}\n", "{\"id\":1,\"ok\":true}\n"}) {
        Foreign foreign(path);
        foreign.answerOnce(answer);
        const kit::Outcome outcome = runTool({"status", path});
        EXPECT_EQ(outcome.m_exit, 4) << answer;
        EXPECT_EQ(outcome.m_err,
                  "mediacore: " + path + ": unsupported media type: the answer isn't one of a control socket\n");
        ::unlink(path.c_str());
    }
    Foreign foreign(path);
    foreign.answerOnce("no end");
    EXPECT_EQ(runTool({"status", path}).m_exit, 4);
}

TEST_F(ToolProcess, AnAnswerOfStrangeShapeIsNoCrash) {
    const std::string path = m_tree.path("foreign");
    for (const std::string& result : {std::string("7"), std::string("{\"name\":[{}],\"on\":3}"), std::string("[1,[2]]"),
                                      std::string(50000, '[') + std::string(50000, ']')}) {
        Foreign foreign(path);
        foreign.answerOnce("{\"id\":1,\"ok\":true,\"result\":" + result + "}\n");
        EXPECT_EQ(runTool({"switch", path}).m_signal, 0) << result.substr(0, 40);
        ::unlink(path.c_str());
    }
}

TEST_F(ToolProcess, AnswersThatDoNotComeAreSix) {
    const std::string path = m_tree.path("silent");
    const Foreign foreign(path);
    expectFailure({"status", path, "--timeout", "1"}, 6, path + ": timed out: no answer came");
}

TEST_F(ToolProcess, AnotherProcessAtTheOtherEndIsNotAsked) {
    const std::unique_ptr<kit::Process> process = start(m_movie);
    const std::string pid = std::to_string(process->pid());
    std::filesystem::create_directory(m_tree.path("planted"));
    const std::string socket = m_tree.path("planted/mediacore." + pid + ".sock");
    const Foreign foreign(socket);
    expectFailure({"status", pid, "--ctl", m_tree.path("planted")}, 4,
                  socket + ": unsupported media type: another process answers there, " + std::to_string(::getpid()));
}
