#pragma once

#include <cstddef>
#include <cstdint>

// Reads bits of a unit of AVC, most significant first, past the bytes that keep it free of start codes. What isn't
// there reads as zeros and marks the reader as failed. **Owns:** nothing. **Threads:** one.
class MovBits {
public:
    MovBits(const std::uint8_t* bytes, std::size_t size) : m_bytes(bytes), m_size(size) {}

    bool ok() const { return m_ok; }

    std::uint32_t bits(unsigned count) {
        std::uint32_t value = 0;
        for (; count != 0; --count)
            value = value << 1 | bit();
        return value;
    }

    // An Exp-Golomb code, unsigned; all ones for one that is too long.
    std::uint32_t ue() {
        unsigned zeros = 0;
        while (m_ok && bit() == 0) {
            if (++zeros > 31) {
                m_ok = false;
                return ~0u;
            }
        }
        return m_ok ? (1u << zeros) - 1 + bits(zeros) : ~0u;
    }
    // One that is signed: 0, 1, -1, 2, -2 and so on.
    std::int32_t se() {
        const std::uint32_t code = ue();
        if (!m_ok) return 0;
        const auto half = static_cast<std::int32_t>(code / 2);
        return code % 2 != 0 ? half + 1 : -half;
    }
    void skipSe() { (void)ue(); }

private:
    std::uint32_t bit() {
        if (m_left == 0 && !load()) return 0;
        --m_left;
        return m_current >> m_left & 1;
    }

    bool load() {
        if (m_at < m_size && m_zeros >= 2 && m_bytes[m_at] == 3) {
            ++m_at;
            m_zeros = 0;
        }
        if (m_at >= m_size) {
            m_ok = false;
            return false;
        }
        m_current = m_bytes[m_at++];
        m_zeros = m_current == 0 ? m_zeros + 1 : 0;
        m_left = 8;
        return true;
    }

    const std::uint8_t* m_bytes;
    std::size_t m_size;
    std::size_t m_at = 0;
    unsigned m_zeros = 0, m_left = 0;
    std::uint8_t m_current = 0;
    bool m_ok = true;
};
