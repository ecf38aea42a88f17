#pragma once

#include <string>

#include "tools/output.h"

// Texts for people, made from what another process has answered. What it left out or wrote otherwise is shown as "-".

std::string statusText(const Json& status);
// A line a switch.
std::string switchesText(const Json& switches);
