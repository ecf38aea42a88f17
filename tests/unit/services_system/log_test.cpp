#include "services/system/log.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <regex>
#include <thread>

#include "child_process.h"
#include "collecting_sink.h"
#include "services/system/log_destination.h"

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

// Puts the settings back that a test changes.
class LogSettings : public testing::Test {
protected:
    ~LogSettings() override {
        setLogLevel(m_level);
        setLogDestination(m_destination);
    }
    const LogLevel m_level = getLogLevel();
    const LogDestination m_destination = getLogDestination();
};

using Log = LogSettings;

const ChildJob logJob("log", [] {
    errorMsg("child e\n");
    infoMsg("child i\n");
});

const ChildJob closedPipeJob("log into a closed pipe", [] {
    int ends[2] = {-1, -1};
    if (::pipe(ends) != 0 || ::dup2(ends[1], STDERR_FILENO) < 0) std::_Exit(2);
    ::close(ends[0]);
    ::close(ends[1]);
    errorMsg("to nobody\n");
    sigset_t pending;
    ::sigpending(&pending);
    sigset_t blocked;
    ::pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    std::printf("alive, pending=%d blocked=%d\n", ::sigismember(&pending, SIGPIPE), ::sigismember(&blocked, SIGPIPE));
});

// Standard error as a pipe that takes a page at a time, in a thread that signals interrupt.
const ChildJob cutLineJob("log under signals", [] {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    ::sigaction(SIGUSR1, &action, nullptr);
    ::fcntl(STDERR_FILENO, F_SETPIPE_SZ, 4096);
    std::atomic<bool> over{false};
    const pthread_t writer = ::pthread_self();
    std::thread disturber([&over, writer] {
        while (!over.load()) {
            ::pthread_kill(writer, SIGUSR1);
        }
    });
    for (int i = 0; i < 20; ++i) {
        errorMsg("%s", std::string(60000, 'z').c_str());
    }
    over = true;
    disturber.join();
});

}  // namespace

TEST_F(Log, EachFunctionSendsItsLevel) {
    CollectingSink sink;
    errorMsg("e%d\n", 1);
    warningMsg("w%d\n", 2);
    infoMsg("i%d\n", 3);
    debugMsg("d%d\n", 4);
    EXPECT_THAT(sink.getLevels(), ElementsAre(LogLevel::Error, LogLevel::Warning, LogLevel::Info, LogLevel::Debug));
    EXPECT_THAT(sink.getLines(), ElementsAre("e1", "w2", "i3", "d4"));
}

TEST_F(Log, ALineComesOutOnceWhetherTheMessageEndsItOrNot) {
    CollectingSink sink;
    infoMsg("bare");
    infoMsg("ended\n");
    infoMsg("ended twice\n\n");
    infoMsg("as on another system\r\n");
    EXPECT_THAT(sink.getLines(), ElementsAre("bare", "ended", "ended twice", "as on another system"));
}

TEST_F(Log, ControlCharactersInsideCantForgeALineOrDriveATerminal) {
    CollectingSink sink;
    infoMsg("%s", "a\nb\x1b[31m\tc\x7f");
    EXPECT_THAT(sink.getLines(), ElementsAre("a|b?[31m\tc?"));
}

TEST_F(Log, LongMessagesAreKeptWholeAndEndlessOnesAreCut) {
    CollectingSink sink;
    const std::string longText(5000, 'x');
    const std::string endless(200000, 'y');
    infoMsg("%s\n", longText.c_str());
    infoMsg("%s\n", endless.c_str());
    ASSERT_EQ(sink.getLines().size(), 2u);
    EXPECT_EQ(sink.getLines()[0], longText);
    EXPECT_EQ(sink.getLines()[1], std::string(65535, 'y'));
}

TEST_F(Log, ErrnoSurvives) {
    CollectingSink sink;
    errno = ENOSPC;
    errorMsg("x\n");
    EXPECT_EQ(errno, ENOSPC);
}

TEST_F(Log, LessSevereThanTheLevelIsLeftOut) {
    CollectingSink sink;
    setLogLevel(LogLevel::Warning);
    errorMsg("e");
    warningMsg("w");
    infoMsg("i");
    debugMsg("d");
    EXPECT_THAT(sink.getLines(), ElementsAre("e", "w"));
}

TEST_F(Log, StandardErrorGetsTimeLevelThreadAndText) {
    setLogDestination(LogDestination::StandardError);
    testing::internal::CaptureStderr();
    warningMsg("hello %d\n", 5);
    const std::string text = testing::internal::GetCapturedStderr();
    const std::regex form(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}Z warning \[.{1,15} \d+\] hello 5\n)");
    EXPECT_TRUE(std::regex_match(text, form)) << text;
    EXPECT_THAT(text, HasSubstr(" " + std::to_string(::gettid()) + "]"));
}

