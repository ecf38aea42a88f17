#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/failure.h"

// The command line as plain values. Names of files are bytes and stay as they were given.

enum class Command : std::uint32_t {
    None,
    Info,
    Read,
    Frames,
    Formats,
    Watch,
    Play,
    Record,
    Rename,
    Validate,
    Status,
    Switch,
    Generate
};
enum class ProgressKind : std::uint32_t { Auto, Bar, Plain, Json, None };

struct OutputOptions {
    bool m_json = false;
    bool m_lines = false;  // a line an event, where a command has events
    std::string m_field;   // "a.b"; empty for none

    bool wantsDocument() const { return m_json || !m_field.empty(); }
};

struct InfoOptions {
    std::vector<std::string> m_files;
    bool m_xml = false;
    std::string m_target;  // a new file for the XML; empty is standard output
    OutputOptions m_output;
};

// A part of a track. Without a number the part runs from the start, or to the end.
struct RangeOptions {
    std::string m_file;
    std::string m_track;  // such as audio0; empty for the only one
    std::optional<unsigned long long> m_from;
    std::optional<unsigned long long> m_count;
};

struct ReadOptions {
    RangeOptions m_range;  // samples, or:
    bool m_frames = false;
    std::string m_target;  // "-" is standard output, empty is standard output unless that is a terminal
    ProgressKind m_progress = ProgressKind::Auto;
    OutputOptions m_output;
};

struct FramesOptions {
    RangeOptions m_range;  // frames
    OutputOptions m_output;
};

struct FormatsOptions {
    OutputOptions m_output;
};

struct WatchOptions {
    std::string m_file;
    std::optional<unsigned long long> m_count;  // changes to tell; without it all that come
    OutputOptions m_output;
};

struct PlayOptions {
    std::string m_file;
    std::string m_track;   // as in RangeOptions
    std::string m_target;  // as in ReadOptions
    bool m_follow = false;
    unsigned m_idle = 20;  // seconds without growth after which a movie counts as ended
    ProgressKind m_progress = ProgressKind::Auto;
    OutputOptions m_output;
};

struct RecordOptions {
    std::string m_file;
    std::string m_source;  // "-" is standard input
    unsigned m_rate = 48000;
    unsigned m_channels = 2;
    unsigned m_bits = 24;
    std::string m_endian;  // "little", "big", or empty for the format's own
    bool m_realtime = false;
    ProgressKind m_progress = ProgressKind::Auto;
    OutputOptions m_output;
};

struct RenameOptions {
    std::string m_file;
    std::string m_target;   // the new path, or a folder
    bool m_media = false;   // media files get new names too
    bool m_dryRun = false;  // only say what would move
    OutputOptions m_output;
};

struct ValidateOptions {
    std::vector<std::string> m_files;
    ProgressKind m_progress = ProgressKind::Auto;
    OutputOptions m_output;
};

// A running process and the way to it.
struct ProcessOptions {
    std::string m_process;    // its number, or the path of its control socket
    std::string m_folder;     // of the socket; empty for where the process was told to put it
    unsigned m_timeout = 10;  // seconds
};

struct StatusOptions {
    ProcessOptions m_process;
    bool m_openMetrics = false;  // the counters alone, in that form
    OutputOptions m_output;
};

struct SwitchOptions {
    ProcessOptions m_process;
    std::string m_action = "list";
    std::vector<std::string> m_arguments;
    OutputOptions m_output;
};

struct GenerateOptions {
    std::string m_what;  // "bash-completion" or "man"
    OutputOptions m_output;
};

struct Options {
    Command m_command = Command::None;
    bool m_quiet = false;
    unsigned m_verbosity = 0;  // how many -v
    InfoOptions m_info;
    ReadOptions m_read;
    FramesOptions m_frames;
    FormatsOptions m_formats;
    WatchOptions m_watch;
    PlayOptions m_play;
    RecordOptions m_record;
    RenameOptions m_rename;
    ValidateOptions m_validate;
    StatusOptions m_status;
    SwitchOptions m_switch;
    GenerateOptions m_generate;

    // Of the command that was given.
    const OutputOptions& output() const;
};

// What a command line comes to: options to run with, a text to print and no more, or a failure.
struct ParsedOptions {
    Options m_options;
    std::string m_text;                // help or version
    std::optional<Failure> m_failure;  // the command line is wrong
};

// Thread: one at a time.
ParsedOptions parseOptions(int argc, const char* const* argv);

// One option of the tree, for completion and manual.
struct OptionEntry {
    std::vector<std::string> m_names;  // with their dashes; a positional has one name without
    std::string m_value;               // what stands for the value, empty for a flag
    std::string m_text;
    std::string m_variable;              // of the environment, empty for none
    std::vector<std::string> m_choices;  // empty when any value will do
    bool m_takesFile = false;
};

struct CommandEntry {
    std::string m_name;
    std::string m_text;
    std::vector<OptionEntry> m_options;
    std::vector<OptionEntry> m_positionals;
    std::string m_examples;  // lines, written by hand
};

// The whole tree; the first entry is the program itself.
std::vector<CommandEntry> describeCommands();
