#pragma once

#include "shared/include/description/media_enums.h"

// Adds one more containment to a sum: two that differ make Mixed, and an unknown one changes nothing.
constexpr MediaContainment addContainment(MediaContainment sum, MediaContainment next) {
    if (next == sum) return sum;
    if (sum == MediaContainment::Unknown) return next;
    const bool known = next == MediaContainment::ByRef || next == MediaContainment::Embedded;
    return known ? MediaContainment::Mixed : sum;
}
