#pragma once

#include <cstdint>

// How a coded sample depends on others.
enum class SampleCodingType : std::uint32_t { Unknown = 0, I = 1, P = 2, B = 3 };

// Coding type and byte size of one sample, in 64 bits.
class SampleInfo {
public:
    SampleInfo() = default;

    // Back to an I sample of that size. The reference kind becomes 0 here and not the constructor's 14: the two differ
    // on purpose.
    void reset(unsigned size) {
        m_encoding = static_cast<std::uint8_t>(SampleCodingType::I);
        m_refType = 0;
        m_ref1 = s_unsetRef;
        m_ref2 = s_unsetRef;
        m_size = size;
    }

    static constexpr std::uint8_t defaultRefTypeForEncoding(SampleCodingType type) {
        switch (type) {
            case SampleCodingType::B:
                return 1;
            case SampleCodingType::P:
                return 11;
            case SampleCodingType::I:
                return 14;
            default:
                return 0;
        }
    }

    SampleCodingType getEncoding() const { return static_cast<SampleCodingType>(m_encoding); }
    // Stores the type and the reference kind that goes with it.
    void setEncoding(SampleCodingType type) {
        m_encoding = static_cast<std::uint8_t>(type);
        m_refType = defaultRefTypeForEncoding(type);
    }
    unsigned getSize() const { return m_size; }
    void setSize(unsigned size) { m_size = size; }

    static constexpr std::uint8_t s_unsetRef = 0x80;

    std::uint8_t m_encoding = static_cast<std::uint8_t>(SampleCodingType::I);
    std::uint8_t m_refType = defaultRefTypeForEncoding(SampleCodingType::I);
    std::uint8_t m_ref1 = s_unsetRef;  // for back-ends
    std::uint8_t m_ref2 = s_unsetRef;  // for back-ends
    std::uint32_t m_size = 0;          // bytes
};

static_assert(sizeof(SampleInfo) == 8);
