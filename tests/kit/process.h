#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
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

// A program that runs beside the test, which talks to it meanwhile. Only the command's arguments, environment, folder,
// limits and rights count. At the end of a life it is killed if it still runs.
// **Threads:** one at a time.
class Process {
public:
    explicit Process(const Command& command);
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;
    ~Process();

    int pid() const { return m_pid; }
    // All that has come so far.
    const std::string& out();
    const std::string& err();
    // Waits: until the process has taken it all. False when it takes no more.
    bool feed(const std::string& bytes);
    void endInput();
    void signal(int number) const;
    // Polls until standard output holds the text, or the process has ended without it.
    bool waitForOutput(const std::string& text);
    // Waits: for the end of the process, at most for the command's limit; then it is killed.
    Outcome wait();
    // True once it has ended; its outcome is still for `wait`.
    bool hasEnded();

private:
    struct Ends;
    void listen();

    std::unique_ptr<Ends> m_ends;
    const std::chrono::seconds m_limit;
    int m_pid = -1;
    bool m_ended = false;
    Outcome m_outcome;
};

// True when a program of that name is in PATH.
bool hasProgram(const std::string& name);

}  // namespace kit
