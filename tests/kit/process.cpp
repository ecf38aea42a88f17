#include "tests/kit/process.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace kit {

namespace {

using Time = std::chrono::steady_clock;

// One of the pipes between the test and the process. Both ends close themselves in other programs.
struct Pipe {
    Pipe() {
        if (::pipe2(m_ends.data(), O_CLOEXEC) != 0) m_ends = {-1, -1};
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    ~Pipe() {
        close(0);
        close(1);
    }
    void close(unsigned end) {
        if (m_ends[end] >= 0) ::close(m_ends[end]);
        m_ends[end] = -1;
    }
    int reader() const { return m_ends[0]; }
    int writer() const { return m_ends[1]; }

    std::array<int, 2> m_ends{-1, -1};
};

struct Pipes {
    Pipe m_in;
    Pipe m_out;
    Pipe m_err;
};

// What execve takes, made ahead of the fork: a child of a process with threads must not allocate.
class Strings {
public:
    explicit Strings(std::vector<std::string> texts) : m_texts(std::move(texts)) {
        for (std::string& text : m_texts)
            m_pointers.push_back(text.data());
        m_pointers.push_back(nullptr);
    }
    char** get() { return m_pointers.data(); }

private:
    std::vector<std::string> m_texts;
    std::vector<char*> m_pointers;
};

std::vector<std::string> environmentOf(const Command& command) {
    std::vector<std::string> texts;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        bool isOurs = true;
        for (const auto& [name, value] : command.m_environment)
            isOurs = isOurs && std::strncmp(*entry, (name + "=").c_str(), name.size() + 1) != 0;
        if (isOurs) texts.emplace_back(*entry);
    }
    for (const auto& [name, value] : command.m_environment) {
        if (value) texts.push_back(name + "=" + *value);
    }
    return texts;
}

std::string findProgram(const std::string& name) {
    if (name.find('/') != std::string::npos) return name;
    const char* path = std::getenv("PATH");
    const std::string folders = path != nullptr ? path : "/usr/bin:/bin";
    for (std::size_t at = 0; at <= folders.size();) {
        const std::size_t colon = std::min(folders.find(':', at), folders.size());
        const std::string full = folders.substr(at, colon - at) + "/" + name;
        if (::access(full.c_str(), X_OK) == 0) return full;
        at = colon + 1;
    }
    return name;
}

void limit(__rlimit_resource resource, const std::optional<std::uint64_t>& most) {
    if (!most) return;
    const rlimit both{*most, *most};
    ::setrlimit(resource, &both);
}

void applyLimits(const Command& command) {
    limit(RLIMIT_AS, command.m_addressSpace);
    limit(RLIMIT_NOFILE, command.m_descriptors);
    limit(RLIMIT_FSIZE, command.m_fileSize);
    ::signal(SIGPIPE, SIG_DFL);
    if (command.m_fileSize) ::signal(SIGXFSZ, SIG_IGN);
    if (command.m_privileged) return;
    // Fails for one who hasn't these rights anyway.
    ::prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE, 0, 0, 0);
    ::prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH, 0, 0, 0);
}

