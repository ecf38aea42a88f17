#include "tools/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <map>

#include "tools/help_examples.h"
#include "tools/text_form.h"

// The only source that knows the library for command lines, which is slow to compile.

namespace {

// Marks an argument that is to be taken as it stands.
constexpr char s_guard = '\x01';

const std::map<std::string, ProgressKind>& progressKinds() {
    static const std::map<std::string, ProgressKind> kinds = {{"bar", ProgressKind::Bar},
                                                              {"plain", ProgressKind::Plain},
                                                              {"json", ProgressKind::Json},
                                                              {"none", ProgressKind::None}};
    return kinds;
}

// The parser reads meaning into names such as "[a,b]", "{}", "++" and the empty one, and forgets a "--" behind some
// options. So what could be a name gets a mark in front, and so does everything behind "--".
std::vector<std::string> guarded(int argc, const char* const* argv) {
    std::vector<std::string> arguments;
    bool namesOnly = false;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (!namesOnly && argument == "--") {
            namesOnly = true;
        } else if (namesOnly || argument.empty() || argument.find_first_of("[{+\x01") == 0) {
            arguments.push_back(s_guard + argument);
        } else {
            arguments.push_back(argument);
        }
    }
    return arguments;
}

void unguard(std::string& text) {
    if (!text.empty() && text[0] == s_guard) text.erase(0, 1);
}

