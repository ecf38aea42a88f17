#include "tools/status_text.h"

#include <cstdio>

#include "tools/text_form.h"

namespace {

// The member as text that a terminal may show.
std::string at(const Json& object, const char* name) {
    if (!object.is_object() || !object.contains(name) || object[name].is_null()) return "-";
    const Json& value = object[name];
    return printable(value.is_string() ? value.get<std::string>() : textOf(value));
}

bool isSet(const Json& object, const char* name) {
    return object.is_object() && object.contains(name) && object[name] == true;
}

const Json& memberOf(const Json& object, const char* name) {
    static const Json none;
    return object.is_object() && object.contains(name) ? object[name] : none;
}

std::string seconds(const Json& object, const char* name) {
    const Json& value = memberOf(object, name);
    if (!value.is_number()) return "-";
    char text[40];
    std::snprintf(text, sizeof text, "%.1f s", value.get<double>() / 1000);
    return text;
}

// How many clients have files of it open, and how many files.
std::string agents(const Json& object) {
    const Json& list = memberOf(object, "agents");
    if (!list.is_array() || list.empty()) return "";
    unsigned long long files = 0;
    for (const Json& agent : list)
        files += memberOf(agent, "files").is_number_unsigned() ? agent["files"].get<unsigned long long>() : 0;
    return ", agents " + std::to_string(list.size()) + " with open files " + std::to_string(files);
}

std::string objectLine(const Json& object) {
    std::string line = "  " + at(object, "state") + " " + at(object, "id");
    if (at(object, "state") == "reserved") return line + "\n";
    line += " " + at(object, "path") + ": references " + at(object, "references") + ", holders " +
            at(object, "holders") + ", writers " + at(object, "writers") + agents(object) + ", age " +
            seconds(object, "ageMsec") + ", idle " + seconds(object, "idleMsec") + ", version " + at(object, "version");
    if (const Json& waiting = memberOf(object, "waiting"); waiting.is_number() && waiting != 0)
        line += ", waiting " + at(object, "waiting");
    for (const char* flag : {"morphing", "writable", "recording"})
        line += isSet(object, flag) ? std::string(", ") + flag : "";
    return line + "\n";
}

std::string numbers(const Json& object) {
    std::string text;
    if (!object.is_object()) return "-";
    for (const auto& [name, value] : object.items())
        text += (text.empty() ? "" : ", ") + printable(name) + " " + printable(textOf(value));
    return text;
}

std::string currentLine(const Json& call) {
    return "  " + at(call, "kind") + " of " + at(call, "size") + " bytes at " + at(call, "offset") + " of " +
           at(call, "path") + ": for " + at(call, "msec") + " ms\n";
}

std::string slowLine(const Json& slow) {
    return "  " + at(slow, "kind") + " of " + at(slow, "size") + " bytes at " + at(slow, "offset") + " of " +
           at(slow, "path") + ": " + at(slow, "msec") + " ms, " + seconds(slow, "agoMsec") + " ago" +
           (at(slow, "error") == "0" ? "" : ", errno " + at(slow, "error")) + "\n";
}

}  // namespace

std::string statusText(const Json& status) {
    std::string text =
        "process " + at(status, "pid") + ", library " + at(status, "version") + ", " + at(status, "socket") + "\n";
    const Json& objects = memberOf(status, "objects");
    text += "objects: " + std::to_string(objects.is_array() ? objects.size() : 0) + "\n";
    if (objects.is_array()) {
        for (const Json& object : objects)
            text += objectLine(object);
    }
    const Json& ops = memberOf(status, "ops");
    text += "verdicts: " + numbers(memberOf(status, "verdicts")) + "\n";
    text += "under way: " + numbers(memberOf(ops, "inFlight")) + "\n";
    if (const Json& current = memberOf(ops, "current"); current.is_array()) {
        for (const Json& call : current)
            text += currentLine(call);
    }
    text += "done: " + numbers(memberOf(ops, "done")) + "\n";
    const Json& slowest = memberOf(ops, "slowest");
    text += slowest.empty() ? "slowest: none\n" : "slowest:\n";
    if (slowest.is_array()) {
        for (const Json& slow : slowest)
            text += slowLine(slow);
    }
    return text;
}

std::string switchesText(const Json& switches) {
    std::string text;
    if (!switches.is_array()) return text;
    for (const Json& one : switches) {
        text += at(one, "name") + " = " + at(one, "value");
        const Json& on = memberOf(one, "on");
        std::string bits;
        for (const Json& bit : on.is_array() ? on : Json::array())
            bits += (bits.empty() ? "" : "|") + printable(bit.is_string() ? bit.get<std::string>() : textOf(bit));
        text += bits.empty() ? "\n" : " (" + bits + ")\n";
    }
    return text;
}
