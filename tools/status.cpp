#include "shared/include/object/core_subsystem.h"
#include "tools/commands.h"
#include "tools/control_connection.h"
#include "tools/status_text.h"

namespace {

// A process that has no cache has no such command, and nothing to tell.
bool isUnknown(const std::string& reason) { return reason.starts_with("no command is named"); }

// Puts the answer into the document under that name. Fails: false with the reason.
bool add(ControlConnection& process, const char* command, Json& status, std::optional<Failure>& failure) {
    ControlConnection::Reply reply;
    if (!process.ask(command, Json::object(), reply, failure)) return false;
    if (!reply.m_done && !isUnknown(reply.m_reason)) {
        failure = Failure{ExitCode::Busy, 0, "busy", process.path(), reply.m_reason};
        return false;
    }
    status[command] = reply.m_done ? reply.m_result : Json(nullptr);
    return true;
}

// The counters as the process writes them.
ExitCode printMetrics(ControlConnection& process, Output& output) {
    ControlConnection::Reply reply;
    std::optional<Failure> failure;
    if (!process.ask("metrics", Json::object(), reply, failure)) return output.fail(*failure);
    if (!reply.m_done || !reply.m_result.is_string()) {
        const char* const what = reply.m_done ? "the answer is no text" : reply.m_reason.c_str();
        return output.fail(Failure::make(ExitCode::BadFile, MediaCode::UnsupportedMediaType, process.path(), what));
    }
    return output.print(reply.m_result.get<std::string>()) ? ExitCode::Done : ExitCode::IoError;
}

}  // namespace

ExitCode runStatus(const StatusOptions& options, Output& output) {
    ControlConnection process(options.m_process);
    std::optional<Failure> failure = process.open();
    if (failure) return output.fail(*failure);
    if (options.m_openMetrics) return printMetrics(process, output);
    Json status{{"socket", process.path()}, {"pid", process.pid()}};
    for (const char* command : {"version", "objects", "verdicts", "ops"}) {
        if (!add(process, command, status, failure)) return output.fail(*failure);
    }
    if (!output.options().wantsDocument()) return output.print(statusText(status)) ? ExitCode::Done : ExitCode::IoError;
    return output.printDocument(Json{{"schemaVersion", s_schemaVersion}, {"status", std::move(status)}});
}
