#pragma once

// Counts the system calls of a piece of work, one by one, and what they read, in a process of its own that is stopped
// at each of them.

#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

namespace bench {

// What a thread asked of the system.
struct SystemCalls {
    bool m_counted = false;  // false where the system doesn't allow tracing
    long m_calls = 0;
    long long m_bytesRead = 0;  // by the calls that read from a descriptor
};

// Stands before and behind the work that is counted; nothing measured here calls it.
inline void markCalls() { ::syscall(SYS_getppid); }

inline bool isRead(unsigned long long call) {
    return call == SYS_read || call == SYS_pread64 || call == SYS_readv || call == SYS_preadv;
}

// Takes note of the calls that a stopped child begins and ends.
class CallNotes {
public:
    void note(pid_t child) {
        __ptrace_syscall_info info{};
        ::ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof info, &info);
        if (info.op == PTRACE_SYSCALL_INFO_ENTRY) begin(info.entry.nr);
        if (info.op == PTRACE_SYSCALL_INFO_EXIT && m_reads && info.exit.rval > 0) m_found.m_bytesRead += info.exit.rval;
    }
    SystemCalls found() const {
        SystemCalls found = m_found;
        found.m_counted = m_marks == 2;
        return found;
    }

private:
    void begin(unsigned long long call) {
        const bool mark = call == SYS_getppid;
        if (mark) ++m_marks;
        const bool counts = !mark && m_marks == 1;
        if (counts) ++m_found.m_calls;
        m_reads = counts && isRead(call);
    }

    int m_marks = 0;
    bool m_reads = false;  // the call under way reads
    SystemCalls m_found;
};

// The calls of the thread that does the work. Requires: no other thread of this process does anything that the work
// needs.
template <class Prepare, class Work>
SystemCalls countSystemCalls(Prepare prepare, Work work) {
    const pid_t child = ::fork();
    if (child < 0) return {};
    if (child == 0) {
        if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) ::_exit(1);
        ::raise(SIGSTOP);
        prepare();
        markCalls();
        work();
        markCalls();
        ::_exit(0);
    }
    CallNotes notes;
    int status = 0;
    while (::waitpid(child, &status, 0) == child && WIFSTOPPED(status)) {
        const int signal = WSTOPSIG(status);
        if (signal == SIGSTOP) ::ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
        if (signal == (SIGTRAP | 0x80)) notes.note(child);
        const bool ours = signal == SIGSTOP || signal == (SIGTRAP | 0x80);
        ::ptrace(PTRACE_SYSCALL, child, nullptr, static_cast<long>(ours ? 0 : signal));
    }
    return notes.found();
}

}  // namespace bench