TEST_F(Log, TheDateOnStandardErrorIsTheCalendars) {
    LogMessage message;
    message.m_text = "x";
    message.m_length = 1;
    const std::pair<std::int64_t, const char*> cases[] = {{0, "1970-01-01T00:00:00.000000Z"},
                                                          {951782399000001, "2000-02-28T23:59:59.000001Z"},
                                                          {951868800000000, "2000-03-01T00:00:00.000000Z"},
                                                          {1709164800500000, "2024-02-29T00:00:00.500000Z"},
                                                          {1735689599999999, "2024-12-31T23:59:59.999999Z"}};
    for (const auto& [time, date] : cases) {
        message.m_time = time;
        testing::internal::CaptureStderr();
        writeLogToStandardError(message);
        EXPECT_EQ(testing::internal::GetCapturedStderr().substr(0, 27), date);
    }
}

TEST(LogEnvironment, AReaderOfStandardErrorThatHasGoneDoesntEndTheProcess) {
    const ChildResult child = runChild("log into a closed pipe", {});
    EXPECT_EQ(child.m_exit, 0);
    EXPECT_THAT(child.m_out, HasSubstr("alive, pending=0 blocked=0"));
}

TEST(LogEnvironment, ALineThatSignalsInterruptComesOutWhole) {
    const ChildResult child = runChild("log under signals", {});
    EXPECT_EQ(child.m_exit, 0);
    std::size_t at = 0;
    int whole = 0;
    for (std::size_t end; (end = child.m_err.find('\n', at)) != std::string::npos; at = end + 1) {
        const std::size_t text = child.m_err.find("] ", at);
        ASSERT_LT(text, end);
        EXPECT_EQ(child.m_err.substr(text + 2, end - text - 2), std::string(60000, 'z'));
        ++whole;
    }
    EXPECT_EQ(whole, 20);
}

TEST_F(Log, DestinationNoneSaysNothing) {
    setLogDestination(LogDestination::None);
    testing::internal::CaptureStderr();
    errorMsg("x\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(Log, ASinkThatLogsIsHeardOnStandardErrorAndDoesntComeBackToItself) {
    class Chatty : public LogSink {
    public:
        void write(const LogMessage&) override {
            ++m_calls;
            errorMsg("from the sink\n");
        }
        int m_calls = 0;
    };
    Chatty sink;
    testing::internal::CaptureStderr();
    setLogSink(&sink);
    infoMsg("x\n");
    setLogSink(nullptr);
    EXPECT_EQ(sink.m_calls, 1);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("from the sink\n"));
}

TEST_F(Log, ASinkMayTakeItselfAway) {
    class Leaving : public LogSink {
    public:
        void write(const LogMessage&) override {
            ++m_calls;
            setLogSink(nullptr);
        }
        int m_calls = 0;
    };
    Leaving sink;
    setLogDestination(LogDestination::None);
    setLogSink(&sink);
    infoMsg("x\n");
    infoMsg("y\n");
    EXPECT_EQ(sink.m_calls, 1);
    EXPECT_EQ(setLogSink(nullptr), nullptr);
}

TEST_F(Log, SettingASinkAnswersTheOneBefore) {
    CollectingSink first;
    {
        CollectingSink second;
        LogSink* const held = setLogSink(&first);
        EXPECT_EQ(held, &second);
        setLogSink(held);
    }
    infoMsg("x");
    EXPECT_THAT(first.getLines(), ElementsAre("x"));
}

TEST_F(Log, NoThreadIsInASinkAnyMoreOnceItIsTakenAway) {
    class Guarded : public LogSink {
    public:
        void write(const LogMessage&) override {
            EXPECT_TRUE(m_alive.load());
            ++m_calls;
        }
        std::atomic<bool> m_alive{true};
        std::atomic<int> m_calls{0};
    };
    setLogDestination(LogDestination::None);
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&stop] {
            while (!stop.load()) {
                infoMsg("x\n");
            }
        });
    }
    for (int round = 0; round < 50; ++round) {
        auto* const sink = new Guarded;
        setLogSink(sink);
        while (sink->m_calls.load() == 0) {
            std::this_thread::yield();
        }
        setLogSink(nullptr);
        sink->m_alive.store(false);
        delete sink;
    }
    stop.store(true);
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST_F(Log, SettingsGiveLevelAndDestination) {
    EXPECT_TRUE(applyLogSettings("warning,none"));
    EXPECT_EQ(getLogLevel(), LogLevel::Warning);
    EXPECT_EQ(getLogDestination(), LogDestination::None);
    EXPECT_TRUE(applyLogSettings("debug,stderr"));
    EXPECT_EQ(getLogLevel(), LogLevel::Debug);
    EXPECT_EQ(getLogDestination(), LogDestination::StandardError);
    EXPECT_TRUE(applyLogSettings("journal"));
    EXPECT_EQ(getLogLevel(), LogLevel::Debug);
    EXPECT_EQ(getLogDestination(), LogDestination::Journal);
    EXPECT_TRUE(applyLogSettings(""));
    EXPECT_EQ(getLogDestination(), LogDestination::Journal);
}

