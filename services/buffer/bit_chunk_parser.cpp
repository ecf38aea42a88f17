#include "services/buffer/bit_chunk_parser.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace {

constexpr unsigned s_registerBits = 64;
constexpr unsigned s_mostBits = 57;  // a register with part of a byte in front still takes this many

std::uint64_t readBigEndian(const unsigned char* memory) {
    std::uint64_t word;
    std::memcpy(&word, memory, sizeof word);
    return __builtin_bswap64(word);
}

// The first `bits` bits of a word, zeros behind them.
std::uint64_t head(std::uint64_t word, unsigned bits) {
    return bits == 0 ? 0 : word & (~std::uint64_t{0} << (s_registerBits - bits));
}

}  // namespace

BitChunkParser::~BitChunkParser() { delete[] m_own; }

bool BitChunkParser::reloadSlow(unsigned bits, bool pad) {
    const unsigned wanted = std::min(bits, s_mostBits);
    m_padLoaded = std::min(m_padLoaded, m_loadedBits);
    while (m_loadedBits < wanted) {
        if (moveToNextPair()) {
            load();
        } else if (pad) {
            addZeroPad(8);
            m_loadedBits += 8;
            m_padLoaded += 8;
        } else {
            break;
        }
    }
    return m_loadedBits >= bits;
}

bool BitChunkParser::moveToNextPair() {
    while (m_index < m_count && m_pos == lengthOf(m_list[m_index])) {
        ++m_index;
        m_pos = 0;
    }
    return m_index < m_count;
}

void BitChunkParser::addZeroPad(unsigned bits) { m_padBits += 8; }

bool BitChunkParser::validate() {
    if (m_index > m_count || (m_list == nullptr && m_count != 0)) return false;
    if (m_pos > (m_index < m_count ? lengthOf(m_list[m_index]) : 0)) return false;
    if (m_loadedBits > s_registerBits || head(m_word, m_loadedBits) != m_word) return false;
    const unsigned long long behind = bytesBefore(m_index) + m_pos;
    return bytesBefore(m_count) == m_total && behind + m_bytesAhead == m_total;
}

bool BitChunkParser::appendFrom(BitChunkParser& from, unsigned bytes, const simpleSgl_s& piece) {
    if (&from == this || !from.covers(piece) || !growOwn()) return false;
    dropPadding();
    const simpleSgl_s added{piece.m_start, std::min(bytes, lengthOf(piece))};
    m_list[m_count++] = added;
    m_total += added.m_length;
    m_bytesAhead += added.m_length;
    return true;
}

void BitChunkParser::setList(unsigned count, simpleSgl_s* list) {
    m_list = list;
    m_count = list == nullptr ? 0 : count;
    m_collected = 0;
    m_streamOffset = 0;
    rewind();
}

bool BitChunkParser::reserveInputBytes(unsigned bytes) { return getUnparsedBytes() >= bytes; }

void BitChunkParser::reset(bool dropList) {
    if (dropList) {
        m_list = nullptr;
        m_count = 0;
        m_collected = 0;
    }
    rewind();
}

void BitChunkParser::setStreamOffset(unsigned long long offset) { m_streamOffset = offset - m_collected; }

unsigned long long BitChunkParser::getSegFileOffset(unsigned segment, bool end) const {
    const unsigned long long start = m_collected + bytesBefore(segment);
    return end && segment < m_count ? start + lengthOf(m_list[segment]) : start;
}

unsigned long long BitChunkParser::getSegStreamOffset(unsigned segment, bool end) const {
    return m_streamOffset + getSegFileOffset(segment, end);
}

unsigned BitChunkParser::garbageCollect() {
    unload();
    moveToNextPair();
    const unsigned dropped = m_index;
    const unsigned long long bytes = bytesBefore(dropped);
    m_list += dropped;
    m_count -= dropped;
    m_index = 0;
    m_collected += bytes;
    m_total -= bytes;
    return dropped;
}

unsigned BitChunkParser::extract(BitChunkParser& to, unsigned bytes) {
    if (!isByteAligned()) return 0;
    unload();
    unsigned left = bytes;
    while (left > 0 && moveToNextPair()) {
        const simpleSgl_s rest{m_list[m_index].m_start + m_pos, m_list[m_index].m_length - m_pos};
        if (!to.appendFrom(*this, left, rest)) break;
        const unsigned moved = std::min(left, rest.m_length);
        stepOver(moved);
        left -= moved;
    }
    return bytes - left;
}

unsigned BitChunkParser::extractTo(unsigned char* memory, unsigned bytes) {
    const unsigned count = std::min(bytes, getUnparsedBytes());
    if (!isByteAligned()) {
        for (unsigned i = 0; i < count; ++i)
            memory[i] = decodeByte();
        return count;
    }
    unload();
    for (unsigned done = 0; done < count && moveToNextPair();) {
        const unsigned part = std::min(count - done, m_list[m_index].m_length - m_pos);
        std::memcpy(memory + done, m_list[m_index].m_start + m_pos, part);
        stepOver(part);
        done += part;
    }
    return count;
}

