#include <array>

#include "tools/commands.h"
#include "tools/control_connection.h"
#include "tools/status_text.h"

namespace {

// What an action asks the process, and by which names its arguments go.
struct Action {
    const char* m_name;
    const char* m_command;
    std::array<const char*, 2> m_members;
    unsigned m_least;  // arguments
    unsigned m_most;
};

constexpr std::array<Action, 6> s_actions = {{{"list", "switch.list", {}, 0, 0},
                                              {"get", "switch.get", {"name"}, 1, 1},
                                              {"set", "switch.set", {"name", "value"}, 2, 2},
                                              {"setbit", "switch.setbit", {"name", "bit"}, 2, 2},
                                              {"clear", "switch.clear", {"name", "bit"}, 1, 2},
                                              {"trace", "trace", {"kind"}, 0, 1}}};

const Action* findAction(const std::string& name) {
    for (const Action& action : s_actions) {
        if (name == action.m_name) return &action;
    }
    return nullptr;
}

std::optional<Failure> checkArguments(const SwitchOptions& options, const Action* action) {
    if (action == nullptr) return Failure::usage("no action " + options.m_action);
    const std::size_t count = options.m_arguments.size();
    if (count >= action->m_least && count <= action->m_most) return std::nullopt;
    std::string takes;
    for (unsigned i = 0; i < action->m_most; ++i)
        takes += (i == 0 ? " " : " and ") + std::string(i < action->m_least ? "" : "perhaps ") + action->m_members[i];
    return Failure::usage(options.m_action + " takes" + (takes.empty() ? " nothing" : takes));
}

// The answer of every action but "trace" is one switch or a list of them.
Json documentOf(const ControlConnection& process, const Action& action, const Json& result) {
    Json told{{"socket", process.path()}, {"pid", process.pid()}, {"action", action.m_name}};
    if (std::string(action.m_name) == "trace")
        told["trace"] = result;
    else
        told["switches"] = result.is_array() ? result : Json::array({result});
    return Json{{"schemaVersion", s_schemaVersion}, {"switch", std::move(told)}};
}

std::string answerText(const Json& document) {
    const Json& told = document["switch"];
    if (told.contains("switches")) return switchesText(told["switches"]);
    return "the listing has gone to the process's log: " + textOf(told["trace"]) + "\n";
}

}  // namespace

ExitCode runSwitch(const SwitchOptions& options, Output& output) {
    const Action* const action = findAction(options.m_action);
    std::optional<Failure> failure = checkArguments(options, action);
    if (failure) return output.fail(*failure);
    ControlConnection process(options.m_process);
    failure = process.open();
    if (failure) return output.fail(*failure);
    Json members = Json::object();
    for (std::size_t i = 0; i < options.m_arguments.size(); ++i)
        members[action->m_members[i]] = options.m_arguments[i];
    ControlConnection::Reply reply;
    if (!process.ask(action->m_command, members, reply, failure)) return output.fail(*failure);
    if (!reply.m_done) {
        failure = Failure::usage(reply.m_reason);
        failure->m_file = options.m_process.m_process;
        return output.fail(*failure);
    }
    const Json document = documentOf(process, *action, reply.m_result);
    if (output.options().wantsDocument()) return output.printDocument(document);
    return output.print(answerText(document)) ? ExitCode::Done : ExitCode::IoError;
}
