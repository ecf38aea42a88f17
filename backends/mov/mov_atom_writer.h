#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "backends/mov/mov_atoms.h"

// Builds atoms inside one another in memory. Places that are left out count in the sizes of the atoms around them.
// **Owns:** the bytes. **Threads:** one. **Units:** bytes.
class MovAtomWriter {
public:
    const std::vector<std::uint8_t>& getBytes() const { return m_bytes; }
    // Bytes so far with what was left out.
    std::uint64_t getPosition() const { return m_bytes.size() + m_left; }

    MovAtomWriter& open(MovCode code) {
        m_open.push_back({m_bytes.size(), getPosition()});
        return be32(0).be32(code);
    }
    MovAtomWriter& open(MovCode code, unsigned version, unsigned flags) {
        return open(code).be32(version << 24 | flags);
    }
    // Ends the innermost atom. Requires: one of less than 4 GiB.
    MovAtomWriter& close() {
        const Open atom = m_open.back();
        m_open.pop_back();
        const std::uint64_t size = getPosition() - atom.m_position;
        for (unsigned i = 0; i < 4; ++i)
            m_bytes[atom.m_at + i] = static_cast<std::uint8_t>(size >> (24 - 8 * i));
        return *this;
    }
    // What stands here is written by somebody else.
    MovAtomWriter& leaveOut(std::uint64_t bytes) {
        m_left += bytes;
        return *this;
    }

    MovAtomWriter& be8(std::uint64_t value) { return big(value, 1); }
    MovAtomWriter& be16(std::uint64_t value) { return big(value, 2); }
    MovAtomWriter& be32(std::uint64_t value) { return big(value, 4); }
    MovAtomWriter& be64(std::uint64_t value) { return big(value, 8); }
    MovAtomWriter& zeros(std::size_t count) {
        m_bytes.resize(m_bytes.size() + count);
        return *this;
    }
    MovAtomWriter& bytes(const void* from, std::size_t count) {
        const auto* const first = static_cast<const std::uint8_t*>(from);
        m_bytes.insert(m_bytes.end(), first, first + count);
        return *this;
    }
    // A text behind its length in a field of `room` bytes, cut where that ends; of as many as it takes without one.
    MovAtomWriter& pascal(const std::string& text, std::size_t room = 0) {
        const std::size_t most = room != 0 ? room - 1 : 255;
        const std::size_t length = text.size() < most ? text.size() : most;
        be8(length).bytes(text.data(), length);
        return room != 0 ? zeros(room - 1 - length) : *this;
    }

private:
    struct Open {
        std::size_t m_at;  // in the bytes
        std::uint64_t m_position;
    };

    MovAtomWriter& big(std::uint64_t value, unsigned count) {
        for (unsigned left = count; left > 0; --left)
            m_bytes.push_back(static_cast<std::uint8_t>(value >> (8 * (left - 1))));
        return *this;
    }

    std::vector<std::uint8_t> m_bytes;
    std::vector<Open> m_open;
    std::uint64_t m_left = 0;
};
