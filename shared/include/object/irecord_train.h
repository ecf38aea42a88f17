#pragma once

#include "support/ibase.h"
#include "support/visibility.h"

// A movie that can be recorded into as one car of a train of movies. What can be done with it is between the back-end
// and its clients; the core only hands it out.
// A back-end derives from `MediaObj` and from this, and answers `preserve` and `release` of both with the movie's.
class MO_PUBLIC IRecordTrain : public virtual IBase {};
