#pragma once

#include <cstdint>

#include "services/buffer/bit_chunk_parser.h"
#include "services/buffer/obuf.h"
#include "support/visibility.h"

class MediaIoBuf;

// An entry of a scatter-gather list that starts empty.
struct initSgl_t : simpleSgl_s {
    initSgl_t() { set(nullptr, 0); }
    void set(unsigned char* start, unsigned int length) {
        m_start = start;
        m_length = length;
    }
};
// The parser walks such entries as plain ones.
static_assert(sizeof(initSgl_t) == sizeof(simpleSgl_s));

// Lets one bit-level parser run over a flat or a segmented buffer, in place.
// **Threads:** one at a time. **Owns:** nothing: the buffer outlives its parse.
class MO_PUBLIC MediaParser : public BitChunkParser {
public:
    static constexpr unsigned s_maxPieces = 128;

    MediaParser();
    ~MediaParser() override;

    // Starts at the head of a flat buffer. True also for an empty one.
    bool setBuf(const MediaIoBuf& buf);
    // Starts at the head of a segmented buffer; what lies behind its first 128 pieces isn't seen.
    // False for null, for an empty buffer and when memory doesn't come.
    bool setObuf(phantom_OBUF* obuf);

private:
    initSgl_t m_sgl[s_maxPieces];  // the list that the parser walks
    std::uint32_t m_sglCount = 0;  // entries in use
};
