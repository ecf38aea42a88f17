#pragma once

#include <chrono>
#include <string>

#include "tools/options.h"

// How far a copy has come, on standard error: a bar on a terminal, else a line every 10 s.
class Progress {
public:
    Progress(ProgressKind kind, bool quiet, unsigned long long totalBytes);
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    // Ends the bar's line; one who reads JSON gets a last line in any case.
    ~Progress();

    void update(unsigned long long bytes);
    static bool hasTerminal();

private:
    using Clock = std::chrono::steady_clock;

    void show(Clock::time_point now) const;
    std::string bar() const;

    ProgressKind m_kind;
    const unsigned long long m_total;  // bytes
    const Clock::time_point m_start;
    Clock::time_point m_next;  // no line before this
    unsigned long long m_bytes = 0;
    bool m_shown = false;
};
