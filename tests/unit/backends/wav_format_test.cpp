#include "tests/unit/backends/wav_fixture.h"

// Which codings the parser takes, and what it says of each.

using namespace WavKit;

namespace {

struct Coding {
    WavFmt m_fmt;
    bool m_isPcm;
    unsigned m_bits;   // of a word as it lies in the file
    unsigned m_align;  // bytes
};

WavFmt pcm(unsigned bits, unsigned channels, unsigned rate = 48000, bool extensible = false) {
    return {.m_channels = channels, .m_rate = rate, .m_bits = bits, .m_extensible = extensible};
}

WavFmt aLaw(unsigned channels, bool extensible = false) {
    return {.m_tag = 6, .m_channels = channels, .m_rate = 8000, .m_bits = 8, .m_extensible = extensible};
}

const Coding s_codings[] = {
    {pcm(8, 1), true, 8, 1},
    {pcm(16, 2), true, 16, 4},
    {pcm(20, 2), true, 24, 6},
    {pcm(24, 6), true, 24, 18},
    {pcm(32, 8), true, 32, 32},
    {pcm(5, 5, 8000), true, 8, 5},
    {pcm(12, 1), true, 16, 2},
    {pcm(16, 1, 1), true, 16, 2},
    {pcm(16, 1, 0xFFFFFFFF), true, 16, 2},
    {pcm(8, 1, 44100, true), true, 8, 1},
    {pcm(16, 6, 48000, true), true, 16, 12},
    {pcm(24, 16, 96000, true), true, 24, 48},
    {pcm(32, 32, 192000, true), true, 32, 128},
    {aLaw(1), false, 8, 1},
    {aLaw(2, true), false, 8, 2},
};

const std::string s_ambisonic("\0\0\x21\x07\xD3\x11\x86\x44\xC8\xC1\xCA\0\0\0", 14);

}  // namespace

TEST(WavFormats, EveryCodingOfTheTableIsTakenWithItsFacts) {
    for (const Coding& coding : s_codings) {
        SCOPED_TRACE(testing::Message() << coding.m_fmt.m_bits << " bits, " << coding.m_fmt.m_channels << " channels");
        const Verdict verdict(WavBuilder().fmt(coding.m_fmt).data(WavBuilder::pattern(coding.m_align * 10)));
        expectEssence(verdict, coding.m_fmt.m_extensible ? 68 : 44, 10);
        EXPECT_EQ(verdict.m_format.encoding == MediaEncodingType::Pcm, coding.m_isPcm);
        EXPECT_EQ(verdict.m_format.bits, coding.m_bits);
        EXPECT_EQ(verdict.m_format.channels, coding.m_fmt.m_channels);
        EXPECT_EQ(verdict.m_format.sampleRate, coding.m_fmt.m_rate);
        EXPECT_EQ(verdict.m_format.blockAlign, coding.m_align);
        EXPECT_FALSE(verdict.m_format.hasBext);
    }
}

TEST(WavFormats, OneToThirtyTwoChannelsAreTaken) {
    for (unsigned channels = 1; channels <= 32; ++channels) {
        const Verdict verdict(WavBuilder().fmt(pcm(24, channels)).data(WavBuilder::pattern(3 * channels * 7)));
        expectEssence(verdict, 44, 7);
        EXPECT_EQ(verdict.m_format.channels, channels);
    }
}

TEST(WavFormats, AFmtChunkOfAnySizeFromSixteenBytesIsTaken) {
    for (const unsigned size : {16u, 17u, 18u, 20u, 40u, 41u, 50u, 4000u, 100000u}) {
        WavFmt fmt = pcm(16, 2);
        fmt.m_size = size;
        expectEssence(Verdict(WavBuilder().fmt(fmt).data(WavBuilder::pattern(40))), 28 + size + size % 2, 10);
    }
}

TEST(WavFormats, AnAmbisonicSubformatIsPcm) {
    WavFmt fmt = pcm(24, 4, 48000, true);
    fmt.m_guidTail = s_ambisonic;
    const Verdict verdict(WavBuilder().fmt(fmt).data(WavBuilder::pattern(120)));
    expectEssence(verdict, 68, 10);
    EXPECT_EQ(MediaEncodingType::Pcm, verdict.m_format.encoding);
}

