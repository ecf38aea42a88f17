#pragma once

#include <atomic>
#include <cstdarg>
#include <cstdint>

#include "services/system/log.h"
#include "support/visibility.h"

// Keeps a flood of messages down to a few lines: five in a second go out, the others are counted.
//
// The count is told at the end of the next message that goes out, as "(N more held back)"; if none comes any more, the
// destructor tells it in a line of its own.
// **Threads:** any; no lock, no allocation of its own.
class MO_PUBLIC MsgClamp {
public:
    static constexpr unsigned s_linesPerSecond = 5;

    constexpr MsgClamp() = default;
    ~MsgClamp();
    MsgClamp(const MsgClamp&) = delete;
    MsgClamp& operator=(const MsgClamp&) = delete;

    void error(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void warning(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void info(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void debug(const char* format, ...) __attribute__((format(printf, 2, 3)));

    // Takes one line out of the budget as of `now`, µs of a clock that never goes back, and otherwise counts it as held
    // back.
    bool admit(std::int64_t now);

    // Lines held back since the last one that went out.
    unsigned getHeldBack() const { return m_heldBack.load(std::memory_order_relaxed); }

private:
    void message(LogLevel level, const char* format, va_list args) __attribute__((format(printf, 3, 0)));

    void remember(const char* format);

    static constexpr unsigned s_aboutWords = 6;

    std::atomic<std::uint64_t> m_window{0};  // second of the clock plus 1, times 256, plus the lines let out in it
    std::atomic<std::uint32_t> m_heldBack{0};
    std::atomic<std::uint64_t> m_about[s_aboutWords] =
        {};  // how the format of a line held back begins; for the destructor
};
