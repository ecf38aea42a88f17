#pragma once

#include <string>
#include <vector>

#include "tools/options.h"

// Texts made from the tree of options, so that they say what the program does.

std::string bashCompletion(const std::vector<CommandEntry>& commands);
// In the language of man(7).
std::string manualPage(const std::vector<CommandEntry>& commands);
