#pragma once

#include <string>

#include "tools/output.h"

// The facts of a movie's document as lines for people.
std::string movieText(const Json& movie);
