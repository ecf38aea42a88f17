#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <thread>

namespace kit {

// Ends the process when a test hangs, so that its threads show where they stand.
class Watchdog {
public:
    explicit Watchdog(std::chrono::seconds limit) {
        m_thread = std::thread([this, limit] {
            std::unique_lock<std::mutex> lock(m_mutex);
            if (m_changed.wait_for(lock, limit, [this] { return m_done; })) return;
            std::fprintf(stderr, "watchdog: the test hangs\n");
            std::abort();
        });
    }
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;
    ~Watchdog() {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_done = true;
        }
        m_changed.notify_all();
        m_thread.join();
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_done = false;
    std::thread m_thread;
};

}  // namespace kit
