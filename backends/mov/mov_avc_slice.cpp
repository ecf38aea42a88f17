#include "backends/mov/mov_avc_slice.h"

#include <algorithm>

#include "backends/mov/mov_bits.h"

namespace {

constexpr unsigned s_first = 5, s_pictureSet = 8;  // kinds of unit
constexpr std::uint32_t s_mostReferences = 32;
constexpr unsigned s_mostSteps = 66;  // in a list of changes to what is kept: two for each field, and the end

// Kinds of slice. Those of one picture may be told to be alike, by a number that is 5 higher.
enum Kind : std::uint32_t { P = 0, B = 1, I = 2, SwitchingP = 3, SwitchingI = 4 };

bool isIntra(std::uint32_t kind) { return kind == I || kind == SwitchingI; }

void skipOrderOfReferences(MovBits& bits) {
    constexpr std::uint32_t end = 3;
    if (bits.bits(1) == 0) return;
    for (unsigned i = 0; i < s_mostSteps && bits.ok() && bits.ue() != end; ++i)
        (void)bits.ue();
}

void skipWeights(MovBits& bits, std::uint32_t references, bool hasColour) {
    for (std::uint32_t i = 0; i < references && bits.ok(); ++i) {
        for (unsigned codes = bits.bits(1) * 2; codes != 0; --codes)
            bits.skipSe();
        for (unsigned codes = hasColour ? bits.bits(1) * 4 : 0; codes != 0; --codes)
            bits.skipSe();
    }
}

// Gives: true when all that was kept is forgotten.
bool readKeeping(MovBits& bits) {
    constexpr std::uint32_t ofTwo = 3, all = 5;
    bool isReset = false;
    if (bits.bits(1) == 0) return false;
    for (unsigned i = 0; i < s_mostSteps && bits.ok(); ++i) {
        const std::uint32_t step = bits.ue();
        if (step == 0) break;
        isReset = isReset || step == all;
        if (step != all) (void)bits.ue();
        if (step == ofTwo) (void)bits.ue();
    }
    return isReset && bits.ok();
}

// What stands between a picture's count and what it keeps.
void skipToKeeping(MovBits& bits, std::uint32_t kind, const MovAvcSequence& sequence, const MovAvcPictureSet& set) {
    const bool hasColour = !sequence.hasPlanes && sequence.chromaFormat != 0;
    std::uint32_t references[] = {set.references[0], set.references[1]};
    if (set.hasRedundancy) (void)bits.ue();
    if (kind == B) (void)bits.bits(1);
    if (isIntra(kind)) return;
    const unsigned lists = kind == B ? 2 : 1;
    if (bits.bits(1) != 0) {
        for (unsigned i = 0; i < lists; ++i)
            references[i] = std::min(bits.ue(), s_mostReferences) + 1;
    }
    for (unsigned i = 0; i < lists; ++i)
        skipOrderOfReferences(bits);
    if (kind == B ? set.weightKind != 1 : !set.isWeighted) return;
    (void)bits.ue();
    if (hasColour) (void)bits.ue();
    for (unsigned i = 0; i < lists; ++i)
        skipWeights(bits, references[i], hasColour);
}

}  // namespace

bool MovAvcPictureSet::read(const std::uint8_t* unit, std::size_t size) {
    MovBits bits(unit, size);
    if ((bits.bits(8) & 31) != s_pictureSet) return false;
    number = bits.ue();
    sequence = bits.ue();
    (void)bits.bits(1);  // how coefficients are coded
    hasFieldOrder = bits.bits(1) != 0;
    hasGroups = bits.ue() != 0;
    if (!bits.ok()) return false;
    if (hasGroups) return true;
    for (std::uint32_t& count : references)
        count = std::min(bits.ue(), s_mostReferences) + 1;
    isWeighted = bits.bits(1) != 0;
    weightKind = bits.bits(2);
    for (unsigned i = 0; i < 3; ++i)
        bits.skipSe();
    (void)bits.bits(2);
    hasRedundancy = bits.bits(1) != 0;
    return bits.ok();
}

std::uint32_t MovAvcSlice::setOf(const std::uint8_t* unit, std::size_t size) {
    MovBits bits(unit + 1, size - 1);
    (void)bits.ue();  // the first macroblock
    (void)bits.ue();  // the kind
    const std::uint32_t number = bits.ue();
    return bits.ok() ? number : ~0u;
}

bool MovAvcSlice::read(const std::uint8_t* unit, std::size_t size, const MovAvcSequence& sequence,
                       const MovAvcPictureSet& set) {
    MovBits bits(unit + 1, size - 1);
    isFirst = (unit[0] & 31) == s_first;
    isReference = (unit[0] >> 5 & 3) != 0;
    (void)bits.ue();
    const std::uint32_t kind = bits.ue() % 5;
    (void)bits.ue();
    if (sequence.hasPlanes) (void)bits.bits(2);
    frame = bits.bits(sequence.frameNumberBits);
    const bool isField = !sequence.isFramesOnly && bits.bits(1) != 0;
    isSecond = isField && bits.bits(1) != 0;
    if (isFirst) (void)bits.ue();
    const bool hasSecond = set.hasFieldOrder && !isField;
    if (sequence.orderKind == 0) {
        count = bits.bits(sequence.orderBits);
        if (hasSecond) ofField = bits.se();
    } else if (sequence.orderKind == 1 && !sequence.isAsExpected) {
        delta = bits.se();
        if (hasSecond) bits.skipSe();
    }
    if (!bits.ok()) return false;
    if (isFirst || !isReference || set.hasGroups) return true;
    skipToKeeping(bits, kind, sequence, set);
    isReset = readKeeping(bits);
    return true;
}
