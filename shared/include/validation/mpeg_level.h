#pragma once

#include <cstdint>

#include "shared/include/description/media_enums.h"
#include "support/visibility.h"

// Level and profile of a stream of MPEG-2 video, as its profile_and_level_indication numbers them: the level in the
// upper 16 bits of the answer, the profile in the lower.
namespace MpegLevel {
inline constexpr std::uint32_t High = 4;
inline constexpr std::uint32_t High1440 = 6;
inline constexpr std::uint32_t Main = 8;
}  // namespace MpegLevel

namespace MpegProfile {
inline constexpr std::uint32_t P422 = 0;
inline constexpr std::uint32_t Main = 4;
}  // namespace MpegProfile

// Every input has an answer. `bitRate` is in bits a second. With `exactRateHigh` a stream of High-1440's size whose
// rate is exactly a broadcast one of High level counts as that.
MO_PUBLIC std::uint32_t calcMpegLevelAndProfile(unsigned int width, unsigned int height, MediaChromaSample chroma,
                                                unsigned int bitRate, MediaVideoRate rate, bool exactRateHigh);
