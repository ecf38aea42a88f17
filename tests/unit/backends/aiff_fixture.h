#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "backends/aiff/aiff_parser.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/wav_builder.h"
#include "tests/unit/backends/parser_verdict.h"

// What the tests of AIFF share.
namespace AiffKit {

inline std::string be(std::uint64_t value, unsigned bytes) {
    std::string text;
    while (bytes-- > 0)
        text.push_back(static_cast<char>(value >> (8 * bytes) & 0xFF));
    return text;
}

// A whole number above 0 as the 80 bits of extended precision.
inline std::string extended(std::uint32_t rate) {
    unsigned exponent = 31;
    while ((rate >> exponent & 1) == 0)
        --exponent;
    return be(16383 + exponent, 2) + be(std::uint64_t{rate} << (63 - exponent), 8);
}

// What a COMM chunk is to say.
struct Comm {
    unsigned m_channels = 2;
    std::uint32_t m_frames = 10;
    unsigned m_bits = 16;
    std::string m_rate = extended(48000);
    std::string m_coding = {};  // four letters and what follows them; empty: a plain AIFF has none

    std::string body() const { return be(m_channels, 2) + be(m_frames, 4) + be(m_bits, 2) + m_rate + m_coding; }
};

// Makes an AIFF byte by byte, sound or broken as it is told.
class Aiff {
public:
    enum class Pad { Yes, No };

    explicit Aiff(std::string_view type = "AIFF", std::string_view master = "FORM") {
        m_bytes.append(master).append(4, '\0').append(type);
    }
    // A chunk with its true size; an odd one is padded unless told otherwise.
    Aiff& chunk(std::string_view id, std::string_view body, Pad pad = Pad::Yes) {
        claim(id, static_cast<std::uint32_t>(body.size()), body);
        if (pad == Pad::Yes && body.size() % 2 != 0) m_bytes.push_back('\0');
        return *this;
    }
    // A chunk whose header claims another size than its body has; never padded.
    Aiff& claim(std::string_view id, std::uint32_t size, std::string_view body = {}) {
        m_bytes.append(id).append(be(size, 4)).append(body);
        return *this;
    }
    Aiff& comm(const Comm& comm = {}) { return chunk("COMM", comm.body()); }
    // Essence behind `offset` bytes that are none.
    Aiff& ssnd(std::string_view essence, std::uint32_t offset = 0, std::uint32_t blockSize = 0, Pad pad = Pad::Yes) {
        return chunk("SSND", be(offset, 4) + be(blockSize, 4) + std::string(offset, 'o').append(essence), pad);
    }
    std::string bytes() const {
        std::string all = m_bytes;
        return all.replace(4, 4, be(all.size() - 8, 4));
    }

private:
    std::string m_bytes;
};

inline std::string pattern(std::size_t count) { return kit::WavBuilder::pattern(count); }

// What the parser made of some bytes.
using Verdict = ParserVerdict<AiffParser, PcmFormat>;

inline void expectRefused(const std::string& bytes, int code, const std::string& sentence) {
    expectRefusal(Verdict(bytes), code, sentence);
}
inline void expectRefused(const Aiff& aiff, int code, const std::string& sentence) {
    expectRefused(aiff.bytes(), code, sentence);
}

// The essence lies at `offset` and has so many samples, of `claimed` at most.
inline void expectEssence(const Verdict& verdict, std::uint64_t offset, std::uint64_t samples, std::uint64_t claimed) {
    ASSERT_TRUE(verdict.m_result.success()) << verdict.m_result.describe().get();
    EXPECT_EQ(verdict.m_format.dataOffset, offset);
    EXPECT_EQ(verdict.m_format.samples, samples);
    EXPECT_EQ(verdict.m_format.maxSamples, claimed);
}
inline void expectEssence(const Verdict& verdict, std::uint64_t offset, std::uint64_t samples) {
    expectEssence(verdict, offset, samples, samples);
}

}  // namespace AiffKit
