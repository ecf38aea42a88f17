#pragma once

#include "support/visibility.h"

// Answers value / divisor and leaves value % divisor in value.
template <class T, class D>
constexpr T reduce(T& value, D divisor) {
    const T quotient = static_cast<T>(value / divisor);
    value = static_cast<T>(value % divisor);
    return quotient;
}

// Whether the value lies between the two and is neither of them.
template <class T>
constexpr bool inRangeExclusive(T low, T value, T high) {
    return low < value && value < high;
}

// Reports a failed expectation; execution goes on.
MO_PUBLIC void logFalse(const char* function, const char* file, unsigned int line);

// Reports a flag that is false, with the place that expected it to be true, and answers the flag.
static inline bool logIfFalse(bool flag, const char* function, const char* file, unsigned int line) {
    if (!flag) logFalse(function, file, line);
    return flag;
}
