#pragma once

#include <string>

// Examples for the help of a command and for the manual, written by hand; empty for a command that has none.
std::string helpExamples(const std::string& command);
