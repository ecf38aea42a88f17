#include "backends/mov/mov_avc_sequence.h"

#include <algorithm>
#include <iterator>

#include "backends/mov/mov_bits.h"

namespace {

constexpr std::uint32_t s_mostNumbers = 32, s_mostExtraBits = 12, s_mostSteps = 255;

// The profiles whose sequence parameter set tells the chroma format.
bool tellsChroma(std::uint32_t profile) {
    switch (profile) {
        case 44:
        case 83:
        case 86:
        case 100:
        case 110:
        case 118:
        case 122:
        case 128:
        case 244:
            return true;
        default:
            return false;
    }
}

void skipScalingList(MovBits& bits, unsigned size) {
    // Deltas count modulo 256, and a running value of 0 ends the list.
    std::uint32_t last = 8;
    for (unsigned i = 0; i < size && last != 0 && bits.ok(); ++i) {
        const std::uint32_t code = bits.ue();
        const std::uint32_t half = code / 2 % 256;
        last = (last + (code % 2 != 0 ? half + 1 : 256 - half)) % 256;
    }
}

void skipScalingLists(MovBits& bits, unsigned chromaFormat) {
    if (bits.bits(1) == 0) return;
    for (unsigned i = 0; i < (chromaFormat != 3 ? 8u : 12u); ++i) {
        if (bits.bits(1) != 0) skipScalingList(bits, i < 6 ? 16 : 64);
    }
}

void skipCodes(MovBits& bits, unsigned count) {
    for (unsigned i = 0; i < count; ++i)
        (void)bits.ue();
}

void readOrder(MovBits& bits, MovAvcSequence& sequence) {
    sequence.orderKind = bits.ue();
    if (sequence.orderKind == 0) {
        sequence.orderBits = std::min(bits.ue(), s_mostExtraBits) + 4;
    } else if (sequence.orderKind == 1) {
        sequence.isAsExpected = bits.bits(1) != 0;
        sequence.ofOthers = bits.se();
        sequence.ofSecond = bits.se();
        const std::uint32_t cycle = std::min(bits.ue(), s_mostSteps);
        for (std::uint32_t i = 0; i < cycle && bits.ok(); ++i)
            sequence.steps.push_back(bits.se());
    }
}

// The buffers of a decoder that is fed at a rate.
void skipBuffers(MovBits& bits) {
    const std::uint32_t count = std::min(bits.ue(), 31u) + 1;
    (void)bits.bits(8);
    for (std::uint32_t i = 0; i < count && bits.ok(); ++i) {
        skipCodes(bits, 2);
        (void)bits.bits(1);
    }
    (void)bits.bits(20);
}

// The shape of a pixel: one of a list, or two numbers.
void readPixels(MovBits& bits, MovAvcSequence& sequence) {
    constexpr std::uint32_t own = 255;
    constexpr std::uint8_t shapes[][2] = {{0, 0},   {1, 1},    {12, 11}, {10, 11}, {16, 11}, {40, 33},
                                          {24, 11}, {20, 11},  {32, 11}, {80, 33}, {18, 11}, {15, 11},
                                          {64, 33}, {160, 99}, {4, 3},   {3, 2},   {2, 1}};
    if (bits.bits(1) == 0) return;
    const std::uint32_t kind = bits.bits(8);
    if (kind == own) {
        sequence.pixelWidth = bits.bits(16);
        sequence.pixelHeight = bits.bits(16);
    } else if (kind < std::size(shapes)) {
        sequence.pixelWidth = shapes[kind][0];
        sequence.pixelHeight = shapes[kind][1];
    }
}

// What is said of use. Gives: false unless it limits how late a picture is shown.
bool readUse(MovBits& bits, MovAvcSequence& sequence, std::uint32_t& mostLate) {
    readPixels(bits, sequence);
    if (bits.bits(1) != 0) (void)bits.bits(1);  // overscan
    if (bits.bits(1) != 0) {
        (void)bits.bits(4);  // video format and range
        if (bits.bits(1) != 0) (void)bits.bits(24);
    }
    if (bits.bits(1) != 0) skipCodes(bits, 2);  // where chroma lies
    if (bits.bits(1) != 0) {
        (void)bits.bits(32);
        (void)bits.bits(32);
        (void)bits.bits(1);
    }
    const bool hasFirst = bits.bits(1) != 0;
    if (hasFirst) skipBuffers(bits);
    const bool hasSecond = bits.bits(1) != 0;
    if (hasSecond) skipBuffers(bits);
    if (hasFirst || hasSecond) (void)bits.bits(1);
    (void)bits.bits(1);
    if (bits.bits(1) == 0) return false;
    (void)bits.bits(1);
    skipCodes(bits, 4);
    mostLate = bits.ue();
    return bits.ok();
}

}  // namespace

bool MovAvcSequence::read(const std::uint8_t* unit, std::size_t size) {
    MovBits bits(unit, size);
    if ((bits.bits(8) & 31) != 7) return false;
    profile = static_cast<std::uint8_t>(bits.bits(8));
    (void)bits.bits(8);  // constraints
    level = static_cast<std::uint8_t>(bits.bits(8));
    number = bits.ue();
    if (tellsChroma(profile)) {
        chromaFormat = bits.ue();
        if (chromaFormat == 3) hasPlanes = bits.bits(1) != 0;
        skipCodes(bits, 2);
        (void)bits.bits(1);
        skipScalingLists(bits, chromaFormat);
    }
    frameNumberBits = std::min(bits.ue(), s_mostExtraBits) + 4;
    readOrder(bits, *this);
    const std::uint32_t references = bits.ue();
    (void)bits.bits(1);
    skipCodes(bits, 2);
    isFramesOnly = bits.bits(1) != 0;
    if (!bits.ok() || number >= s_mostNumbers) return false;
    mostLate = std::clamp(references, 1u, s_mostLate);
    if (!isFramesOnly) (void)bits.bits(1);
    (void)bits.bits(1);
    if (bits.bits(1) != 0) skipCodes(bits, 4);  // what is cut off
    std::uint32_t told = 0;
    if (bits.bits(1) != 0 && readUse(bits, *this, told)) mostLate = std::min(told, s_mostLate);
    if (orderKind == 2) mostLate = 0;
    return true;
}
