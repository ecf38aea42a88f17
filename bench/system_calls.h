#pragma once

// Counts the system calls of a piece of work, one by one, in a process of its own that is stopped at each of them.

#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

namespace bench {

// Stands before and behind the work that is counted; nothing measured here calls it.
inline void markCalls() { ::syscall(SYS_getppid); }

// The calls of the thread that does the work, below 0 where the system doesn't allow tracing. Requires: no other thread
// of this process does anything that the work needs.
template <class Prepare, class Work>
long countSystemCalls(Prepare prepare, Work work) {
    const pid_t child = ::fork();
    if (child < 0) return -1;
    if (child == 0) {
        if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) ::_exit(1);
        ::raise(SIGSTOP);
        prepare();
        markCalls();
        work();
        markCalls();
        ::_exit(0);
    }
    long count = 0;
    int marks = 0;
    int status = 0;
    while (::waitpid(child, &status, 0) == child && WIFSTOPPED(status)) {
        const int signal = WSTOPSIG(status);
        if (signal == SIGSTOP) ::ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
        if (signal == (SIGTRAP | 0x80)) {
            __ptrace_syscall_info info{};
            ::ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof info, &info);
            if (info.op == PTRACE_SYSCALL_INFO_ENTRY) {
                const bool mark = info.entry.nr == SYS_getppid;
                if (mark) ++marks;
                if (!mark && marks == 1) ++count;
            }
        }
        const bool ours = signal == SIGSTOP || signal == (SIGTRAP | 0x80);
        ::ptrace(PTRACE_SYSCALL, child, nullptr, static_cast<long>(ours ? 0 : signal));
    }
    return marks == 2 ? count : -1;
}

}  // namespace bench
