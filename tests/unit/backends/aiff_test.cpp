#include <algorithm>
#include <utility>
#include <vector>

#include "tests/unit/backends/aiff_fixture.h"

// Which AIFF and AIFF-C files the parser takes, what it says of each, and the sentences of its refusals.

using namespace AiffKit;

namespace {

constexpr std::uint64_t s_plainData = 54;  // FORM, a COMM of 18 bytes, the head of SSND
constexpr std::uint64_t s_codedData = 58;  // the same with the four letters of a coding

struct Coding {
    const char* m_letters;  // empty: a plain AIFF
    unsigned m_commBits;
    unsigned m_channels;
    unsigned m_bits;  // of a word as it lies in the file
    MediaEndian m_endian;
    MediaEncodingType m_encoding = MediaEncodingType::Pcm;
};

const Coding s_codings[] = {
    {"", 8, 1, 8, MediaEndian::Big},
    {"", 16, 2, 16, MediaEndian::Big},
    {"", 20, 2, 24, MediaEndian::Big},
    {"", 24, 6, 24, MediaEndian::Big},
    {"", 32, 8, 32, MediaEndian::Big},
    {"", 1, 1, 8, MediaEndian::Big},
    {"", 9, 1, 16, MediaEndian::Big},
    {"", 17, 1, 24, MediaEndian::Big},
    {"", 25, 1, 32, MediaEndian::Big},
    {"NONE", 8, 2, 8, MediaEndian::Big},
    {"NONE", 16, 2, 16, MediaEndian::Big},
    {"NONE", 20, 1, 24, MediaEndian::Big},
    {"NONE", 24, 3, 24, MediaEndian::Big},
    {"NONE", 32, 32, 32, MediaEndian::Big},
    {"twos", 16, 2, 16, MediaEndian::Big},
    {"twos", 24, 2, 24, MediaEndian::Big},
    {"sowt", 8, 1, 8, MediaEndian::Little},
    {"sowt", 16, 2, 16, MediaEndian::Little},
    {"sowt", 24, 2, 24, MediaEndian::Little},
    {"sowt", 32, 2, 32, MediaEndian::Little},
    // The coding itself says how long its words are, whatever COMM does.
    {"in24", 24, 2, 24, MediaEndian::Big},
    {"in24", 16, 2, 24, MediaEndian::Big},
    {"in24", 0, 2, 24, MediaEndian::Big},
    {"in32", 32, 2, 32, MediaEndian::Big},
    {"in32", 16, 1, 32, MediaEndian::Big},
    {"alaw", 8, 1, 8, MediaEndian::Big, MediaEncodingType::ALaw},
    {"alaw", 16, 2, 8, MediaEndian::Big, MediaEncodingType::ALaw},
    {"ALAW", 16, 2, 8, MediaEndian::Big, MediaEncodingType::ALaw},
    {"ALAW", 0, 2, 8, MediaEndian::Big, MediaEncodingType::ALaw},
};

Aiff fileOf(const Comm& comm) { return Aiff(comm.m_coding.empty() ? "AIFF" : "AIFC").comm(comm); }

// A sound file whose only doubtful thing is its COMM chunk.
void expectCommRefused(const Comm& comm, int code, const std::string& sentence) {
    expectRefused(fileOf(comm).ssnd(pattern(400)), code, sentence);
}

std::uint32_t rateInFile(const std::string& rate) {
    const Verdict verdict(Aiff().comm({.m_rate = rate}).ssnd(pattern(40)));
    return verdict.m_result.success() ? verdict.m_format.sampleRate : 0;
}

}  // namespace

TEST(AiffFormats, EveryCodingOfTheTableIsTakenWithItsFacts) {
    for (const Coding& coding : s_codings) {
        SCOPED_TRACE(testing::Message() << coding.m_letters << ' ' << coding.m_commBits << " bits");
        const Comm comm{.m_channels = coding.m_channels,
                        .m_bits = coding.m_commBits,
                        .m_rate = extended(44100),
                        .m_coding = coding.m_letters};
        const unsigned align = coding.m_channels * coding.m_bits / 8;
        const Verdict verdict(fileOf(comm).ssnd(pattern(align * 10)));
        expectEssence(verdict, *coding.m_letters == '\0' ? s_plainData : s_codedData, 10);
        EXPECT_EQ(verdict.m_format.encoding, coding.m_encoding);
        EXPECT_EQ(verdict.m_format.endian, coding.m_endian);
        EXPECT_EQ(verdict.m_format.channels, coding.m_channels);
        EXPECT_EQ(verdict.m_format.bits, coding.m_bits);
        EXPECT_EQ(verdict.m_format.blockAlign, align);
        EXPECT_EQ(verdict.m_format.sampleRate, 44100u);
    }
}

