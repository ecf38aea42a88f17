#pragma once

#include <cstddef>
#include <cstdint>

#include "backends/mov/mov_facts.h"
#include "shared/include/description/media_enums.h"

// What the decoder configuration of AVC (`avcC`) says. Source: ISO/IEC 14496-15 and 14496-10.
struct MovAvcConfig {
    std::uint8_t profile = 0, level = 0;
    std::uint8_t lengthBytes = 0;  // in front of each unit
    MediaChromaSample chroma = MediaChromaSample::None;
    MediaVideoScanType scan = MediaVideoScanType::Unknown;
    std::uint32_t pixelWidth = 0, pixelHeight = 0;  // a pixel's shape, 0: not said

    // The facts of a sequence parameter set, which begins with its kind. Fails: false when it can't be read; nothing
    // has changed then.
    bool readSequence(const std::uint8_t* unit, std::size_t size);
    // Tells a description what the sequence says: its own word counts more only for the scan.
    void complete(MovEntry& entry) const;
    // Fails: false when it is no configuration. A parameter set that can't be read leaves its facts unknown.
    bool read(const std::uint8_t* bytes, std::size_t size);
};
