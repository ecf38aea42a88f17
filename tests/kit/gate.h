#pragma once

#include <atomic>

#include "support/clock.h"

namespace kit {

// A place where threads are held up until a test lets them go on. Open at first.
// **Threads:** any.
class Gate {
public:
    void close() { m_open.store(false, std::memory_order_release); }
    void open() { m_open.store(true, std::memory_order_release); }
    // Goes through, or waits until the gate is opened.
    void pass() {
        ++m_waiting;
        while (!m_open.load(std::memory_order_acquire))
            waitMsec(1);
        --m_waiting;
    }
    // Threads that stand before the gate now.
    int waiting() const { return m_waiting.load(); }

private:
    std::atomic<bool> m_open{true};
    std::atomic<int> m_waiting{0};
};

}  // namespace kit
