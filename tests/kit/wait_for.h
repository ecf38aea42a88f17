#pragma once

#include <chrono>
#include <thread>

namespace kit {

// Polls until `done` answers true. False when that hasn't come within a limit that no sound machine meets.
template <class Done>
bool waitFor(Done done, std::chrono::seconds limit = std::chrono::seconds(50)) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!done()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace kit