TEST(WavFormats, AWrongByteRateIsNoMatter) {
    std::string body = WavBuilder::fmtBody(pcm(16, 2));
    body.replace(8, 4, WavBuilder::le(76561, 4));
    expectEssence(Verdict(WavBuilder().chunk("fmt ", body).data(WavBuilder::pattern(40))), 44, 10);
}

TEST(WavFormats, OtherCodingsAreRefusedByTheirNames) {
    const struct {
        unsigned m_tag;
        const char* m_sentence;
    } refusals[] = {
        {0x0000, "wav: samples of an unknown coding (format tag 0x0000) are not supported"},
        {0x0002, "wav: Microsoft ADPCM samples (format tag 0x0002) are not supported"},
        {0x0003, "wav: floating point samples (format tag 0x0003) are not supported"},
        {0x0007, "wav: mu-law samples (format tag 0x0007) are not supported"},
        {0x0011, "wav: IMA ADPCM samples (format tag 0x0011) are not supported"},
        {0x0031, "wav: GSM 6.10 samples (format tag 0x0031) are not supported"},
        {0x0050, "wav: MPEG audio samples (format tag 0x0050) are not supported"},
        {0x0055, "wav: MPEG layer 3 samples (format tag 0x0055) are not supported"},
        {0x0092, "wav: AC-3 in AES3 samples (format tag 0x0092) are not supported"},
        {0x00FF, "wav: AAC samples (format tag 0x00ff) are not supported"},
        {0x0101, "wav: samples of an unknown coding (format tag 0x0101) are not supported"},
        {0x0160, "wav: Windows Media Audio samples (format tag 0x0160) are not supported"},
        {0x0161, "wav: Windows Media Audio samples (format tag 0x0161) are not supported"},
        {0x0162, "wav: Windows Media Audio samples (format tag 0x0162) are not supported"},
        {0x0163, "wav: Windows Media Audio samples (format tag 0x0163) are not supported"},
        {0x2000, "wav: AC-3 samples (format tag 0x2000) are not supported"},
        {0xF1AC, "wav: FLAC samples (format tag 0xf1ac) are not supported"},
    };
    for (const auto& [tag, sentence] : refusals) {
        for (const bool extensible : {false, true}) {
            const WavFmt fmt{.m_tag = tag, .m_bits = 32, .m_extensible = extensible};
            expectRefused(WavBuilder().fmt(fmt).data("12345678"), MediaCode::UnsupportedMediaType, sentence);
        }
    }
}

TEST(WavFormats, ASubformatOfAnotherFamilyIsRefused) {
    WavFmt fmt = pcm(16, 2, 48000, true);
    fmt.m_guidTail = std::string(14, 'x');
    expectRefused(WavBuilder().fmt(fmt).data("1234"), MediaCode::UnsupportedMediaType,
                  "wav: samples of an unknown subformat are not supported");
}

TEST(WavFormats, AnExtensibleFmtWithoutItsSubformatIsRefused) {
    for (const unsigned size : {16u, 18u, 39u}) {
        WavFmt fmt = pcm(16, 2, 48000, true);
        fmt.m_size = size;
        expectRefused(WavBuilder().fmt(fmt).data("1234"), MediaCode::ParserError,
                      "wav: the extensible fmt chunk is too short for its subformat");
    }
}

TEST(WavFormats, ChannelsOutsideOneToThirtyTwoAreRefused) {
    WavFmt fmt = pcm(16, 0);
    fmt.m_blockAlign = 2;
    expectRefused(WavBuilder().fmt(fmt).data("1234"), MediaCode::ParserError, "wav: 0 channels, 1 to 32 are supported");
    expectRefused(WavBuilder().fmt(pcm(16, 33)).data("1234"), MediaCode::ParserError,
                  "wav: 33 channels, 1 to 32 are supported");
    expectRefused(WavBuilder().fmt(pcm(16, 65535)).data("1234"), MediaCode::ParserError,
                  "wav: 65535 channels, 1 to 32 are supported");
}

TEST(WavFormats, ABlockAlignThatDoesNotFitIsRefused) {
    WavFmt fmt = pcm(16, 2);
    for (const int align : {0, 1, 3, 5, 8, 65535}) {
        fmt.m_blockAlign = align;
        expectRefused(WavBuilder().fmt(fmt).data("1234"), MediaCode::ParserError,
                      "wav: a block align of " + std::to_string(align) + " doesn't fit 2 channels of 2 bytes");
    }
    fmt = pcm(24, 2);
    fmt.m_blockAlign = 8;
    expectRefused(WavBuilder().fmt(fmt).data("1234"), MediaCode::ParserError,
                  "wav: a block align of 8 doesn't fit 2 channels of 3 bytes");
}

