#pragma once

#include <atomic>
#include <cstdint>

#include "support/visibility.h"

// A reference count, as a base class or as a member of the object that it counts.
// **Threads:** preserve, release and getCount from any thread.
// **Owns:** itself, when made with autoDelete: the release that comes to 0 deletes it through its virtual destructor.
class MO_PUBLIC RefCount {
public:
    // Where a count that can't be right was seen.
    enum class Where : std::uint32_t { Destructor = 0, Release = 1 };

    RefCount(bool autoDelete, int count) : m_autoDelete(autoDelete), m_count(count) {}
    RefCount(const RefCount&) = delete;
    RefCount& operator=(const RefCount&) = delete;

    // A count of 1 is accepted as well as 0: an object made with one reference may go without a last release.
    virtual ~RefCount() {
        const int count = getCount();
        if (count > 1) notifyBadCount(Where::Destructor, count);
    }

    // Takes a reference and answers the new count.
    int preserve() { return m_count.fetch_add(1) + 1; }

    // Gives a reference back and answers the new count. The object may be gone when this answers 0.
    int release() {
        // A full barrier, as with every counter: what this holder did comes before, the destruction behind.
        const int count = m_count.fetch_sub(1) - 1;
        if (count == 0 && m_autoDelete) {
            destroy();
            return 0;
        }
        if (count < 0) notifyBadCount(Where::Release, count);
        return count;
    }

    // The same if `least` or more references are left then; otherwise it changes nothing and answers -1.
    int releaseDownTo(int least) {
        int count = m_count.load(std::memory_order_relaxed);
        while (count > least) {
            if (m_count.compare_exchange_weak(count, count - 1)) return count - 1;
        }
        return -1;
    }

    int getCount() const { return m_count.load(std::memory_order_acquire); }

    // Reports a count that can't be right as an error with the caller's stack; execution goes on.
    void notifyBadCount(Where where, int count) const;

private:
    // Kept out of line: seen through a count that is a member, the delete looks to the compiler like one of an inner
    // part.
    [[gnu::noinline]] void destroy() { delete this; }

    const bool m_autoDelete;
    std::atomic<int> m_count;
};
