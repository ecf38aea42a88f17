#pragma once

#include "support/fixed_point.h"

// Ticks of a frame. A rate that gives none, 0 among them, counts as a frame a tick.
constexpr FixedPoint<16> ticksPerFrame(unsigned int timeBase, FixedPoint<16> rate) {
    if (rate != FixedPoint<16>(0) && timeBase / rate > FixedPoint<16>(0)) return timeBase / rate;
    return FixedPoint<16>(1);
}

// Frames in a length of ticks, to the nearest one.
constexpr unsigned long long framesOf(unsigned long long ticks, unsigned int timeBase, FixedPoint<16> rate) {
    return (ticks / ticksPerFrame(timeBase, rate)).round().uint64Value();
}