TEST(AiffFormats, OneToThirtyTwoChannelsAreTaken) {
    for (unsigned channels = 1; channels <= 32; ++channels) {
        const Comm comm{.m_channels = channels, .m_frames = 7, .m_bits = 24};
        const Verdict verdict(fileOf(comm).ssnd(pattern(std::size_t{3} * channels * 7)));
        expectEssence(verdict, s_plainData, 7);
        EXPECT_EQ(verdict.m_format.channels, channels);
        EXPECT_EQ(verdict.m_format.blockAlign, 3 * channels);
    }
}

TEST(AiffFormats, TheNameBehindACodingIsNoMatter) {
    const std::string names[] = {"", std::string("\0\0", 2), "\x0Enot compressed", std::string(412, 'n')};
    for (const std::string& name : names) {
        const Comm comm{.m_coding = "NONE" + name};
        const std::size_t padded = name.size() + name.size() % 2;
        expectEssence(Verdict(fileOf(comm).ssnd(pattern(40))), s_codedData + padded, 10);
    }
}

TEST(AiffFormats, ACodingInAPlainAiffIsNotLookedAt) {
    expectEssence(Verdict(Aiff().comm({.m_coding = "fl32"}).ssnd(pattern(40))), s_codedData, 10);
}

TEST(AiffRates, AnExtendedNumberIsRoundedToWholeHz) {
    const struct {
        std::uint16_t m_signAndExponent;
        std::uint64_t m_mantissa;
        std::uint32_t m_rate;
    } rates[] = {
        {0x3FFF, 0x8000000000000000, 1},          {0x400B, 0xFA00000000000000, 8000},
        {0x400D, 0xFA00000000000000, 32000},      {0x400E, 0xAC44000000000000, 44100},
        {0x400E, 0xBB80000000000000, 48000},      {0x400F, 0xBB80000000000000, 96000},
        {0x4010, 0xBB80000000000000, 192000},     {0x400D, 0xAE8BA2E8BA2E8BA3, 22342},  // 22341.8181
        {0x400D, 0xADDD1745D1745D17, 22255},                                            // 22254.5454
        {0x400E, 0xBB807FFFFFFFFFFF, 48000},                                            // a hair below one half
        {0x400E, 0xBB80800000000000, 48001},      {0x400E, 0xBB7FC00000000000, 48000},  // 47999.75
        {0x3FFF, 0xC000000000000000, 2},                                                // 1.5
        {0x400F, 0x5DC0000000000000, 48000},                                            // without its leading bit
        {0x401E, 0x0000BB8000000000, 48000},      {0x401E, 0xFFFFFFFF00000000, 0xFFFFFFFF},
        {0x401E, 0xFFFFFFFF7FFFFFFF, 0xFFFFFFFF},
    };
    for (const auto& [signAndExponent, mantissa, rate] : rates) {
        EXPECT_EQ(AiffParser::rateOf(signAndExponent, mantissa), rate);
        EXPECT_EQ(rateInFile(be(signAndExponent, 2) + be(mantissa, 8)), rate);
    }
}

TEST(AiffRates, EveryWholeNumberOfThirtyTwoBitsIsKept) {
    for (std::uint64_t rate = 1; rate <= 0xFFFFFFFFu; rate = rate * 3 / 2 + 1)
        EXPECT_EQ(rateInFile(extended(static_cast<std::uint32_t>(rate))), rate);
}

TEST(AiffRates, WhatIsNoRateIsRefused) {
    const struct {
        std::uint16_t m_signAndExponent;
        std::uint64_t m_mantissa;
        const char* m_what;
    } rates[] = {
        {0x0000, 0, "zero"},
        {0x8000, 0, "negative zero"},
        {0x400E, 0, "a mantissa of zero"},
        {0xC00E, 0xBB80000000000000, "negative"},
        {0xFFFF, 0x8000000000000000, "negative infinity"},
        {0x7FFF, 0x8000000000000000, "infinity"},
        {0x7FFF, 0xC000000000000000, "not a number"},
        {0x7FFE, 0xFFFFFFFFFFFFFFFF, "the greatest"},
        {0x0000, 0x0000000000000001, "the smallest"},
        {0x401F, 0x8000000000000000, "2^32"},
        {0x401E, 0xFFFFFFFF80000000, "rounded to 2^32"},
        {0x403E, 0x8000000000000000, "2^63"},
        {0x3FFE, 0xFFFFFFFFFFFFFFFF, "below 1"},
    };
    for (const auto& [signAndExponent, mantissa, what] : rates) {
        SCOPED_TRACE(what);
        EXPECT_EQ(AiffParser::rateOf(signAndExponent, mantissa), 0u);
        expectCommRefused({.m_rate = be(signAndExponent, 2) + be(mantissa, 8)}, MediaCode::ParserError,
                          "aiff: the sample rate is no number of 1 Hz and more");
    }
}

