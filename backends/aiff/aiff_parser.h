#pragma once

#include "backends/common/file_window.h"
#include "backends/common/pcm_format.h"
#include "support/op_result.h"

// Reads the chunks of an AIFF or AIFF-C file, in any order, with or without the padding of odd ones. Reads no essence.
// Sources: Audio Interchange File Format 1.3 and AIFF-C draft of 1991-08-26; IEEE 754 for the 80-bit sample rate.
// Bounded: at most `s_maxChunks` chunk headers are looked at, whatever the file says. **Threads:** one.
class AiffParser {
public:
    static constexpr unsigned s_maxChunks = 4096;
    static constexpr unsigned s_maxChannels = 32;

    explicit AiffParser(FileWindow& file) : m_file(file) {}

    // Fails: a warning whose sentence names what is wrong; `format` is then of no use.
    OpResult parse(PcmFormat& format);

    // The whole number of Hz nearest to an extended-precision number; 0 for what isn't one of 1 to 2^32 - 1.
    static std::uint32_t rateOf(std::uint16_t signAndExponent, std::uint64_t mantissa);

private:
    struct Chunk {
        std::uint32_t id = 0;
        std::uint32_t size = 0;
        std::uint64_t body = 0;  // bytes from the file's start
    };

    OpResult readForm();
    OpResult readChunks();
    OpResult readComm(const Chunk& chunk);
    OpResult readSsnd(const Chunk& chunk);
    OpResult setCoding(std::uint32_t coding, std::uint16_t bits);
    OpResult finish();
    bool headerAt(std::uint64_t offset, Chunk& chunk);
    std::uint64_t nextAfter(const Chunk& chunk);
    bool complete() const { return m_hasComm && m_hasSsnd; }

    FileWindow& m_file;
    PcmFormat m_format;
    bool m_isAifc = false;
    bool m_hasComm = false;
    bool m_hasSsnd = false;
    std::uint32_t m_frames = 0;        // as COMM says
    std::uint64_t m_claimedBytes = 0;  // of essence, as SSND says
    std::uint64_t m_dataBytes = 0;     // of them those that the file has
};
