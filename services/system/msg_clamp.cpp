#include "services/system/msg_clamp.h"

#include <cstdio>
#include <cstring>

#include "support/clock.h"

namespace {

void sendNote(LogLevel level, const char* format, ...) {
    std::va_list args;
    va_start(args, format);
    logMsg(level, format, args);
    va_end(args);
}

}  // namespace

MsgClamp::~MsgClamp() {
    const unsigned heldBack = m_heldBack.load(std::memory_order_relaxed);
    if (heldBack == 0) return;
    char about[s_aboutWords * 8 + 1] = "";
    for (unsigned i = 0; i < s_aboutWords; ++i) {
        const std::uint64_t word = m_about[i].load(std::memory_order_relaxed);
        std::memcpy(about + i * 8, &word, 8);
    }
    const int length = static_cast<int>(std::strcspn(about, "\n"));
    sendNote(LogLevel::Warning, "\"%.*s\" (%u more held back)", length, about, heldBack);
}

bool MsgClamp::admit(std::int64_t now) {
    const std::uint64_t second = static_cast<std::uint64_t>(now / 1000000) + 1;
    std::uint64_t window = m_window.load(std::memory_order_relaxed);
    for (;;) {
        // A thread that read the clock a little earlier counts in the second that has begun since.
        const bool same = (window >> 8) >= second;
        const std::uint64_t lines = same ? (window & 255u) : 0;
        if (lines >= s_linesPerSecond) {
            m_heldBack.fetch_add(1, std::memory_order_relaxed);
            return false;
        }
        const std::uint64_t next = ((same ? window >> 8 : second) << 8) | (lines + 1);
        if (m_window.compare_exchange_weak(window, next, std::memory_order_relaxed)) return true;
    }
}

// How the first line begins that was held back. Torn when two threads do it at once, which costs no more than an odd
// text.
void MsgClamp::remember(const char* format) {
    if (format == nullptr) return;
    char about[s_aboutWords * 8] = "";
    std::memcpy(about, format, ::strnlen(format, sizeof(about)));
    for (unsigned i = 0; i < s_aboutWords; ++i) {
        std::uint64_t word;
        std::memcpy(&word, about + i * 8, 8);
        m_about[i].store(word, std::memory_order_relaxed);
    }
}

void MsgClamp::message(LogLevel level, const char* format, std::va_list args) {
    if (!admit(Clock::nowRelative())) {
        if (getHeldBack() == 1 || m_about[0].load(std::memory_order_relaxed) == 0) remember(format);
        return;
    }
    const unsigned heldBack = m_heldBack.exchange(0, std::memory_order_relaxed);
    if (heldBack == 0) {
        logMsg(level, format, args);
        return;
    }
    char note[40];
    std::snprintf(note, sizeof(note), "(%u more held back)", heldBack);
    logMsg(level, format, args, note);
}

void MsgClamp::error(const char* format, ...) {
    std::va_list args;
    va_start(args, format);
    message(LogLevel::Error, format, args);
    va_end(args);
}

void MsgClamp::warning(const char* format, ...) {
    std::va_list args;
    va_start(args, format);
    message(LogLevel::Warning, format, args);
    va_end(args);
}

void MsgClamp::info(const char* format, ...) {
    std::va_list args;
    va_start(args, format);
    message(LogLevel::Info, format, args);
    va_end(args);
}

void MsgClamp::debug(const char* format, ...) {
    std::va_list args;
    va_start(args, format);
    message(LogLevel::Debug, format, args);
    va_end(args);
}
