#pragma once

#include <cstdint>

#include "shared/include/description/media_enums.h"

// Stable name of a track: data type in the high 16 bits, ordinal among the tracks of that type in the low 16.
enum class MediaTrackEnum : std::uint32_t {
    None = 0,          // what a bad index is called, and where a walk begins
    End = 0xffffffff,  // where a walk over the tracks ends
};

// The type by which a track enum counts the tracks of every type.
inline constexpr MediaDataType s_anyTrackType = MediaDataType::Data;

constexpr MediaTrackEnum encodeMte(MediaDataType type, unsigned int ordinal) {
    return static_cast<MediaTrackEnum>((static_cast<std::uint32_t>(type) << 16) + ordinal);
}

constexpr unsigned int decodeMteOrdinal(MediaTrackEnum track) { return static_cast<std::uint32_t>(track) & 0xffff; }

// The data type; the shift is arithmetic, so the end marker decodes to all ones.
constexpr MediaDataType decodeMteType(MediaTrackEnum track) {
    return static_cast<MediaDataType>(static_cast<std::int32_t>(track) >> 16);
}
