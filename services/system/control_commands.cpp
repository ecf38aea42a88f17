#include "services/system/control_commands.h"

#include <cstdarg>
#include <deque>
#include <map>
#include <mutex>
#include <utility>

#include "services/system/format_str.h"
#include "services/system/log_ring.h"
#include "services/system/switch_bank.h"

#ifndef MEDIACORE_VERSION
#define MEDIACORE_VERSION "unversioned"
#endif

namespace {

struct Entry {
    const char* m_help = nullptr;
    ControlCommand m_command;
};

struct Table {
    std::mutex m_lock;
    std::map<std::string, Entry, std::less<>> m_entries;  // never taken out, so that a command can run without the lock
};

bool showHelp(const ControlRequest& request, ControlReply& reply);

bool showVersion(const ControlRequest&, ControlReply& reply) {
    reply.result().string(ControlCommands::getVersion());
    return true;
}

void writeBits(const DebuggerOn& item, JsonWriter& out, bool all) {
    out.beginArray();
    for (unsigned bit = 0; bit < item.getBitCount(); ++bit) {
        if (!all && !item.on(bit)) continue;
        out.string(item.getBitName(bit) != nullptr ? item.getBitName(bit) : "");
    }
    out.endArray();
}

void writeSwitch(DebuggerOn& item, void* context) {
    JsonWriter& out = *static_cast<JsonWriter*>(context);
    out.beginObject().key("name").string(item.getName()).key("value").number(item.get());
    if (item.isBitField()) {
        writeBits(item, out.key("on"), false);
        writeBits(item, out.key("bits"), true);
    }
    out.endObject();
}

bool listSwitches(const ControlRequest&, ControlReply& reply) {
    reply.result().beginArray();
    SwitchBank::visit(&writeSwitch, &reply.result());
    reply.result().endArray();
    return true;
}

// The member that a command can't do without, or null with the reason.
const char* demand(const ControlRequest& request, ControlReply& reply, const char* key) {
    const char* const text = request.getText(key);
    if (text == nullptr) reply.fail("\"%s\" is missing, or no text", key);
    return text;
}

bool showSwitch(const char* name, ControlReply& reply) {
    if (SwitchBank::visit(name, &writeSwitch, &reply.result())) return true;
    return reply.fail("no switch is named \"%.80s\"", name);
}

bool getSwitch(const ControlRequest& request, ControlReply& reply) {
    const char* const name = demand(request, reply, "name");
    return name != nullptr && showSwitch(name, reply);
}

bool finishChange(bool changed, const char* name, const FormatStr& reason, ControlReply& reply) {
    return changed ? showSwitch(name, reply) : reply.fail("%s", reason.get());
}

bool setSwitch(const ControlRequest& request, ControlReply& reply) {
    const char* const name = demand(request, reply, "name");
    const char* const value = name != nullptr ? demand(request, reply, "value") : nullptr;
    if (value == nullptr) return false;
    FormatStr reason(128u);
    return finishChange(SwitchBank::set(name, value, reason), name, reason, reply);
}

bool setSwitchBit(const ControlRequest& request, ControlReply& reply) {
    const char* const name = demand(request, reply, "name");
    const char* const bit = name != nullptr ? demand(request, reply, "bit") : nullptr;
    if (bit == nullptr) return false;
    FormatStr reason(128u);
    return finishChange(SwitchBank::setBits(name, bit, true, reason), name, reason, reply);
}

bool clearSwitch(const ControlRequest& request, ControlReply& reply) {
    const char* const name = demand(request, reply, "name");
    if (name == nullptr) return false;
    FormatStr reason(128u);
    if (request.has("bit")) {
        const char* const bit = demand(request, reply, "bit");
        return bit != nullptr && finishChange(SwitchBank::setBits(name, bit, false, reason), name, reason, reply);
    }
    return finishChange(SwitchBank::set(name, "0", reason), name, reason, reply);
}

struct RingQuery {
    LogLevel m_level = LogLevel::Debug;
    std::uint64_t m_count = 0;
    std::deque<std::string> m_lines;  // the last m_count messages, as JSON
};

bool takeMessage(const LogMessage& message, void* context) {
    RingQuery& query = *static_cast<RingQuery*>(context);
    if (message.m_level > query.m_level) return true;
    JsonWriter line;
    line.beginObject().key("time").number(message.m_time).key("level").string(getLogLevelName(message.m_level));
    line.key("thread").string(message.m_threadName).key("threadId").number(message.m_threadId);
    line.key("text").string(std::string_view(message.m_text, message.m_length)).endObject();
    query.m_lines.push_back(line.get());
    if (query.m_lines.size() > query.m_count) query.m_lines.pop_front();
    return true;
}

bool showLogRing(const ControlRequest& request, ControlReply& reply) {
    RingQuery query;
    if (!request.getUnsigned("count", query.m_count, LogRing::s_slots))
        return reply.fail("\"count\" isn't a whole number");
    if (request.has("level")) {
        const char* const level = demand(request, reply, "level");
        if (level == nullptr) return false;
        if (!parseLogLevel(level, query.m_level))
            return reply.fail("\"%.80s\" is none of error, warning, info, debug", level);
    }
    getLogRing().visit(&takeMessage, &query);
    reply.result().beginArray();
    for (const std::string& line : query.m_lines) {
        reply.result().raw(line);
    }
    reply.result().endArray();
    return true;
}

void addOwnCommands(std::map<std::string, Entry, std::less<>>& entries) {
    entries["help"] = {"lists every command with its description", &showHelp};
    entries["version"] = {"the version of the library", &showVersion};
    entries["switch.list"] = {"lists every switch with its value and its bits", &listSwitches};
    entries["switch.get"] = {"shows the switch \"name\"", &getSwitch};
    entries["switch.set"] = {"sets the switch \"name\" to \"value\": a number, or names of bits with | between",
                             &setSwitch};
    entries["switch.setbit"] = {"sets the bit \"bit\" of the switch \"name\", given by its name or number",
                                &setSwitchBit};
    entries["switch.clear"] = {"clears the bit \"bit\" of the switch \"name\", or without \"bit\" the whole switch",
                               &clearSwitch};
    entries["log.ring"] = {"the recent messages, oldest first: the last \"count\", as severe as \"level\" or more",
                           &showLogRing};
}

// Never destroyed: the socket's thread and static destructors may still ask.
Table& getTable() {
    static Table* const table = [] {
        Table* const made = new Table;
        addOwnCommands(made->m_entries);
        return made;
    }();
    return *table;
}

bool showHelp(const ControlRequest&, ControlReply& reply) {
    Table& table = getTable();
    const std::lock_guard<std::mutex> guard(table.m_lock);
    reply.result().beginObject();
    for (const auto& [name, entry] : table.m_entries) {
        reply.result().key(name).string(entry.m_help);
    }
    reply.result().endObject();
    return true;
}

const Entry* findEntry(std::string_view name) {
    Table& table = getTable();
    const std::lock_guard<std::mutex> guard(table.m_lock);
    const auto found = table.m_entries.find(name);
    return found != table.m_entries.end() ? &found->second : nullptr;
}

bool runCommand(const JsonValue& line, ControlReply& reply) {
    const ControlRequest request(line);
    const char* const name = demand(request, reply, "cmd");
    if (name == nullptr) return false;
    const Entry* const entry = findEntry(name);
    if (entry == nullptr) return reply.fail("no command is named \"%.80s\"; \"help\" lists them", name);
    return entry->m_command(request, reply);
}

std::string compose(std::string_view id, bool done, ControlReply& reply) {
    JsonWriter out;
    out.beginObject().key("id").raw(id).key("ok").boolean(done);
    if (done) {
        out.key("result").raw(reply.result().empty() ? std::string_view("null")
                                                     : std::string_view(reply.result().get()));
    } else {
        out.key("error").string(reply.getReason());
    }
    out.endObject();
    return out.get();
}

// The id as it goes back: a number or a text. Fails: false for anything else.
bool takeId(const JsonValue& line, std::string& id) {
    const JsonValue* const given = line.find("id");
    if (given == nullptr || given->getKind() == JsonValue::Kind::Null) return true;
    if (given->getKind() == JsonValue::Kind::Number) {
        id = given->getText();
        return true;
    }
    if (given->getKind() != JsonValue::Kind::String) return false;
    JsonWriter text;
    id = text.string(given->getText()).get();
    return true;
}

}  // namespace

