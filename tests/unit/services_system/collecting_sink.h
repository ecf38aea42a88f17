#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "services/system/log.h"

// Keeps what is logged while it lives, in place of standard error.
class CollectingSink : public LogSink {
public:
    CollectingSink() : m_before(setLogSink(this)) {}
    ~CollectingSink() override { setLogSink(m_before); }

    void write(const LogMessage& message) override {
        const std::lock_guard<std::mutex> guard(m_lock);
        m_levels.push_back(message.m_level);
        m_lines.emplace_back(message.m_text, message.m_length);
    }

    std::vector<std::string> getLines() const {
        const std::lock_guard<std::mutex> guard(m_lock);
        return m_lines;
    }
    std::vector<LogLevel> getLevels() const {
        const std::lock_guard<std::mutex> guard(m_lock);
        return m_levels;
    }

private:
    LogSink* m_before;
    mutable std::mutex m_lock;
    std::vector<LogLevel> m_levels;
    std::vector<std::string> m_lines;
};