TEST(WavFormats, ASampleRateOfZeroIsRefused) {
    expectRefused(WavBuilder().fmt(pcm(16, 2, 0)).data("1234"), MediaCode::ParserError, "wav: a sample rate of 0");
}

TEST(WavFormats, BitsThatNoCodingHasAreRefused) {
    for (const unsigned bits : {0u, 33u, 64u, 65535u}) {
        expectRefused(WavBuilder().fmt(pcm(bits, 1)).data("1234"), MediaCode::UnsupportedMediaType,
                      "wav: " + std::to_string(bits) + " bits a sample are not supported");
    }
    WavFmt fmt = aLaw(1);
    fmt.m_bits = 16;
    expectRefused(WavBuilder().fmt(fmt).data("1234"), MediaCode::UnsupportedMediaType,
                  "wav: 16 bits a sample are not supported");
}

TEST(WavFormats, AMasterHeaderOfAnotherKindIsRefused) {
    const auto with = [](const char* master, const char* type) {
        return WavBuilder(master, type).fmt().data("1234").bytes();
    };
    expectRefused(with("RIFX", "WAVE"), MediaCode::UnsupportedMediaType, "wav: big-endian RIFX is not supported");
    expectRefused(with("RIFF", "AVI "), MediaCode::ParserError, "wav: the RIFF file is not of type WAVE");
    expectRefused(with("RF64", "wave"), MediaCode::ParserError, "wav: the RIFF file is not of type WAVE");
    expectRefused(with("FORM", "AIFF"), MediaCode::ParserError, "wav: no RIFF, RF64 or BW64 header at the start");
    expectRefused(with("riff", "WAVE"), MediaCode::ParserError, "wav: no RIFF, RF64 or BW64 header at the start");
}

TEST(WavFormats, AFileWithoutOneOfItsTwoChunksIsRefused) {
    expectRefused(WavBuilder(), MediaCode::ParserError, "wav: no fmt chunk");
    expectRefused(WavBuilder().data("1234"), MediaCode::ParserError, "wav: no fmt chunk");
    expectRefused(WavBuilder().fmt(), MediaCode::ParserError, "wav: no data chunk");
    expectRefused(WavBuilder().fmt().bext({}), MediaCode::ParserError, "wav: no data chunk");
}

TEST(WavFormats, AFmtChunkThatIsTooShortIsRefusedWithItsPlace) {
    for (const unsigned size : {0u, 1u, 2u, 15u}) {
        expectRefused(WavBuilder().chunk("fmt ", std::string(size, '\1')).data("1234"), MediaCode::ParserError,
                      "wav: the fmt chunk at 20 has " + std::to_string(size) + " bytes, at least 16 are needed");
    }
}

TEST(WavFormats, AFmtChunkThatIsCutByTheEndOfTheFileIsRefused) {
    const std::string body = WavBuilder::fmtBody(pcm(16, 2));
    for (std::size_t left = 0; left < body.size(); ++left) {
        expectRefused(WavBuilder().claim("fmt ", 16, body.substr(0, left)), MediaCode::ParserError,
                      "wav: the fmt chunk runs past the end of the file");
    }
}

TEST(WavFormats, AFileThatIsCutAnywhereInItsHeaderIsRefusedWithASentence) {
    const std::string whole = WavBuilder().fmt(pcm(24, 4, 48000, true)).bext({}).data("123456789012").bytes();
    for (std::size_t left = 0; left < whole.size() - 12; ++left) {
        const Verdict verdict(whole.substr(0, left));
        EXPECT_TRUE(kit::isWarning(verdict.m_result, MediaCode::ParserError)) << left;
        ASSERT_NE(verdict.m_result.getMessage(), nullptr) << left;
        EXPECT_EQ(std::string(verdict.m_result.getMessage()).rfind("wav: ", 0), 0u) << verdict.m_result.getMessage();
    }
}

TEST(WavFormats, AFileOfLessThanAMasterHeaderIsRefused) {
    for (std::size_t left = 0; left < 12; ++left) {
        expectRefused(std::string("RIFF\4\0\0\0WAVE", 12).substr(0, left), MediaCode::ParserError,
                      "wav: the file is too short for a RIFF header");
    }
}
