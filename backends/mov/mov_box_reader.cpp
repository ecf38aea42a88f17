#include "backends/mov/mov_box_reader.h"

#include "backends/common/byte_cursor.h"

bool MovBoxReader::next(MovBox& box) {
    constexpr unsigned plain = 8, wide = 16, uuid = 16;
    if (m_at >= m_end) return false;
    if (m_end - m_at < plain) {
        // A word of nothing ends the list in user data and in sound descriptions.
        m_at = m_end;
        return false;
    }
    const std::uint8_t* header = m_left != 0 ? m_file.at(m_at, plain) : nullptr;
    m_damaged = header == nullptr;
    if (header == nullptr) return false;
    --m_left;
    ByteCursor cursor(header, plain);
    std::uint64_t size = cursor.be32();
    box.type = cursor.be32();
    box.start = m_at;
    unsigned headerSize = plain;
    if (size == 1) {
        header = m_end - m_at >= wide ? m_file.at(m_at, wide) : nullptr;
        m_damaged = header == nullptr;
        if (header == nullptr) return false;
        ByteCursor long64(header + plain, wide - plain);
        size = long64.be64();
        headerSize = wide;
    } else if (size == 0) {
        size = m_end - m_at;
    }
    if (box.type == MovAtom::s_uuid) headerSize += uuid;
    m_damaged = size < headerSize && size < m_end - m_at;
    if (m_damaged) return false;
    box.isCut = size > m_end - m_at;
    box.end = box.isCut ? m_end : m_at + size;
    box.body = headerSize < box.end - m_at ? m_at + headerSize : box.end;
    m_at = box.end;
    return true;
}
