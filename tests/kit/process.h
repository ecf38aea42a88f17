#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kit {

// A program to be run as a process of its own, with what it gets and how far it may go.
struct Command {
    std::vector<std::string> m_arguments;  // the program first; looked for in PATH without a slash
    // Set in the environment, or taken out of it where there is no value.
    std::vector<std::pair<std::string, std::optional<std::string>>> m_environment;
    std::string m_folder;                         // to run in; the test's own when empty
    std::string m_input;                          // bytes of standard input
    std::string m_outputFile;                     // standard output goes there instead of being kept
    std::optional<std::size_t> m_closeAfter;      // the reader of standard output goes away after so many bytes
    bool m_closedOutput = false;                  // it starts without a standard output
    bool m_privileged = true;                     // false: permissions of files count for root too
    std::optional<std::uint64_t> m_addressSpace;  // bytes, RLIMIT_AS
    std::optional<std::uint64_t> m_descriptors;   // RLIMIT_NOFILE
    std::optional<std::uint64_t> m_fileSize;      // bytes, RLIMIT_FSIZE, with SIGXFSZ ignored
    std::optional<int> m_signalOnOutput;          // sent to it once, when its first output has come
    std::chrono::seconds m_limit{120};            // then it is killed
};

// What came of it.
struct Outcome {
    int m_exit = -1;          // -1 when a signal has ended it
    int m_signal = 0;         // that ended it
    bool m_timedOut = false;  // and was killed for it
    std::string m_out;
    std::string m_err;

    bool good() const { return m_exit == 0; }
};

// Runs it to its end. Waits: for the process, at most for its limit.
Outcome run(const Command& command);
// The same for arguments alone.
Outcome run(const std::vector<std::string>& arguments);
// True when a program of that name is in PATH.
bool hasProgram(const std::string& name);

}  // namespace kit
