#include "tests/unit/backends/wav_fixture.h"

// How the parser finds its way among the chunks: order, sizes, padding, 64-bit sizes, bext, and files that lie.

using namespace WavKit;

namespace {

using Pad = WavBuilder::Pad;
constexpr std::uint32_t s_unknown = WavBuilder::s_unknownSize;

// 10 samples of two channels of 16 bits
const std::string s_essence = WavBuilder::pattern(40);

std::string umid() { return WavBuilder::pattern(64); }

// A file of any length whose bytes are a head and then a pattern for ever.
class EndlessFile : public kit::FakeFile {
public:
    EndlessFile(std::string head, std::string pattern, std::uint64_t length)
        : m_head(std::move(head)), m_pattern(std::move(pattern)), m_length(length) {}
    int readAt(unsigned long long offset, void* memory, unsigned size) override {
        ++m_readCalls;
        auto* target = static_cast<char*>(memory);
        for (unsigned i = 0; i < size; ++i) {
            const std::uint64_t at = offset + i;
            target[i] = at < m_head.size() ? m_head[at] : m_pattern[(at - m_head.size()) % m_pattern.size()];
        }
        return static_cast<int>(size);
    }
    unsigned long long getLength() override { return m_length; }

private:
    const std::string m_head;
    const std::string m_pattern;
    const std::uint64_t m_length;
};

// Parses it; answers the result and that no more reads were made than two a chunk.
OpResult parseBounded(EndlessFile& file, WavFormat& format) {
    FileWindow window(file, file.getLength());
    OpResult result = WavParser(window).parse(format);
    EXPECT_LE(file.m_readCalls, 4 * static_cast<int>(WavParser::s_maxChunks) + 16);
    return result;
}

constexpr std::uint64_t s_terabyte = 1ull << 40;

}  // namespace

TEST(WavChunks, AnyOrderOfTheChunksIsTaken) {
    const WavBext bext{.m_timeReference = 77};
    const Verdict before(WavBuilder().bext(bext).chunk("LIST", "INFO").fmt().data(s_essence));
    const Verdict between(WavBuilder().fmt().bext(bext).data(s_essence));
    const Verdict behind(WavBuilder().fmt().data(s_essence).chunk("cue ", "abcd").bext(bext));
    const Verdict dataFirst(WavBuilder().data(s_essence).fmt().bext(bext));
    expectEssence(before, 666, 10);
    expectEssence(between, 654, 10);
    expectEssence(behind, 44, 10);
    expectEssence(dataFirst, 20, 10);
    for (const Verdict* verdict : {&before, &between, &behind, &dataFirst}) {
        EXPECT_TRUE(verdict->m_format.hasBext);
        EXPECT_EQ(verdict->m_format.timeReference, 77u);
    }
}

TEST(WavChunks, UnknownChunksArePassedOver) {
    WavBuilder wav;
    wav.chunk("JUNK", std::string(28, '\0')).chunk("xXxX", "abc").chunk("\x01\x02\x03\x04", "data").fmt();
    wav.chunk("list", "fmt data").chunk("Fake", "ab");
    const std::uint64_t offset = wav.size() + 8;
    expectEssence(Verdict(wav.data(s_essence).chunk("ID3 ", "x")), offset, 10);
}

TEST(WavChunks, WhatLooksLikeChunksInsideAChunkIsNotSeen) {
    const std::string inner = WavBuilder().fmt({.m_channels = 1}).data("ab").bext({.m_timeReference = 5}).bytes();
    const Verdict verdict(WavBuilder().chunk("LIST", inner).fmt().data(s_essence));
    expectEssence(verdict, 44 + 8 + inner.size(), 10);
    EXPECT_EQ(verdict.m_format.channels, 2);
    EXPECT_FALSE(verdict.m_format.hasBext);
}

TEST(WavChunks, TheFirstOfSeveralChunksOfAKindCounts) {
    const Verdict verdict(WavBuilder()
                              .fmt()
                              .fmt({.m_channels = 1})
                              .bext({.m_timeReference = 1})
                              .bext({.m_timeReference = 2})
                              .data(s_essence)
                              .data("abcd"));
    expectEssence(verdict, 44 + 24 + 2 * 610, 10);
    EXPECT_EQ(verdict.m_format.channels, 2);
    EXPECT_EQ(verdict.m_format.timeReference, 1u);
}

