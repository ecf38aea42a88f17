#pragma once

#include <vector>

#include "shared/include/description/media_enums.h"

// Which file types a file's name suggests. Pure rules over the table of file types.

// The lower-case text behind the last dot of the whole path; false for none and for 31 characters and more.
bool getSuffix(char (&out)[32], const char* path);
// Every type of that suffix, in table order; empty for a name that tells nothing.
std::vector<MediaFileType> mapSuffixToFileTypes(const char* path);
// The first of them, unknown if there is none.
MediaFileType mapSuffixToFileType(const char* path);
