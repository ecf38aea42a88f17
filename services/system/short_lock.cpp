#include "services/system/short_lock.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

namespace {
constexpr int s_spins = 100;

std::uint32_t* cellOf(std::atomic<std::uint32_t>& word) { return reinterpret_cast<std::uint32_t*>(&word); }
static_assert(sizeof(std::atomic<std::uint32_t>) == sizeof(std::uint32_t), "the kernel sees the bare word");
}  // namespace

void WordWait::sleepWhile(std::atomic<std::uint32_t>& word, std::uint32_t value, unsigned usec) {
    const timespec limit{static_cast<time_t>(usec / 1000000), static_cast<long>(usec % 1000000) * 1000};
    syscall(SYS_futex, cellOf(word), FUTEX_WAIT_PRIVATE, value, usec == 0 ? nullptr : &limit, nullptr, 0);
}

void WordWait::wake(std::atomic<std::uint32_t>& word, int count) {
    syscall(SYS_futex, cellOf(word), FUTEX_WAKE_PRIVATE, count, nullptr, nullptr, 0);
}

void ShortLock::lockSlow() {
    for (int i = 0; i < s_spins; ++i) {
        std::uint32_t expected = s_free;
        if (m_state.load(std::memory_order_relaxed) == s_free &&
            m_state.compare_exchange_strong(expected, s_held, std::memory_order_acquire, std::memory_order_relaxed)) {
            return;
        }
        WordWait::relax();
    }
    while (m_state.exchange(s_awaited, std::memory_order_acquire) != s_free)
        WordWait::sleepWhile(m_state, s_awaited);
}

void ShortLock::wakeOne() { WordWait::wake(m_state, 1); }