TEST(AiffChunks, TheEssenceBeginsBehindTheOffsetAndTheBlockSizeIsNoMatter) {
    for (const std::uint32_t offset : {0u, 1u, 5u, 8u, 4096u, 70000u}) {
        for (const std::uint32_t blockSize : {0u, 4u, 512u, 0xFFFFFFFFu})
            expectEssence(Verdict(Aiff().comm().ssnd(pattern(40), offset, blockSize)), s_plainData + offset, 10);
    }
}

TEST(AiffChunks, StandInAnyOrder) {
    const std::string coded = Comm{.m_coding = "sowt"}.body();
    const std::string sound = be(0, 4) + be(0, 4) + pattern(40);
    std::vector<std::pair<std::string, std::string>> chunks = {
        {"COMM", coded}, {"FVER", be(0xA2805140, 4)}, {"NAME", "odd"}, {"SSND", sound}};
    std::sort(chunks.begin(), chunks.end());
    do {
        Aiff aiff("AIFC");
        std::uint64_t data = 0;
        for (const auto& [id, body] : chunks) {
            if (id == "SSND") data = aiff.bytes().size() + 16;
            aiff.chunk(id, body);
        }
        expectEssence(Verdict(aiff), data, 10);
    } while (std::next_permutation(chunks.begin(), chunks.end()));
}

TEST(AiffChunks, OddOnesStandWithAndWithoutTheirPadding) {
    for (const Aiff::Pad pad : {Aiff::Pad::Yes, Aiff::Pad::No}) {
        const unsigned more = pad == Aiff::Pad::Yes ? 1 : 0;
        for (const unsigned size : {1u, 3u, 251u, 4097u}) {
            const Verdict verdict(Aiff().chunk("XxXx", std::string(size, '\x80'), pad).comm().ssnd(pattern(40)));
            expectEssence(verdict, s_plainData + 8 + size + more, 10);
        }
        // The same behind essence that is odd.
        const Comm comm{.m_channels = 1, .m_frames = 101, .m_bits = 24};
        expectEssence(Verdict(Aiff().ssnd(pattern(303), 0, 0, pad).comm(comm)), 28, 101);
    }
}

TEST(AiffChunks, AreFoundBehindPaddingThatLooksLikeALetter) {
    expectEssence(Verdict(Aiff().claim("XxXx", 3, "oddx").comm().ssnd(pattern(40))), s_plainData + 12, 10);
}

TEST(AiffChunks, OfEssenceThatIsOddAtTheEndOfTheFileNeedNoPadding) {
    const Comm comm{.m_channels = 1, .m_frames = 101, .m_bits = 24};
    expectEssence(Verdict(Aiff().comm(comm).ssnd(pattern(303), 0, 0, Aiff::Pad::No)), s_plainData, 101);
}

TEST(AiffChunks, TheFirstOfAKindCounts) {
    const Verdict verdict(Aiff().comm().comm({.m_channels = 33}).ssnd(pattern(40)).ssnd(pattern(80)));
    expectEssence(verdict, s_plainData + 26, 10);
    EXPECT_EQ(verdict.m_format.channels, 2u);
    expectEssence(Verdict(Aiff().ssnd(pattern(40)).ssnd(pattern(36)).comm()), 28, 10);
}

