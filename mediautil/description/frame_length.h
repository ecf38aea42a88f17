#pragma once

#include "support/fixed_point.h"

// Frames in a length of ticks, to the nearest one. A rate that gives no ticks a frame, 0 among them, counts as a frame
// a tick.
constexpr unsigned long long framesOf(unsigned long long ticks, unsigned int timeBase, FixedPoint<16> rate) {
    FixedPoint<16> perFrame(1);
    if (rate != FixedPoint<16>(0) && timeBase / rate > FixedPoint<16>(0)) perFrame = timeBase / rate;
    return (ticks / perFrame).round().uint64Value();
}
