#include "backends/mov/mov_moov_growth.h"

#include <algorithm>

#include "backends/mov/mov_atom_writer.h"

namespace {

using MovMoovGrowth::Plan;
using MovMoovGrowth::Step;

constexpr std::uint32_t s_head = 8;
constexpr unsigned s_sizeBytes = 4;

// Bytes are counted from the lowest one.
unsigned byteOf(std::uint32_t value, unsigned number) { return value >> (8 * number) & 0xFF; }

Step stepOf(std::uint64_t atom, std::uint32_t size, unsigned byte) {
    return {atom + s_sizeBytes - 1 - byte, {static_cast<std::uint8_t>(byteOf(size, byte))}};
}

// Cuts the `free` so that its first part has `wanted` bytes, from the highest byte of its size to the lowest. In front
// of each step a head stands where the atom is going to end; it touches none that is looked at.
bool cut(std::uint64_t at, std::uint32_t freeSize, std::uint32_t wanted, std::vector<Step>& steps) {
    std::uint32_t size = freeSize;
    for (unsigned byte = s_sizeBytes; byte-- > 0;) {
        if (byteOf(size, byte) == byteOf(wanted, byte)) continue;
        const std::uint32_t mask = 0xFFu << (8 * byte);
        const std::uint32_t next = (size & ~mask) | (wanted & mask);
        const std::uint32_t distance = next > size ? next - size : size - next;
        if (next < s_head || next > freeSize - s_head || distance < s_head) return false;
        MovAtomWriter head;
        head.be32(freeSize - next).be32(MovAtom::s_free);
        steps.push_back({at + next, head.getBytes()});
        steps.push_back(stepOf(at, next, byte));
        size = next;
    }
    return true;
}

}  // namespace

MovMoovGrowth::Plan MovMoovGrowth::make(std::uint32_t moovSize, std::uint32_t freeSize, std::uint32_t wanted) {
    const std::uint32_t least = std::max(wanted, s_head);
    for (unsigned byte = 0; byte < s_sizeBytes && least <= freeSize; ++byte) {
        const std::uint64_t unit = std::uint64_t{1} << (8 * byte);
        const std::uint64_t most = std::min<std::uint64_t>((255 - byteOf(moovSize, byte)) * unit, freeSize);
        for (std::uint64_t taken = (least + unit - 1) / unit * unit; taken <= most; taken += unit) {
            Plan plan;
            const auto piece = static_cast<std::uint32_t>(taken);
            if (piece != freeSize && !cut(moovSize, freeSize, piece, plan.m_steps)) continue;
            plan.m_steps.push_back(stepOf(0, moovSize + piece, byte));
            plan.m_taken = piece;
            return plan;
        }
    }
    return Plan();
}
