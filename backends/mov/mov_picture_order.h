#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "backends/mov/mov_avc_sequence.h"

// What the pictures of a track of AVC say of themselves before they are written: which begin a new sequence, and the
// count that tells when they are shown. Units are behind lengths of four bytes. Source: ISO/IEC 14496-10.
// **Owns:** eight bytes for each picture. **Threads:** one. **Units:** samples of the track, from 0.
class MovPictureOrder {
public:
    struct Picture {
        bool m_isTold = false;
        bool m_isFirst = false;      // nothing behind it depends on what was before
        bool m_isReference = false;  // others may depend on it
        std::uint8_t m_bits = 0;     // of the count; 0 for pictures that are shown as they are decoded
        std::uint32_t m_count = 0;
    };

    // Looks at a sample's bytes up to its first slice.
    void look(std::uint64_t sample, const std::uint8_t* bytes, std::size_t size);
    // Not told for a sample that hasn't been seen or doesn't say.
    Picture get(std::uint64_t sample) const { return sample < m_pictures.size() ? m_pictures[sample] : Picture(); }
    // Pictures that may be decoded before one and shown behind it.
    std::uint32_t getMostLate() const { return m_mostLate; }

private:
    struct Sequence {
        bool m_isThere = false;
        MovAvcSequence m_set;
    };

    static constexpr unsigned s_sequences = 32, s_sets = 256;

    void takeSequence(const std::uint8_t* unit, std::size_t size);
    void takeSet(const std::uint8_t* unit, std::size_t size);
    Picture readSlice(const std::uint8_t* unit, std::size_t size) const;

    std::array<Sequence, s_sequences> m_sequences;
    std::array<std::uint8_t, s_sets> m_sets{};  // the sequence of each picture parameter set
    std::uint32_t m_mostLate = 0;
    std::vector<Picture> m_pictures;
};