// --from and MEDIACORE_FROM.
std::string variableOf(const CLI::Option& option) {
    if (option.get_lnames().empty()) return "";
    std::string name = "MEDIACORE_";
    for (const char c : option.get_lnames().front()) {
        name += c == '-' ? '_' : static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    return name;
}

// What the command line itself asks for. What only the environment asks for gives way to it.
class GivenOptions {
public:
    GivenOptions(const CLI::App& sub, const std::vector<std::string>& arguments) : m_sub(sub), m_arguments(arguments) {}

    bool has(const char* name) const {
        const CLI::Option& option = *m_sub.get_option(name);
        const std::string variable = option.get_envname();
        if (variable.empty() || std::getenv(variable.c_str()) == nullptr) return option.count() != 0;
        return std::any_of(m_arguments.begin(), m_arguments.end(), [&option](const std::string& argument) {
            return option.check_name(argument.substr(0, argument.find('=')));
        });
    }
    // Of a form of its own and the documents one is printed. Fails: throws when the command line wants both.
    void settle(const char* form, bool& isWanted, OutputOptions& output) const {
        const char* const document = has("--json") ? "--json" : has("--field") ? "--field" : nullptr;
        const bool isGiven = has(form);
        if (isGiven && document != nullptr) throw CLI::ExcludesError(form, document);
        if (isGiven) {
            output.m_json = false;
            output.m_field.clear();
        }
        if (output.wantsDocument()) isWanted = false;
    }

private:
    const CLI::App& m_sub;
    const std::vector<std::string>& m_arguments;
};

// The tree of options, and where its values go. Numbers stay texts until it is known which command was given: the
// environment is read for all of them.
class OptionTree {
public:
    OptionTree() : m_app("Opens, describes and reads movies.", "mediacore") {
        m_app.set_help_flag("-h,--help", "Print this help and end");
        m_app.set_version_flag("--version", "mediacore " MEDIACORE_VERSION, "Print the version and end");
        m_app.require_subcommand(1);
        addFlag(&m_app, "-q,--quiet", m_options.m_quiet, "No progress and no log; failures are told all the same");
        m_app.add_flag("-v,--verbose", m_verbosity, "Show the library's warnings and notes; twice: its debug output")
            ->envname("MEDIACORE_VERBOSE");
        m_app.footer("Exit codes:\n" + exitCodes() +
                     "'mediacore COMMAND --help' shows a command's options and examples.");
        addInfo();
        addRead();
        addFrames();
        addFormats();
        addWatch();
        addPlay();
        addRecord();
        addRename();
        addValidate();
        addStatus();
        addSwitch();
        addGenerate();
    }

    CLI::App& app() { return m_app; }

    // Requires: a parse of these arguments that went well. Fails: throws for a value that isn't what its option takes.
    Options finish(const std::vector<std::string>& arguments) {
        Options options = m_options;
        options.m_verbosity = static_cast<unsigned>(m_verbosity < 0 ? 0 : m_verbosity);
        const CLI::App* chosen = m_app.get_subcommands().front();
        options.m_command = m_commands.at(chosen->get_name());
        finishNumbers(options);
        finishForms(*chosen, arguments, options);
        for (std::string& file : options.m_info.m_files)
            unguard(file);
        for (std::string& file : options.m_validate.m_files)
            unguard(file);
        for (std::string& argument : options.m_switch.m_arguments)
            unguard(argument);
        for (std::string* text :
             {&options.m_info.m_target, &options.m_read.m_range.m_file, &options.m_frames.m_range.m_file,
              &options.m_read.m_target, &options.m_watch.m_file, &options.m_play.m_file, &options.m_play.m_target,
              &options.m_record.m_file, &options.m_record.m_source, &options.m_rename.m_file,
              &options.m_rename.m_target, &options.m_status.m_process.m_process, &options.m_status.m_process.m_folder,
              &options.m_switch.m_process.m_process, &options.m_switch.m_process.m_folder, &options.m_switch.m_action})
            unguard(*text);
        return options;
    }

private:
    struct Numbers {
        std::string m_from;
        std::string m_count;
    };

    // What recording takes: texts, as long as it isn't known whether they are wanted.
    struct Sound {
        std::string m_rate;
        std::string m_channels;
        std::string m_bits;
    };

    static void finishForms(const CLI::App& sub, const std::vector<std::string>& arguments, Options& options) {
        const GivenOptions given(sub, arguments);
        if (options.m_command == Command::Status)
            given.settle("--openmetrics", options.m_status.m_openMetrics, options.m_status.m_output);
        if (options.m_command != Command::Info) return;
        InfoOptions& info = options.m_info;
        given.settle("--xml", info.m_xml, info.m_output);
        if (info.m_xml) return;
        if (given.has("--output")) throw CLI::RequiresError("--output", "--xml");
        info.m_target.clear();
    }

    void finishNumbers(Options& options) const {
        switch (options.m_command) {
            case Command::Read:
                options.m_read.m_progress = progressOf(m_progress);
                return finish(m_readNumbers, options.m_read.m_range);
            case Command::Frames:
                return finish(m_frameNumbers, options.m_frames.m_range);
            case Command::Watch:
                options.m_watch.m_count = countOf("--count", m_watchCount);
                return;
            case Command::Play:
                options.m_play.m_progress = progressOf(m_progress);
                return finish("--idle", m_idle, 0, options.m_play.m_idle);
            case Command::Record:
                options.m_record.m_progress = progressOf(m_progress);
                if (const std::string& order = options.m_record.m_endian;
                    !order.empty() && order != "little" && order != "big")
                    throw CLI::ValidationError("--endian", "not one of little, big: " + order);
                finish("--rate", m_sound.m_rate, 1, options.m_record.m_rate);
                finish("--channels", m_sound.m_channels, 1, options.m_record.m_channels);
                return finish("--bits", m_sound.m_bits, 1, options.m_record.m_bits);
            case Command::Validate:
                options.m_validate.m_progress = progressOf(m_progress);
                return;
            case Command::Status:
                return finish("--timeout", m_timeout, 1, options.m_status.m_process.m_timeout);
            case Command::Switch:
                return finish("--timeout", m_timeout, 1, options.m_switch.m_process.m_timeout);
            default:
                return;
        }
    }

    // A number that has a value without its option.
    static void finish(const char* option, const std::string& text, unsigned least, unsigned& value) {
        constexpr unsigned long long most = 1000000000;
        const std::optional<unsigned long long> number = countOf(option, text);
        if (!number) return;
        if (*number < least || *number > most)
            throw CLI::ValidationError(option, "not a number from " + std::to_string(least) + " on: " + text);
        value = static_cast<unsigned>(*number);
    }

    static std::string exitCodes() {
        std::string text;
        for (const ExitCodeText& code : s_exitCodeTexts) {
            const std::string number = std::to_string(static_cast<int>(code.m_code));
            text += "  " + number + std::string(5 - number.size(), ' ') + code.m_text + "\n";
        }
        return text + "\n";
    }

    static std::optional<unsigned long long> countOf(const char* option, const std::string& text) {
        if (text.empty()) return std::nullopt;
        const std::optional<unsigned long long> count = parseCount(text);
        if (!count) throw CLI::ValidationError(option, "not a number: " + text);
        return count;
    }

    static void finish(const Numbers& numbers, RangeOptions& range) {
        range.m_from = countOf("--from", numbers.m_from);
        range.m_count = countOf("--count", numbers.m_count);
        if (range.m_count == 0ull) throw CLI::ValidationError("--count", "0 asks for nothing");
    }

    static ProgressKind progressOf(const std::string& text) {
        if (text.empty()) return ProgressKind::Auto;
        const auto found = progressKinds().find(text);
        if (found == progressKinds().end())
            throw CLI::ValidationError("--progress", "not one of bar, plain, json, none: " + text);
        return found->second;
    }

    CLI::App* addCommand(const char* name, Command command, const char* text) {
        CLI::App* sub = m_app.add_subcommand(name, text);
        m_commands[name] = command;
        sub->fallthrough();
        sub->footer("Examples:\n" + helpExamples(name));
        return sub;
    }

    // Every long option can be given by the environment too.
    template <typename T>
    static CLI::Option* addOption(CLI::App* sub, const char* names, T& value, const char* typeName, const char* text) {
        CLI::Option* option = sub->add_option(names, value, text)->type_name(typeName);
        return option->envname(variableOf(*option))->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    }

    static void addFlag(CLI::App* sub, const char* names, bool& value, const char* text) {
        CLI::Option* option = sub->add_flag(names, value, text);
        option->envname(variableOf(*option))->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    }

    static void addOutput(CLI::App* sub, OutputOptions& output, const char* jsonText, const char* field) {
        addFlag(sub, "--json", output.m_json, jsonText);
        const std::string text = std::string("Print one bare value of the document, such as ") + field;
        addOption(sub, "--field", output.m_field, "NAME", text.c_str());
    }

    static void addLines(CLI::App* sub, OutputOptions& output, const char* text) {
        addFlag(sub, "--jsonl", output.m_lines, text);
    }

    static void addTrack(CLI::App* sub, std::string& track) {
        addOption(sub, "--track", track, "TRACK", "The track, such as audio0; may be left out if there is one only");
    }

    void addProgress(CLI::App* sub, const char* text) { addOption(sub, "--progress", m_progress, "KIND", text); }

    void addRange(CLI::App* sub, RangeOptions& range, Numbers& numbers, const char* unit) {
        sub->add_option("FILE", range.m_file, "The movie")->required()->type_name("");
        addTrack(sub, range.m_track);
        addOption(sub, "--from", numbers.m_from, "N",
                  (std::string("First ") + unit + "; the start without it").c_str());
        addOption(sub, "--count", numbers.m_count, "N",
                  (std::string("How many ") + unit + "s; all that follow without it").c_str());
    }

    void addInfo() {
        CLI::App* sub = addCommand("info", Command::Info, "Tell what movies are: timecode, tracks, clips, files");
        sub->add_option("FILE", m_options.m_info.m_files, "Movies")->required()->type_name("...");
        addFlag(sub, "--xml", m_options.m_info.m_xml, "Print one XML document (docs/schema/info.xsd)");
        addOption(sub, "-o,--output", m_options.m_info.m_target, "OUT",
                  "A new file for the XML; - is standard output, which is the default");
        addOutput(sub, m_options.m_info.m_output, "Print one JSON document (docs/schema/info.json)", "movies.0.frames");
    }

    void addRead() {
        ReadOptions& read = m_options.m_read;
        CLI::App* sub = addCommand("read", Command::Read, "Copy a track's samples out, byte for byte");
        addRange(sub, read.m_range, m_readNumbers, "sample");
        addFlag(sub, "--frames", read.m_frames, "Count --from and --count in video frames, also in a track of sound");
        addOption(sub, "-o,--output", read.m_target, "OUT",
                  "Where the bytes go; - is standard output, which is the default");
        addProgress(sub, "bar, plain, json or none, on standard error; a bar on a terminal");
        addOutput(sub, read.m_output, "Print what was read as one JSON document (docs/schema/read.json); needs -o FILE",
                  "read.bytes");
    }

    void addFrames() {
        FramesOptions& frames = m_options.m_frames;
        CLI::App* sub = addCommand("frames", Command::Frames, "Tell where the samples of each video frame lie");
        addRange(sub, frames.m_range, m_frameNumbers, "frame");
        addOutput(sub, frames.m_output, "Print one JSON document (docs/schema/frames.json)", "frames.0.offset");
    }

    void addFormats() {
        CLI::App* sub = addCommand("formats", Command::Formats, "List the formats that can be read and written");
        addOutput(sub, m_options.m_formats.m_output, "Print one JSON document (docs/schema/formats.json)",
                  "formats.0.name");
    }

    void addWatch() {
        WatchOptions& watch = m_options.m_watch;
        CLI::App* sub = addCommand("watch", Command::Watch, "Tell of each replacement and growth of a movie");
        sub->add_option("FILE", watch.m_file, "The movie")->required()->type_name("");
        addOption(sub, "--count", m_watchCount, "N", "End after so many changes; without it at a signal");
        addLines(sub, watch.m_output, "Print a JSON document a change (docs/schema/watch-event.json)");
        addOutput(sub, watch.m_output, "Print all changes as one JSON document at the end (docs/schema/watch.json)",
                  "watch.events.0.length");
    }

    void addPlay() {
        PlayOptions& play = m_options.m_play;
        CLI::App* sub = addCommand("play", Command::Play, "Deliver a track's samples as far as they may be read");
        sub->add_option("FILE", play.m_file, "The movie")->required()->type_name("");
        addTrack(sub, play.m_track);
        addOption(sub, "-o,--output", play.m_target, "OUT",
                  "Where the bytes go; - is standard output, which is the default");
        addFlag(sub, "--follow", play.m_follow, "Go on with what is recorded meanwhile, to its end");
        addOption(sub, "--idle", m_idle, "SECONDS",
                  "With --follow: a movie that hasn't grown for so long has ended; 20 without it");
        addProgress(sub, "bar, plain, json or none, on standard error; a bar on a terminal");
        addLines(sub, play.m_output, "Print a JSON document an event (docs/schema/play-event.json); needs -o FILE");
        addOutput(sub, play.m_output,
                  "Print what was played as one JSON document (docs/schema/play.json); needs -o FILE", "play.bytes");
    }

    void addRecord() {
        RecordOptions& record = m_options.m_record;
        CLI::App* sub = addCommand("record", Command::Record, "Record raw samples into a new movie");
        sub->add_option("OUT", record.m_file, "The movie; its suffix says the format")->required()->type_name("");
        addOption(sub, "--from", record.m_source, "RAW",
                  "The samples, or a stream of DV for a movie of that; - is standard input")
            ->required();
        addOption(sub, "--rate", m_sound.m_rate, "N", "Samples a second; 48000 without it");
        addOption(sub, "--channels", m_sound.m_channels, "N",
                  "Channels, one behind the other in a sample; 2 without it");
        addOption(sub, "--bits", m_sound.m_bits, "N", "Bits of a channel: 8, 16, 24 or 32; 24 without it");
        addOption(sub, "--endian", record.m_endian, "ORDER", "little or big; the format's own without it");
        addFlag(sub, "--realtime", record.m_realtime, "Take a second's samples in a second");
        addProgress(sub, "bar, plain, json or none, on standard error; a bar on a terminal, else nothing");
        addLines(sub, record.m_output, "Print a JSON document an event (docs/schema/record-event.json)");
        addOutput(sub, record.m_output, "Print what was recorded as one JSON document (docs/schema/record.json)",
                  "record.samples");
    }

    void addRename() {
        RenameOptions& rename = m_options.m_rename;
        CLI::App* sub = addCommand("rename", Command::Rename, "Rename or move a movie with its media files");
        sub->add_option("OLD", rename.m_file, "The movie")->required()->type_name("");
        sub->add_option("NEW", rename.m_target, "Its new path, or a folder that takes it under its name")
            ->required()
            ->type_name("");
        addFlag(sub, "--media", rename.m_media, "Name the media files after the movie, too");
        addFlag(sub, "--dry-run", rename.m_dryRun, "Only say what would move");
        addOutput(sub, rename.m_output, "Print what moved as one JSON document (docs/schema/rename.json)",
                  "rename.files.0.to");
    }

    void addValidate() {
        ValidateOptions& validate = m_options.m_validate;
        CLI::App* sub =
            addCommand("validate", Command::Validate, "Read all essence and tell what is wrong with its sound");
        sub->add_option("FILE", validate.m_files, "Movies")->required()->type_name("...");
        addProgress(sub, "bar, plain, json or none, on standard error; a bar on a terminal");
        addOutput(sub, validate.m_output, "Print one JSON document (docs/schema/validate.json)", "files.0.findings");
    }

    void addProcess(CLI::App* sub, ProcessOptions& process) {
        sub->add_option("PROCESS", process.m_process, "Its number, or the path of its control socket")
            ->required()
            ->type_name("");
        addOption(sub, "--ctl", process.m_folder, "DIR",
                  "Folder of its socket; without it where MEDIACORE_CTL of that process says");
        addOption(sub, "--timeout", m_timeout, "SECONDS", "How long to wait for an answer; 10 without it");
    }

    void addStatus() {
        StatusOptions& status = m_options.m_status;
        CLI::App* sub = addCommand("status", Command::Status, "Show what a running process has open and under way");
        addProcess(sub, status.m_process);
        addFlag(sub, "--openmetrics", status.m_openMetrics, "Print its counters in the text form of OpenMetrics");
        addOutput(sub, status.m_output, "Print one JSON document (docs/schema/status.json)", "status.verdicts.update");
    }

    void addSwitch() {
        SwitchOptions& change = m_options.m_switch;
        CLI::App* sub = addCommand("switch", Command::Switch, "Show or set the switches of a running process");
        addProcess(sub, change.m_process);
        sub->add_option("ACTION", change.m_action, "list, get, set, setbit, clear or trace; list without it")
            ->type_name("")
            ->check(CLI::IsMember({"list", "get", "set", "setbit", "clear", "trace"}));
        sub->add_option("ARGUMENT", change.m_arguments,
                        "The switch and its value or bit; for trace what to list: list, status or flush")
            ->type_name("...");
        addOutput(sub, change.m_output, "Print one JSON document (docs/schema/switch.json)", "switch.switches.0.value");
    }

    void addGenerate() {
        GenerateOptions& generate = m_options.m_generate;
        CLI::App* sub = addCommand("generate", Command::Generate, "Print the completion for bash, or the manual");
        sub->add_option("WHAT", generate.m_what, "What to print")
            ->required()
            ->type_name("")
            ->check(CLI::IsMember({"bash-completion", "man"}));
        addOutput(sub, generate.m_output, "Print it inside a JSON document (docs/schema/generate.json)",
                  "generated.text");
    }

    CLI::App m_app;
    Options m_options;
    int m_verbosity = 0;
    std::string m_progress;
    Numbers m_readNumbers;
    Numbers m_frameNumbers;
    Sound m_sound;
    std::string m_watchCount;
    std::string m_idle;
    std::string m_timeout;
    std::map<std::string, Command> m_commands;
};

std::vector<std::string> choicesOf(const std::string& name) {
    if (name == "WHAT") return {"bash-completion", "man"};
    if (name == "ACTION") return {"list", "get", "set", "setbit", "clear", "trace"};
    if (name == "endian") return {"little", "big"};
    std::vector<std::string> choices;
    if (name == "progress") {
        for (const auto& [text, kind] : progressKinds())
            choices.push_back(text);
    }
    return choices;
}

OptionEntry entryOf(const CLI::Option& option) {
    OptionEntry entry;
    entry.m_text = option.get_description();
    entry.m_variable = option.get_envname();
    const std::string type = option.get_type_name(), place = option.get_name(true);
    entry.m_takesFile = type == "OUT" || type == "RAW" || type == "DIR" || place == "FILE" || place == "OUT" ||
                        place == "OLD" || place == "NEW" || place == "PROCESS";
    if (option.get_positional()) {
        entry.m_names.push_back(option.get_name(true));
        entry.m_value = type;
        entry.m_choices = choicesOf(entry.m_names.front());
        return entry;
    }
    for (const std::string& name : option.get_snames())
        entry.m_names.push_back("-" + name);
    for (const std::string& name : option.get_lnames())
        entry.m_names.push_back("--" + name);
    if (option.get_items_expected_max() > 0) entry.m_value = option.get_type_name();
    if (!option.get_lnames().empty()) entry.m_choices = choicesOf(option.get_lnames().front());
    return entry;
}

CommandEntry entryOf(const CLI::App& app, bool isProgram) {
    CommandEntry entry;
    entry.m_name = app.get_name();
    entry.m_text = app.get_description();
    if (!isProgram) entry.m_examples = helpExamples(entry.m_name);
    for (const CLI::Option* option : app.get_options()) {
        (option->get_positional() ? entry.m_positionals : entry.m_options).push_back(entryOf(*option));
    }
    return entry;
}

bool isTrue(const char* text) {
    const std::string value = text != nullptr ? text : "";
    return !value.empty() && value != "0" && value != "false" && value != "off" && value != "no";
}

// The parser says of an unknown command only that there is none.
std::string usageMessage(const CLI::App& app, const CLI::Error& error) {
    if (dynamic_cast<const CLI::RequiredError*>(&error) == nullptr || !app.get_subcommands().empty())
        return error.what();
    std::vector<std::string> rest = app.remaining();
    if (rest.empty()) return "no command is given";
    unguard(rest.front());
    return (rest.front().starts_with("-") ? "no option " : "no command ") + rest.front();
}

// Whether a command line that couldn't be parsed asked for a document.
bool wantsJson(int argc, const char* const* argv) {
    for (int i = 1; i < argc && std::string(argv[i]) != "--"; ++i) {
        if (std::string(argv[i]) == "--json") return true;
    }
    return isTrue(std::getenv("MEDIACORE_JSON"));
}

}  // namespace

