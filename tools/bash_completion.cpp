#include "tools/generated_text.h"

// The script holds a table of words for each command, and of what may follow each option that takes a value.

namespace {

std::string join(const std::vector<std::string>& words, const char* between) {
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : between) + word;
    return text;
}

std::string optionWords(const CommandEntry& command) {
    std::string text;
    for (const OptionEntry& option : command.m_options)
        text += join(option.m_names, " ") + " ";
    return text;
}

std::string commandWords(const std::vector<CommandEntry>& commands) {
    std::string text;
    for (std::size_t i = 1; i < commands.size(); ++i)
        text += (i == 1 ? "" : " ") + commands[i].m_name;
    return text;
}

// What follows an option: one of its choices, a file, or something that can't be guessed.
std::string valueCase(const OptionEntry& option) {
    const std::string head = "        " + join(option.m_names, "|") + ")\n            ";
    const std::string tail = "\n            return ;;\n";
    if (!option.m_choices.empty())
        return head + "COMPREPLY=($(compgen -W \"" + join(option.m_choices, " ") + "\" -- \"$word\"))" + tail;
    if (option.m_takesFile)
        return head + "compopt -o filenames; mapfile -t COMPREPLY < <(compgen -f -- \"$word\")" + tail;
    return head + "COMPREPLY=()" + tail;
}

std::string valueCases(const std::vector<CommandEntry>& commands) {
    std::string text;
    std::vector<std::string> known;
    for (const CommandEntry& command : commands) {
        for (const OptionEntry& option : command.m_options) {
            const std::string names = join(option.m_names, "|");
            bool isKnown = option.m_value.empty();
            for (const std::string& name : known)
                isKnown = isKnown || name == names;
            if (isKnown) continue;
            known.push_back(names);
            text += valueCase(option);
        }
    }
    return text;
}

std::string commandCase(const CommandEntry& command) {
    std::string text = "        " + command.m_name + ")\n            options=\"" + optionWords(command) + "\"\n";
    for (const OptionEntry& positional : command.m_positionals) {
        if (positional.m_choices.empty()) continue;
        text += "            files=\n            choices=\"" + join(positional.m_choices, " ") + "\"\n";
    }
    if (command.m_positionals.empty()) text += "            files=\n";
    return text + "            ;;\n";
}

}  // namespace

std::string bashCompletion(const std::vector<CommandEntry>& commands) {
    const CommandEntry& program = commands.front();
    std::string text = "# bash completion for mediacore, made by 'mediacore generate bash-completion'\n";
    text += "_mediacore() {\n    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD-1]}\n";
    text += "    local command= names= options= choices= files=yes i\n    COMPREPLY=()\n";
    text += "    for ((i = 1; i < COMP_CWORD; ++i)); do\n        case ${COMP_WORDS[i]} in\n";
    text +=
        "        --) names=yes ;;\n        -*) ;;\n        *) [[ $command ]] || command=${COMP_WORDS[i]} ;;\n        "
        "esac\n    done\n";
    text += "    if [[ ! $names ]]; then\n        case $before in\n" + valueCases(commands) + "        esac\n    fi\n";
    text += "    case $command in\n        '')\n            files=\n            choices=\"" + commandWords(commands) +
            "\"\n            ;;\n";
    for (std::size_t i = 1; i < commands.size(); ++i)
        text += commandCase(commands[i]);
    text += "    esac\n    if [[ $word == -* && ! $names ]]; then\n";
    text += "        COMPREPLY=($(compgen -W \"$options" + optionWords(program) + "\" -- \"$word\"))\n";
    text +=
        "    elif [[ $files ]]; then\n        compopt -o filenames 2>/dev/null\n        mapfile -t COMPREPLY < "
        "<(compgen -f -- \"$word\")\n";
    text += "    else\n        COMPREPLY=($(compgen -W \"$choices\" -- \"$word\"))\n    fi\n}\n";
    return text + "complete -F _mediacore mediacore\n";
}
