#include "backends/dv/dv_sequence.h"

#include <algorithm>
#include <iterator>

using namespace DvLayout;

namespace {

constexpr std::uint8_t s_noInformation = 0x1F;  // of a signal type

bool isPack(const std::uint8_t* pack, PackId id) { return pack[0] == static_cast<std::uint8_t>(id); }

// Two decimal digits of which the upper has `tensMask`. Fails: false above `most`.
bool isDigits(std::uint8_t byte, std::uint8_t tensMask, unsigned most) {
    const unsigned tens = (byte >> 4) & tensMask, units = byte & 0x0F;
    return units <= 9 && tens * 10 + units <= most;
}

bool isTimecode(const std::uint8_t* pack) {
    return isDigits(pack[1], 3, 29) && isDigits(pack[2], 7, 59) && isDigits(pack[3], 7, 59) && isDigits(pack[4], 3, 23);
}

}  // namespace

bool DvSequence::looksLikeStart(const std::uint8_t* memory) {
    for (unsigned i = 0; i < s_audioBlock; ++i) {
        if (!isBlock(memory + i * s_block, blockAt(i))) return false;
    }
    return true;
}

bool DvSequence::read(const std::uint8_t* head) {
    *this = DvSequence();
    if (!readIds(head)) return false;
    if (isBlock(head, blockAt(0))) readHeader(head);
    for (unsigned i = s_subcodeBlock; i < s_vauxBlock && !m_hasTimecode; ++i) {
        if (isBlock(head + i * s_block, blockAt(i))) readSubcode(head + i * s_block);
    }
    readVideoPacks(head);
    return true;
}

// Each block says which sequence it belongs to; the most of them decide.
bool DvSequence::readIds(const std::uint8_t* head) {
    unsigned good = 0, second = 0, later = 0, votes[16] = {};
    for (unsigned i = 0; i < s_headBlocks; ++i) {
        const std::uint8_t* block = head + i * s_block;
        if (!isBlock(block, blockAt(i))) {
            if (i - good >= s_headBlocks - s_leastBlocks) return false;
            continue;
        }
        ++good;
        ++votes[block[1] >> 4];
        if ((block[1] & 0x08) != 0) ++second;
        if ((block[1] & 0x04) == 0) ++later;
    }
    const unsigned* most = std::max_element(std::begin(votes), std::end(votes));
    if (*most < s_leastBlocks) return false;
    m_number = static_cast<unsigned>(most - votes);
    m_second = second > good / 2;
    m_laterPair = later > good / 2;
    return true;
}

void DvSequence::readHeader(const std::uint8_t* block) {
    m_hasHeader = true;
    m_is625 = (block[3] & 0x80) != 0;
    m_apt = block[4] & 0x07;
}

void DvSequence::readSubcode(const std::uint8_t* block) {
    for (unsigned i = 0; i < s_syncBlocks; ++i) {
        const std::uint8_t* pack = block + s_idSize + i * s_syncBlockSize + s_idSize;
        if (!isPack(pack, PackId::Timecode) || !isTimecode(pack)) continue;
        m_hasTimecode = true;
        m_dropFlag = (pack[1] & 0x40) != 0;
        m_timecode = (pack[1] & 0x3Fu) << 24 | (pack[2] & 0x7Fu) << 16 | (pack[3] & 0x7Fu) << 8 | (pack[4] & 0x3Fu);
        return;
    }
}

void DvSequence::readVideoPacks(const std::uint8_t* head) {
    const std::uint8_t* source = head + videoSourcePack(m_number);
    if (isPack(source, PackId::VideoSource) && (source[3] & 0x1F) != s_noInformation) {
        m_hasSignal = true;
        m_signal = source[3] & 0x1F;
    }
    const std::uint8_t* control = source + s_packSize;
    if (!isPack(control, PackId::VideoControl)) return;
    m_hasControl = true;
    m_display = control[2] & 0x07;
    m_bcSystem = control[3] & 0x03;
    m_interlaced = (control[3] & 0x10) != 0;
}
