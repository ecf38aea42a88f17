#include "services/buffer/bit_chunk_parser.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <vector>

namespace {

// Bytes cut into pieces of their own heap memory, so that a read outside one is seen by the address sanitizer.
class Pieces {
public:
    Pieces(const std::vector<unsigned char>& bytes, const std::vector<unsigned>& lengths) {
        unsigned at = 0;
        for (const unsigned length : lengths)
            add(bytes, at, length), at += length;
    }
    unsigned count() const { return static_cast<unsigned>(m_list.size()); }
    simpleSgl_s* list() { return m_list.data(); }

private:
    void add(const std::vector<unsigned char>& bytes, unsigned at, unsigned length) {
        m_memory.emplace_back(new unsigned char[length]);
        if (length > 0) std::memcpy(m_memory.back().get(), bytes.data() + at, length);
        m_list.push_back({m_memory.back().get(), length});
    }

    std::vector<std::unique_ptr<unsigned char[]>> m_memory;
    std::vector<simpleSgl_s> m_list;
};

std::vector<unsigned char> countingBytes(unsigned count) {
    std::vector<unsigned char> bytes(count);
    for (unsigned i = 0; i < count; ++i)
        bytes[i] = static_cast<unsigned char>(i * 7 + 3);
    return bytes;
}

TEST(BitChunkParser, DecodesBytesAcrossPiecesOfEverySize) {
    const auto bytes = countingBytes(40);
    Pieces pieces(bytes, {1, 0, 2, 3, 0, 0, 9, 16, 1, 8});
    BitChunkParser parser;
    parser.setList(pieces.count(), pieces.list());
    for (unsigned i = 0; i < bytes.size(); ++i) {
        EXPECT_EQ(bytes.size() - i, parser.getUnparsedBytes());
        EXPECT_EQ(i, parser.getStreamPosition());
        ASSERT_EQ(bytes[i], parser.decodeByte());
        ASSERT_TRUE(parser.validate());
    }
    EXPECT_EQ(0u, parser.getUnparsedBytes());
    EXPECT_EQ(0u, parser.getPadBits());
}

TEST(BitChunkParser, DecodingPastTheEndGivesZerosAndCountsThem) {
    Pieces pieces({0xFF, 0xFF}, {2});
    BitChunkParser parser;
    parser.setList(pieces.count(), pieces.list());
    EXPECT_EQ(0xFFFF0000u, parser.decodeBits(32));
    EXPECT_EQ(16u, parser.getPadBits());
    EXPECT_EQ(0, parser.decodeByte());
    EXPECT_EQ(24u, parser.getPadBits());
    EXPECT_EQ(0u, parser.getUnparsedBytes());
    EXPECT_EQ(2u, parser.getStreamPosition());
}

TEST(BitChunkParser, EmptyParserGivesZerosOnly) {
    BitChunkParser parser;
    EXPECT_EQ(0u, parser.getUnparsedBytes());
    EXPECT_EQ(0, parser.decodeByte());
    EXPECT_EQ(8u, parser.getPadBits());
    Pieces pieces({1, 2, 3}, {3});
    parser.setList(3, nullptr);
    EXPECT_EQ(0u, parser.getUnparsedBytes());
    parser.setList(1, pieces.list());
    EXPECT_EQ(3u, parser.getUnparsedBytes());
    parser.setList(0, nullptr);
    EXPECT_EQ(0u, parser.getUnparsedBytes());
    EXPECT_EQ(0, parser.decodeByte());
}

TEST(BitChunkParser, PiecesWithoutMemoryAreSteppedOver) {
    unsigned char byte = 0x42;
    simpleSgl_s list[] = {{nullptr, 1000}, {&byte, 1}, {nullptr, 1}};
    BitChunkParser parser;
    parser.setList(3, list);
    EXPECT_EQ(1u, parser.getUnparsedBytes());
    EXPECT_EQ(0x42, parser.decodeByte());
    EXPECT_EQ(0, parser.decodeByte());
    EXPECT_TRUE(parser.validate());
}

TEST(BitChunkParser, AddZeroPadCountsEightBitsWhateverTheArgument) {
    BitChunkParser parser;
    parser.addZeroPad(0);
    EXPECT_EQ(8u, parser.getPadBits());
    parser.addZeroPad(1);
    parser.addZeroPad(1000);
    EXPECT_EQ(24u, parser.getPadBits());
}

TEST(BitChunkParser, ReloadWithoutPaddingLoadsOnlyWhatTheListHas) {
    Pieces pieces({1, 2}, {1, 1});
    BitChunkParser parser;
    parser.setList(pieces.count(), pieces.list());
    EXPECT_TRUE(parser.reloadSlow(16, false));
    EXPECT_FALSE(parser.reloadSlow(17, false));
    EXPECT_EQ(0u, parser.getPadBits());
    EXPECT_TRUE(parser.reloadSlow(17, true));
    EXPECT_EQ(8u, parser.getPadBits());
    EXPECT_FALSE(parser.reloadSlow(1000, true));
    EXPECT_EQ(0x0102u, parser.decodeBits(16));
    EXPECT_EQ(0u, parser.getUnparsedBytes());
}

TEST(BitChunkParser, RandomBitRunsMatchAPlainReader) {
    std::mt19937 random(7);
    for (int round = 0; round < 200; ++round) {
        const auto bytes = countingBytes(64);
        std::vector<unsigned> lengths;
        for (unsigned left = 64; left > 0;) {
            lengths.push_back(std::min(left, static_cast<unsigned>(random() % 12)));
            left -= lengths.back();
        }
        Pieces pieces(bytes, lengths);
        BitChunkParser parser;
        parser.setList(pieces.count(), pieces.list());
        unsigned at = 0;
        const auto plain = [&](unsigned count) {
            std::uint32_t value = 0;
            for (unsigned i = 0; i < count; ++i, ++at) {
                value = value << 1 | (at / 8 < bytes.size() ? bytes[at / 8] >> (7 - at % 8) & 1u : 0u);
            }
            return value;
        };
        while (at < 70 * 8) {
            const unsigned count = random() % 33;
            const std::uint32_t peeked = parser.peekBits(count);
            ASSERT_EQ(plain(count), peeked);
            ASSERT_EQ(peeked, parser.decodeBits(count));
            ASSERT_TRUE(parser.validate());
            ASSERT_EQ(at >= 512 ? 0 : 512 - at, parser.getUnparsedBits());
        }
    }
}

TEST(BitChunkParser, MoreThanThirtyTwoBitsAtOnceAreTakenForThirtyTwo) {
    Pieces pieces(countingBytes(16), {16});
    BitChunkParser parser;
    parser.setList(pieces.count(), pieces.list());
    const std::uint32_t first = parser.peekBits(4000000000u);
    EXPECT_EQ(first, parser.decodeBits(64));
    EXPECT_EQ(12u, parser.getUnparsedBytes());
}

TEST(BitChunkParser, AlignStepsToTheNextByte) {
    Pieces pieces({0xF0, 0x11, 0x22}, {3});
    BitChunkParser parser;
    parser.setList(pieces.count(), pieces.list());
    EXPECT_TRUE(parser.isByteAligned());
    parser.alignToByte();
    EXPECT_EQ(3u, parser.getUnparsedBytes());
    EXPECT_EQ(7u, parser.decodeBits(3));
    EXPECT_FALSE(parser.isByteAligned());
    EXPECT_EQ(0u, parser.getStreamPosition());
    EXPECT_EQ(2u, parser.getUnparsedBytes());
    parser.alignToByte();
    EXPECT_EQ(0x11, parser.decodeByte());
}

TEST(BitChunkParser, ResetGoesBackToTheHeadAndForgetsPadding) {
    Pieces pieces({1, 2, 3}, {2, 1});
    BitChunkParser parser;
    parser.setList(pieces.count(), pieces.list());
    parser.decodeBits(32);
    parser.reset(false);
    EXPECT_EQ(0u, parser.getPadBits());
    EXPECT_EQ(3u, parser.getUnparsedBytes());
    EXPECT_EQ(1, parser.decodeByte());
    parser.reset(true);
    EXPECT_EQ(0u, parser.getUnparsedBytes());
    EXPECT_TRUE(parser.validate());
}

TEST(BitChunkParser, ReserveAnswersWhetherTheBytesAreAtHand) {
    Pieces pieces({1, 2, 3}, {2, 1});
    BitChunkParser parser;
    parser.setList(pieces.count(), pieces.list());
    EXPECT_TRUE(parser.reserveInputBytes(3));
    EXPECT_FALSE(parser.reserveInputBytes(4));
    parser.decodeByte();
    EXPECT_FALSE(parser.reserveInputBytes(3));
    EXPECT_TRUE(parser.reserveInputBytes(2));
    EXPECT_TRUE(parser.reserveInputBytes(0));
}

TEST(BitChunkParser, SegmentOffsetsCountFromTheFileAndFromTheStream) {
    Pieces pieces(countingBytes(10), {4, 0, 6});
    BitChunkParser parser;
    parser.setList(pieces.count(), pieces.list());
    parser.setStreamOffset(1000);
    EXPECT_EQ(0u, parser.getSegFileOffset(0, false));
    EXPECT_EQ(4u, parser.getSegFileOffset(0, true));
    EXPECT_EQ(4u, parser.getSegFileOffset(1, true));
    EXPECT_EQ(4u, parser.getSegFileOffset(2, false));
    EXPECT_EQ(10u, parser.getSegFileOffset(2, true));
    EXPECT_EQ(10u, parser.getSegFileOffset(99, false));
    EXPECT_EQ(10u, parser.getSegFileOffset(99, true));
    EXPECT_EQ(1004u, parser.getSegStreamOffset(2, false));
    EXPECT_EQ(1000u, parser.getStreamPosition());
    parser.decodeByte();
    EXPECT_EQ(1001u, parser.getStreamPosition());
}

TEST(BitChunkParser, GarbageCollectDropsParsedPiecesAndKeepsOffsets) {
    const auto bytes = countingBytes(10);
    Pieces pieces(bytes, {2, 3, 5});
    BitChunkParser parser;
    parser.setList(pieces.count(), pieces.list());
    parser.setStreamOffset(100);
    EXPECT_EQ(0u, parser.garbageCollect());
    for (int i = 0; i < 6; ++i)
        parser.decodeByte();
    EXPECT_EQ(2u, parser.garbageCollect());
    EXPECT_TRUE(parser.validate());
    EXPECT_EQ(5u, parser.getSegFileOffset(0, false));
    EXPECT_EQ(110u, parser.getSegStreamOffset(0, true));
    EXPECT_EQ(106u, parser.getStreamPosition());
    EXPECT_EQ(bytes[6], parser.decodeByte());
    parser.reset(false);
    EXPECT_EQ(5u, parser.getUnparsedBytes());
    EXPECT_EQ(bytes[5], parser.decodeByte());
    parser.discard(100);
    EXPECT_EQ(1u, parser.garbageCollect());
    EXPECT_EQ(0u, parser.garbageCollect());
    EXPECT_TRUE(parser.validate());
}

TEST(BitChunkParser, GarbageCollectInTheMiddleOfAByteKeepsItsBits) {
    Pieces pieces({0xAB, 0xCD}, {1, 1});
    BitChunkParser parser;
    parser.setList(pieces.count(), pieces.list());
    EXPECT_EQ(0xAu, parser.decodeBits(4));
    EXPECT_EQ(1u, parser.garbageCollect());
    EXPECT_EQ(0xBCu, parser.decodeBits(8));
    EXPECT_EQ(0xDu, parser.decodeBits(4));
    EXPECT_EQ(0u, parser.getPadBits());
}

TEST(BitChunkParser, ExtractHandsBytesOverByReference) {
    const auto bytes = countingBytes(20);
    Pieces pieces(bytes, {3, 4, 0, 13});
    BitChunkParser parser, part;
    parser.setList(pieces.count(), pieces.list());
    parser.decodeByte();
    EXPECT_EQ(8u, parser.extract(part, 8));
    EXPECT_EQ(8u, part.getUnparsedBytes());
    for (unsigned i = 1; i <= 8; ++i)
        EXPECT_EQ(bytes[i], part.decodeByte());
    EXPECT_EQ(bytes[9], parser.decodeByte());
    EXPECT_EQ(10u, parser.extract(part, 1000));
    EXPECT_EQ(bytes[10], part.decodeByte());
    EXPECT_EQ(0u, parser.getUnparsedBytes());
    EXPECT_TRUE(part.validate());
}

TEST(BitChunkParser, ExtractBetweenBytesOrIntoItselfGivesNothing) {
    Pieces pieces(countingBytes(4), {4});
    BitChunkParser parser, part;
    parser.setList(pieces.count(), pieces.list());
    EXPECT_EQ(0u, parser.extract(parser, 2));
    parser.decodeBits(3);
    EXPECT_EQ(0u, parser.extract(part, 2));
    EXPECT_EQ(0u, part.getUnparsedBytes());
    EXPECT_EQ(3u, parser.getUnparsedBytes());
}

TEST(BitChunkParser, AppendFromTakesOnlyMemoryOfTheOther) {
    Pieces pieces(countingBytes(8), {8});
    Pieces own({9, 9}, {2});
    BitChunkParser parser, other;
    parser.setList(own.count(), own.list());
    other.setList(pieces.count(), pieces.list());
    simpleSgl_s* list = pieces.list();
    EXPECT_FALSE(parser.appendFrom(parser, 2, own.list()[0]));
    EXPECT_FALSE(parser.appendFrom(other, 4, {list[0].m_start + 6, 4}));
    unsigned char elsewhere[4] = {};
    EXPECT_FALSE(parser.appendFrom(other, 4, {elsewhere, 4}));
    EXPECT_TRUE(parser.appendFrom(other, 2, {list[0].m_start + 1, 7}));
    EXPECT_EQ(4u, parser.getUnparsedBytes());
    EXPECT_EQ(9, parser.decodeByte());
    EXPECT_EQ(9, parser.decodeByte());
    EXPECT_EQ(list[0].m_start[1], parser.decodeByte());
    EXPECT_EQ(list[0].m_start[2], parser.decodeByte());
}

TEST(BitChunkParser, AppendBehindPeekedPaddingTakesThePaddingBack) {
    Pieces pieces({0x55, 0x66}, {2});
    BitChunkParser source, parser;
    source.setList(pieces.count(), pieces.list());
    EXPECT_EQ(0u, parser.peekBits(8));
    EXPECT_EQ(8u, parser.getPadBits());
    EXPECT_EQ(2u, source.extract(parser, 2));
    EXPECT_EQ(0u, parser.getPadBits());
    EXPECT_EQ(0x5566u, parser.decodeBits(16));
}

TEST(BitChunkParser, ManyAppendsGrowTheList) {
    Pieces pieces(countingBytes(100), {100});
    BitChunkParser source, parser;
    for (int round = 0; round < 3; ++round) {
        source.setList(pieces.count(), pieces.list());
        parser.setList(0, nullptr);
        for (unsigned i = 0; i < 100; ++i) {
            ASSERT_EQ(1u, source.extract(parser, 1));
            if (i % 10 == 9) {
                parser.discard(5);
                parser.garbageCollect();
            }
            ASSERT_TRUE(parser.validate());
        }
        EXPECT_EQ(50u, parser.getUnparsedBytes());
        EXPECT_EQ(countingBytes(100)[50], parser.decodeByte());
    }
}

TEST(BitChunkParser, ExtractToCopiesAtAnyBitAndAnswersWhatThereWas) {
    const auto bytes = countingBytes(12);
    Pieces pieces(bytes, {5, 1, 6});
    BitChunkParser parser;
    parser.setList(pieces.count(), pieces.list());
    unsigned char memory[16];
    std::memset(memory, 0xEE, sizeof memory);
    parser.decodeByte();
    EXPECT_EQ(7u, parser.extractTo(memory, 7));
    EXPECT_EQ(0, std::memcmp(memory, bytes.data() + 1, 7));
    EXPECT_EQ(0xEE, memory[7]);
    parser.decodeBits(4);
    EXPECT_EQ(3u, parser.extractTo(memory, 16));
    EXPECT_EQ(static_cast<unsigned char>(bytes[8] << 4 | bytes[9] >> 4), memory[0]);
    EXPECT_EQ(0u, parser.extractTo(memory, 16));
    EXPECT_EQ(0u, parser.getPadBits());
}

TEST(BitChunkParser, DiscardStepsOverBytesAtAnyBit) {
    const auto bytes = countingBytes(20);
    Pieces pieces(bytes, {3, 3, 14});
    BitChunkParser parser;
    parser.setList(pieces.count(), pieces.list());
    EXPECT_EQ(4u, parser.discard(4));
    EXPECT_EQ(bytes[4], parser.decodeByte());
    parser.decodeBits(3);
    EXPECT_EQ(9u, parser.discard(9));
    EXPECT_EQ(bytes[14] & 0x1Fu, parser.decodeBits(5));
    EXPECT_EQ(5u, parser.discard(0xFFFFFFFFu));
    EXPECT_EQ(0u, parser.discard(1));
    EXPECT_TRUE(parser.validate());
}

TEST(BitChunkParser, PeekPieceShowsTheRestOfAPieceAndStays) {
    const auto bytes = countingBytes(40);
    Pieces pieces(bytes, {3, 0, 20, 17});
    BitChunkParser parser;
    parser.setList(pieces.count(), pieces.list());
    // Loaded bytes that nobody has parsed belong to it, also those of the piece before.
    for (unsigned at = 0; at < bytes.size(); ++at) {
        const unsigned end = at < 3 ? 3 : at < 23 ? 23 : 40;
        const simpleSgl_s piece = parser.peekPiece();
        ASSERT_EQ(end - at, piece.m_length);
        ASSERT_EQ(bytes[at], piece.m_start[0]);
        ASSERT_EQ(at, parser.getStreamPosition());
        ASSERT_TRUE(parser.validate());
        ASSERT_EQ(bytes[at], parser.decodeByte());
    }
    EXPECT_EQ(0u, parser.peekPiece().m_length);
    EXPECT_EQ(nullptr, parser.peekPiece().m_start);
}

TEST(BitChunkParser, PeekPieceShowsNothingBetweenBytes) {
    Pieces pieces(countingBytes(4), {4});
    BitChunkParser parser;
    parser.setList(pieces.count(), pieces.list());
    parser.decodeBits(3);
    EXPECT_EQ(0u, parser.peekPiece().m_length);
    parser.alignToByte();
    EXPECT_EQ(3u, parser.peekPiece().m_length);
}

TEST(BitChunkParser, MoveToNextPairSaysWhetherThereIsMoreToLoad) {
    Pieces pieces({1, 2}, {1, 0, 1});
    BitChunkParser parser;
    EXPECT_FALSE(parser.moveToNextPair());
    parser.setList(pieces.count(), pieces.list());
    EXPECT_TRUE(parser.moveToNextPair());
    EXPECT_EQ(1, parser.decodeByte());
    parser.decodeByte();
    EXPECT_FALSE(parser.moveToNextPair());
}

TEST(BitChunkParser, ValidateSeesAListThatChangedUnderTheParse) {
    Pieces pieces(countingBytes(8), {4, 4});
    BitChunkParser parser;
    parser.setList(pieces.count(), pieces.list());
    parser.decodeByte();
    EXPECT_TRUE(parser.validate());
    pieces.list()[1].m_length = 3;
    EXPECT_FALSE(parser.validate());
}

}  // namespace
