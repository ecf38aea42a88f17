#pragma once

#include <cstddef>
#include <cstdint>

#include "backends/mov/mov_avc_sequence.h"

// What a picture parameter set of AVC says of the heads of slices. Source: ISO/IEC 14496-10.
struct MovAvcPictureSet {
    std::uint32_t number = 0;    // that slices name
    std::uint32_t sequence = 0;  // the number of its sequence parameter set
    bool hasFieldOrder = false;  // a frame tells its second field's count too
    bool hasGroups = false;      // of slices: what stands behind them isn't read
    bool hasRedundancy = false;
    bool isWeighted = false;               // P pictures
    unsigned weightKind = 0;               // of B pictures, 1: told in the slice
    std::uint32_t references[2] = {1, 1};  // pictures in each list, unless the slice says so

    // `unit` begins with its kind. Fails: false when it is no such set or ends too early.
    bool read(const std::uint8_t* unit, std::size_t size);
};

// What the head of a slice of AVC says of its picture's place in time.
struct MovAvcSlice {
    bool isFirst = false;      // nothing behind it depends on what was before
    bool isReference = false;  // others may depend on it
    bool isReset = false;      // counts begin anew behind it, and all before it is shown before it
    bool isSecond = false;     // of two fields the lower one
    std::uint32_t frame = 0;   // number of the frame, modulo
    std::uint32_t count = 0;   // for the order's kind 0: the lowest bits of the picture's count
    std::int32_t delta = 0;    // for the order's kind 1: from the count that is expected
    std::int32_t ofField = 0;  // for the kind 0, of a frame: from the first field's count to the second's

    // `unit` begins with its kind. Fails: false when it ends before the picture's count.
    bool read(const std::uint8_t* unit, std::size_t size, const MovAvcSequence& sequence, const MovAvcPictureSet& set);
    // The number of the picture parameter set that a slice names. Fails: all ones.
    static std::uint32_t setOf(const std::uint8_t* unit, std::size_t size);
};
