#include "child_process.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

namespace {

struct Pipe {
    int m_ends[2] = {-1, -1};
    bool open() { return ::pipe(m_ends) == 0; }
};

constexpr const char* s_jobVariable = "MEDIACORE_TEST_CHILD_JOB";

// Runs the job that the environment names, once all of static storage is constructed.
class JobEnvironment : public testing::Environment {
public:
    JobEnvironment(const char* name, void (*job)()) : m_name(name), m_job(job) {}
    void SetUp() override {
        const char* const wanted = std::getenv(s_jobVariable);
        if (wanted == nullptr || m_name != wanted) return;
        m_job();
        std::exit(0);
    }

private:
    std::string m_name;
    void (*m_job)();
};

[[noreturn]] void become(const std::string& job, const std::vector<std::pair<std::string, std::string>>& environment,
                         const Pipe& out, const Pipe& err) {
    ::dup2(out.m_ends[1], STDOUT_FILENO);
    ::dup2(err.m_ends[1], STDERR_FILENO);
    ::setenv(s_jobVariable, job.c_str(), 1);
    for (const auto& [name, value] : environment) {
        ::setenv(name.c_str(), value.c_str(), 1);
    }
    ::execl("/proc/self/exe", "child", nullptr);
    ::_exit(127);
}

void readBoth(const Pipe& out, const Pipe& err, ChildResult& result) {
    pollfd polls[2] = {{out.m_ends[0], POLLIN, 0}, {err.m_ends[0], POLLIN, 0}};
    std::string* const texts[2] = {&result.m_out, &result.m_err};
    int left = 2;
    while (left > 0 && ::poll(polls, 2, -1) >= 0) {
        for (int i = 0; i < 2; ++i) {
            if (polls[i].fd < 0 || polls[i].revents == 0) continue;
            char bytes[4096];
            const ssize_t size = ::read(polls[i].fd, bytes, sizeof(bytes));
            if (size > 0) {
                texts[i]->append(bytes, static_cast<std::size_t>(size));
            } else {
                polls[i].fd = -1;
                --left;
            }
        }
    }
}

}  // namespace

ChildJob::ChildJob(const char* name, void (*job)()) {
    testing::AddGlobalTestEnvironment(new JobEnvironment(name, job));
}

ChildResult runChild(const std::string& job, const std::vector<std::pair<std::string, std::string>>& environment) {
    ChildResult result;
    Pipe out;
    Pipe err;
    if (!out.open() || !err.open()) return result;
    const pid_t child = ::fork();
    if (child == 0) become(job, environment, out, err);
    ::close(out.m_ends[1]);
    ::close(err.m_ends[1]);
    readBoth(out, err, result);
    ::close(out.m_ends[0]);
    ::close(err.m_ends[0]);
    int status = 0;
    if (child > 0 && ::waitpid(child, &status, 0) == child)
        result.m_exit = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    return result;
}
