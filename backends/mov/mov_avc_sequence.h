#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// What a sequence parameter set of AVC says of its pictures. Source: ISO/IEC 14496-10.
struct MovAvcSequence {
    static constexpr unsigned s_mostLate = 16;

    std::uint8_t profile = 0, level = 0;
    std::uint32_t number = 0;        // that picture parameter sets name
    std::uint32_t chromaFormat = 1;  // 1 for 4:2:0, 2 for 4:2:2, 3 for 4:4:4
    bool hasPlanes = false;          // the colours are coded apart
    bool isFramesOnly = true;
    unsigned frameNumberBits = 0;
    std::uint32_t orderKind = 0;                    // of the count that tells when a picture is shown
    unsigned orderBits = 0;                         // of that count in a slice, for the kind 0
    std::uint32_t mostLate = 1;                     // pictures that may be decoded before one and shown behind it
    std::uint32_t pixelWidth = 0, pixelHeight = 0;  // a pixel's shape, 0: not said

    // For the order's kind 1: the counts that are expected, as steps from frame to frame that come round again.
    bool isAsExpected = false;                // no picture tells another count
    std::int32_t ofOthers = 0, ofSecond = 0;  // of pictures that none depends on, of second fields
    std::vector<std::int32_t> steps;          // at most 255

    // `unit` begins with its kind. Fails: false when it is no such set or ends too early.
    bool read(const std::uint8_t* unit, std::size_t size);
};
