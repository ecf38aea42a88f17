#include "backends/mov/mov_avc_sets.h"

#include <algorithm>

#include "backends/common/byte_cursor.h"
#include "backends/mov/mov_atom_writer.h"
#include "backends/mov/mov_bits.h"

namespace {

constexpr unsigned s_lengthBytes = 4;
constexpr unsigned s_sequenceSet = 7, s_pictureSet = 8;  // kinds of unit
constexpr std::size_t s_mostSets = 31, s_leastSequence = 4, s_mostSet = 0xFFFF;

struct Unit {
    const std::uint8_t* m_bytes;
    std::size_t m_size;
};

using Units = std::vector<Unit>;

void take(Units& units, const Unit& unit) {
    const auto isSame = [&unit](const Unit& other) {
        return std::equal(unit.m_bytes, unit.m_bytes + unit.m_size, other.m_bytes, other.m_bytes + other.m_size);
    };
    if (units.size() < s_mostSets && unit.m_size <= s_mostSet && std::none_of(units.begin(), units.end(), isSame))
        units.push_back(unit);
}

void put(MovAtomWriter& out, const Units& units) {
    for (const Unit& unit : units)
        out.be16(unit.m_size).bytes(unit.m_bytes, unit.m_size);
}

// What the higher profiles say of their samples.
void putFormat(MovAtomWriter& out, const Unit& sequence) {
    const unsigned profile = sequence.m_bytes[1];
    if (profile != 100 && profile != 110 && profile != 122 && profile != 244) return;
    MovBits bits(sequence.m_bytes + 4, sequence.m_size - 4);
    (void)bits.ue();  // number of the set
    const std::uint32_t chroma = bits.ue();
    if (chroma == 3) (void)bits.bits(1);
    const std::uint32_t luma = bits.ue(), colour = bits.ue();
    if (!bits.ok()) return;
    out.be8(0xFC | (chroma & 3)).be8(0xF8 | (luma & 7)).be8(0xF8 | (colour & 7)).be8(0);
}

}  // namespace

std::vector<std::uint8_t> MovAvcSets::configurationOf(const std::uint8_t* bytes, std::size_t size) {
    Units sequences, pictures;
    while (size > s_lengthBytes) {
        const std::size_t length = ByteCursor(bytes, s_lengthBytes).be32();
        bytes += s_lengthBytes;
        size -= s_lengthBytes;
        if (length == 0 || length > size) break;
        const unsigned kind = bytes[0] & 0x1F;
        if (kind == s_sequenceSet && length >= s_leastSequence) take(sequences, {bytes, length});
        if (kind == s_pictureSet) take(pictures, {bytes, length});
        bytes += length;
        size -= length;
    }
    if (sequences.empty() || pictures.empty()) return {};
    MovAtomWriter out;
    out.be8(1).bytes(sequences[0].m_bytes + 1, 3).be8(0xFC | (s_lengthBytes - 1)).be8(0xE0 | sequences.size());
    put(out, sequences);
    out.be8(pictures.size());
    put(out, pictures);
    putFormat(out, sequences[0]);
    return out.getBytes();
}
