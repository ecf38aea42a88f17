#pragma once

#include <cstdint>

#include "shared/include/description/media_enums.h"

// Audio samples of one size that lie one behind the other in a file: what a back-end has learnt and checked.
// **Units:** bytes from the file's start, and samples: the words of all channels of one instant.
struct PcmFormat {
    MediaEncodingType encoding = MediaEncodingType::Pcm;
    MediaEndian endian = MediaEndian::Little;
    std::uint16_t channels = 0;
    std::uint32_t sampleRate = 0;  // Hz
    std::uint16_t bits = 0;        // of one channel's word as it lies in the file: 8, 16, 24 or 32
    std::uint16_t blockAlign = 0;  // bytes a sample
    std::uint64_t dataOffset = 0;
    std::uint64_t samples = 0;     // whole ones that are there
    std::uint64_t maxSamples = 0;  // whole ones that the file claims; all ones while it doesn't say
};
