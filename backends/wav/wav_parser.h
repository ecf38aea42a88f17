#pragma once

#include "backends/common/file_window.h"
#include "backends/wav/wav_format.h"
#include "support/op_result.h"

// Reads the chunks of a RIFF, RF64 or BW64 file of type WAVE: any order, odd sizes with or without their padding,
// unknown chunks passed over. Reads no essence.
// Bounded: at most `s_maxChunks` chunks are walked over, whatever the file says, and behind a data chunk of size 0 as
// many again.
// **Threads:** one.
class WavParser {
public:
    static constexpr unsigned s_maxChunks = 4096;
    static constexpr unsigned s_maxChannels = 32;
    static constexpr unsigned s_maxLongChunks = 16;  // entries of the ds64 table that are heeded

    explicit WavParser(FileWindow& file) : m_file(file) {}

    // Fails: a warning whose sentence names what is wrong and where; `format` is then of no use.
    OpResult parse(WavFormat& format);

private:
    struct Chunk {
        std::uint32_t id = 0;
        std::uint32_t claimed = 0;  // the 32-bit size as it stands
        std::uint64_t body = 0;     // bytes from the file's start
        std::uint64_t size = 0;     // as claimed, or as ds64 says; all ones for a data chunk that doesn't say
    };
    // A chunk, other than data, whose size takes more than 32 bits.
    struct LongChunk {
        std::uint32_t id = 0;
        std::uint64_t size = 0;
    };

    enum class Likeness : std::uint32_t { None = 0, Fits = 1, WellKnown = 2 };

    OpResult parseChunks();

    OpResult readMaster();
    OpResult readChunks();
    OpResult readChunk(const Chunk& chunk);
    OpResult readFmt(const Chunk& chunk);
    OpResult checkCoding(std::uint16_t tag, std::uint16_t bits);
    OpResult readDs64(const Chunk& chunk);
    void readLongChunks(const Chunk& ds64);
    void readBext(const Chunk& chunk);
    void noteData(const Chunk& chunk);
    OpResult finish();
    bool complete() const { return m_hasFmt && m_hasData; }
    bool headerAt(std::uint64_t offset, Chunk& chunk);
    std::uint64_t sizeOf(const Chunk& chunk) const;
    Likeness likenessAt(std::uint64_t offset);
    std::uint64_t nextAfter(const Chunk& chunk);
    bool chunksReachEnd(std::uint64_t offset);

    FileWindow& m_file;
    WavFormat m_format;
    bool m_is64 = false;  // RF64 or BW64: ds64 has the sizes
    bool m_hasDs64 = false;
    bool m_hasFmt = false;
    bool m_hasData = false;
    bool m_dataOpen = false;  // the data chunk doesn't say how long it is
    unsigned m_longChunkCount = 0;
    LongChunk m_longChunks[s_maxLongChunks];
    std::uint64_t m_ds64Data = 0;
    std::uint64_t m_dataSize = 0;
};
