#pragma once

#include <string>

#include "tests/kit/process.h"

namespace kit {

// Something that a test program does instead of its tests when it is started as a process of its own. What the job
// prints is the process's whole output, what it answers the exit code. Stands in static storage.
class ChildJob {
public:
    using Job = int (*)(const std::string& argument);

    ChildJob(const char* name, Job job);
    ChildJob(const ChildJob&) = delete;
    ChildJob& operator=(const ChildJob&) = delete;

    // The command that does it; limits and environment may be added before it is run.
    Command command(const std::string& argument) const;
    // Runs such a command. Its output is the job's alone, without what the test framework says before.
    static Outcome run(const Command& command);
    Outcome run(const std::string& argument) const { return run(command(argument)); }

private:
    const char* m_name;
};

// The address space of a job that is to have `bytes`; nothing where a sanitizer takes it all for itself.
std::optional<std::uint64_t> addressSpace(std::uint64_t bytes);

}  // namespace kit
