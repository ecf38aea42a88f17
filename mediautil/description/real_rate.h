#pragma once

#include "shared/include/description/media_enums.h"
#include "support/fixed_point.h"

// The exact rate of a video standard, in frames a second. It stands in a header so that a rule may divide by a rate
// that the compiler knows.
constexpr FixedPoint<16> realRate(MediaVideoRate rate) {
    switch (rate) {
        case MediaVideoRate::Pal25:
            return FixedPoint<16>(25);
        case MediaVideoRate::Ntsc2997:
            return FixedPoint<16>(30000) / 1001;
        case MediaVideoRate::Film23976:
            return FixedPoint<16>(24000) / 1001;
        case MediaVideoRate::Film24:
            return FixedPoint<16>(24);
        case MediaVideoRate::Hz30:
            return FixedPoint<16>(30);
        case MediaVideoRate::Hz50:
            return FixedPoint<16>(50);
        case MediaVideoRate::Hz5994:
            return FixedPoint<16>(60000) / 1001;
        case MediaVideoRate::Hz60:
            return FixedPoint<16>(60);
        case MediaVideoRate::Unknown:
            break;
    }
    return FixedPoint<16>(1);  // so that a division by the rate of an unknown standard is no fault
}
