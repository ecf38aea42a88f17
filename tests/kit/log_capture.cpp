#include "tests/kit/log_capture.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

namespace kit {

void LogCapture::write(const LogMessage& message) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.push_back({message.m_level, std::string(message.m_text, message.m_length)});
}

void LogCapture::clear() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.clear();
}

std::vector<LogCapture::Line> LogCapture::lines() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines;
}

unsigned LogCapture::count(LogLevel level, std::string_view pattern) const {
    const std::vector<Line> all = lines();
    return static_cast<unsigned>(std::count_if(all.begin(), all.end(), [&](const Line& line) {
        return line.m_level == level && matches(pattern, line.m_text);
    }));
}

unsigned LogCapture::count(std::string_view pattern) const {
    const std::vector<Line> all = lines();
    return static_cast<unsigned>(
        std::count_if(all.begin(), all.end(), [&](const Line& line) { return matches(pattern, line.m_text); }));
}

int LogCapture::find(std::string_view pattern) const {
    const std::vector<Line> all = lines();
    const auto at =
        std::find_if(all.begin(), all.end(), [&](const Line& line) { return matches(pattern, line.m_text); });
    return at == all.end() ? -1 : static_cast<int>(at - all.begin());
}

std::string LogCapture::text() const {
    std::string all;
    for (const Line& line : lines())
        all += std::string(getLogLevelName(line.m_level)) + ": " + line.m_text + "\n";
    return all;
}

bool LogCapture::matches(std::string_view pattern, std::string_view text) {
    std::size_t p = 0, t = 0, star = std::string_view::npos, retry = 0;
    while (t < text.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            retry = t;
        } else if (p < pattern.size() && pattern[p] == text[t]) {
            ++p;
            ++t;
        } else if (star != std::string_view::npos) {
            p = star + 1;
            t = ++retry;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == '*')
        ++p;
    return p == pattern.size();
}

std::string formatted(const char* format, ...) {
    char text[4096];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    return text;
}

}  // namespace kit
