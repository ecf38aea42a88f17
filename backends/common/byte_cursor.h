#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

// Walks a piece of memory whose content is hostile until checked. A read that doesn't fit answers zero and marks the
// cursor as failed for good; nothing outside the piece is ever touched.
// **Owns:** nothing; the memory outlives it. **Threads:** one.
class ByteCursor {
public:
    ByteCursor(const std::uint8_t* memory, std::size_t size) : m_at(memory), m_left(size) {}

    bool ok() const { return m_ok; }
    std::size_t left() const { return m_left; }

    void skip(std::size_t count) { (void)take(count); }

    std::uint16_t le16() { return static_cast<std::uint16_t>(little(2)); }
    std::uint32_t le32() { return static_cast<std::uint32_t>(little(4)); }
    std::uint64_t le64() { return little(8); }
    std::uint16_t be16() { return static_cast<std::uint16_t>(big(2)); }
    std::uint32_t be32() { return static_cast<std::uint32_t>(big(4)); }
    std::uint64_t be64() { return big(8); }

    // Copies `count` bytes, or zeros when they aren't there.
    void bytes(void* target, std::size_t count) {
        const std::uint8_t* from = take(count);
        if (from != nullptr) {
            std::memcpy(target, from, count);
        } else {
            std::memset(target, 0, count);
        }
    }

private:
    const std::uint8_t* take(std::size_t count) {
        if (count > m_left) {
            m_ok = false;
            m_left = 0;
            return nullptr;
        }
        const std::uint8_t* at = m_at;
        m_at += count;
        m_left -= count;
        return at;
    }

    std::uint64_t little(std::size_t count) {
        const std::uint8_t* at = take(count);
        std::uint64_t value = 0;
        for (std::size_t i = 0; at != nullptr && i < count; ++i)
            value |= static_cast<std::uint64_t>(at[i]) << (8 * i);
        return value;
    }

    std::uint64_t big(std::size_t count) {
        const std::uint8_t* at = take(count);
        std::uint64_t value = 0;
        for (std::size_t i = 0; at != nullptr && i < count; ++i)
            value = value << 8 | at[i];
        return value;
    }

    const std::uint8_t* m_at;
    std::size_t m_left;
    bool m_ok = true;
};
