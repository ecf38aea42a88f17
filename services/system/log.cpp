#include "services/system/log.h"

#include <sys/prctl.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <string_view>
#include <thread>

#include "services/system/log_destination.h"
#include "services/system/log_ring.h"

// Everything here is ready before the first constructor of the process runs and stays after the last destructor:
// messages come from both.
namespace {

constexpr std::size_t s_maxText = 65536;  // bytes of one message
constexpr const char* s_levelNames[] = {"error", "warning", "info", "debug"};

constinit std::atomic<LogSink*> s_sink{nullptr};
constinit std::atomic<LogLevel> s_level{LogLevel::Debug};
constinit std::atomic<LogDestination> s_destination{LogDestination::StandardError};
constinit std::atomic<unsigned> s_settingsState{0};  // 0 not read, 1 being read, 2 read
constinit JournalLog s_journal("/run/systemd/journal/socket");

// Counts the threads inside sinks, in two groups, so that a new sink waits for those who may still have the old one,
// and not for a stream of new ones. All sequentially consistent: whoever isn't counted when the setter looks loads the
// sink later.
constinit std::atomic<unsigned> s_group{0};
constinit std::atomic<unsigned> s_inside[2] = {};
constinit std::mutex s_setter;  // one setter at a time; never held by those who log

thread_local unsigned t_insideSink = 0;

class SinkUse {
public:
    SinkUse() : m_group(s_group.load() & 1u) {
        s_inside[m_group].fetch_add(1);
        m_sink = s_sink.load();
    }
    ~SinkUse() { s_inside[m_group].fetch_sub(1); }
    SinkUse(const SinkUse&) = delete;
    SinkUse& operator=(const SinkUse&) = delete;

    LogSink* get() const { return m_sink; }

private:
    unsigned m_group;
    LogSink* m_sink;
};

// Two turns: a thread that read the group long ago may be counted in the one that isn't in use now.
void waitForOldSink() {
    for (int turn = 0; turn < 2; ++turn) {
        const unsigned old = s_group.fetch_xor(1u) & 1u;
        while (s_inside[old].load() != 0) {
            std::this_thread::yield();
        }
    }
}

void readSettings() {
    if (s_settingsState.load(std::memory_order_acquire) == 2) return;
    unsigned expected = 0;
    if (!s_settingsState.compare_exchange_strong(expected, 1)) return;
    if (const char* settings = std::getenv("MEDIACORE_LOG")) applyLogSettings(settings);
    s_settingsState.store(2, std::memory_order_release);
}

void writeToDestination(const LogMessage& message) {
    switch (s_destination.load(std::memory_order_relaxed)) {
        case LogDestination::None:
            return;
        case LogDestination::Journal:
            if (s_journal.write(message)) return;
            break;
        case LogDestination::StandardError:
            break;
    }
    writeLogToStandardError(message);
}

void deliver(const LogMessage& message) {
    if (t_insideSink != 0) {
        writeLogToStandardError(message);
        return;
    }
    const SinkUse use;
    if (use.get() == nullptr) {
        writeToDestination(message);
        return;
    }
    ++t_insideSink;
    use.get()->write(message);
    --t_insideSink;
}

std::int64_t getWallTime() {
    timespec now = {};
    ::clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}

// Makes one line of the text; gives its length.
std::size_t toOneLine(char* text, std::size_t length) {
    while (length > 0 && (text[length - 1] == '\n' || text[length - 1] == '\r')) {
        --length;
    }
    text[length] = 0;
    for (std::size_t i = 0; i < length; ++i) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c >= 0x20 && c != 0x7f) continue;
        if (c == '\t') continue;
        text[i] = c == '\n' ? '|' : '?';
    }
    return length;
}

void emit(LogLevel level, char* text, std::size_t length) {
    char threadName[16] = "";
    ::prctl(PR_GET_NAME, threadName);
    LogMessage message;
    message.m_level = level;
    message.m_time = getWallTime();
    message.m_threadId = static_cast<std::uint32_t>(::gettid());
    message.m_threadName = threadName;
    message.m_text = text;
    message.m_length = toOneLine(text, length);
    getLogRing().add(message);
    if (level <= s_level.load(std::memory_order_relaxed)) deliver(message);
}

// Adds the note behind the text's one line, as far as there is room.
std::size_t addNote(char* text, std::size_t length, std::size_t size, const char* note) {
    length = toOneLine(text, length);
    const int added = std::snprintf(text + length, size - length, "%s%s", length == 0 ? "" : " ", note);
    if (added <= 0) return length;
    const std::size_t whole = length + static_cast<std::size_t>(added);
    return whole < size ? whole : size - 1;
}