// In the child, between fork and exec.
[[noreturn]] void become(const Command& command, const Pipes& pipes, const char* program, char** arguments,
                         char** environment) {
    ::dup2(pipes.m_in.reader(), STDIN_FILENO);
    ::dup2(pipes.m_err.writer(), STDERR_FILENO);
    int out = pipes.m_out.writer();
    if (!command.m_outputFile.empty()) out = ::open(command.m_outputFile.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
    if (command.m_closedOutput)
        ::close(STDOUT_FILENO);
    else
        ::dup2(out, STDOUT_FILENO);
    if (!command.m_folder.empty() && ::chdir(command.m_folder.c_str()) != 0) ::_exit(126);
    applyLimits(command);
    ::execve(program, arguments, environment);
    ::_exit(127);
}

// Feeds the process and listens to it until both its outputs are closed or the time is over.
class Talk {
public:
    Talk(const Command& command, Pipes& pipes, pid_t child, Outcome& outcome)
        : m_command(command), m_pipes(pipes), m_child(child), m_outcome(outcome), m_end(Time::now() + command.m_limit) {
        ::fcntl(pipes.m_in.writer(), F_SETFL, O_NONBLOCK);
        if (command.m_input.empty()) pipes.m_in.close(1);
    }

    void listen() {
        while (m_pipes.m_out.reader() >= 0 || m_pipes.m_err.reader() >= 0) {
            std::array<pollfd, 3> fds = {{{m_pipes.m_out.reader(), POLLIN, 0},
                                          {m_pipes.m_err.reader(), POLLIN, 0},
                                          {m_pipes.m_in.writer(), POLLOUT, 0}}};
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(m_end - Time::now()).count();
            if (left <= 0) return stop();
            if (::poll(fds.data(), fds.size(), static_cast<int>(left)) < 0 && errno != EINTR) return stop();
            if (fds[0].revents != 0) receive(m_pipes.m_out, m_outcome.m_out);
            if (fds[1].revents != 0) receive(m_pipes.m_err, m_outcome.m_err);
            if (fds[2].revents != 0) feed();
            react();
        }
    }

private:
    void stop() {
        m_outcome.m_timedOut = true;
        ::kill(m_child, SIGKILL);
        m_pipes.m_out.close(0);
        m_pipes.m_err.close(0);
    }

    static void receive(Pipe& pipe, std::string& text) {
        std::array<char, 65536> bytes;
        const ssize_t count = ::read(pipe.reader(), bytes.data(), bytes.size());
        if (count > 0)
            text.append(bytes.data(), static_cast<std::size_t>(count));
        else if (count == 0 || errno != EINTR)
            pipe.close(0);
    }

    void feed() {
        const ssize_t count =
            ::write(m_pipes.m_in.writer(), m_command.m_input.data() + m_fed, m_command.m_input.size() - m_fed);
        if (count > 0) m_fed += static_cast<std::size_t>(count);
        if (m_fed == m_command.m_input.size() || (count < 0 && errno != EAGAIN)) m_pipes.m_in.close(1);
    }

    void react() {
        if (m_command.m_signalOnOutput && !m_signalled && !m_outcome.m_out.empty()) {
            m_signalled = true;
            ::kill(m_child, *m_command.m_signalOnOutput);
        }
        if (m_command.m_closeAfter && m_outcome.m_out.size() >= *m_command.m_closeAfter) m_pipes.m_out.close(0);
    }

    const Command& m_command;
    Pipes& m_pipes;
    const pid_t m_child;
    Outcome& m_outcome;
    const Time::time_point m_end;
    std::size_t m_fed = 0;  // bytes of the input
    bool m_signalled = false;
};

// A process may close its outputs and go on, so its end has the limit too.
void await(pid_t child, Time::time_point end, Outcome& outcome) {
    int status = 0;
    for (;;) {
        const pid_t ended = ::waitpid(child, &status, WNOHANG);
        if (ended == child) break;
        if (ended < 0 && errno != EINTR) return;
        if (Time::now() > end && !outcome.m_timedOut) {
            outcome.m_timedOut = true;
            ::kill(child, SIGKILL);
        }
        ::poll(nullptr, 0, 1);
    }
    if (WIFEXITED(status)) outcome.m_exit = WEXITSTATUS(status);
    if (WIFSIGNALED(status)) outcome.m_signal = WTERMSIG(status);
}

// A process that closes its input early is no reason for the test to die.
class PipeSignalIgnored {
public:
    PipeSignalIgnored() : m_before(::signal(SIGPIPE, SIG_IGN)) {}
    PipeSignalIgnored(const PipeSignalIgnored&) = delete;
    PipeSignalIgnored& operator=(const PipeSignalIgnored&) = delete;
    ~PipeSignalIgnored() { ::signal(SIGPIPE, m_before); }

private:
    sighandler_t m_before;
};

}  // namespace

Outcome run(const Command& command) {
    Outcome outcome;
    Pipes pipes;
    const PipeSignalIgnored ignored;
    const std::string program = findProgram(command.m_arguments.at(0));
    Strings arguments(command.m_arguments);
    Strings environment(environmentOf(command));
    const Time::time_point end = Time::now() + command.m_limit;
    const pid_t child = ::fork();
    if (child < 0) return outcome;
    if (child == 0) become(command, pipes, program.c_str(), arguments.get(), environment.get());
    pipes.m_in.close(0);
    pipes.m_out.close(1);
    pipes.m_err.close(1);
    Talk(command, pipes, child, outcome).listen();
    await(child, end, outcome);
    return outcome;
}

