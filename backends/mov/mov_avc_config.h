#pragma once

#include <cstddef>
#include <cstdint>

#include "shared/include/description/media_enums.h"

// What the decoder configuration of AVC (`avcC`) says. Source: ISO/IEC 14496-15 and 14496-10.
struct MovAvcConfig {
    std::uint8_t profile = 0, level = 0;
    std::uint8_t lengthBytes = 0;  // in front of each unit
    MediaChromaSample chroma = MediaChromaSample::None;
    MediaVideoScanType scan = MediaVideoScanType::Unknown;

    // Fails: false when it is no configuration. A parameter set that can't be read leaves its facts unknown.
    bool read(const std::uint8_t* bytes, std::size_t size);

private:
    void readSequence(const std::uint8_t* bytes, std::size_t size);
};