unsigned BitChunkParser::discard(unsigned bytes) {
    unload();
    const unsigned count = static_cast<unsigned>(std::min<unsigned long long>(bytes, m_bytesAhead));
    if (count == 0 || m_loadedBits == 0) {
        stepOver(count);
        return count;
    }
    // Between bytes the last byte stepped over gives the bits that stay in front.
    stepOver(count - 1);
    reloadSlow(m_loadedBits + 8, false);
    take(8);
    return count;
}

simpleSgl_s BitChunkParser::peekPiece() {
    if (!isByteAligned()) return {nullptr, 0};
    unload();
    if (!moveToNextPair()) return {nullptr, 0};
    return {m_list[m_index].m_start + m_pos, m_list[m_index].m_length - m_pos};
}

void BitChunkParser::keepLoaded(unsigned bits) {
    m_loadedBits = bits;
    m_word = head(m_word, bits);
}

// Takes padding back that nobody has parsed: more input has come, or the position is to be that of real bytes.
void BitChunkParser::dropPadding() {
    const unsigned padding = std::min(m_padLoaded, m_loadedBits);
    keepLoaded(m_loadedBits - padding);
    m_padBits -= std::min<unsigned long long>(padding, m_padBits);
    m_padLoaded = 0;
}

// Loads whole bytes of the present piece, as many as fit. Requires: `moveToNextPair` said true, room for a byte.
void BitChunkParser::load() {
    const unsigned char* from = m_list[m_index].m_start + m_pos;
    const unsigned rest = m_list[m_index].m_length - m_pos;
    const unsigned bytes = std::min((s_registerBits - m_loadedBits) / 8, rest);
    std::uint64_t word = 0;
    if (rest >= sizeof word) {
        word = head(readBigEndian(from), bytes * 8);
    } else {
        for (unsigned i = 0; i < bytes; ++i)
            word |= std::uint64_t{from[i]} << (s_registerBits - 8 - 8 * i);
    }
    m_word |= word >> m_loadedBits;
    m_loadedBits += bytes * 8;
    m_pos += bytes;
    m_bytesAhead -= bytes;
}

// Gives whole loaded bytes back to the list, so that less than a byte stays loaded.
void BitChunkParser::unload() {
    dropPadding();
    unsigned bytes = m_loadedBits / 8;
    keepLoaded(m_loadedBits % 8);
    m_bytesAhead += bytes;
    while (bytes > 0) {
        if (m_pos == 0) m_pos = lengthOf(m_list[--m_index]);
        const unsigned part = std::min(bytes, m_pos);
        m_pos -= part;
        bytes -= part;
    }
}

// Steps over bytes that are not loaded. Requires: the list has them.
void BitChunkParser::stepOver(unsigned bytes) {
    m_bytesAhead -= bytes;
    while (bytes > 0 && moveToNextPair()) {
        const unsigned part = std::min(bytes, lengthOf(m_list[m_index]) - m_pos);
        m_pos += part;
        bytes -= part;
    }
}

void BitChunkParser::rewind() {
    m_word = 0;
    m_loadedBits = 0;
    m_padLoaded = 0;
    m_padBits = 0;
    m_index = 0;
    m_pos = 0;
    m_total = bytesBefore(m_count);
    m_bytesAhead = m_total;
}

unsigned long long BitChunkParser::bytesBefore(unsigned segment) const {
    unsigned long long bytes = 0;
    for (unsigned i = 0; i < std::min(segment, m_count); ++i)
        bytes += lengthOf(m_list[i]);
    return bytes;
}

bool BitChunkParser::covers(const simpleSgl_s& piece) const {
    const auto start = reinterpret_cast<std::uintptr_t>(piece.m_start);
    for (unsigned i = 0; i < m_count; ++i) {
        const auto own = reinterpret_cast<std::uintptr_t>(m_list[i].m_start);
        const std::uintptr_t length = lengthOf(m_list[i]);
        if (start >= own && start - own <= length && piece.m_length <= length - (start - own)) return true;
    }
    return false;
}

// Makes room for one more entry in a list of the parser's own.
bool BitChunkParser::growOwn() {
    const bool isOwn = m_list != nullptr && m_list >= m_own && m_list < m_own + m_ownCapacity;
    if (isOwn && static_cast<unsigned>(m_list - m_own) + m_count < m_ownCapacity) return true;
    if (m_count + 1 > m_ownCapacity || isOwn) {
        const unsigned capacity = std::max(8u, (m_count + 1) * 2);
        auto* grown = new (std::nothrow) simpleSgl_s[capacity];
        if (grown == nullptr) return false;
        std::copy_n(m_list, m_count, grown);
        delete[] m_own;
        m_own = grown;
        m_ownCapacity = capacity;
    } else {
        std::copy_n(m_list, m_count, m_own);
    }
    m_list = m_own;
    return true;
}
