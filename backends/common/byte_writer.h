#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

// Puts numbers and marks one behind the other into a piece of memory.
// **Owns:** nothing. **Threads:** one. Requires: room for all that is put.
class ByteWriter {
public:
    explicit ByteWriter(std::uint8_t* memory) : m_start(memory), m_at(memory) {}

    unsigned size() const { return static_cast<unsigned>(m_at - m_start); }

    // A mark of four characters.
    ByteWriter& mark(const char (&text)[5]) { return bytes(text, 4); }
    ByteWriter& bytes(const void* from, std::size_t count) {
        std::memcpy(m_at, from, count);
        m_at += count;
        return *this;
    }
    ByteWriter& zeros(std::size_t count) {
        std::memset(m_at, 0, count);
        m_at += count;
        return *this;
    }
    ByteWriter& le16(std::uint64_t value) { return little(value, 2); }
    ByteWriter& le32(std::uint64_t value) { return little(value, 4); }
    ByteWriter& le64(std::uint64_t value) { return little(value, 8); }
    ByteWriter& be16(std::uint64_t value) { return big(value, 2); }
    ByteWriter& be32(std::uint64_t value) { return big(value, 4); }
    ByteWriter& be64(std::uint64_t value) { return big(value, 8); }

private:
    ByteWriter& little(std::uint64_t value, unsigned count) {
        for (unsigned i = 0; i < count; ++i)
            *m_at++ = static_cast<std::uint8_t>(value >> (8 * i));
        return *this;
    }
    ByteWriter& big(std::uint64_t value, unsigned count) {
        for (unsigned i = count; i-- > 0;)
            *m_at++ = static_cast<std::uint8_t>(value >> (8 * i));
        return *this;
    }

    std::uint8_t* const m_start;
    std::uint8_t* m_at;
};
