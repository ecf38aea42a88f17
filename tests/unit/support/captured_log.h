#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "services/system/log.h"

// Takes all messages of the process while it lives.
class CapturedLog : public LogSink {
public:
    struct Line {
        LogLevel m_level;
        std::string m_text;
    };

    CapturedLog() : m_before(setLogSink(this)) {}
    ~CapturedLog() override { setLogSink(m_before); }

    void write(const LogMessage& message) override {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_lines.push_back({message.m_level, std::string(message.m_text, message.m_length)});
    }

    std::vector<Line> lines() const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_lines;
    }

    // How many lines of that level have the text in them.
    int count(LogLevel level, const std::string& text) const {
        int found = 0;
        for (const Line& line : lines()) {
            if (line.m_level == level && line.m_text.find(text) != std::string::npos) ++found;
        }
        return found;
    }

private:
    LogSink* const m_before;
    mutable std::mutex m_mutex;
    std::vector<Line> m_lines;
};
