#pragma once

#include <cstdint>

// Version of the software that wrote a movie, four bytes. As made by default it is invalid.
class SwVersion {
public:
    SwVersion() = default;
    SwVersion(unsigned int major, unsigned int minor, unsigned int patch, unsigned int build)
        : m_major(static_cast<std::uint8_t>(major)),
          m_minor(static_cast<std::uint8_t>(minor)),
          m_patch(static_cast<std::uint8_t>(patch)),
          m_build(static_cast<std::uint8_t>(build)) {}

    // The four bytes as one number, the major one highest.
    std::uint32_t getScalar() const {
        return std::uint32_t{m_major} << 24 | std::uint32_t{m_minor} << 16 | std::uint32_t{m_patch} << 8 | m_build;
    }

    bool isValid() const { return getScalar() < 0xffffffff; }
    bool isNotValid() const { return !isValid(); }
    bool operator<(const SwVersion& other) const { return getScalar() < other.getScalar(); }

private:
    std::uint8_t m_major = 0xff;
    std::uint8_t m_minor = 0xff;
    std::uint8_t m_patch = 0xff;
    std::uint8_t m_build = 0xff;
};
