#pragma once

#include "tests/checks/source_rules/source_tree.h"

#include <vector>

namespace source_rules {

// The stand-in of a movie passes on every virtual operation that a movie has: one that it forgot would answer for an
// empty movie.
std::vector<Finding> checkStandIn(const std::vector<SourceFile>& tree);

}  // namespace source_rules
