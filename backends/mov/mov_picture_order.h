#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "backends/mov/mov_avc_sequence.h"
#include "backends/mov/mov_avc_slice.h"

// What the pictures of a track of AVC say of themselves before they are written: which begin a new sequence, and the
// count that tells when they are shown. Units are behind lengths of four bytes; of two fields in a sample the first one
// speaks. Source: ISO/IEC 14496-10.
// **Owns:** eight bytes for each picture. **Threads:** one. **Units:** samples of the track, from 0.
class MovPictureOrder {
public:
    struct Picture {
        bool m_isTold = false;
        bool m_isFirst = false;          // nothing behind it depends on what was before
        bool m_isReference : 1 = false;  // others may depend on it
        bool m_isReset : 1 = false;      // it is shown behind all before it, and counts begin anew with it
        std::uint8_t m_bits = 0;         // of the count, at most 32; 0 for pictures that are shown as they are decoded
        std::uint32_t m_count = 0;
    };

    // Looks at a sample's bytes up to its first slice.
    void look(std::uint64_t sample, const std::uint8_t* bytes, std::size_t size);
    // Not told for a sample that hasn't been seen or doesn't say.
    Picture get(std::uint64_t sample) const { return sample < m_pictures.size() ? m_pictures[sample] : Picture(); }
    // Pictures that may be decoded before one and shown behind it.
    std::uint32_t getMostLate() const { return m_mostLate; }

private:
    // Of the last picture, for counts that follow from the frames' numbers.
    struct Frames {
        std::uint64_t m_next = 0;  // the sample behind it
        std::uint32_t m_frame = 0;
        std::uint64_t m_before = 0;  // what the frames' numbers are added to
    };

    static constexpr std::uint32_t s_sequences = 32, s_sets = 256;

    void takeSequence(const std::uint8_t* unit, std::size_t size);
    void takeSet(const std::uint8_t* unit, std::size_t size);
    Picture readSlice(std::uint64_t sample, const std::uint8_t* unit, std::size_t size);
    // The lowest bits of a picture's count by its frame's number. Requires: the order's kind 1.
    std::uint32_t countByFrame(const MovAvcSequence& sequence, const MovAvcSlice& slice);

    // By their numbers, as far as there have been some.
    std::vector<std::optional<MovAvcSequence>> m_sequences;
    std::vector<std::optional<MovAvcPictureSet>> m_sets;
    Frames m_frames;
    std::uint32_t m_mostLate = 0;
    std::vector<Picture> m_pictures;
};
