#pragma once

#include "tools/movie.h"
#include "tools/output.h"

// What there is to say about a movie, as a member of the list of the document.
Json describeMovie(const Movie& movie);
