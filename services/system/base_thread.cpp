#include "support/base_thread.h"

#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>

#include "services/system/locks.h"
#include "services/system/log.h"
#include "services/system/text.h"

namespace {

using ZarnexPosix::JMutex;
using ZarnexPosix::ScopeLock;

constexpr std::size_t s_kernelNameLength = 15;

// Priorities from here on ask for real-time scheduling, at the lower end of what the system has, so that the
// kernel's own threads stay in front.
constexpr unsigned int s_firstRealTimePriority = 90;
constexpr unsigned int s_lastRealTimePriority = 99;

// What the C library and the log need of a stack, with room to spare; memory checkers need more.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::size_t s_leastStack = 1024 * 1024;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr std::size_t s_leastStack = 1024 * 1024;
#else
constexpr std::size_t s_leastStack = 256 * 1024;
#endif
#else
constexpr std::size_t s_leastStack = 256 * 1024;
#endif

// The thread object whose thread this is; null in threads that came about otherwise.
thread_local const BaseThread* t_current = nullptr;

std::size_t stackFor(unsigned int wanted) {
    const std::size_t systemLeast = static_cast<std::size_t>(std::max(0L, sysconf(_SC_THREAD_STACK_MIN)));
    const std::size_t page = static_cast<std::size_t>(std::max(1L, sysconf(_SC_PAGESIZE)));
    const std::size_t size = std::max({static_cast<std::size_t>(wanted), systemLeast, s_leastStack});
    return (size + page - 1) / page * page;
}

void nameThisThread(const char* name) {
    char shortName[s_kernelNameLength + 1] = {};
    std::strncpy(shortName, name, s_kernelNameLength);
    pthread_setname_np(pthread_self(), shortName);
}

// Without the privilege the thread goes on as an ordinary one. What it starts doesn't inherit the rank.
void scheduleThisThread(unsigned int priority) {
    if (priority < s_firstRealTimePriority) return;
    const unsigned int rank = std::min(priority, s_lastRealTimePriority) - s_firstRealTimePriority;
    sched_param param{};
    param.sched_priority = sched_get_priority_min(SCHED_RR) + static_cast<int>(rank);
    sched_setscheduler(0, SCHED_RR | SCHED_RESET_ON_FORK, &param);
}

// Signals are the host's affair and go to its own threads; only faults of the thread itself stay with it.
sigset_t foreignSignals() {
    sigset_t set;
    sigfillset(&set);
    for (const int own : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS, SIGPROF})
        sigdelset(&set, own);
    return set;
}

// Answers an errno value, 0 for success.
int createThread(pthread_t& thread, std::size_t stackSize, void* (*entry)(void*), void* argument) {
    pthread_attr_t attributes;
    int error = pthread_attr_init(&attributes);
    if (error != 0) return error;
    error = pthread_attr_setstacksize(&attributes, stackSize);

    const sigset_t foreign = foreignSignals();
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, &foreign, &before);
    if (error == 0) error = pthread_create(&thread, &attributes, entry, argument);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    pthread_attr_destroy(&attributes);
    return error;
}

}  // namespace

struct BaseThread::Control {
    Control(const char* name, unsigned int priority, unsigned int stackSize)
        : m_name(System::copy(name ? name : "")), m_priority(priority), m_stackSize(stackFor(stackSize)) {}

    // Requires: not the thread itself.
    void join() MO_REQUIRES(m_joinMutex) {
        if (!m_joinable) return;
        pthread_join(m_thread, nullptr);
        m_joinable = false;
    }

    // A forked child has a copy of all this and no thread; the lock may be held by one that isn't there either.
    bool isForeign() const {
        const pid_t owner = m_owner.load(std::memory_order_relaxed);
        return owner != 0 && owner != getpid();
    }

    const char* name() const { return m_name.get() ? m_name.get() : ""; }

    const AutoPtr<char> m_name;
    const unsigned int m_priority;
    const std::size_t m_stackSize;                     // bytes
    std::atomic<bool> m_running{false};                // from start() until startMethod() has returned
    std::atomic<pid_t> m_owner{0};                     // the process that started the last run; 0 before the first
    JMutex m_requestMutex;                             // taken last: orders the requests to stop and the starts
    unsigned m_run MO_GUARDED_BY(m_requestMutex) = 0;  // how often it was started
    JMutex m_joinMutex;  // held while waiting for the end: a second waiter waits for the first
    pthread_t m_thread MO_GUARDED_BY(m_joinMutex) = {};
    bool m_joinable MO_GUARDED_BY(m_joinMutex) = false;
};

BaseThread::BaseThread(const char* name, unsigned int priority, unsigned int stackSize)
    : m_control(new Control(name, priority, stackSize)) {}

BaseThread::~BaseThread() { stop(true); }

bool BaseThread::start() {
    Control& control = *m_control;
    // Asked first without the lock, which somebody who waits for the running thread may hold for long.
    if (running() || control.isForeign()) return false;
    ScopeLock<JMutex> lock(control.m_joinMutex);
    if (running()) return false;
    control.join();

    control.m_owner.store(getpid(), std::memory_order_relaxed);
    beginRun();
    const int error = createThread(control.m_thread, control.m_stackSize, &BaseThread::run, this);
    control.m_joinable = error == 0;
    if (error == 0) return true;
    control.m_running.store(false, std::memory_order_release);
    errorMsg("BaseThread: can't start \"%s\": error %d\n", control.name(), error);
    return false;
}

void BaseThread::beginRun() {
    ScopeLock<JMutex> lock(m_control->m_requestMutex);
    ++m_control->m_run;
    m_stopRequested.store(false, std::memory_order_release);
    m_control->m_running.store(true, std::memory_order_release);
}

// Answers the run that has been asked to stop.
unsigned BaseThread::requestStop() {
    ScopeLock<JMutex> lock(m_control->m_requestMutex);
    m_stopRequested.store(true, std::memory_order_release);
    return m_control->m_run;
}

bool BaseThread::isRun(unsigned run) const {
    ScopeLock<JMutex> lock(m_control->m_requestMutex);
    return m_control->m_run == run;
}

bool BaseThread::stop(bool waitForEnd) {
    if (m_control->isForeign()) return true;
    const unsigned run = requestStop();
    if (waitForEnd && t_current != this) {
        ScopeLock<JMutex> lock(m_control->m_joinMutex);
        // A run that was started since doesn't know of the request; the one before has been waited for by its start.
        if (isRun(run)) m_control->join();
    }
    return !running();
}

bool BaseThread::running() const {
    return m_control->m_running.load(std::memory_order_acquire) && !m_control->isForeign();
}

void BaseThread::wait() {
    if (t_current == this || m_control->isForeign()) return;
    ScopeLock<JMutex> lock(m_control->m_joinMutex);
    m_control->join();
}

void* BaseThread::run(void* self) {
    BaseThread& thread = *static_cast<BaseThread*>(self);
    t_current = &thread;
    nameThisThread(thread.m_control->name());
    scheduleThisThread(thread.m_control->m_priority);
    thread.startMethod();
    thread.m_control->m_running.store(false, std::memory_order_release);
    return nullptr;
}