TEST(WavChunks, AnOddChunkIsFollowedWithItsPaddingAndWithout) {
    for (const char* id : {"inst", "JUNK", "LIST"}) {
        for (std::size_t size = 1; size < 100; size += 2) {
            const std::string body(size, 'A');
            const Verdict padded(WavBuilder().chunk(id, body).fmt().chunk(id, body).data(s_essence));
            const Verdict bare(WavBuilder().chunk(id, body, Pad::No).fmt().chunk(id, body, Pad::No).data(s_essence));
            expectEssence(padded, 44 + 2 * (8 + size + 1), 10);
            expectEssence(bare, 44 + 2 * (8 + size), 10);
        }
    }
}

TEST(WavChunks, PaddingThatIsALetterIsStillPadding) {
    const Verdict verdict(WavBuilder().chunk("inst", "abc", Pad::No).raw("x").fmt().data(s_essence));
    expectEssence(verdict, 56, 10);
}

TEST(WavChunks, ABareOddChunkIsFollowedWhateverTheSizeOfTheNext) {
    for (const std::size_t size : {0x20u, 0x41u, 0x7Eu, 0x141u}) {
        const std::string essence = std::string(1, '\0') + std::string(size - 1, 'x');
        const Verdict verdict(
            WavBuilder().fmt({.m_channels = 1, .m_bits = 8}).chunk("inst", "abc", Pad::No).data(essence));
        expectEssence(verdict, 55, size);
    }
}

TEST(WavChunks, OddEssenceIsFollowedByTheChunksBehindIt) {
    const WavFmt mono{.m_channels = 1, .m_bits = 8};
    for (const Pad pad : {Pad::Yes, Pad::No}) {
        const Verdict verdict(WavBuilder().fmt(mono).chunk("data", "a", pad).bext({.m_timeReference = 9}));
        expectEssence(verdict, 44, 1);
        EXPECT_EQ(verdict.m_format.timeReference, 9u);
    }
}

TEST(WavChunks, OverlappingChunksEndTheWalkWithASentence) {
    // The first one claims all that follows but four bytes.
    const std::string rest = WavBuilder().fmt().data(s_essence).bytes().substr(12);
    expectRefused(WavBuilder().claim("JUNK", static_cast<std::uint32_t>(rest.size() - 4), rest), MediaCode::ParserError,
                  "wav: no fmt chunk");
    // A fmt of 17 bytes that has 16 shifts what follows by two.
    expectRefused(WavBuilder().claim("fmt ", 18, WavBuilder::fmtBody({})).claim("data", 40, s_essence),
                  MediaCode::ParserError, "wav: no data chunk");
}

TEST(WavChunks, ASizeOfZeroIsAnEmptyChunk) {
    expectEssence(Verdict(WavBuilder()
                              .chunk("JUNK", "")
                              .raw(std::string("\4\0\0\0\0\0\0\0", 8))
                              .fmt()
                              .chunk("PAD ", "")
                              .data(s_essence)),
                  44 + 8 + 8 + 8, 10);
    expectRefused(WavBuilder().chunk("fmt ", "").data(s_essence), MediaCode::ParserError,
                  "wav: the fmt chunk at 20 has 0 bytes, at least 16 are needed");
    const Verdict verdict(WavBuilder().fmt().chunk("bext", "").data(s_essence));
    expectEssence(verdict, 52, 10);
    EXPECT_FALSE(verdict.m_format.hasBext);
}

TEST(WavChunks, AChunkOfTheLargestSizeIsTheLastOne) {
    expectRefused(WavBuilder().claim("JUNK", s_unknown).fmt().data(s_essence), MediaCode::ParserError,
                  "wav: no fmt chunk");
    expectRefused(WavBuilder().fmt().claim("JUNK", s_unknown).data(s_essence), MediaCode::ParserError,
                  "wav: no data chunk");
    expectEssence(Verdict(WavBuilder().fmt().data(s_essence).claim("JUNK", s_unknown, "abcd")), 44, 10);
    const Verdict bext(
        WavBuilder().fmt().data(s_essence).claim("bext", s_unknown, WavBuilder::bextBody({.m_timeReference = 3})));
    expectEssence(bext, 44, 10);
    EXPECT_EQ(bext.m_format.timeReference, 3u);
    expectRefused(WavBuilder().claim("fmt ", s_unknown, WavBuilder::fmtBody({})), MediaCode::ParserError,
                  "wav: the fmt chunk runs past the end of the file");
}

