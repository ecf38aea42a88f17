#include "backends/mov/mov_picture_order.h"

#include <algorithm>

#include "backends/common/byte_cursor.h"
#include "backends/mov/mov_bits.h"

namespace {

constexpr unsigned s_lengthBytes = 4;
constexpr unsigned s_slice = 1, s_partition = 2, s_first = 5, s_sequenceSet = 7, s_pictureSet = 8;  // kinds of unit

__extension__ using Wide = __int128;

template <class Set>
bool has(const std::vector<std::optional<Set>>& sets, std::uint32_t number) {
    return number < sets.size() && sets[number].has_value();
}

template <class Set>
void keep(std::vector<std::optional<Set>>& sets, const Set& set) {
    if (set.number >= sets.size()) sets.resize(set.number + std::size_t{1});
    sets[set.number] = set;
}

}  // namespace

void MovPictureOrder::look(std::uint64_t sample, const std::uint8_t* bytes, std::size_t size) {
    while (size > s_lengthBytes) {
        const std::size_t length = ByteCursor(bytes, s_lengthBytes).be32();
        bytes += s_lengthBytes;
        size -= s_lengthBytes;
        if (length == 0 || length > size) return;
        const unsigned kind = bytes[0] & 31;
        if (kind == s_sequenceSet) takeSequence(bytes, length);
        if (kind == s_pictureSet) takeSet(bytes, length);
        if (kind == s_slice || kind == s_partition || kind == s_first) {
            if (sample >= m_pictures.size()) m_pictures.resize(sample + 1);
            m_pictures[sample] = readSlice(sample, bytes, length);
            return;
        }
        bytes += length;
        size -= length;
    }
}

void MovPictureOrder::takeSequence(const std::uint8_t* unit, std::size_t size) {
    MovAvcSequence sequence;
    if (!sequence.read(unit, size) || sequence.number >= s_sequences) return;
    m_mostLate = std::max(m_mostLate, sequence.mostLate);
    keep(m_sequences, sequence);
}

void MovPictureOrder::takeSet(const std::uint8_t* unit, std::size_t size) {
    MovAvcPictureSet set;
    if (set.read(unit, size) && set.number < s_sets && set.sequence < s_sequences) keep(m_sets, set);
}

MovPictureOrder::Picture MovPictureOrder::readSlice(std::uint64_t sample, const std::uint8_t* unit, std::size_t size) {
    Picture picture;
    const std::uint32_t number = MovAvcSlice::setOf(unit, size);
    if (!has(m_sets, number) || !has(m_sequences, m_sets[number]->sequence)) return picture;
    const MovAvcSequence& sequence = *m_sequences[m_sets[number]->sequence];
    MovAvcSlice slice;
    if (!slice.read(unit, size, sequence, *m_sets[number])) return picture;
    // Frames' numbers tell nothing behind a picture that hasn't been seen.
    const bool isByFrame = sequence.orderKind == 1;
    if (isByFrame && !slice.isFirst && sample != m_frames.m_next) return picture;
    picture.m_isTold = true;
    picture.m_isFirst = slice.isFirst;
    picture.m_isReference = slice.isReference;
    picture.m_isReset = slice.isReset;
    if (isByFrame) {
        m_frames.m_next = sample + 1;
        picture.m_bits = 32;
        picture.m_count = countByFrame(sequence, slice);
    } else if (sequence.orderKind == 0) {
        picture.m_bits = static_cast<std::uint8_t>(sequence.orderBits);
        picture.m_count = slice.count;
    }
    // With a new beginning the earlier of its fields counts as 0.
    if (slice.isReset) picture.m_count = static_cast<std::uint32_t>(std::max(0, -slice.ofField));
    return picture;
}

std::uint32_t MovPictureOrder::countByFrame(const MovAvcSequence& sequence, const MovAvcSlice& slice) {
    if (slice.isFirst) m_frames = {m_frames.m_next, 0, 0};
    if (slice.frame < m_frames.m_frame) m_frames.m_before += std::uint64_t{1} << sequence.frameNumberBits;
    m_frames.m_frame = slice.frame;
    const std::uint64_t cycle = sequence.steps.size();
    std::uint64_t frames = cycle != 0 ? m_frames.m_before + slice.frame : 0;
    if (frames != 0 && !slice.isReference) --frames;
    Wide ofCycle = 0, count = slice.delta;
    for (std::uint64_t i = 0; i < cycle; ++i) {
        ofCycle += sequence.steps[i];
        if (i < frames % cycle) count += sequence.steps[i];
    }
    if (cycle != 0) count += ofCycle * (frames / cycle);
    if (!slice.isReference) count += sequence.ofOthers;
    if (slice.isSecond) count += sequence.ofSecond;
    if (slice.isReset) m_frames = {m_frames.m_next, 0, 0};
    return static_cast<std::uint32_t>(count);
}
