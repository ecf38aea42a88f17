#include "tests/stress/film_picture.h"

#include <cstdint>

namespace filmpicture {

namespace {

constexpr unsigned s_group = 10;
constexpr const char* s_kinds = "IPBBPBBPBB";
constexpr unsigned s_shown[s_group] = {0, 3, 1, 2, 6, 4, 5, 9, 7, 8};  // in the group

char kindOf(unsigned long long number) { return s_kinds[number % s_group]; }

// Bits from the highest of each byte on.
class Bits {
public:
    Bits& code(std::uint8_t which) {
        align();
        m_bytes += std::string("\0\0\1", 3) + static_cast<char>(which);
        return *this;
    }
    Bits& put(std::uint32_t value, unsigned count) {
        for (; count != 0; --count, ++m_used) {
            if (m_used % 8 == 0) m_bytes += '\0';
            if ((value >> (count - 1) & 1) != 0)
                m_bytes.back() = static_cast<char>(static_cast<unsigned char>(m_bytes.back()) | 0x80u >> m_used % 8);
        }
        return *this;
    }
    Bits& text(const std::string& text) {
        m_bytes += text;
        return *this;
    }
    // With zeros.
    void align() { m_used = 0; }
    const std::string& getBytes() const { return m_bytes; }

private:
    std::string m_bytes;
    unsigned m_used = 0;  // bits since the last code
};

void putSequence(Bits& bits) {
    bits.code(0xB3).put(s_width, 12).put(s_height, 12).put(1, 4).put(3, 4);  // square pixels, 25 a second
    bits.put(2500, 18).put(1, 1).put(20, 10).put(0, 3);                      // bitrate, buffer, no matrices
    bits.code(0xB5).put(1, 4).put(0x48, 8).put(1, 1).put(1, 2).put(0, 4);    // main profile, whole frames, 4:2:0
    bits.put(0, 12).put(1, 1).put(0, 8).put(0, 1).put(0, 7);
    bits.code(0xB8).put(1u << 12, 25).put(1, 1).put(0, 1);  // a group that refers to none before it
}

void putHeader(Bits& bits, unsigned shown, char kind) {
    const bool isIntra = kind == 'I', isB = kind == 'B';
    bits.code(0).put(shown, 10).put(isIntra ? 1 : isB ? 3 : 2, 3).put(0xFFFF, 16);
    if (!isIntra) bits.put(7, 4);
    if (isB) bits.put(7, 4);
    bits.put(0, 1);
    // The ranges of the vectors, whole frames with their coefficients, no frame a second time.
    bits.code(0xB5).put(8, 4).put(isIntra ? 0xFF : 0x11, 8).put(isB ? 0x11 : 0xFF, 8).put(0, 2).put(3, 2);
    bits.put(0, 1).put(1, 1).put(0, 6).put(1, 1).put(0, 1);
}

// One block of the picture: of I all its parts have the same grey, the others repeat what they refer to.
void putSlice(Bits& bits, char kind) {
    bits.code(1).put(1, 5).put(0, 1).put(1, 1);
    if (kind == 'P') bits.put(1, 3).put(3, 2);
    if (kind == 'B') bits.put(2, 2).put(15, 4);
    if (kind != 'I') return;
    bits.put(1, 1);
    for (unsigned i = 0; i < 6; ++i)
        bits.put(i < 4 ? 4 : 0, i < 4 ? 3 : 2).put(2, 2);
}

}  // namespace

SampleCodingType codingOf(unsigned long long number) {
    const char kind = kindOf(number);
    return kind == 'I' ? SampleCodingType::I : kind == 'P' ? SampleCodingType::P : SampleCodingType::B;
}

std::string bytesOf(unsigned long long number) {
    const char kind = kindOf(number);
    Bits bits;
    if (kind == 'I') putSequence(bits);
    putHeader(bits, s_shown[number % s_group], kind);
    const std::size_t more = number * 37 % 900 + (kind == 'I' ? 2000 : kind == 'P' ? 500 : 1);
    bits.code(0xB2).text(std::to_string(number) + std::string(more, static_cast<char>('a' + number % 26)));
    putSlice(bits, kind);
    bits.align();
    return bits.getBytes();
}

}  // namespace filmpicture
