#pragma once

#include <string>

#include "tools/output.h"

class MediaObj;

// What there is to say about a movie, as a member of the list of the document. `path` is the one that was given.
Json describeMovie(const std::string& path, const MediaObj& movie);