// --- Essence of unknown, wrong and no length
// ---------------------------------------------------------------------------

TEST(WavChunks, AClaimBeyondTheFileIsClippedToWholeSamples) {
    for (const std::uint32_t claim : {41u, 44u, 1000u, 0x7FFFF000u, 0xFFFFFFFEu}) {
        for (std::size_t there = 0; there <= 40; ++there) {
            const std::uint64_t samples = there / 4;
            expectEssence(Verdict(WavBuilder().fmt().claim("data", claim, s_essence.substr(0, there))), 44, samples,
                          claim / 4 > samples);
        }
    }
}

TEST(WavChunks, AClaimThatIsNoWholeSampleIsRoundedDown) {
    for (std::size_t size = 36; size < 40; ++size)
        expectEssence(Verdict(WavBuilder().fmt().data(s_essence.substr(0, size))), 44, 9);
}

TEST(WavChunks, ARecordersOpenEndRunsToTheEndOfTheFile) {
    for (const std::uint32_t size : {0u, s_unknown}) {
        expectEssence(Verdict(WavBuilder().fmt().claim("data", size, s_essence)), 44, 10, true);
        expectEssence(Verdict(WavBuilder().fmt().claim("data", size, s_essence.substr(0, 39))), 44, 9, true);
        expectEssence(Verdict(WavBuilder().fmt().claim("data", size, std::string(4000, '\0'))), 44, 1000, true);
    }
}

TEST(WavChunks, ARecorderThatHasJustBegunMayGrow) {
    for (const std::uint32_t size : {0u, 4u, s_unknown}) {
        expectEssence(Verdict(WavBuilder().fmt().claim("data", size)), 44, 0, true);
    }
}

TEST(WavChunks, AFinishedFileWithoutASampleHasNoneAndDoesNotGrow) {
    const Verdict verdict(WavBuilder().fmt().data("").chunk("LIST", "INFO").bext({.m_timeReference = 4}));
    expectEssence(verdict, 44, 0);
    EXPECT_EQ(verdict.m_format.timeReference, 4u);
    expectEssence(Verdict(WavBuilder().fmt().data("").chunk("ID3 ", "abc")), 44, 0);
    expectEssence(Verdict(WavBuilder().fmt().data("").chunk("ID3 ", "abc", Pad::No)), 44, 0);
}

TEST(WavChunks, AFinishedFileWithChunksBehindItsEssenceDoesNotGrow) {
    expectEssence(Verdict(WavBuilder().fmt().data(s_essence).chunk("LIST", "INFO").raw(std::string(400, '\0'))), 44,
                  10);
}

TEST(WavChunks, AnOpenEndInFrontOfFmtLeavesNoFmt) {
    expectRefused(WavBuilder().claim("data", s_unknown, s_essence).fmt(), MediaCode::ParserError, "wav: no fmt chunk");
}

TEST(WavChunks, TheSizeInTheMasterHeaderIsNotBelieved) {
    for (const std::uint32_t size : {0u, 4u, 36u, 0x7FFFFFFFu, s_unknown}) {
        expectEssence(Verdict(WavBuilder().masterSize(size).fmt().data(s_essence)), 44, 10);
    }
}

// --- RF64 and BW64
// -----------------------------------------------------------------------------------------------------

TEST(WavChunks, Ds64SaysHowLongTheDataAreInEveryOfItsSizes) {
    for (const char* master : {"RF64", "BW64"}) {
        for (const unsigned size : {24u, 28u}) {
            expectEssence(Verdict(WavBuilder(master).ds64(40, size).fmt().claim("data", s_unknown, s_essence)),
                          52 + size, 10);
        }
        const std::string table = "abcd" + WavBuilder::le(5, 8);
        expectEssence(Verdict(WavBuilder(master).ds64(40, 28, table).fmt().claim("data", s_unknown, s_essence)), 92,
                      10);
    }
}

