#include "backends/mov/mov_picture_order.h"

#include <algorithm>

#include "backends/common/byte_cursor.h"
#include "backends/mov/mov_bits.h"

namespace {

constexpr unsigned s_lengthBytes = 4;
constexpr unsigned s_slice = 1, s_partition = 2, s_first = 5, s_sequenceSet = 7, s_pictureSet = 8;  // kinds of unit

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
            m_pictures[sample] = readSlice(bytes, length);
            return;
        }
        bytes += length;
        size -= length;
    }
}

void MovPictureOrder::takeSequence(const std::uint8_t* unit, std::size_t size) {
    MovAvcSequence set;
    if (!set.read(unit, size)) return;
    m_sequences[set.number] = {true, set};
    m_mostLate = std::max(m_mostLate, set.mostLate);
}

void MovPictureOrder::takeSet(const std::uint8_t* unit, std::size_t size) {
    MovBits bits(unit + 1, size - 1);
    const std::uint32_t number = bits.ue(), sequence = bits.ue();
    if (bits.ok() && number < s_sets && sequence < s_sequences) m_sets[number] = static_cast<std::uint8_t>(sequence);
}

MovPictureOrder::Picture MovPictureOrder::readSlice(const std::uint8_t* unit, std::size_t size) const {
    Picture picture;
    MovBits bits(unit + 1, size - 1);
    (void)bits.ue();  // the first macroblock
    (void)bits.ue();  // the slice's type
    const std::uint32_t number = bits.ue();
    if (!bits.ok() || number >= s_sets) return picture;
    const Sequence& sequence = m_sequences[m_sets[number]];
    if (!sequence.m_isThere || sequence.m_set.orderKind == 1) return picture;
    picture.m_isFirst = (unit[0] & 31) == s_first;
    picture.m_isReference = (unit[0] >> 5 & 3) != 0;
    if (sequence.m_set.orderKind == 0) {
        if (sequence.m_set.hasPlanes) (void)bits.bits(2);
        (void)bits.bits(sequence.m_set.frameNumberBits);
        const bool isField = !sequence.m_set.isFramesOnly && bits.bits(1) != 0;
        if (isField) (void)bits.bits(1);
        if (picture.m_isFirst) (void)bits.ue();
        picture.m_bits = static_cast<std::uint8_t>(sequence.m_set.orderBits);
        picture.m_count = bits.bits(picture.m_bits);
    }
    picture.m_isTold = bits.ok();
    return picture;
}
