#pragma once

#include <atomic>

#include "services/system/log.h"
#include "support/visibility.h"

// Writes "time level [thread id] text" to standard error, in one piece unless the reader
// takes it in several. A line that can't be written is lost; a reader that has gone harms nobody.
MO_PUBLIC void writeLogToStandardError(const LogMessage& message);

// The journal of the system, by its own datagram protocol.
//
// **Threads:** any; the socket is opened by the first message and kept for ever.
class MO_PUBLIC JournalLog {
public:
    // Takes: the path of the journal's socket, borrowed for ever.
    explicit constexpr JournalLog(const char* path) : m_path(path) {}

    // Fails: false when there is no journal or it doesn't take the message; never blocks.
    bool write(const LogMessage& message);

private:
    int openSocket();

    const char* m_path;
    std::atomic<int> m_socket{-1};
};
