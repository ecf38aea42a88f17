#pragma once

#include "tools/output.h"

class MediaPropertyList;

// The properties of a bag by their names, with whole values: a block of bytes is 0x and its digits.
Json describeProperties(const MediaPropertyList& bag);
