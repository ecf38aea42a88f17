#pragma once

#include <cstdint>

#include "support/visibility.h"

// One piece of memory in a scatter-gather list.
struct simpleSgl_s {
    unsigned char* m_start;
    unsigned m_length;  // bytes
};

// Walks a list of memory pieces as one stream of bits, most significant bit first, reading the pieces in place.
// Nothing outside the pieces is ever read: decoding past the end gives zeros, which are counted as padding.
// **Threads:** one at a time. **Owns:** neither the pieces nor the list given to `setList`; both must outlive the
// parse. A list that `appendFrom` extends is copied first and the copy is owned.
// **Units:** bytes, unless a name says bits. Empty pieces and pieces without memory are stepped over.
class MO_PUBLIC BitChunkParser {
public:
    BitChunkParser() = default;
    BitChunkParser(const BitChunkParser&) = delete;
    BitChunkParser& operator=(const BitChunkParser&) = delete;

    // Loads until at least `bits` (at most 57) bits are at hand. With `pad`, bits that the list doesn't have are made
    // of zero bytes, each announced by `addZeroPad`. Answers whether `bits` bits are loaded now.
    virtual bool reloadSlow(unsigned bits, bool pad);
    // Makes sure that there is a piece to load from, stepping over those that are loaded wholly. Answers false at the
    // end of the list.
    virtual bool moveToNextPair();
    // Counts one byte of padding: 8 bits, whatever the argument. It is meant: padding comes by whole bytes.
    virtual void addZeroPad(unsigned bits);
    // Answers whether the position lies inside the list and the counts agree with each other.
    virtual bool validate();
    // Appends at most `bytes` bytes of `piece`, which is memory of `from`, behind the end of this parser's list.
    // Fails: false when the piece isn't within the memory of `from`, `from` is this parser, or no memory comes.
    virtual bool appendFrom(BitChunkParser& from, unsigned bytes, const simpleSgl_s& piece);
    virtual ~BitChunkParser();
    // Starts at the head of this list, at stream offset 0, with no padding counted. A count of 0 or a null list empties
    // the parser.
    virtual void setList(unsigned count, simpleSgl_s* list);
    // Asks that `bytes` bytes be at hand ahead of the parse; a parser that is fed piece by piece may fetch more in its
    // override. Answers whether they are.
    virtual bool reserveInputBytes(unsigned bytes);
    // Goes back to the head of the list and forgets the padding; with `dropList` the list is let go of as well.
    virtual void reset(bool dropList);
    // Says which offset of a larger stream the head of the list has.
    virtual void setStreamOffset(unsigned long long offset);
    // Offset of a piece in the memory given so far: of its first byte, or with `end` of the byte behind its last.
    // Pieces that `garbageCollect` dropped count; a number past the list stands for its end.
    virtual unsigned long long getSegFileOffset(unsigned segment, bool end) const;
    // The same in the stream that `setStreamOffset` speaks of.
    virtual unsigned long long getSegStreamOffset(unsigned segment, bool end) const;
    // Drops the pieces at the head of the list that are parsed wholly, and answers how many. They are not to be had
    // again by `reset`.
    virtual unsigned garbageCollect();
    // Hands the next `bytes` bytes to `to` by reference and steps over them. Requires: a byte boundary.
    // Answers how many bytes went over: fewer at the end of the list, 0 between bytes.
    virtual unsigned extract(BitChunkParser& to, unsigned bytes);
    // Copies the next `bytes` bytes and steps over them, at any bit position. Answers the bytes that the list still
    // had; memory behind them is left as it is.
    virtual unsigned extractTo(unsigned char* memory, unsigned bytes);
    // Steps over `bytes` bytes, at any bit position. Answers the bytes that the list still had.
    virtual unsigned discard(unsigned bytes);