void emitFormatted(LogLevel level, char* text, std::size_t size, int wanted, const char* note) {
    std::size_t length = static_cast<std::size_t>(wanted) < size ? static_cast<std::size_t>(wanted) : size - 1;
    if (note != nullptr) length = addNote(text, length, size, note);
    emit(level, text, length);
}

}  // namespace

void logMsg(LogLevel level, const char* format, std::va_list args, const char* note) {
    const int error = errno;
    readSettings();
    char local[1024];
    std::va_list again;
    va_copy(again, args);
    int wanted = format != nullptr ? std::vsnprintf(local, sizeof(local), format, args) : 0;
    if (wanted < 0) {
        // A wide character that can't be turned into bytes; what the format itself says is better than nothing.
        std::snprintf(local, sizeof(local), "%s", format);
        wanted = static_cast<int>(std::strlen(local));
    }
    const std::size_t needed = static_cast<std::size_t>(wanted) + 1 + (note != nullptr ? std::strlen(note) + 1 : 0);
    const std::size_t size = needed < s_maxText ? needed : s_maxText;
    char* large = needed > sizeof(local) ? new (std::nothrow) char[size] : nullptr;
    if (large != nullptr) {
        std::vsnprintf(large, size, format, again);
        emitFormatted(level, large, size, wanted, note);
        delete[] large;
    } else {
        emitFormatted(level, local, sizeof(local), wanted, note);
    }
    va_end(again);
    errno = error;
}

void errorMsg(const char* format, ...) {
    std::va_list args;
    va_start(args, format);
    logMsg(LogLevel::Error, format, args);
    va_end(args);
}

void warningMsg(const char* format, ...) {
    std::va_list args;
    va_start(args, format);
    logMsg(LogLevel::Warning, format, args);
    va_end(args);
}

void infoMsg(const char* format, ...) {
    std::va_list args;
    va_start(args, format);
    logMsg(LogLevel::Info, format, args);
    va_end(args);
}

void debugMsg(const char* format, ...) {
    std::va_list args;
    va_start(args, format);
    logMsg(LogLevel::Debug, format, args);
    va_end(args);
}

LogSink* setLogSink(LogSink* sink) {
    // A sink that sets another one is itself counted as inside, and would wait for itself.
    if (t_insideSink != 0) return s_sink.exchange(sink);
    const std::lock_guard<std::mutex> guard(s_setter);
    LogSink* const old = s_sink.exchange(sink);
    waitForOldSink();
    return old;
}

void setLogDestination(LogDestination destination) {
    readSettings();
    s_destination.store(destination, std::memory_order_relaxed);
}

LogDestination getLogDestination() {
    readSettings();
    return s_destination.load(std::memory_order_relaxed);
}

void setLogLevel(LogLevel level) {
    readSettings();
    s_level.store(level, std::memory_order_relaxed);
}

LogLevel getLogLevel() {
    readSettings();
    return s_level.load(std::memory_order_relaxed);
}

const char* getLogLevelName(LogLevel level) {
    const unsigned index = static_cast<unsigned>(level);
    return index < 4 ? s_levelNames[index] : "?";
}

bool parseLogLevel(const char* name, LogLevel& level) {
    if (name == nullptr) return false;
    for (unsigned i = 0; i < 4; ++i) {
        if (std::string_view(name) != s_levelNames[i]) continue;
        level = static_cast<LogLevel>(i);
        return true;
    }
    return false;
}

namespace {

bool applyWord(const char* word, LogLevel& level, LogDestination& destination) {
    if (parseLogLevel(word, level)) return true;
    const std::string_view name(word);
    if (name == "stderr") {
        destination = LogDestination::StandardError;
    } else if (name == "journal") {
        destination = LogDestination::Journal;
    } else if (name == "none") {
        destination = LogDestination::None;
    } else {
        return false;
    }
    return true;
}

}  // namespace

bool applyLogSettings(const char* settings) {
    LogLevel level = s_level.load(std::memory_order_relaxed);
    LogDestination destination = s_destination.load(std::memory_order_relaxed);
    std::string_view rest(settings != nullptr ? settings : "");
    while (!rest.empty()) {
        const std::size_t comma = rest.find(',');
        const std::string_view word = rest.substr(0, comma);
        rest = comma == std::string_view::npos ? std::string_view() : rest.substr(comma + 1);
        char text[16] = "";
        const bool fits = word.size() < sizeof(text);
        if (fits) word.copy(text, word.size());
        if (fits && (word.empty() || applyWord(text, level, destination))) continue;
        warningMsg("log settings \"%s\": \"%.*s\" is none of error, warning, info, debug, stderr, journal, none\n",
                   settings, static_cast<int>(word.size()), word.data());
        return false;
    }
    s_level.store(level, std::memory_order_relaxed);
    s_destination.store(destination, std::memory_order_relaxed);
    return true;
}
