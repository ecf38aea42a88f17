#pragma once

#include "tests/checks/source_rules/source_tree.h"

#include <vector>

namespace source_rules {

// Only services/file asks the system for files: no other room of the library opens, stats, renames or lists one.
std::vector<Finding> checkFileCalls(const std::vector<SourceFile>& tree);

// Waits in mediautil are polls: no condition variable, and nothing of the standard library that waits like one.
std::vector<Finding> checkWaits(const std::vector<SourceFile>& tree);

// The library throws nothing and catches nothing.
std::vector<Finding> checkExceptions(const std::vector<SourceFile>& tree);

}  // namespace source_rules