TEST(AiffChunks, TheSmallerOfTheFramesAndTheEssenceWins) {
    const struct {
        std::uint32_t m_frames;
        unsigned m_bytes;
        std::uint64_t m_samples;
    } cases[] = {
        {10, 40, 10}, {9, 40, 9},   {0, 40, 0}, {1, 40, 1},  {11, 40, 10}, {0xFFFFFFFF, 40, 10},
        {10, 39, 9},  {10, 43, 10}, {10, 3, 0}, {10, 36, 9}, {10, 0, 0},   {0, 0, 0},
    };
    for (const auto& [frames, bytes, samples] : cases) {
        SCOPED_TRACE(testing::Message() << frames << " frames, " << bytes << " bytes");
        // What stands behind the essence never counts for it.
        const Verdict verdict(Aiff().comm({.m_frames = frames}).ssnd(pattern(bytes)).chunk("ID3 ", pattern(1000)));
        expectEssence(verdict, s_plainData, samples);
    }
}

TEST(AiffChunks, EssenceThatTheFileHasNotIsClaimedAndNotThere) {
    for (const std::uint32_t size : {408u, 0x7F000000u, 0xFFFFFFFFu}) {
        const std::string body = be(0, 8) + pattern(40);
        expectEssence(Verdict(Aiff().comm({.m_frames = 100}).claim("SSND", size, body)), s_plainData, 10, 100);
    }
    // Less than the frames: no more than that is ever waited for.
    const std::string body = be(0, 8) + pattern(40);
    expectEssence(Verdict(Aiff().comm({.m_frames = 100}).claim("SSND", 88, body)), s_plainData, 10, 20);
}

TEST(AiffChunks, ASoundWithoutFramesNeedsNoSsnd) {
    const Aiff aiff = Aiff().comm({.m_frames = 0});
    expectEssence(Verdict(aiff), aiff.bytes().size(), 0);
}

TEST(AiffChunks, AsManyAs4096AreLookedAt) {
    const auto fileWith = [](unsigned fillers, const Comm& comm, bool sound) {
        Aiff aiff;
        aiff.comm(comm);
        for (unsigned i = 0; i < fillers; ++i)
            aiff.chunk("FLLR", "");
        if (sound) aiff.ssnd(pattern(40));
        return aiff;
    };
    const char* const sentence = "aiff: no COMM and SSND chunks among the first 4096";
    expectEssence(Verdict(fileWith(4094, {}, true)), s_plainData + 4094 * 8, 10);
    expectRefused(fileWith(4095, {}, true), MediaCode::ParserError, sentence);
    EXPECT_TRUE(Verdict(fileWith(4095, {.m_frames = 0}, false)).m_result.success());
    expectRefused(fileWith(4096, {.m_frames = 0}, false), MediaCode::ParserError, sentence);
    expectRefused(fileWith(100000, {}, false), MediaCode::ParserError, sentence);
}

TEST(AiffRefusals, OtherCodingsAreRefusedByTheirNames) {
    const std::pair<std::string, std::string> codings[] = {
        {"fl32", "fl32"},
        {"FL32", "FL32"},
        {"fl64", "fl64"},
        {"ulaw", "ulaw"},
        {"ULAW", "ULAW"},
        {"ima4", "ima4"},
        {"raw ", "raw "},
        {"MAC3", "MAC3"},
        {"G722", "G722"},
        {"none", "none"},
        {"Sowt", "Sowt"},
        {"in16", "in16"},
        {std::string("a\0\x7F\xFF", 4), "a???"},
    };
    for (const auto& [coding, name] : codings) {
        expectCommRefused({.m_coding = coding}, MediaCode::UnsupportedMediaType,
                          "aiff: samples of coding \"" + name + "\" are not supported");
    }
}

TEST(AiffRefusals, ChannelsOutsideOneToThirtyTwo) {
    for (const unsigned channels : {0u, 33u, 65535u}) {
        expectCommRefused({.m_channels = channels}, MediaCode::ParserError,
                          "aiff: " + std::to_string(channels) + " channels, 1 to 32 are supported");
    }
}

TEST(AiffRefusals, BitsThatNoCodingHas) {
    for (const char* const coding : {"", "NONE", "twos", "sowt"}) {
        for (const unsigned bits : {0u, 33u, 64u, 65535u}) {
            expectCommRefused({.m_bits = bits, .m_coding = coding}, MediaCode::UnsupportedMediaType,
                              "aiff: " + std::to_string(bits) + " bits a sample are not supported");
        }
    }
}

TEST(AiffRefusals, ACommThatIsTooShort) {
    const char* const sentence = "aiff: the COMM chunk is too short";
    const std::string plain = Comm().body(), coded = Comm{.m_coding = "NONE"}.body();
    for (std::size_t size = 0; size < plain.size(); ++size)
        expectRefused(Aiff().chunk("COMM", plain.substr(0, size)).ssnd("1234"), MediaCode::ParserError, sentence);
    for (std::size_t size = 0; size < coded.size(); ++size)
        expectRefused(Aiff("AIFC").chunk("COMM", coded.substr(0, size)).ssnd("1234"), MediaCode::ParserError, sentence);
}

