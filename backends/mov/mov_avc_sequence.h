#pragma once

#include <cstddef>
#include <cstdint>

// What a sequence parameter set of AVC says of its pictures. Source: ISO/IEC 14496-10.
struct MovAvcSequence {
    static constexpr unsigned s_mostLate = 16;

    std::uint32_t number = 0;        // that picture parameter sets name
    std::uint32_t chromaFormat = 1;  // 1 for 4:2:0, 2 for 4:2:2, 3 for 4:4:4
    bool hasPlanes = false;          // the colours are coded apart
    bool isFramesOnly = true;
    unsigned frameNumberBits = 0;
    std::uint32_t orderKind = 0;  // of the count that tells when a picture is shown
    unsigned orderBits = 0;       // of that count in a slice, for the kind 0
    std::uint32_t mostLate = 1;   // pictures that may be decoded before one and shown behind it

    // `unit` begins with its kind. Fails: false when it is no such set or ends too early.
    bool read(const std::uint8_t* unit, std::size_t size);
};