TEST(WavChunks, ChunksBehindA64BitEssenceAreFound) {
    const Verdict verdict(
        WavBuilder("RF64").ds64(40).fmt().claim("data", s_unknown, s_essence).bext({.m_timeReference = 6}));
    expectEssence(verdict, 80, 10);
    EXPECT_EQ(verdict.m_format.timeReference, 6u);
}

TEST(WavChunks, TheTableOfDs64SaysHowLongOtherChunksAre) {
    const std::string table = "axml" + WavBuilder::le(9, 8) + "bext" + WavBuilder::le(602, 8);
    WavBuilder wav("BW64");
    wav.ds64(40, 28, table).claim("axml", s_unknown, "123456789").raw(std::string(1, '\0'));
    wav.claim("bext", s_unknown, WavBuilder::bextBody({.m_timeReference = 8})).fmt();
    const std::uint64_t offset = wav.size() + 8;
    const Verdict verdict(wav.claim("data", s_unknown, s_essence));
    expectEssence(verdict, offset, 10);
    EXPECT_EQ(verdict.m_format.timeReference, 8u);
}

TEST(WavChunks, ATableThatClaimsMoreThanItsChunkHasIsReadAsFarAsItGoes) {
    const std::string entry = "axml" + WavBuilder::le(2, 8);
    std::string body =
        WavBuilder::le(0, 8) + WavBuilder::le(40, 8) + WavBuilder::le(0, 8) + WavBuilder::le(s_unknown, 4) + entry;
    WavBuilder wav("RF64");
    wav.chunk("ds64", body).claim("axml", s_unknown, "ab").fmt();
    const std::uint64_t offset = wav.size() + 8;
    expectEssence(Verdict(wav.claim("data", s_unknown, s_essence)), offset, 10);
}

TEST(WavChunks, AnEntryOfThe64BitTableBeyondTheFileEndsTheWalk) {
    const std::string table = "axml" + WavBuilder::le(~0ull, 8);
    expectRefused(
        WavBuilder("RF64").ds64(40, 28, table).claim("axml", s_unknown, "ab").fmt().claim("data", s_unknown, s_essence),
        MediaCode::ParserError, "wav: no fmt chunk");
}

TEST(WavChunks, TheSizeInTheDataChunkCountsWhereItIsGiven) {
    expectEssence(Verdict(WavBuilder("RF64").ds64(~0ull).fmt().data(s_essence)), 80, 10);
    expectEssence(Verdict(WavBuilder("RF64").ds64(8).fmt().data(s_essence)), 80, 10);
}

TEST(WavChunks, A64BitClaimBeyondTheFileIsClipped) {
    for (const std::uint64_t claim : {44ull, 1ull << 32, 1ull << 63, ~0ull - 1}) {
        expectEssence(Verdict(WavBuilder("RF64").ds64(claim).fmt().claim("data", s_unknown, s_essence)), 80, 10, true);
    }
}

TEST(WavChunks, A64BitRecordersOpenEndRunsToTheEndOfTheFile) {
    for (const std::uint64_t size : {0ull, ~0ull}) {
        expectEssence(Verdict(WavBuilder("RF64").ds64(size).fmt().claim("data", s_unknown, s_essence)), 80, 10, true);
    }
    expectEssence(Verdict(WavBuilder("BW64").fmt().claim("data", s_unknown, s_essence)), 44, 10, true);
}

TEST(WavChunks, ADs64ThatIsTooShortIsRefused) {
    for (const std::size_t size : {0u, 15u}) {
        expectRefused(WavBuilder("RF64").chunk("ds64", std::string(size, '\0')).fmt().data(s_essence),
                      MediaCode::ParserError, "wav: the ds64 chunk is too short");
    }
    expectRefused(WavBuilder("RF64").claim("ds64", 28, "abc"), MediaCode::ParserError,
                  "wav: the ds64 chunk is too short");
}

TEST(WavChunks, Ds64HasNoSayInAPlainFile) {
    expectEssence(Verdict(WavBuilder().ds64(8).fmt().claim("data", s_unknown, s_essence)), 80, 10, true);
    expectEssence(Verdict(WavBuilder().chunk("ds64", "").fmt().data(s_essence)), 52, 10);
}

