#pragma once

#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "services/system/log.h"

namespace kit {

// What the log says while this stands. Nothing goes to the log's destination meanwhile.
// A pattern is a whole line in which `*` stands for any text.
// **Threads:** any.
class LogCapture : public LogSink {
public:
    struct Line {
        LogLevel m_level;
        std::string m_text;
    };

    LogCapture() : m_before(setLogSink(this)) {}
    ~LogCapture() override { setLogSink(m_before); }

    void write(const LogMessage& message) override;
    void clear();
    std::vector<Line> lines() const;
    // Lines of that level that are the pattern.
    unsigned count(LogLevel level, std::string_view pattern) const;
    // Lines of any level that are the pattern.
    unsigned count(std::string_view pattern) const;
    bool has(std::string_view pattern) const { return count(pattern) != 0; }
    bool has(LogLevel level, std::string_view pattern) const { return count(level, pattern) != 0; }
    // The place of the first such line, or -1.
    int find(std::string_view pattern) const;
    // All lines, one below the other, for a failure's message.
    std::string text() const;

    static bool matches(std::string_view pattern, std::string_view text);

private:
    mutable std::mutex m_mutex;
    std::vector<Line> m_lines;
    LogSink* m_before;
};

// A text formatted as a message is.
std::string formatted(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace kit
