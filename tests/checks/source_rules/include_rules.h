#pragma once

#include "tests/checks/source_rules/source_tree.h"

#include <vector>

namespace source_rules {

// Which room may include which, that the include graph of the files has no circle, that naming/ and validation/ are
// leaves of mediautil, that no file inside the library includes the chief header and none that it includes is missing.
std::vector<Finding> checkLayers(const std::vector<SourceFile>& tree);

}  // namespace source_rules
