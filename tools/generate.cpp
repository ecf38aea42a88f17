#include "tools/commands.h"
#include "tools/generated_text.h"

ExitCode runGenerate(const GenerateOptions& options, Output& output) {
    const std::vector<CommandEntry> commands = describeCommands();
    const std::string text = options.m_what == "man" ? manualPage(commands) : bashCompletion(commands);
    if (!output.options().wantsDocument()) return output.print(text) ? ExitCode::Done : ExitCode::IoError;
    const Json generated{{"what", options.m_what}, {"text", text}};
    return output.printDocument(Json{{"schemaVersion", s_schemaVersion}, {"generated", generated}});
}