const OutputOptions& Options::output() const {
    switch (m_command) {
        case Command::Read:
            return m_read.m_output;
        case Command::Frames:
            return m_frames.m_output;
        case Command::Formats:
            return m_formats.m_output;
        case Command::Watch:
            return m_watch.m_output;
        case Command::Play:
            return m_play.m_output;
        case Command::Record:
            return m_record.m_output;
        case Command::Rename:
            return m_rename.m_output;
        case Command::Validate:
            return m_validate.m_output;
        case Command::Status:
            return m_status.m_output;
        case Command::Switch:
            return m_switch.m_output;
        case Command::Generate:
            return m_generate.m_output;
        default:
            return m_info.m_output;
    }
}

ParsedOptions parseOptions(int argc, const char* const* argv) {
    ParsedOptions parsed;
    OptionTree tree;
    try {
        std::vector<std::string> arguments = guarded(argc, argv);
        tree.app().parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
        parsed.m_options = tree.finish(arguments);
    } catch (const CLI::CallForHelp&) {
        parsed.m_text = tree.app().help();
    } catch (const CLI::CallForVersion& version) {
        parsed.m_text = std::string(version.what()) + "\n";
    } catch (const CLI::Error& error) {
        parsed.m_failure = Failure::usage(usageMessage(tree.app(), error));
        parsed.m_options.m_info.m_output.m_json = wantsJson(argc, argv);
    }
    return parsed;
}

std::vector<CommandEntry> describeCommands() {
    OptionTree tree;
    std::vector<CommandEntry> commands = {entryOf(tree.app(), true)};
    for (const CLI::App* sub : tree.app().get_subcommands({}))
        commands.push_back(entryOf(*sub, false));
    return commands;
}
