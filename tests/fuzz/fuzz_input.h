#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

// What the targets share.

namespace fuzz {

// Ends the program, so that the engine keeps the input.
inline void require(bool truth) {
    if (!truth) std::abort();
}

// Takes an input apart from its front; behind the end everything is zero and
// empty.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : m_data(data), m_size(size) {}

    bool empty() const { return m_size == 0; }
    unsigned byte() {
        if (empty()) return 0;
        --m_size;
        return *m_data++;
    }
    unsigned word() {
        const unsigned high = byte();
        return high << 8 | byte();
    }
    std::string bytes(std::size_t most) {
        const std::size_t count = std::min(most, m_size);
        const std::string taken =
            count == 0 ? std::string() : std::string(reinterpret_cast<const char*>(m_data), count);
        m_data += count;
        m_size -= count;
        return taken;
    }
    std::string rest() { return bytes(m_size); }
    // Up to the next zero byte, which is stepped over.
    std::string text() {
        const auto length = static_cast<std::size_t>(std::find(m_data, m_data + m_size, 0) - m_data);
        const std::string taken = bytes(length);
        byte();
        return taken;
    }

private:
    const std::uint8_t* m_data;  // borrowed
    std::size_t m_size;
};

}  // namespace fuzz
