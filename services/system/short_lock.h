#pragma once

#include <atomic>
#include <cstdint>

#include "support/thread_annotations.h"

// A lock for a few instructions: it spins for about a microsecond and then sleeps. Not recursive, not fair.
// For the services' own queues and pools; whatever can wait or call out takes a mutex instead.
class MO_CAPABILITY("mutex") ShortLock {
public:
    ShortLock() = default;
    ShortLock(const ShortLock&) = delete;
    ShortLock& operator=(const ShortLock&) = delete;

    void lock() MO_ACQUIRE() {
        std::uint32_t expected = s_free;
        if (!m_state.compare_exchange_strong(expected, s_held, std::memory_order_acquire, std::memory_order_relaxed))
            lockSlow();
    }
    void unlock() MO_RELEASE() {
        if (m_state.exchange(s_free, std::memory_order_release) == s_awaited) wakeOne();
    }

private:
    static constexpr std::uint32_t s_free = 0;
    static constexpr std::uint32_t s_held = 1;
    static constexpr std::uint32_t s_awaited = 2;  // held, and somebody may be asleep

    void lockSlow();
    void wakeOne();

    std::atomic<std::uint32_t> m_state{s_free};
};

// Holds a ShortLock for a scope.
class MO_SCOPED_CAPABILITY ShortScope {
public:
    explicit ShortScope(ShortLock& lock) MO_ACQUIRE(lock) : m_lock(lock) { m_lock.lock(); }
    ~ShortScope() MO_RELEASE() { m_lock.unlock(); }
    ShortScope(const ShortScope&) = delete;
    ShortScope& operator=(const ShortScope&) = delete;

private:
    ShortLock& m_lock;
};

// Sleep and wake-up on a word in memory, as the kernel offers them.
namespace WordWait {
// Sleeps while the word has this value, at most `usec` microseconds (0 is without limit). May return early.
void sleepWhile(std::atomic<std::uint32_t>& word, std::uint32_t value, unsigned usec = 0);
// Wakes at most `count` sleepers.
void wake(std::atomic<std::uint32_t>& word, int count);
// Tells the processor that the caller is spinning.
inline void relax() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#else
    std::atomic_signal_fence(std::memory_order_seq_cst);
#endif
}
}  // namespace WordWait
