#pragma once

#include <cstdint>

// How a DIF stream is laid out: blocks of 80 bytes, 150 of them a sequence, 10 or 12 sequences a channel, 1, 2 or 4
// channels a frame. Sources: IEC 61834-2 and -4, SMPTE ST 314M, SMPTE ST 370M.
// **Units:** bytes, unless a name says blocks.
namespace DvLayout {

constexpr unsigned s_block = 80;
constexpr unsigned s_sequenceBlocks = 150;
constexpr unsigned s_sequence = s_block * s_sequenceBlocks;

// Places of the sections in a sequence, in blocks: header 1, subcode 2, VAUX 3, then 9 times one of audio and 15 of
// video.
constexpr unsigned s_subcodeBlock = 1;
constexpr unsigned s_vauxBlock = 3;
constexpr unsigned s_audioBlock = 6;
constexpr unsigned s_audioStride = 16;
constexpr unsigned s_audioBlocks = 9;

constexpr unsigned s_idSize = 3;  // at the head of each block
constexpr unsigned s_packSize = 5;
constexpr unsigned s_syncBlockSize = 8;  // of subcode: an id of 3 bytes and a pack
constexpr unsigned s_syncBlocks = 6;     // in a subcode block

enum class Section : std::uint8_t { Header = 0, Subcode = 1, Vaux = 2, Audio = 3, Video = 4 };

enum class PackId : std::uint8_t {
    Timecode = 0x13,
    AudioSource = 0x50,
    AudioControl = 0x51,
    VideoSource = 0x60,
    VideoControl = 0x61,
};

// What a block is, by its place in the sequence.
struct BlockId {
    Section section;
    std::uint8_t number;  // among the blocks of its section
};

constexpr BlockId blockAt(unsigned index) {
    if (index < s_subcodeBlock) return {Section::Header, 0};
    if (index < s_vauxBlock) return {Section::Subcode, static_cast<std::uint8_t>(index - s_subcodeBlock)};
    if (index < s_audioBlock) return {Section::Vaux, static_cast<std::uint8_t>(index - s_vauxBlock)};
    const unsigned unit = (index - s_audioBlock) / s_audioStride, place = (index - s_audioBlock) % s_audioStride;
    if (place == 0) return {Section::Audio, static_cast<std::uint8_t>(unit)};
    return {Section::Video, static_cast<std::uint8_t>(unit * (s_audioStride - 1) + place - 1)};
}

// The bit behind the section's is always set, so that zeros are no block.
constexpr bool isBlock(const std::uint8_t* block, BlockId id) {
    return block[0] >> 4 == (static_cast<unsigned>(id.section) << 1 | 1) && block[2] == id.number;
}

// Place of the audio block in an odd or even sequence that has the audio source pack; the control pack is in the next.
constexpr unsigned audioSourceBlock(unsigned sequence) {
    return s_audioBlock + (sequence % 2 == 0 ? 3 : 0) * s_audioStride;
}

// Place of the video source pack from the start of an odd or even sequence; the control pack stands behind it.
constexpr unsigned videoSourcePack(unsigned sequence) {
    const unsigned block = s_vauxBlock + (sequence % 2 == 0 ? 2 : 0), pack = sequence % 2 == 0 ? 9 : 0;
    return block * s_block + s_idSize + pack * s_packSize;
}

}  // namespace DvLayout
