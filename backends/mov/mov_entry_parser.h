#pragma once

#include "backends/common/byte_cursor.h"
#include "backends/mov/mov_box_reader.h"
#include "backends/mov/mov_facts.h"

// Reads one sample description: the fixed fields of its kind in all their versions, and the atoms behind them that the
// core has words for. What doesn't fit leaves its facts unknown. **Threads:** one.
class MovEntryParser {
public:
    MovEntryParser(FileWindow& file, unsigned& left) : m_file(file), m_left(left) {}

    // `isIsoVersion1`: the list's version says that a version 1 of sound has no further fields.
    MovEntry parse(const MovBox& box, MediaDataType type, MovCode handler, bool isIsoVersion1);

private:
    void parsePicture(const MovBox& box);
    void parseSound(const MovBox& box, bool isIsoVersion1);
    void parseTimecode(const MovBox& box);
    void parseExtensions(std::uint64_t from, std::uint64_t end, bool isInWave);
    void parseExtension(const MovBox& box, bool isInWave);
    void parseElementary(const MovBox& box);
    void parseDecoder(ByteCursor& cursor);
    void parseConfig(const MovBox& box);
    void parseCleanAperture(const MovBox& box);
    void parsePcmConfig(const MovBox& box);
    void settleSound(const MovCoding* coding);
    const std::uint8_t* bodyOf(const MovBox& box, unsigned size);

    FileWindow& m_file;
    unsigned& m_left;
    MovEntry m_entry;
    bool m_isLittle = false;    // words of sound, as an atom says
    bool m_isUnsigned = false;  // bytes of sound
    bool m_isFloat = false;
    std::uint32_t m_frameBytes = 0;  // of all channels' words, as the fields say
};
