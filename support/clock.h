#pragma once

#include "support/visibility.h"

namespace Clock {

// A monotonic time in microseconds. Its zero has no meaning.
MO_PUBLIC long long nowRelative();

}  // namespace Clock

// Sleeps that long, signals or not.
MO_PUBLIC void waitMsec(unsigned int msec);
