#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>

#include "support/visibility.h"

enum class LogLevel : std::uint32_t { Error = 0, Warning = 1, Info = 2, Debug = 3 };

// One message at the level that the name says. The text may or may not end in a line's end: exactly one line goes out.
// `errno` comes back unchanged.
// Thread: any, also with any lock of the core held; takes no lock that a sink could want.
MO_PUBLIC void errorMsg(const char* format, ...) __attribute__((format(printf, 1, 2)));
MO_PUBLIC void warningMsg(const char* format, ...) __attribute__((format(printf, 1, 2)));
MO_PUBLIC void infoMsg(const char* format, ...) __attribute__((format(printf, 1, 2)));
MO_PUBLIC void debugMsg(const char* format, ...) __attribute__((format(printf, 1, 2)));

// The same for a list of arguments; `note`, if given, is added behind the text.
MO_PUBLIC void logMsg(LogLevel level, const char* format, std::va_list args, const char* note = nullptr)
    __attribute__((format(printf, 2, 0)));

// One message as a sink gets it; everything in it is borrowed for the length of the call.
struct LogMessage {
    LogLevel m_level = LogLevel::Info;
    std::int64_t m_time = 0;       // µs since 1970, UTC
    std::uint32_t m_threadId = 0;  // the kernel's number of the thread
    const char* m_threadName = "";
    const char* m_text =
        "";  // one line without its end; a line's end inside is shown as "|", other control characters as "?"
    std::size_t m_length = 0;  // bytes of m_text
};

// Where the messages go.
//
// **Threads:** `write` is called on the thread that logs, by several at once, and with no lock of the log held. A sink
// may log: what it says inside `write` goes to standard error.
class MO_PUBLIC LogSink {
public:
    virtual ~LogSink() = default;
    virtual void write(const LogMessage& message) = 0;
};

// Where messages go when the host has no sink of its own.
enum class LogDestination : std::uint32_t { StandardError = 0, Journal = 1, None = 2 };

// Sends all messages to the host's own sink, or with null to the destination again.
// Takes: the sink borrowed, until another one is set. Gives: the sink that was set before, or null.
// Waits: until no thread is inside the old sink any more, except when it is called from inside a sink.
MO_PUBLIC LogSink* setLogSink(LogSink* sink);

// The destination that serves when no sink is set.
MO_PUBLIC void setLogDestination(LogDestination destination);
MO_PUBLIC LogDestination getLogDestination();

// The least severe level that goes out; the ring of recent messages takes all of them. LogLevel::Debug at start, since
// what is written at that level is asked for by a switch.
MO_PUBLIC void setLogLevel(LogLevel level);
MO_PUBLIC LogLevel getLogLevel();

// Takes over level and destination from a text such as "debug,stderr", "journal", "warning" or "none", which is also
// the form of the environment variable MEDIACORE_LOG, read before the first message. Fails: false for an unknown word,
// with a warning that names it; nothing is changed then.
MO_PUBLIC bool applyLogSettings(const char* settings);

// "error", "warning", "info" or "debug".
MO_PUBLIC const char* getLogLevelName(LogLevel level);

// The level of that name. Fails: false for any other text; the level is left alone.
MO_PUBLIC bool parseLogLevel(const char* name, LogLevel& level);