    // The next 8 bits.
    unsigned char decodeByte() {
        if (m_loadedBits < 8) reloadSlow(8, true);
        return static_cast<unsigned char>(take(8));
    }
    // The next `bits` bits as a number, 32 at most: a greater count is taken for 32.
    std::uint32_t decodeBits(unsigned bits) {
        if (bits > 32) bits = 32;
        if (m_loadedBits < bits) reloadSlow(bits, true);
        return bits == 0 ? 0 : static_cast<std::uint32_t>(take(bits));
    }
    // The same without stepping over them.
    std::uint32_t peekBits(unsigned bits) {
        if (bits > 32) bits = 32;
        if (m_loadedBits < bits) reloadSlow(bits, true);
        return bits == 0 ? 0 : static_cast<std::uint32_t>(m_word >> (64 - bits));
    }
    // The unparsed bytes that lie in one stretch of memory, for those who look at more than bits at a time; the
    // position stays. Empty at the end of the list and between bytes. Gives: borrowed.
    simpleSgl_s peekPiece();
    // Steps over the bits up to the next byte boundary.
    void alignToByte() {
        if (m_loadedBits % 8 != 0) take(m_loadedBits % 8);
    }
    bool isByteAligned() const { return m_loadedBits % 8 == 0; }
    // Whole bytes left: loaded ones and those in the list, padding not counted.
    unsigned getUnparsedBytes() const {
        const unsigned long long left = loadedRealBits() / 8 + m_bytesAhead;
        return left > 0xFFFFFFFFu ? 0xFFFFFFFFu : static_cast<unsigned>(left);
    }
    // Bits left, padding not counted.
    unsigned long long getUnparsedBits() const { return loadedRealBits() + m_bytesAhead * 8; }
    // Bits of padding made so far.
    unsigned long long getPadBits() const { return m_padBits; }
    // Offset of the next unparsed byte in the stream; between bytes, of the byte that is partly parsed.
    unsigned long long getStreamPosition() const {
        return m_streamOffset + m_collected + m_total - m_bytesAhead - (loadedRealBits() + 7) / 8;
    }

private:
    // Takes 1 to 64 loaded bits.
    std::uint64_t take(unsigned bits) {
        const std::uint64_t value = m_word >> (64 - bits);
        m_word = bits == 64 ? 0 : m_word << bits;
        m_loadedBits -= bits;
        return value;
    }
    unsigned loadedRealBits() const { return m_loadedBits > m_padLoaded ? m_loadedBits - m_padLoaded : 0; }
    static unsigned lengthOf(const simpleSgl_s& piece) { return piece.m_start == nullptr ? 0 : piece.m_length; }

    void keepLoaded(unsigned bits);
    void dropPadding();
    void load();
    void unload();
    void stepOver(unsigned bytes);
    void rewind();
    unsigned long long bytesBefore(unsigned segment) const;
    bool covers(const simpleSgl_s& piece) const;
    bool growOwn();

    std::uint64_t m_word = 0;       // loaded bits, left-justified, zeros behind them
    unsigned m_loadedBits = 0;      // bits of m_word in use
    unsigned m_padLoaded = 0;       // padding among them, always behind the real ones; may lag behind what was taken
    unsigned m_index = 0;           // piece that is read; m_count at the end
    unsigned m_pos = 0;             // bytes of that piece that are loaded already
    unsigned m_count = 0;           // pieces in the list
    unsigned m_ownCapacity = 0;     // entries that m_own has room for
    simpleSgl_s* m_list = nullptr;  // borrowed, or within m_own
    simpleSgl_s* m_own = nullptr;  // owned memory for the list of a parser that was appended to, kept for the next time
    unsigned long long m_bytesAhead = 0;    // bytes of the list that are not loaded yet
    unsigned long long m_total = 0;         // bytes of the list
    unsigned long long m_collected = 0;     // bytes of pieces that garbageCollect dropped
    unsigned long long m_streamOffset = 0;  // stream offset of the first byte ever given
    unsigned long long m_padBits = 0;       // padding made so far, less what was taken back unparsed
};