const char* ControlRequest::getText(const char* key) const {
    const JsonValue* const value = m_line.find(key);
    if (value == nullptr) return nullptr;
    const bool isText = value->getKind() == JsonValue::Kind::String || value->getKind() == JsonValue::Kind::Number;
    return isText ? value->getText().c_str() : nullptr;
}

bool ControlRequest::getUnsigned(const char* key, std::uint64_t& value, std::uint64_t missing) const {
    const JsonValue* const member = m_line.find(key);
    if (member != nullptr) return member->getUnsigned(value);
    value = missing;
    return true;
}

bool ControlReply::fail(const char* format, ...) {
    FormatStr reason(128u);
    std::va_list args;
    va_start(args, format);
    reason.vformat(format, args);
    va_end(args);
    m_reason = reason.get();
    return false;
}

bool ControlCommands::add(const char* name, const char* help, ControlCommand command) {
    Table& table = getTable();
    const std::lock_guard<std::mutex> guard(table.m_lock);
    return table.m_entries.try_emplace(name, Entry{help, std::move(command)}).second;
}

const char* ControlCommands::getVersion() { return MEDIACORE_VERSION; }

std::string ControlCommands::execute(std::string_view line) {
    JsonValue request;
    std::string reason;
    if (!JsonValue::parse(line, request, reason)) return refuse("the line isn't JSON: " + reason);
    if (request.getKind() != JsonValue::Kind::Object) return refuse("the line isn't an object");
    std::string id = "null";
    if (!takeId(request, id)) return refuse("\"id\" is neither a number nor a text");
    ControlReply reply;
    const bool done = runCommand(request, reply);
    return compose(id, done, reply);
}

std::string ControlCommands::refuse(std::string_view reason) {
    ControlReply reply;
    reply.fail("%.*s", static_cast<int>(reason.size()), reason.data());
    return compose("null", false, reply);
}
