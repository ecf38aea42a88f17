#include "tests/unit/backends/dv_fixture.h"

// Streams that start, end or change where they shouldn't, that are damaged, or that are none.

using namespace DvKit;

namespace {

// What must not depend on damage to a few bytes.
void expectSameFacts(const DvFormat& format, const DvFormat& sound) {
    EXPECT_EQ(format.system, sound.system);
    EXPECT_EQ(format.isPro, sound.isPro);
    EXPECT_EQ(format.aspect, sound.aspect);
    EXPECT_EQ(format.scan, sound.scan);
    EXPECT_STREQ(format.timecode.toString().get(), sound.timecode.toString().get());
    EXPECT_EQ(format.timecode.m_dropFrame, sound.timecode.m_dropFrame);
    EXPECT_EQ(format.audio.channels, sound.audio.channels);
    EXPECT_EQ(format.audio.rate, sound.audio.rate);
    EXPECT_EQ(format.baseOffset, sound.baseOffset);
    EXPECT_EQ(format.frames, sound.frames);
    EXPECT_EQ(format.maxFrames, sound.maxFrames);
}

Frame soundFrame(unsigned index) {
    Frame frame(system(index), sound(2), false, MediaAspectRatio::Ratio16x9);
    frame.timecode(0x44, 0x03, 0x02, 0x01);
    return frame;
}

std::string noise(std::size_t size) {
    std::string bytes(size, '\0');
    std::uint64_t state = 88172645463325252ull;
    for (char& byte : bytes) {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        byte = static_cast<char>(state >> 32);
    }
    return bytes;
}

}  // namespace

TEST(DvDamage, OfOneByteAnywhereInTheHeadOfTheFirstFrameDoesNoHarm) {
    for (const unsigned index : {Ntsc25, Pal420}) {
        const std::string good = soundFrame(index).bytes() + soundFrame(index).bytes();
        const Verdict sound(good);
        ASSERT_TRUE(sound.m_result.success());
        std::string bytes = good;
        for (unsigned at = 0; at < DvLayout::s_audioBlock * s_block; ++at) {
            for (const unsigned damage : {0x00u, 0xFFu, static_cast<unsigned char>(good[at]) ^ 0x81u}) {
                bytes[at] = static_cast<char>(damage);
                const Verdict verdict(bytes);
                ASSERT_TRUE(verdict.m_result.success()) << at;
                expectSameFacts(verdict.m_format, sound.m_format);
                ASSERT_FALSE(HasFailure()) << at;
            }
            bytes[at] = good[at];
        }
    }
}

TEST(DvDamage, OfEveryBlockOfTheFirstFrameInTurnDoesNoHarm) {
    const std::string good = soundFrame(Pal420).bytes() + soundFrame(Pal420).bytes();
    const Verdict sound(good);
    for (unsigned at = 0; at < 144000; at += s_block) {
        std::string bytes = good;
        std::fill_n(bytes.begin() + at, s_block, at % 160 == 0 ? '\0' : '\xFF');
        const Verdict verdict(bytes);
        ASSERT_TRUE(verdict.m_result.success()) << at;
        expectSameFacts(verdict.m_format, sound.m_format);
        ASSERT_FALSE(HasFailure()) << at;
    }
}

TEST(DvDamage, OfTheSameBlockInEverySequenceIsSurvivedOrSaidClearly) {
    const std::string good = soundFrame(Ntsc25).bytes() + soundFrame(Ntsc25).bytes();
    for (unsigned block = 0; block < DvLayout::s_sequenceBlocks; ++block) {
        std::string bytes = good;
        for (unsigned i = 0; i < 20; ++i)
            std::fill_n(bytes.begin() + i * s_sequence + block * s_block, s_block, '\0');
        if (block == 0) {
            expectRefused(bytes, MediaCode::ParserError, "dv: no sequence has a header");
        } else {
            expectFrames(Verdict(bytes), system(Ntsc25), 0, 2);
        }
        ASSERT_FALSE(HasFailure()) << block;
    }
}

TEST(DvDamage, OfAFewSequencesLeavesTheFrameWhereItIs) {
    for (unsigned first = 0; first + 3 <= 10; ++first) {
        const std::string frame = Frame(system(Ntsc25)).destroy(first, 3, '\x55').bytes();
        expectFrames(Verdict(frame + stream(system(Ntsc25), 2)), system(Ntsc25), 0, 3);
    }
}

