#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "services/system/json_line.h"
#include "support/visibility.h"

// What a command is asked: the members of the request's line.
class MO_PUBLIC ControlRequest {
public:
    explicit ControlRequest(const JsonValue& line) : m_line(line) {}

    // The text of that member, borrowed for the length of the command; a number counts as its text. Null when there is
    // none.
    const char* getText(const char* key) const;
    bool has(const char* key) const { return m_line.find(key) != nullptr; }
    // The whole number of that member, or `missing`. Fails: false when it is something else.
    bool getUnsigned(const char* key, std::uint64_t& value, std::uint64_t missing) const;

private:
    const JsonValue& m_line;
};

// What a command answers: one JSON value, or a reason.
class MO_PUBLIC ControlReply {
public:
    // Where the value is written; nothing written is null.
    JsonWriter& result() { return m_result; }
    // Notes the reason. Gives: false, for the command to return.
    bool fail(const char* format, ...) __attribute__((format(printf, 2, 3)));

    const std::string& getReason() const { return m_reason; }

private:
    JsonWriter m_result;
    std::string m_reason;
};

// Answers whether it was done; one that wasn't has called `fail`, and has changed nothing.
using ControlCommand = std::function<bool(const ControlRequest& request, ControlReply& reply)>;

// The commands that the control socket knows, by their names.
//
// **Threads:** any. **Locks:** a leaf of its own for the table; never held while a command runs.
class MO_PUBLIC ControlCommands {
public:
    // Takes: name and help borrowed, the function kept, all for ever. Fails: false when the name is taken.
    static bool add(const char* name, const char* help, ControlCommand command);

    // Answers one line, {"id":1,"cmd":"help"}, by one line without its end: {"id":1,"ok":true,"result":…} or
    // {"id":1,"ok":false,"error":"reason"}. Thread: the command runs in this one.
    static std::string execute(std::string_view line);

    // The library's, for ever.
    static const char* getVersion();

    // The reply to a line that can't be read at all.
    static std::string refuse(std::string_view reason);
};
