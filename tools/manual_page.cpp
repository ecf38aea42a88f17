#include "tools/generated_text.h"

namespace {

// Text for a line of man(7): backslashes and dashes mean something there, and so does a dot or a quote that begins a
// line.
std::string escaped(const std::string& text) {
    std::string out;
    for (const char c : text) {
        if ((c == '.' || c == '\'') && (out.empty() || out.back() == '\n')) out += "\\&";
        if (c == '\\')
            out += "\\e";
        else if (c == '-')
            out += "\\-";
        else
            out += c;
    }
    return out;
}

std::string bold(const std::string& text) { return "\\fB" + escaped(text) + "\\fR"; }

std::string italic(const std::string& text) { return "\\fI" + escaped(text) + "\\fR"; }

std::string item(const std::string& head, const std::string& text) { return ".TP\n" + head + "\n" + text + "\n"; }

std::string optionHead(const OptionEntry& option) {
    std::string head;
    for (const std::string& name : option.m_names)
        head += (head.empty() ? "" : ", ") + bold(name);
    return option.m_value.empty() ? head : head + " " + italic(option.m_value);
}

std::string optionItem(const OptionEntry& option) {
    const std::string variable = option.m_variable.empty() ? "" : " (environment: " + option.m_variable + ")";
    return item(optionHead(option), escaped(option.m_text + variable + "."));
}

std::string usage(const CommandEntry& command) {
    std::string text = ".B mediacore " + escaped(command.m_name) + "\n[" + italic("OPTION") + "...]";
    for (const OptionEntry& positional : command.m_positionals) {
        text += " " + italic(positional.m_names.front()) + (positional.m_value.empty() ? "" : "...");
    }
    return text + "\n.br\n";
}

std::string commandSection(const CommandEntry& command) {
    std::string text = ".SS " + escaped(command.m_name) + "\n" + escaped(command.m_text) + ".\n";
    for (const OptionEntry& option : command.m_options)
        text += optionItem(option);
    return text;
}

std::string examples(const std::vector<CommandEntry>& commands) {
    std::string text = ".SH EXAMPLES\n";
    for (const CommandEntry& command : commands) {
        if (!command.m_examples.empty()) text += ".PP\n.nf\n" + escaped(command.m_examples) + ".fi\n";
    }
    return text;
}

std::string exitStatus() {
    std::string text = ".SH EXIT STATUS\n";
    for (const ExitCodeText& code : s_exitCodeTexts) {
        text += item(bold(std::to_string(static_cast<int>(code.m_code))), escaped(code.m_text) + ".");
    }
    return text;
}

constexpr char s_conventions[] =
    ".SH OUTPUT\n"
    "Standard output carries the answer, standard error everything else. With \\fB\\-\\-json\\fR the answer is one "
    "document with\n"
    "a \\fBschemaVersion\\fR, and a failure is one too, with the member \\fBerror\\fR. The sentence on standard error "
    "is\n"
    "\\(lqmediacore: FILE: what: why\\(rq. Bytes of a file's name that are no UTF\\-8 are shown as U+FFFD; "
    "\\fB\\-\\-field\\fR\n"
    "prints them as they are.\n"
    ".SH ENVIRONMENT\n"
    "Every long option but \\fB\\-\\-help\\fR and \\fB\\-\\-version\\fR can be given by a variable, as it is told with "
    "each; the\n"
    "command line comes first.\n";

std::string environment() {
    std::string text = s_conventions;
    text += item(bold("NO_COLOR"), escaped("No colour on standard error, whatever it is."));
    text += item(bold("MEDIACORE_LOG"), escaped("Level and destination of the library's log, such as warning,stderr."));
    text += item(bold("MEDIACORE_SWITCHES"), escaped("Values of switches at start."));
    text += item(bold("MEDIACORE_ASYNC"), escaped("The engine of asynchronous reads: uring or pool."));
    return text;
}

}  // namespace

std::string manualPage(const std::vector<CommandEntry>& commands) {
    const CommandEntry& program = commands.front();
    std::string text = ".TH MEDIACORE 1 \"\" \"mediacore " MEDIACORE_VERSION "\" \"User Commands\"\n";
    text += ".SH NAME\nmediacore \\- opens, describes and reads movies\n.SH SYNOPSIS\n";
    for (std::size_t i = 1; i < commands.size(); ++i)
        text += usage(commands[i]);
    text += ".SH DESCRIPTION\n" + escaped(program.m_text) + "\n";
    text += "Names behind " + bold("--") + " are no options.\n.SH OPTIONS\nThese go with every command.\n";
    for (const OptionEntry& option : program.m_options)
        text += optionItem(option);
    text += ".SH COMMANDS\n";
    for (std::size_t i = 1; i < commands.size(); ++i)
        text += commandSection(commands[i]);
    return text + environment() + exitStatus() + examples(commands);
}