// --- bext
// --------------------------------------------------------------------------------------------------------------

TEST(WavChunks, BextGivesTheTimeReferenceAndFromVersion1TheUmid) {
    for (const unsigned version : {0u, 1u, 2u}) {
        const WavBext bext{.m_version = version, .m_timeReference = 0x123456789ABCDEFull, .m_umid = umid()};
        const Verdict verdict(WavBuilder().bext(bext).fmt().data(s_essence));
        expectEssence(verdict, 654, 10);
        EXPECT_TRUE(verdict.m_format.hasBext);
        EXPECT_EQ(verdict.m_format.timeReference, 0x123456789ABCDEFull);
        EXPECT_EQ(verdict.m_format.hasUmid, version >= 1);
        const std::string read(std::begin(verdict.m_format.umid), std::end(verdict.m_format.umid));
        EXPECT_EQ(read == umid(), version >= 1);
    }
}

TEST(WavChunks, AUmidOfZerosIsNone) {
    const Verdict verdict(WavBuilder().bext({.m_version = 2}).fmt().data(s_essence));
    EXPECT_TRUE(verdict.m_format.hasBext);
    EXPECT_FALSE(verdict.m_format.hasUmid);
}

TEST(WavChunks, ABasicUmidIsOneWithZerosBehind) {
    const Verdict verdict(WavBuilder().bext({.m_umid = umid().substr(0, 32)}).fmt().data(s_essence));
    EXPECT_TRUE(verdict.m_format.hasUmid);
    EXPECT_EQ(verdict.m_format.umid[31], static_cast<std::uint8_t>(umid()[31]));
    EXPECT_EQ(verdict.m_format.umid[32], 0);
}

TEST(WavChunks, ABextThatEndsEarlyGivesWhatItHas) {
    const struct {
        unsigned m_size;
        bool m_hasBext, m_hasUmid;
    } sizes[] = {{1, false, false},  {345, false, false}, {346, true, false}, {348, true, false},
                 {411, true, false}, {412, true, true},   {5000, true, true}};
    for (const auto& [size, hasBext, hasUmid] : sizes) {
        const WavBext bext{.m_timeReference = 12, .m_umid = umid(), .m_size = size};
        const Verdict verdict(WavBuilder().bext(bext).fmt().data(s_essence));
        expectEssence(verdict, 52 + size + size % 2, 10);
        EXPECT_EQ(verdict.m_format.hasBext, hasBext) << size;
        EXPECT_EQ(verdict.m_format.timeReference, hasBext ? 12u : 0u) << size;
        EXPECT_EQ(verdict.m_format.hasUmid, hasUmid) << size;
    }
}

TEST(WavChunks, ABextThatIsCutByTheEndOfTheFileIsLeftOut) {
    const std::string body = WavBuilder::bextBody({.m_timeReference = 12, .m_umid = umid()}).substr(0, 400);
    const Verdict verdict(WavBuilder().fmt().data(s_essence).claim("bext", 602, body));
    expectEssence(verdict, 44, 10);
    EXPECT_FALSE(verdict.m_format.hasBext);
}

// --- Bounds
// ------------------------------------------------------------------------------------------------------------

TEST(WavChunks, NoMoreThan4096ChunksAreWalkedOverInSearchOfTheEssence) {
    const auto with = [](unsigned count) {
        WavBuilder wav;
        wav.fmt();
        for (unsigned i = 1; i < count; ++i)
            wav.chunk("JUNK", "ab");
        return wav.data(s_essence).bytes();
    };
    EXPECT_TRUE(Verdict(with(WavParser::s_maxChunks - 1)).m_result.success());
    expectRefused(with(WavParser::s_maxChunks), MediaCode::ParserError,
                  "wav: no fmt and data chunks among the first 4096");
}

TEST(WavChunks, AnyNumberOfChunksMayStandBehindTheEssence) {
    WavBuilder wav;
    wav.fmt().data(s_essence);
    for (unsigned i = 0; i < 2 * WavParser::s_maxChunks; ++i)
        wav.chunk("JUNK", "ab");
    expectEssence(Verdict(wav), 44, 10);
}