TEST(DvDamage, OfMoreThanHalfOfTheFirstFrameLeavesItOut) {
    const std::string frame = Frame(system(Ntsc25)).destroy(0, 6, '\x55').bytes();
    expectFrames(Verdict(frame + stream(system(Ntsc25), 2)), system(Ntsc25), 120000, 2);
}

TEST(DvDamage, OfFramesInTheMiddleAndAtTheEndChangesNothing) {
    std::string bytes = stream(system(Pal420), 12);
    for (const unsigned frame : {3u, 6u, 9u, 11u})
        std::fill_n(bytes.begin() + frame * 144000, 144000, frame == 6 ? '\xFF' : '\0');
    expectFrames(Verdict(bytes), system(Pal420), 0, 12);
    std::fill_n(bytes.begin() + 11 * 144000, s_sequence, '\xFF');
    expectFrames(Verdict(bytes), system(Pal420), 0, 12);
}

TEST(DvStart, InsideAFrameBeginsWithTheNextWholeOne) {
    const DvSystem& pal = system(Pal420);
    const std::string bytes = stream(pal, 3);
    for (const unsigned cut : {1u, 79u, 80u, 4321u, 12000u, 12001u, 71999u, 72000u, 100000u, 132001u, 143999u}) {
        SCOPED_TRACE(cut);
        expectFrames(Verdict(bytes.substr(cut)), pal, 144000 - cut, 2);
    }
}

TEST(DvStart, InsideAFrameOfSeveralChannelsBeginsWithTheNextWholeOne) {
    for (const unsigned index : {Ntsc50, Pal50, Hd60i, Hd50i, Hd60p, Hd50p}) {
        const DvSystem& one = system(index);
        const std::string bytes = stream(one, 3);
        for (unsigned cut = s_sequence / 2; cut < one.frameSize(); cut += 5 * s_sequence) {
            SCOPED_TRACE(cut);
            expectFrames(Verdict(bytes.substr(cut)), one, one.frameSize() - cut, 2);
        }
    }
}

TEST(DvStart, BehindBytesOfSomethingElseIsFound) {
    const std::string bytes = stream(system(Ntsc25), 2);
    for (const unsigned before : {1u, 3u, 80u, 5000u, 100001u})
        expectFrames(Verdict(noise(before) + bytes), system(Ntsc25), before, 2);
    expectFrames(Verdict(std::string(250000, '\0') + bytes), system(Ntsc25), 250000, 2);
    expectRefused(std::string(300000, '\0') + bytes, MediaCode::ParserError,
                  "dv: no DIF sequence in the first 262144 bytes");
}

TEST(DvEnd, InsideAFrameLeavesThatFrameOut) {
    for (const DvSystem& one : s_dvSystems) {
        const std::string bytes = stream(one, 2);
        for (const unsigned cut : {1u, 80u, s_sequence, one.frameSize() - 1})
            expectFrames(Verdict(bytes.substr(0, bytes.size() - cut)), one, 0, 1);
    }
}

TEST(DvEnd, InsideTheFirstFrameIsRefused) {
    const std::string bytes = stream(system(Pal420), 1);
    for (const unsigned size : {4080u, 4400u, 12000u, 143999u}) {
        expectRefused(bytes.substr(0, size), MediaCode::ParserError,
                      "dv: the file has no whole frame of 144000 bytes (625/50 25 Mbit/s 4:2:0)");
    }
    expectRefused(bytes.substr(0, 4079), MediaCode::ParserError, "dv: no DIF sequence in the first 4079 bytes");
    expectRefused(stream(system(Pal420), 2).substr(72000, 215999), MediaCode::ParserError,
                  "dv: the file has no whole frame of 144000 bytes (625/50 25 Mbit/s 4:2:0)");
}

TEST(DvChange, OfTheSystemEndsTheStreamAtEveryFrame) {
    for (unsigned before = 1; before < 14; ++before) {
        SCOPED_TRACE(before);
        const std::string bytes = stream(system(Pal420), before) + stream(system(Ntsc25), 9);
        expectFrames(Verdict(bytes), system(Pal420), 0, before, true);
    }
}

