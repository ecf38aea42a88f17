#pragma once

#include <cstdint>

#include "backends/mov/mov_atoms.h"
#include "shared/include/description/media_enums.h"

// What the code of a sample description says by itself.
struct MovCoding {
    MovCode code = 0;
    MediaDataType type = MediaDataType::Unknown;
    MediaEncodingType encoding = MediaEncodingType::Unknown;
    MediaChromaSample chroma = MediaChromaSample::None;
    MediaVideoScanType scan = MediaVideoScanType::Unknown;
    MediaEndian endian = MediaEndian::Big;  // of sound
    std::uint8_t bits = 0;                  // a word of sound; 0: as the description's fields say
};

// The codings of movie files in the core's words, both ways.
namespace MovDescription {

// Null for a code that the core has no word for. Gives: for ever.
const MovCoding* find(MediaDataType type, MovCode code);
// The first code of a coding, for a writer: the one of that endianness and size of word for PCM. 0 when there is none.
MovCode codeOf(MediaDataType type, MediaEncodingType encoding, MediaChromaSample chroma, MediaEndian endian,
               unsigned bits);
// The coding behind an object type of an `esds`; Unknown for others.
MediaEncodingType encodingOfObjectType(std::uint8_t objectType);
// Lines of two, by the numbers of `fiel`.
MediaVideoScanType scanOfFields(std::uint8_t fields);
// The name of a coding that the core has no word for, or null.
const char* nameOfUnknown(MovCode code);
// The picture's shape: 4:3 and 16:9 with the leeway that the sampling grids of standard definition need, else other.
// Unknown for a ratio of nothing.
MediaAspectRatio aspectOf(std::uint64_t width, std::uint64_t height);

}  // namespace MovDescription
