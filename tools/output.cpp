#include "tools/output.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <vector>

#include "shared/include/object/core_subsystem.h"
#include "tools/interrupt.h"
#include "tools/text_form.h"

namespace {

std::string dump(const Json& document, int indent) {
    return document.dump(indent, ' ', false, Json::error_handler_t::replace);
}

// A text as the bytes that it is, anything else as it stands in a document.
std::string bareValue(const Json& value) {
    return value.is_string() ? value.get_ref<const std::string&>() : textOf(value);
}

const Json* memberOf(const Json& value, const std::string& name) {
    if (value.is_object()) {
        const auto found = value.find(name);
        return found != value.end() ? &*found : nullptr;
    }
    const std::optional<unsigned long long> index = parseCount(name);
    return value.is_array() && index && *index < value.size() ? &value[static_cast<std::size_t>(*index)] : nullptr;
}

// The value at a path such as "tracks.0.name", or null.
const Json* valueAt(const Json& document, const std::string& path) {
    const Json* value = &document;
    for (std::size_t at = 0; value != nullptr && at <= path.size();) {
        const std::size_t dot = std::min(path.find('.', at), path.size());
        value = memberOf(*value, path.substr(at, dot - at));
        at = dot + 1;
    }
    return value;
}

bool wantsColour() {
    const char* off = std::getenv("NO_COLOR");
    return (off == nullptr || *off == '\0') && ::isatty(STDERR_FILENO) == 1;
}

}  // namespace

int writeAll(int fd, const char* bytes, std::size_t size) {
    while (size > 0) {
        const ssize_t count = ::write(fd, bytes, size);
        if (count < 0 && errno != EINTR) return errno;
        if (count < 0 && Interrupt::isPending()) return EINTR;
        if (count < 0) continue;
        bytes += count;
        size -= static_cast<std::size_t>(count);
    }
    return 0;
}

std::string textOf(const Json& document) { return dump(document, -1); }

bool Output::print(std::string_view text) {
    if (m_broken) return false;
    const int error = writeAll(STDOUT_FILENO, text.data(), text.size());
    if (error == 0) return true;
    m_broken = true;
    if (!Interrupt::isPending()) tell(Failure::system(MediaCode::WriteError, "standard output", error));
    return false;
}

ExitCode Output::printDocument(const Json& document, const char* list) {
    if (!m_options.m_field.empty()) return printField(document, list);
    return print(dump(document, 2) + "\n") ? ExitCode::Done : ExitCode::IoError;
}

ExitCode Output::printField(const Json& document, const char* list) {
    std::vector<const Json*> values;
    bool complete = true;
    if (const Json* value = valueAt(document, m_options.m_field)) {
        values.push_back(value);
    } else if (list != nullptr) {
        for (const Json& element : document[list]) {
            const Json* part = valueAt(element, m_options.m_field);
            // What failed has been told as a failure and has no fields.
            if (part != nullptr)
                values.push_back(part);
            else if (!element.contains("error"))
                complete = false;
        }
        complete = complete && !document[list].empty();
    } else {
        complete = false;
    }
    for (const Json* value : values) {
        if (!print(bareValue(*value) + "\n")) return ExitCode::IoError;
    }
    if (complete) return ExitCode::Done;
    tell(Failure::usage("--field " + m_options.m_field + ": the document has no such field"));
    return ExitCode::WrongUsage;
}

ExitCode Output::fail(const Failure& failure) {
    tell(failure);
    if (m_options.m_lines)
        print(textOf(Json{{"schemaVersion", s_schemaVersion}, {"error", errorOf(failure)}}) + "\n");
    else if (m_options.m_json)
        printDocument(Json{{"schemaVersion", s_schemaVersion}, {"error", errorOf(failure)}});
    return failure.m_exit;
}

void Output::tell(const Failure& failure) {
    const bool colour = wantsColour();
    const std::string line =
        std::string(colour ? "\033[1;31mmediacore:\033[0m " : "mediacore: ") + failure.sentence() + "\n";
    // There is nobody left to hear of a standard error that takes nothing.
    static_cast<void>(writeAll(STDERR_FILENO, line.data(), line.size()));
}

Json Output::errorOf(const Failure& failure) {
    return Json{{"code", failure.m_code},
                {"number", failure.m_number},
                {"file", failure.m_file},
                {"message", failure.m_message}};
}