TEST(AiffRefusals, ACommOrSsndThatIsMissing) {
    expectRefused(Aiff(), MediaCode::ParserError, "aiff: no COMM chunk");
    expectRefused(Aiff().ssnd("1234"), MediaCode::ParserError, "aiff: no COMM chunk");
    expectRefused(Aiff().chunk("comm", Comm().body()).ssnd("1234"), MediaCode::ParserError, "aiff: no COMM chunk");
    expectRefused(Aiff().claim("NAME", 0xFFFFFFFF).comm().ssnd("1234"), MediaCode::ParserError, "aiff: no COMM chunk");
    expectRefused(Aiff().comm({.m_frames = 1}), MediaCode::ParserError, "aiff: no SSND chunk");
    expectRefused(Aiff().comm().chunk("ssnd", be(0, 8)), MediaCode::ParserError, "aiff: no SSND chunk");
}

TEST(AiffRefusals, AnSsndThatIsTooShort) {
    for (unsigned size = 0; size < 8; ++size) {
        expectRefused(Aiff().comm().chunk("SSND", std::string(size, '\0')).chunk("ID3 ", pattern(100)),
                      MediaCode::ParserError, "aiff: the SSND chunk is too short");
    }
}

TEST(AiffRefusals, AnOffsetBehindTheEssence) {
    const char* const sentence = "aiff: the SSND chunk's offset lies behind its data";
    for (const std::uint32_t offset : {41u, 48u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        const std::string body = be(offset, 4) + be(0, 4) + pattern(40);
        expectRefused(Aiff().comm().chunk("SSND", body).chunk("ID3 ", pattern(100)), MediaCode::ParserError, sentence);
        expectRefused(Aiff().comm().claim("SSND", 0xFFFFFFFF, body), MediaCode::ParserError, sentence);
    }
    // At its very end there is nothing, and nothing wrong.
    expectEssence(Verdict(Aiff().comm().chunk("SSND", be(40, 4) + be(0, 4) + pattern(40))), s_plainData + 40, 0);
}

TEST(AiffRefusals, AMasterHeaderOfAnotherKind) {
    const auto with = [](const char* master, const char* type) {
        return Aiff(type, master).comm().ssnd(pattern(40)).bytes();
    };
    expectRefused(with("RIFF", "WAVE"), MediaCode::ParserError, "aiff: no FORM header at the start");
    expectRefused(with("form", "AIFF"), MediaCode::ParserError, "aiff: no FORM header at the start");
    expectRefused(with("FORM", "8SVX"), MediaCode::ParserError, "aiff: the FORM is of type neither AIFF nor AIFC");
    expectRefused(with("FORM", "aiff"), MediaCode::ParserError, "aiff: the FORM is of type neither AIFF nor AIFC");
}

TEST(AiffRefusals, AFileThatIsCutAnywhereInItsHeader) {
    const auto sentenceOf = [](std::size_t left, std::size_t commEnd) -> const char* {
        if (left < 12) return "aiff: the file is too short for a FORM header";
        if (left < 20) return "aiff: no COMM chunk";
        if (left < commEnd) return "aiff: the COMM chunk runs past the end of the file";
        if (left < commEnd + 8) return "aiff: no SSND chunk";
        return "aiff: the SSND chunk is too short";
    };
    for (const char* const coding : {"", "sowt"}) {
        const std::string whole = fileOf({.m_coding = coding}).ssnd(pattern(40)).bytes();
        const std::size_t data = whole.size() - 40;
        for (std::size_t left = 0; left < data; ++left)
            expectRefused(whole.substr(0, left), MediaCode::ParserError, sentenceOf(left, data - 16));
        for (std::size_t left = data; left < whole.size(); ++left)
            expectEssence(Verdict(whole.substr(0, left)), data, (left - data) / 4, 10);
    }
}

TEST(AiffRefusals, AFileThatCannotBeReadIsNotCalledDamaged) {
    const Verdict verdict(Aiff().comm().ssnd(pattern(40)).bytes(), -5);
    EXPECT_TRUE(kit::isWarning(verdict.m_result, MediaCode::ReadError));
    EXPECT_STREQ(verdict.m_result.getMessage(), "aiff: the file's chunks can't be read");
}
