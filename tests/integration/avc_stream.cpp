#include "tests/integration/avc_stream.h"

#include <algorithm>

namespace avcstream {

namespace {

constexpr unsigned s_frameBits = 4, s_countBits = 4;

// For the order's kind 1: what the frames' numbers alone would have.
constexpr int s_step = 4, s_ofOthers = -2;

class Bits {
public:
    Bits& bits(std::uint32_t value, unsigned count) {
        for (; count != 0; --count)
            add(value >> (count - 1) & 1);
        return *this;
    }
    Bits& ue(std::uint32_t value) {
        unsigned length = 1;
        while ((value + 1) >> length != 0)
            ++length;
        return bits(0, length - 1).bits(value + 1, length);
    }
    Bits& se(int value) { return ue(value > 0 ? 2u * unsigned(value) - 1 : 2u * unsigned(-value)); }
    Bits& align() {
        while (m_count % 8 != 0)
            add(0);
        return *this;
    }
    // With the end, and kept free of start codes.
    std::string unit(unsigned head) {
        add(1);
        align();
        std::string kept(1, static_cast<char>(head));
        unsigned zeros = 0;
        for (const char c : m_bytes) {
            if (zeros >= 2 && static_cast<unsigned char>(c) <= 3) kept += '\3';
            if (kept.back() == '\3' && zeros >= 2) zeros = 0;
            zeros = c == 0 ? zeros + 1 : 0;
            kept += c;
        }
        return kept;
    }

private:
    void add(std::uint32_t bit) {
        if (m_count++ % 8 == 0) m_bytes += '\0';
        if (bit != 0) m_bytes.back() = static_cast<char>(m_bytes.back() | 1 << (7 - (m_count - 1) % 8));
    }

    std::string m_bytes;
    unsigned m_count = 0;
};

std::string sequenceSet(const Stream& stream) {
    Bits set;
    set.bits(77, 8).bits(0, 8).bits(30, 8).ue(0).ue(s_frameBits - 4).ue(stream.m_orderKind);
    if (stream.m_orderKind == 0) set.ue(s_countBits - 4);
    if (stream.m_orderKind == 1) set.bits(0, 1).se(s_ofOthers).se(1).ue(1).se(s_step);
    set.ue(2).bits(0, 1).ue(0).ue(0).bits(stream.m_hasFields ? 0 : 1, 1);
    if (stream.m_hasFields) set.bits(0, 1);
    set.bits(1, 1).bits(0, 1);  // how direct ones are derived; nothing is cut off
    // Two pictures at most are decoded before one and shown behind it.
    set.bits(1, 1).bits(0, 8).bits(1, 1).bits(1, 1).ue(0).ue(0).ue(10).ue(10);
    set.ue(stream.m_orderKind == 2 ? 0 : 2).ue(2);
    return set.unit(0x67);
}

std::string pictureSet() {
    Bits set;
    set.ue(0).ue(0).bits(0, 2).ue(0).ue(0).ue(0).bits(0, 3).se(0).se(0).se(0).bits(0b100, 3);
    return set.unit(0x68);
}

class Writer {
public:
    explicit Writer(const Stream& stream) : m_stream(stream) {}

    std::vector<std::string> write(const Picture& picture) {
        const bool isFirst = picture.m_kind == 'I' && picture.m_count == 0 && !picture.m_isReset;
        std::vector<std::string> units;
        if (isFirst) {
            units = {sequenceSet(m_stream), pictureSet()};
            m_frame = m_frames = 0;
        }
        units.push_back(slice(picture, picture.m_kind, isFirst, false));
        if (picture.m_isReset) m_frame = m_frames = 0;
        if (picture.m_secondField != '\0') units.push_back(slice(picture, picture.m_secondField, false, true));
        if (picture.m_isReference) ++m_frame;
        if (picture.m_isReference) ++m_frames;
        return units;
    }

private:
    std::string slice(const Picture& picture, char kind, bool isFirst, bool isSecond) {
        Bits bits;
        bits.ue(0).ue(kind == 'I' ? 7 : kind == 'P' ? 5 : 6).ue(0).bits(m_frame % (1 << s_frameBits), s_frameBits);
        if (m_stream.m_hasFields) bits.bits(picture.m_secondField != '\0' ? 1 : 0, 1);
        if (picture.m_secondField != '\0') bits.bits(isSecond ? 1 : 0, 1);
        if (isFirst) bits.ue(0);
        putCount(bits, picture, isSecond);
        if (kind == 'B') bits.bits(1, 1);
        if (kind != 'I') bits.bits(0, 1);
        for (unsigned lists = kind == 'B' ? 2 : kind == 'P' ? 1 : 0; lists != 0; --lists)
            bits.bits(0, 1);
        if (picture.m_isReference) putKeeping(bits, picture, isFirst, isSecond);
        bits.se(0).ue(1);
        putContent(bits, kind);
        return bits.unit((picture.m_isReference ? 0x60 : 0) | (isFirst ? 5 : 1));
    }

    void putCount(Bits& bits, const Picture& picture, bool isSecond) const {
        // The second field counts from the new beginning that the first one makes.
        const std::uint32_t count = isSecond ? (picture.m_isReset ? 0 : picture.m_count * 2) + 1 : picture.m_count * 2;
        if (m_stream.m_orderKind == 0) bits.bits(count % (1 << s_countBits), s_countBits);
        if (m_stream.m_orderKind != 1) return;
        const std::uint32_t frames = picture.m_isReference || m_frames == 0 ? m_frames : m_frames - 1;
        const int expected = static_cast<int>(frames) * s_step + (picture.m_isReference ? 0 : s_ofOthers);
        bits.se(static_cast<int>(picture.m_count * 2) - expected);
    }

    static void putKeeping(Bits& bits, const Picture& picture, bool isFirst, bool isSecond) {
        if (isFirst) {
            bits.bits(0, 2);
        } else if (picture.m_isReset && !isSecond) {
            bits.bits(1, 1).ue(5).ue(0);
        } else {
            bits.bits(0, 1);
        }
    }

    static void putContent(Bits& bits, char kind) {
        if (kind != 'I') {
            bits.ue(1);  // macroblocks that are left out
            return;
        }
        bits.ue(25).align();  // samples as they are
        for (unsigned i = 0; i < 384; ++i)
            bits.bits(0x80, 8);
    }

    const Stream& m_stream;
    std::uint32_t m_frame = 0, m_frames = 0;
};

}  // namespace

std::vector<std::vector<std::string>> Stream::units() const {
    Writer writer(*this);
    std::vector<std::vector<std::string>> all;
    for (const Picture& picture : m_pictures)
        all.push_back(writer.write(picture));
    return all;
}

std::string withLengths(const std::vector<std::string>& units) {
    std::string bytes;
    for (const std::string& unit : units) {
        for (unsigned left = 4; left != 0; --left)
            bytes += static_cast<char>(unit.size() >> (8 * (left - 1)) & 0xFF);
        bytes += unit;
    }
    return bytes;
}

std::string withStartCodes(const std::vector<std::string>& units) {
    std::string bytes;
    for (const std::string& unit : units)
        bytes += std::string("\0\0\0\1", 4) + unit;
    return bytes;
}

}  // namespace avcstream
