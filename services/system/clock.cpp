#include "support/clock.h"

#include <cerrno>
#include <ctime>

namespace {

constexpr long s_nanosPerSecond = 1000000000;

timespec monotonicNow() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now;
}

}  // namespace

long long Clock::nowRelative() {
    const timespec now = monotonicNow();
    return static_cast<long long>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}

void waitMsec(unsigned int msec) {
    // Up to a point in time, so that a signal doesn't make the sleep longer.
    timespec end = monotonicNow();
    end.tv_sec += static_cast<time_t>(msec / 1000);
    end.tv_nsec += static_cast<long>(msec % 1000) * 1000000;
    if (end.tv_nsec >= s_nanosPerSecond) {
        end.tv_nsec -= s_nanosPerSecond;
        ++end.tv_sec;
    }
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr) == EINTR) {
    }
}
