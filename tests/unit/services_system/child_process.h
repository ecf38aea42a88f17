#pragma once

#include <string>
#include <utility>
#include <vector>

// Something that this program does instead of its tests when it is started as a child of itself; it then ends with exit
// code 0. Stands in static storage.
class ChildJob {
public:
    ChildJob(const char* name, void (*job)());
};

// What a child printed, and how it ended.
struct ChildResult {
    int m_exit = -1;  // below 0: by a signal
    std::string m_out;
    std::string m_err;
};

// Runs the job in a process of its own, with these variables added to the environment.
ChildResult runChild(const std::string& job, const std::vector<std::pair<std::string, std::string>>& environment);
