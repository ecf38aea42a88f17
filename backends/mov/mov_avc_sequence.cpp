#include "backends/mov/mov_avc_sequence.h"

#include <algorithm>

#include "backends/mov/mov_bits.h"

namespace {

constexpr std::uint32_t s_mostNumbers = 32, s_mostExtraBits = 12;

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
        const std::uint32_t delta = code % 2 != 0 ? (code + 1) / 2 : 0u - code / 2;
        last = (last + delta) & 0xFF;
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
        (void)bits.bits(1);
        bits.skipSe();
        bits.skipSe();
        const std::uint32_t cycle = std::min(bits.ue(), 255u);
        for (std::uint32_t i = 0; i < cycle && bits.ok(); ++i)
            bits.skipSe();
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

// What is said of use. Gives: false unless it limits how late a picture is shown.
bool readUse(MovBits& bits, std::uint32_t& mostLate) {
    constexpr std::uint32_t ownAspect = 255;
    if (bits.bits(1) != 0 && bits.bits(8) == ownAspect) (void)bits.bits(32);
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
    const std::uint32_t profile = bits.bits(8);
    (void)bits.bits(16);  // constraints, level
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
    if (bits.bits(1) != 0 && readUse(bits, told)) mostLate = std::min(told, s_mostLate);
    if (orderKind == 2) mostLate = 0;
    return true;
}
