// The main function of every test program. As a rule it is the test framework's own. With --alone=PART/PARTS:SECONDS it
// runs that part of the program's cases, each in a process of its own for so many seconds at most, without starting a
// program for each: what a fresh process costs is mostly its start, under a sanitizer above all.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

struct Part {
    int m_part = 0;
    int m_parts = 0;
    int m_seconds = 0;
};

std::vector<std::string> casesOf(const Part& part) {
    std::vector<std::string> cases;
    int count = 0;
    const testing::UnitTest& all = *testing::UnitTest::GetInstance();
    for (int i = 0; i < all.total_test_suite_count(); ++i) {
        const testing::TestSuite& suite = *all.GetTestSuite(i);
        for (int j = 0; j < suite.total_test_count(); ++j) {
            const std::string name = std::string(suite.name()) + "." + suite.GetTestInfo(j)->name();
            if (name.find("DISABLED_") == std::string::npos && count++ % part.m_parts == part.m_part)
                cases.push_back(name);
        }
    }
    return cases;
}

// Goes on as the process of one case, whose words go to `output`.
[[noreturn]] void become(const std::string& name, int output) {
    if (::dup2(output, STDOUT_FILENO) < 0 || ::dup2(output, STDERR_FILENO) < 0) ::_exit(126);
    ::close(output);
    testing::GTEST_FLAG(filter) = name;
    std::exit(RUN_ALL_TESTS());
}

// False when the time was up and the process was killed.
bool endsInTime(pid_t child, int seconds) {
    const int handle = static_cast<int>(::syscall(SYS_pidfd_open, child, 0));
    pollfd end = {handle, POLLIN, 0};
    const bool ended = handle >= 0 && ::poll(&end, 1, seconds * 1000) == 1;
    if (!ended) ::kill(child, SIGKILL);
    if (handle >= 0) ::close(handle);
    return ended;
}

std::string textOf(int file) {
    std::string text;
    char bytes[4096];
    ::lseek(file, 0, SEEK_SET);
    for (ssize_t size = 0; (size = ::read(file, bytes, sizeof(bytes))) > 0;)
        text.append(bytes, static_cast<std::size_t>(size));
    return text;
}

// Prints nothing for a case that is passed.
bool runAlone(const std::string& name, int seconds) {
    const int output = ::memfd_create("output", MFD_CLOEXEC);
    std::fflush(nullptr);
    const pid_t child = output < 0 ? -1 : ::fork();
    if (child == 0) become(name, output);
    if (child < 0) {
        std::printf("[  FAILED  ] %s: no process for it\n", name.c_str());
        return false;
    }
    const bool inTime = endsInTime(child, seconds);
    int status = 0;
    const bool known = ::waitpid(child, &status, 0) == child;
    const std::string text = textOf(output);
    ::close(output);
    const bool ran = text.find("[==========] 1 test from 1 test suite ran.") != std::string::npos;
    const bool passed = known && inTime && ran && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    if (!passed) {
        std::printf("%s[  FAILED  ] %s: %s, status %d\n", text.c_str(), name.c_str(),
                    inTime ? "ended" : "took too long", status);
    } else if (text.find("[  SKIPPED ]") != std::string::npos) {
        std::printf("[  SKIPPED ] %s\n", name.c_str());
    }
    return passed;
}

int runEachAlone(const Part& part) {
    std::vector<std::string> failed;
    const std::vector<std::string> cases = casesOf(part);
    for (const std::string& name : cases) {
        if (!runAlone(name, part.m_seconds)) failed.push_back(name);
    }
    std::printf("%zu cases, each in a process of its own, %zu failed\n", cases.size(), failed.size());
    for (const std::string& name : failed)
        std::printf("[  FAILED  ] %s\n", name.c_str());
    return cases.empty() || !failed.empty() ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleMock(&argc, argv);
    constexpr const char* alone = "--alone=";
    if (argc != 2 || std::strncmp(argv[1], alone, std::strlen(alone)) != 0) return RUN_ALL_TESTS();
    Part part;
    if (std::sscanf(argv[1] + std::strlen(alone), "%d/%d:%d", &part.m_part, &part.m_parts, &part.m_seconds) != 3 ||
        part.m_parts < 1 || part.m_part < 0 || part.m_part >= part.m_parts || part.m_seconds < 1) {
        std::fprintf(stderr, "--alone=PART/PARTS:SECONDS, the first part is 0\n");
        return 2;
    }
    return runEachAlone(part);
}
