#include "tests/kit/child_job.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define MC_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define MC_SANITIZED 1
#endif
#endif

namespace kit {

namespace {

constexpr const char* s_nameVariable = "MEDIACORE_TEST_JOB";
// Stands in front of the job's own output.
constexpr const char* s_marker = "---- job ----\n";
constexpr const char* s_argumentVariable = "MEDIACORE_TEST_JOB_ARGUMENT";

// Comes after all of static storage is constructed and ahead of the first test.
class JobEnvironment : public testing::Environment {
public:
    JobEnvironment(const char* name, ChildJob::Job job) : m_name(name), m_job(job) {}
    void SetUp() override {
        const char* const wanted = std::getenv(s_nameVariable);
        const char* const argument = std::getenv(s_argumentVariable);
        if (wanted == nullptr || argument == nullptr || m_name != wanted) return;
        std::fputs(s_marker, stdout);
        const int code = m_job(argument);
        std::fflush(stdout);
        std::exit(code);
    }

private:
    const std::string m_name;
    const ChildJob::Job m_job;
};

}  // namespace

ChildJob::ChildJob(const char* name, Job job) : m_name(name) {
    testing::AddGlobalTestEnvironment(new JobEnvironment(name, job));
}

Command ChildJob::command(const std::string& argument) const {
    Command command;
    command.m_arguments = {"/proc/self/exe", "--gtest_brief=1", "--gtest_filter=*"};
    command.m_environment = {{s_nameVariable, m_name}, {s_argumentVariable, argument}, {"GTEST_OUTPUT", std::nullopt}};
    return command;
}

Outcome ChildJob::run(const Command& command) {
    Outcome outcome = kit::run(command);
    const std::size_t begin = outcome.m_out.find(s_marker);
    outcome.m_out.erase(0, begin == std::string::npos ? begin : begin + std::strlen(s_marker));
    return outcome;
}

std::optional<std::uint64_t> addressSpace([[maybe_unused]] std::uint64_t bytes) {
#ifdef MC_SANITIZED
    return std::nullopt;
#else
    return bytes;
#endif
}

}  // namespace kit