TEST_F(Log, AnUnknownWordInTheSettingsIsNamedAndChangesNothing) {
    setLogLevel(LogLevel::Info);
    CollectingSink sink;
    EXPECT_FALSE(applyLogSettings("error,loud"));
    EXPECT_FALSE(applyLogSettings("averyveryverylongword"));
    EXPECT_FALSE(applyLogSettings("Error"));
    EXPECT_EQ(getLogLevel(), LogLevel::Info);
    ASSERT_EQ(sink.getLines().size(), 3u);
    EXPECT_EQ(sink.getLines()[0],
              "log settings \"error,loud\": \"loud\" is none of error, warning, info, debug, stderr, journal, none");
}

TEST_F(Log, LevelsAreNamed) {
    LogLevel level = LogLevel::Error;
    EXPECT_TRUE(parseLogLevel("info", level));
    EXPECT_EQ(level, LogLevel::Info);
    EXPECT_FALSE(parseLogLevel("none", level));
    EXPECT_EQ(level, LogLevel::Info);
    EXPECT_STREQ(getLogLevelName(LogLevel::Debug), "debug");
    EXPECT_STREQ(getLogLevelName(static_cast<LogLevel>(9)), "?");
}

TEST(LogEnvironment, LevelAndDestinationAreReadBeforeTheFirstMessage) {
    const char* const job = "log";
    const ChildResult errors = runChild(job, {{"MEDIACORE_LOG", "error,stderr"}});
    EXPECT_EQ(errors.m_exit, 0);
    EXPECT_THAT(errors.m_err, HasSubstr("child e\n"));
    EXPECT_THAT(errors.m_err, testing::Not(HasSubstr("child i\n")));
    const ChildResult silent = runChild(job, {{"MEDIACORE_LOG", "none"}});
    EXPECT_THAT(silent.m_err, testing::Not(HasSubstr("child e\n")));
    const ChildResult wrong = runChild(job, {{"MEDIACORE_LOG", "shout"}});
    EXPECT_THAT(wrong.m_err, HasSubstr("log settings \"shout\": \"shout\" is none of"));
    EXPECT_THAT(wrong.m_err, HasSubstr("child i\n"));
}

namespace {

// A journal that listens in a folder of the test's own.
class JournalTest : public testing::Test {
protected:
    JournalTest() {
        char folder[] = "/tmp/mediacore-journal-XXXXXX";
        m_folder = ::mkdtemp(folder);
        m_path = m_folder + "/socket";
        m_socket = ::socket(AF_UNIX, SOCK_DGRAM, 0);
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        m_path.copy(address.sun_path, sizeof(address.sun_path) - 1);
        EXPECT_EQ(::bind(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    }
    ~JournalTest() override {
        ::close(m_socket);
        ::unlink(m_path.c_str());
        ::rmdir(m_folder.c_str());
    }

    std::string m_folder;
    std::string m_path;
    int m_socket;
};

}  // namespace

TEST_F(JournalTest, AMessageIsOneDatagramWithItsFields) {
    JournalLog journal(m_path.c_str());
    LogMessage message;
    message.m_level = LogLevel::Warning;
    message.m_threadId = 42;
    message.m_threadName = "reader";
    message.m_text = "disk slow";
    message.m_length = 9;
    ASSERT_TRUE(journal.write(message));
    char bytes[512];
    const ssize_t size = ::recv(m_socket, bytes, sizeof(bytes), 0);
    ASSERT_GT(size, 0);
    EXPECT_EQ(std::string(bytes, static_cast<std::size_t>(size)),
              std::string("PRIORITY=4\nSYSLOG_IDENTIFIER=") + program_invocation_short_name +
                  "\nTID=42\nTHREAD_NAME=reader\nMESSAGE=disk slow\n");
}

TEST(Journal, WithoutAJournalTheMessageIsRefused) {
    JournalLog journal("/nonexistent/journal/socket");
    EXPECT_FALSE(journal.write(LogMessage()));
    const std::string longPath(200, 'p');
    JournalLog unreachable(longPath.c_str());
    EXPECT_FALSE(unreachable.write(LogMessage()));
}
