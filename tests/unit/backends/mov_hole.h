#pragma once

#include <cstdint>

#include "shared/include/object/media_obj.h"

// Essence that no track of a movie under recording shows, from its end up to that place of its file. Nothing is
// written: the file gets a hole there.
void skipEssenceTo(MediaObj& movie, std::uint64_t offset);
