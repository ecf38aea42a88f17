#pragma once

#include <cstdint>

#include "backends/common/pcm_format.h"

// What a WAV file says about itself, once it has been checked.
// Sources: Multimedia Programming Interface and Data Specifications 1.0 (RIFF, fmt), WAVEFORMATEXTENSIBLE as published
// for the Windows driver kit, EBU Tech 3285 (bext), EBU Tech 3306 and ITU-R BS.2088 (RF64, BW64, ds64).
struct WavFormat : PcmFormat {
    static constexpr unsigned s_umidSize = 64;

    bool hasBext = false;
    std::uint64_t timeReference = 0;  // samples since midnight
    bool hasUmid = false;
    std::uint8_t umid[s_umidSize] = {};  // SMPTE ST 330, extended form
};