TEST(WavChunks, ATerabyteOfZerosEndsSoon) {
    WavFormat format;
    EndlessFile file("", std::string(1, '\0'), s_terabyte);
    OpResult result = parseBounded(file, format);
    EXPECT_STREQ(result.getMessage(), "wav: no RIFF, RF64 or BW64 header at the start");
    result.discard();
    EndlessFile headed(std::string("RIFF\0\0\0\0WAVE", 12), std::string(1, '\0'), s_terabyte);
    result = parseBounded(headed, format);
    EXPECT_STREQ(result.getMessage(), "wav: no fmt and data chunks among the first 4096");
    result.discard();
}

TEST(WavChunks, ATerabyteOfLettersEndsSoon) {
    for (const char* letters : {"A", "    ", "data", "abcdefg", "JUNK\1\0\0\0A"}) {
        WavFormat format;
        EndlessFile file(std::string("RIFF\0\0\0\0WAVE", 12), letters, s_terabyte);
        OpResult result = parseBounded(file, format);
        EXPECT_FALSE(result.success()) << letters;
        result.discard();
    }
}

TEST(WavChunks, ATerabyteBehindAnEmptyDataChunkEndsSoon) {
    const std::string head = WavBuilder().fmt().claim("data", 0).bytes();
    for (const std::string& pattern : {std::string(1, '\0'), std::string("A"), std::string("JUNK\0\0\0\0", 8),
                                       std::string("JUNK\1\0\0\0A", 9), std::string("JUNK\1\0\0\0A\0", 10)}) {
        WavFormat format;
        EndlessFile file(head, pattern, s_terabyte);
        OpResult result = parseBounded(file, format);
        ASSERT_TRUE(result.success()) << result.describe().get();
        EXPECT_EQ(format.samples, (s_terabyte - 44) / 4);
    }
}

TEST(WavChunks, ALongRecordingOf64BitsIsTakenWhole) {
    WavFormat format;
    const std::uint64_t essence = s_terabyte - 80;
    EndlessFile file(WavBuilder("RF64").ds64(essence).fmt().claim("data", s_unknown).bytes(), "x", s_terabyte);
    EXPECT_TRUE(parseBounded(file, format).success());
    EXPECT_EQ(format.dataOffset, 80u);
    EXPECT_EQ(format.samples, essence / 4);
    EXPECT_EQ(file.m_readCalls, 1);
}

// --- Reads that fail
// ---------------------------------------------------------------------------------------------------

TEST(WavChunks, AReadThatFailsInFrontOfTheEssenceIsAReadError) {
    const std::string bytes = WavBuilder()
                                  .chunk("JUNK", std::string(9000, '\0'))
                                  .fmt()
                                  .chunk("PAD ", std::string(9000, '\0'))
                                  .data(s_essence)
                                  .bytes();
    for (int failing = 1; failing <= 3; ++failing) {
        kit::FakeFile file;
        file.m_content = bytes;
        file.m_shortRead = failing;
        FileWindow window(file, bytes.size());
        WavFormat format;
        OpResult result = WavParser(window).parse(format);
        EXPECT_TRUE(kit::isWarning(result, MediaCode::ReadError)) << failing;
        EXPECT_STREQ(result.getMessage(), "wav: the file's chunks can't be read");
        result.discard();
    }
}

TEST(WavChunks, AReadThatFailsBehindTheEssenceCostsOnlyWhatStandsThere) {
    const std::string essence = WavBuilder::pattern(40000);
    const std::string bytes = WavBuilder().fmt().data(essence).bext({.m_timeReference = 5}).bytes();
    kit::FakeFile file;
    file.m_content = bytes;
    file.m_shortRead = 2;
    FileWindow window(file, bytes.size());
    WavFormat format;
    EXPECT_TRUE(WavParser(window).parse(format).success());
    EXPECT_EQ(format.samples, 10000u);
    EXPECT_FALSE(format.hasBext);
}

TEST(WavChunks, AnOrdinaryFileIsParsedWithOneRead) {
    const Verdict verdict(WavBuilder().bext({}).fmt().data(WavBuilder::pattern(400000)));
    EXPECT_TRUE(verdict.m_result.success());
    EXPECT_EQ(verdict.m_file.m_readCalls, 1);
}