TEST(DvChange, OfAnythingThatMakesAnotherSystemIsSeen) {
    for (const auto& [one, other] : {std::pair<Which, Which>{Ntsc25, Pal420},
                                     {Pal420, Pal411},
                                     {Pal420, Pal50},
                                     {Pal50, Pal420},
                                     {Ntsc50, Hd60p},
                                     {Hd60p, Ntsc50},
                                     {Hd60i, Hd50i},
                                     {Hd50i, Ntsc25}}) {
        SCOPED_TRACE(std::string(system(one).name) + " to " + system(other).name);
        const std::string bytes = stream(system(one), 7) + stream(system(other), 12);
        expectFrames(Verdict(bytes), system(one), 0, 7, true);
    }
}

TEST(DvChange, OfTheBeatEndsTheStream) {
    const std::string part = stream(system(Ntsc25), 9);
    for (const unsigned lost : {1u, 80u, 7777u, 12000u, 119999u}) {
        SCOPED_TRACE(lost);
        expectFrames(Verdict(part + part.substr(lost)), system(Ntsc25), 0, 9, true);
    }
}

TEST(DvChange, DamagedFramesAroundItBelongToTheStream) {
    std::string bytes = stream(system(Pal420), 10) + stream(system(Ntsc25), 24);
    std::fill_n(bytes.begin() + 144000 * 8, 144000 * 2, '\0');
    const Verdict verdict(bytes);
    ASSERT_TRUE(verdict.m_result.success());
    EXPECT_GE(verdict.m_format.frames, 8u);
    EXPECT_LE(verdict.m_format.frames, 10u);
    EXPECT_EQ(verdict.m_format.maxFrames, verdict.m_format.frames);
}

TEST(DvChange, OneDamagedHeaderInALaterFrameIsNone) {
    std::string bytes = stream(system(Ntsc25), 8);
    for (const unsigned frame : {2u, 4u, 6u, 7u})
        bytes[frame * 120000 + 3] = '\xBF';  // the lines of another system
    expectFrames(Verdict(bytes), system(Ntsc25), 0, 8);
}

TEST(DvNothing, IsRefusedWhateverItIs) {
    for (const std::size_t size : {0u, 1u, 4079u, 4080u, 100000u, 262144u, 300000u}) {
        const std::string sentence =
            "dv: no DIF sequence in the first " + std::to_string(std::min<std::size_t>(size, 262144)) + " bytes";
        for (const char fill : {'\x00', '\x1F', '\x7F', '\xFF'})
            expectRefused(std::string(size, fill), MediaCode::ParserError, sentence);
        expectRefused(noise(size), MediaCode::ParserError, sentence);
    }
}

TEST(DvNothing, CostsNoMoreThanTheSearchMayRead) {
    const Verdict verdict(noise(600000));
    EXPECT_LT(verdict.m_file.m_readCalls, 90);
}

TEST(DvCost, OfAnOpenDoesNotGrowWithTheLength) {
    const int few = Verdict(stream(system(Pal420), 40)).m_file.m_readCalls;
    EXPECT_EQ(Verdict(stream(system(Pal420), 8)).m_file.m_readCalls, few);
    EXPECT_LE(few, 24);
    // A change of the system costs a few more reads for each doubling.
    const Verdict change(stream(system(Pal420), 33) + stream(system(Ntsc25), 33));
    EXPECT_LE(change.m_file.m_readCalls, 80);
}

TEST(DvCost, OfTheLargestFramesWithoutAnyPacksIsBounded) {
    Frame frame(system(Hd50i), sound(0));
    frame.videoPack(1, 0, 0xFF);
    EXPECT_LE(Verdict(frame.bytes() + frame.bytes()).m_file.m_readCalls, 100);
}

TEST(DvFailure, OfAReadIsNoVerdictOnTheStream) {
    const std::string bytes = stream(system(Pal420), 3);
    const int calls = Verdict(bytes).m_file.m_readCalls;
    for (int call = 1; call <= calls; ++call) {
        kit::FakeFile file;
        file.m_content = bytes;
        file.m_shortRead = call;
        file.m_shortBytes = 2;
        FileWindow window(file, bytes.size());
        DvFormat format;
        OpResult result = DvParser(window).parse(format);
        EXPECT_TRUE(kit::isWarning(result, MediaCode::ReadError)) << call;
        EXPECT_STREQ(result.getMessage(), "dv: the file can't be read");
        result.discard();
    }
}
