#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "services/buffer/obuf.h"
#include "shared/include/io/media_io_buf.h"
#include "shared/include/io/media_parser.h"

namespace {

// A segmented buffer of `pieces` pieces of `bytes` bytes, counting up from `first` through all of them.
phantom_OBUF* makeObuf(unsigned pieces, unsigned bytes, unsigned char first) {
    phantom_OBUF* whole = obufAllocate(0, 0);
    for (unsigned i = 0; i < pieces; ++i) {
        phantom_OBUF* piece = obufAllocate(0, bytes);
        std::vector<iovec> list(obufSegmentCount(piece));
        const int count = obufNTranslateHost(piece, list.data(), static_cast<int>(list.size()));
        for (int k = 0; k < count; ++k) {
            for (std::size_t n = 0; n < list[k].iov_len; ++n)
                static_cast<unsigned char*>(list[k].iov_base)[n] = first++;
        }
        EXPECT_NE(obufInsert(whole, piece, obufAppend), 0);
    }
    return whole;
}

bool readsOn(MediaParser& parser, unsigned char first, unsigned count) {
    for (unsigned i = 0; i < count; ++i) {
        if (parser.decodeByte() != static_cast<unsigned char>(first + i)) return false;
    }
    return true;
}

TEST(MediaParser, ReadsAFlatBufferInPlace) {
    MediaIoBuf buf;
    ASSERT_TRUE(buf.resize(100, MediaIoBuf::Preservation::Discard, MediaIoBuf::AllocChange::KeepForeign));
    for (unsigned i = 0; i < 100; ++i)
        buf.getMem()[i] = static_cast<unsigned char>(i + 5);
    MediaParser parser;
    EXPECT_TRUE(parser.setBuf(buf));
    EXPECT_EQ(parser.getUnparsedBytes(), 100U);
    buf.getMem()[99] = 104;
    EXPECT_TRUE(readsOn(parser, 5, 100));
    EXPECT_EQ(parser.getUnparsedBytes(), 0U);
}

TEST(MediaParser, TakesAnEmptyFlatBuffer) {
    MediaParser parser;
    EXPECT_TRUE(parser.setBuf(MediaIoBuf()));
    EXPECT_EQ(parser.getUnparsedBytes(), 0U);
}

TEST(MediaParser, SeesOnlyTheBytesInUse) {
    MediaIoBuf buf;
    ASSERT_TRUE(buf.resize(100, MediaIoBuf::Preservation::Discard, MediaIoBuf::AllocChange::KeepForeign));
    std::memset(buf.getMem(), 1, 100);
    ASSERT_TRUE(buf.resize(7, MediaIoBuf::Preservation::Discard, MediaIoBuf::AllocChange::KeepForeign));
    MediaParser parser;
    EXPECT_TRUE(parser.setBuf(buf));
    EXPECT_EQ(parser.getUnparsedBytes(), 7U);
}

TEST(MediaParser, ReadsTheSameStreamFromPieces) {
    phantom_OBUF* obuf = makeObuf(5, 33, 40);
    MediaParser parser;
    EXPECT_TRUE(parser.setObuf(obuf));
    EXPECT_EQ(parser.getUnparsedBytes(), 165U);
    EXPECT_TRUE(readsOn(parser, 40, 165));
    obufFree(obuf);
}

TEST(MediaParser, RefusesNullAndEmptySegmentedBuffers) {
    MediaIoBuf flat;
    ASSERT_TRUE(flat.resize(10, MediaIoBuf::Preservation::Discard, MediaIoBuf::AllocChange::KeepForeign));
    std::memset(flat.getMem(), 0, 10);
    MediaParser parser;
    EXPECT_TRUE(parser.setBuf(flat));
    EXPECT_FALSE(parser.setObuf(nullptr));
    EXPECT_EQ(parser.getUnparsedBytes(), 0U);

    EXPECT_TRUE(parser.setBuf(flat));
    phantom_OBUF* empty = obufAllocate(0, 0);
    EXPECT_FALSE(parser.setObuf(empty));
    EXPECT_EQ(parser.getUnparsedBytes(), 0U);
    obufFree(empty);
}

TEST(MediaParser, SeesAtMost128Pieces) {
    for (const unsigned pieces : {128U, 129U, 300U}) {
        phantom_OBUF* obuf = makeObuf(pieces, 3, 0);
        ASSERT_EQ(obufSegmentCount(obuf), pieces);
        MediaParser parser;
        EXPECT_TRUE(parser.setObuf(obuf));
        EXPECT_EQ(parser.getUnparsedBytes(), 128U * 3);
        EXPECT_TRUE(readsOn(parser, 0, 128 * 3));
        obufFree(obuf);
    }
}

TEST(MediaParser, MayBeUsedAgainOnAnotherBuffer) {
    phantom_OBUF* obuf = makeObuf(2, 8, 10);
    MediaParser parser;
    EXPECT_TRUE(parser.setObuf(obuf));
    EXPECT_TRUE(readsOn(parser, 10, 3));
    MediaIoBuf flat;
    ASSERT_TRUE(flat.resize(2, MediaIoBuf::Preservation::Discard, MediaIoBuf::AllocChange::KeepForeign));
    flat.getMem()[0] = 200;
    flat.getMem()[1] = 201;
    EXPECT_TRUE(parser.setBuf(flat));
    EXPECT_TRUE(readsOn(parser, 200, 2));
    EXPECT_EQ(parser.getUnparsedBytes(), 0U);
    obufFree(obuf);
}

}  // namespace
