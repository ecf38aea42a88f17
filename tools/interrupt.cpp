#include "tools/interrupt.h"

#include <pthread.h>
#include <signal.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "tools/exit_code.h"

namespace {

std::atomic<int> s_signals{0};
pthread_t s_mainThread;

static_assert(std::atomic<int>::is_always_lock_free);

// The kernel gives a signal to any thread, but it is the main thread that has to leave its call.
bool passedOn(int number) {
    if (pthread_equal(pthread_self(), s_mainThread) != 0) return false;
    pthread_kill(s_mainThread, number);
    return true;
}

// A signal that comes just before a call that blocks would be lost without the repetition.
void repeat() {
    itimerval timer{};
    timer.it_interval.tv_usec = timer.it_value.tv_usec = 100000;
    setitimer(ITIMER_REAL, &timer, nullptr);
}

void handle(int number) {
    const int error = errno;
    if (!passedOn(number) && number != SIGALRM) {
        if (s_signals.fetch_add(1) > 0) _exit(static_cast<int>(ExitCode::Interrupted));
        repeat();
    }
    errno = error;
}

}  // namespace

void Interrupt::install() {
    s_mainThread = pthread_self();
    struct sigaction action {};
    action.sa_handler = handle;
    sigemptyset(&action.sa_mask);
    for (const int number : {SIGINT, SIGTERM, SIGALRM}) {
        struct sigaction before {};
        sigaction(number, nullptr, &before);
        // A shell starts what runs in the background with SIGINT ignored, and so it stays.
        if (before.sa_handler != SIG_IGN || number == SIGALRM) sigaction(number, &action, nullptr);
    }
    // A reader that goes away is an error of the write.
    action.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &action, nullptr);
}

bool Interrupt::isPending() { return s_signals.load() > 0; }
