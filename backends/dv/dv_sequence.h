#pragma once

#include <cstdint>

#include "backends/dv/dv_layout.h"

// The head of one DIF sequence: which one of the frame it is, and what its header, subcode and VAUX say. A few blocks
// of it may be damaged.
// **Threads:** one. **Owns:** nothing.
class DvSequence {
public:
    static constexpr unsigned s_headBlocks = 51;  // with three of audio and 42 of video
    static constexpr unsigned s_headSize = s_headBlocks * DvLayout::s_block;
    static constexpr unsigned s_leastBlocks = 38;  // of the head that must be what their place says
    // What a look before reading takes: the blocks ahead of audio.
    static constexpr unsigned s_lookSize = (DvLayout::s_audioBlock - 1) * DvLayout::s_block + DvLayout::s_idSize;

    // Whether a sequence may start here. Requires: `s_lookSize` bytes.
    static bool looksLikeStart(const std::uint8_t* memory);

    // Fails: false when these bytes aren't the head of a sequence. Requires: `s_headSize` bytes.
    bool read(const std::uint8_t* head);

    unsigned m_number = 0;     // of the sequence in its channel
    bool m_second = false;     // FSC: of the two channels that go together it is the second
    bool m_laterPair = false;  // FSP clear: channels 2 and 3, or the second frame of a pair

    bool m_hasHeader = false;  // then:
    bool m_is625 = false;
    std::uint8_t m_apt = 0;

    bool m_hasSignal = false;  // then:
    std::uint8_t m_signal = 0;

    bool m_hasControl = false;    // then the video control pack's bytes:
    std::uint8_t m_display = 0;   // DISP
    std::uint8_t m_bcSystem = 0;  // BCSYS
    bool m_interlaced = true;     // IL

    bool m_hasTimecode = false;    // then:
    std::uint32_t m_timecode = 0;  // frames, seconds, minutes, hours in BCD from the top, without flags
    bool m_dropFlag = false;

private:
    bool readIds(const std::uint8_t* head);
    void readHeader(const std::uint8_t* block);
    void readSubcode(const std::uint8_t* block);
    void readVideoPacks(const std::uint8_t* head);
};