Outcome run(const std::vector<std::string>& arguments) {
    Command command;
    command.m_arguments = arguments;
    return run(command);
}

struct Process::Ends {
    Pipes m_pipes;
};

Process::Process(const Command& command) : m_ends(std::make_unique<Ends>()), m_limit(command.m_limit) {
    Pipes& pipes = m_ends->m_pipes;
    const std::string program = findProgram(command.m_arguments.at(0));
    Strings arguments(command.m_arguments);
    Strings environment(environmentOf(command));
    m_pid = ::fork();
    if (m_pid == 0) become(command, pipes, program.c_str(), arguments.get(), environment.get());
    m_ended = m_pid < 0;
    pipes.m_in.close(0);
    pipes.m_out.close(1);
    pipes.m_err.close(1);
    ::fcntl(pipes.m_out.reader(), F_SETFL, O_NONBLOCK);
    ::fcntl(pipes.m_err.reader(), F_SETFL, O_NONBLOCK);
}

Process::~Process() {
    if (hasEnded()) return;
    ::kill(m_pid, SIGKILL);
    while (::waitpid(m_pid, nullptr, 0) < 0 && errno == EINTR)
        continue;
}

void Process::listen() {
    const auto take = [](Pipe& pipe, std::string& text) {
        std::array<char, 65536> bytes;
        while (pipe.reader() >= 0) {
            const ssize_t count = ::read(pipe.reader(), bytes.data(), bytes.size());
            if (count < 0 && errno == EINTR) continue;
            if (count < 0 && errno == EAGAIN) return;
            if (count <= 0) return pipe.close(0);
            text.append(bytes.data(), static_cast<std::size_t>(count));
        }
    };
    take(m_ends->m_pipes.m_out, m_outcome.m_out);
    take(m_ends->m_pipes.m_err, m_outcome.m_err);
}

const std::string& Process::out() {
    listen();
    return m_outcome.m_out;
}

const std::string& Process::err() {
    listen();
    return m_outcome.m_err;
}

bool Process::feed(const std::string& bytes) {
    const PipeSignalIgnored ignored;
    ::fcntl(m_ends->m_pipes.m_in.writer(), F_SETFL, O_NONBLOCK);
    for (std::size_t fed = 0; fed < bytes.size();) {
        const ssize_t count = ::write(m_ends->m_pipes.m_in.writer(), bytes.data() + fed, bytes.size() - fed);
        if (count > 0) fed += static_cast<std::size_t>(count);
        if (count < 0 && errno != EAGAIN && errno != EINTR) return false;
        // What it prints meanwhile must not hold it up.
        listen();
        if (count < 0) ::poll(nullptr, 0, 1);
    }
    return true;
}

void Process::endInput() { m_ends->m_pipes.m_in.close(1); }

void Process::signal(int number) const { ::kill(m_pid, number); }

bool Process::hasEnded() {
    if (m_ended) return true;
    int status = 0;
    if (::waitpid(m_pid, &status, WNOHANG) != m_pid) return false;
    m_ended = true;
    if (WIFEXITED(status)) m_outcome.m_exit = WEXITSTATUS(status);
    if (WIFSIGNALED(status)) m_outcome.m_signal = WTERMSIG(status);
    return true;
}

bool Process::waitForOutput(const std::string& text) {
    const Time::time_point end = Time::now() + m_limit;
    for (;;) {
        const bool last = hasEnded();
        if (out().find(text) != std::string::npos) return true;
        if (last || Time::now() > end) return false;
        ::poll(nullptr, 0, 1);
    }
}

Outcome Process::wait() {
    const Time::time_point end = Time::now() + m_limit;
    while (!hasEnded()) {
        listen();
        if (Time::now() > end && !m_outcome.m_timedOut) {
            m_outcome.m_timedOut = true;
            ::kill(m_pid, SIGKILL);
        }
        ::poll(nullptr, 0, 1);
    }
    listen();
    return m_outcome;
}

bool hasProgram(const std::string& name) { return findProgram(name) != name || ::access(name.c_str(), X_OK) == 0; }

}  // namespace kit
