#include "services/buffer/obuf.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "services/buffer/obuf_pool.h"

namespace {

phantom_OBUF* bufferOf(const std::string& text, phantom_obAllocationId_t id = 0) {
    phantom_OBUF* buf = obufAllocate(id, static_cast<unsigned>(text.size()));
    if (!text.empty()) std::memcpy(obufFirstByte(buf), text.data(), text.size());
    return buf;
}

std::string textOf(const phantom_OBUF* buf) {
    std::vector<iovec> pieces(obufSegmentCount(buf));
    const int count = obufNTranslateHost(buf, pieces.data(), static_cast<int>(pieces.size()));
    std::string text;
    for (int i = 0; i < count; ++i)
        text.append(static_cast<const char*>(pieces[static_cast<unsigned>(i)].iov_base),
                    pieces[static_cast<unsigned>(i)].iov_len);
    return text;
}

// Nothing of a test may stay behind.
class Obuf : public testing::Test {
protected:
    void SetUp() override { m_before = obufStats(); }
    void TearDown() override {
        const ObufStats after = obufStats();
        EXPECT_EQ(m_before.m_liveBlocks, after.m_liveBlocks);
        EXPECT_EQ(m_before.m_liveBytes, after.m_liveBytes);
        EXPECT_EQ(m_before.m_liveNodes, after.m_liveNodes);
    }

    ObufStats m_before;
};

TEST_F(Obuf, FreshBufferIsOnePageAlignedPieceOfItsSize) {
    for (const unsigned size : {1u, 4096u, 4097u, 100000u, 1u << 20, 9u << 20}) {
        phantom_OBUF* buf = obufAllocate(0, size);
        ASSERT_NE(nullptr, buf);
        iovec piece{};
        EXPECT_EQ(size, obufSize(buf));
        EXPECT_EQ(1u, obufSegmentCount(buf));
        ASSERT_EQ(1, obufNTranslateHost(buf, &piece, 1));
        EXPECT_EQ(size, piece.iov_len);
        EXPECT_EQ(0u, reinterpret_cast<std::uintptr_t>(piece.iov_base) % 4096);
        std::memset(piece.iov_base, 0xA5, size);
        obufFree(buf);
    }
}

TEST_F(Obuf, SizeZeroIsAnEmptyBuffer) {
    phantom_OBUF* buf = obufAllocate(0, 0);
    ASSERT_NE(nullptr, buf);
    EXPECT_EQ(0u, obufSize(buf));
    EXPECT_EQ(0u, obufSegmentCount(buf));
    EXPECT_EQ(nullptr, obufFirstByte(buf));
    iovec piece{};
    EXPECT_EQ(0, obufNTranslateHost(buf, &piece, 1));
    obufFree(buf);
}

TEST_F(Obuf, NullIsAnEmptyBufferThatNobodyOwns) {
    obufFree(nullptr);
    EXPECT_EQ(nullptr, obufDup(nullptr));
    EXPECT_EQ(0u, obufSize(nullptr));
    EXPECT_EQ(0u, obufSegmentCount(nullptr));
    iovec piece{};
    EXPECT_EQ(0, obufNTranslateHost(nullptr, &piece, 1));
    phantom_OBUF* buf = bufferOf("x");
    EXPECT_EQ(0, obufInsert(buf, nullptr, 0));
    EXPECT_EQ(0, obufInsert(nullptr, buf, 0));
    EXPECT_EQ("x", textOf(buf));
    obufFree(buf);
}

TEST_F(Obuf, AppendSplicesWithoutCopying) {
    phantom_OBUF* first = bufferOf("first ");
    phantom_OBUF* second = bufferOf("second");
    const unsigned char* bytes = obufFirstByte(second);
    EXPECT_EQ(1, obufInsert(first, second, 0xFFFFFFFF));
    EXPECT_EQ("first second", textOf(first));
    EXPECT_EQ(12u, obufSize(first));
    ASSERT_EQ(2u, obufSegmentCount(first));
    iovec pieces[2];
    ASSERT_EQ(2, obufNTranslateHost(first, pieces, 2));
    EXPECT_EQ(bytes, pieces[1].iov_base);
    obufFree(first);
}

TEST_F(Obuf, TranslateStopsAtTheGivenNumberOfPieces) {
    phantom_OBUF* buf = bufferOf("a");
    for (int i = 0; i < 5; ++i)
        ASSERT_EQ(1, obufInsert(buf, bufferOf("b"), obufAppend));
    iovec pieces[6];
    EXPECT_EQ(3, obufNTranslateHost(buf, pieces, 3));
    EXPECT_EQ(6, obufNTranslateHost(buf, pieces, 6));
    EXPECT_EQ(0, obufNTranslateHost(buf, pieces, 0));
    obufFree(buf);
}

TEST_F(Obuf, InsertInTheMiddleSplitsAPieceAndSharesItsBytes) {
    phantom_OBUF* buf = bufferOf("abcdef");
    const unsigned char* bytes = obufFirstByte(buf);
    ASSERT_EQ(1, obufInsert(buf, bufferOf("--"), 2));
    EXPECT_EQ("ab--cdef", textOf(buf));
    iovec pieces[3];
    ASSERT_EQ(3, obufNTranslateHost(buf, pieces, 3));
    EXPECT_EQ(bytes, pieces[0].iov_base);
    EXPECT_EQ(bytes + 2, pieces[2].iov_base);
    obufFree(buf);
}

TEST_F(Obuf, InsertAtFrontAndEndNeedsNoSplit) {
    phantom_OBUF* buf = bufferOf("mid");
    ASSERT_EQ(1, obufInsert(buf, bufferOf("<"), 0));
    ASSERT_EQ(1, obufInsert(buf, bufferOf(">"), 4));
    EXPECT_EQ("<mid>", textOf(buf));
    EXPECT_EQ(3u, obufSegmentCount(buf));
    obufFree(buf);
}

TEST_F(Obuf, FailedInsertLeavesBothBuffersAlone) {
    phantom_OBUF* buf = bufferOf("abc");
    phantom_OBUF* other = bufferOf("xyz");
    EXPECT_EQ(0, obufInsert(buf, other, 4));
    EXPECT_EQ(0, obufInsert(buf, buf, obufAppend));
    EXPECT_EQ("abc", textOf(buf));
    EXPECT_EQ("xyz", textOf(other));
    obufFree(buf);
    obufFree(other);
}

TEST_F(Obuf, SizesThatPassThirtyTwoBitsAreRefused) {
    phantom_OBUF* huge = obufAllocate(0, 0x90000000u);
    phantom_OBUF* more = obufAllocate(0, 0x90000000u);
    if (huge != nullptr && more != nullptr) {
        EXPECT_EQ(0, obufInsert(huge, more, obufAppend));
        EXPECT_EQ(0x90000000u, obufSize(huge));
        EXPECT_EQ(0x90000000u, obufSize(more));
    }
    obufFree(huge);
    obufFree(more);
}

TEST_F(Obuf, InsertOfAnEmptyBufferTakesItAndChangesNothing) {
    phantom_OBUF* buf = bufferOf("abc");
    EXPECT_EQ(1, obufInsert(buf, obufAllocate(0, 0), 1));
    EXPECT_EQ("abc", textOf(buf));
    EXPECT_EQ(1u, obufSegmentCount(buf));
    phantom_OBUF* empty = obufAllocate(0, 0);
    EXPECT_EQ(1, obufInsert(empty, buf, obufAppend));
    EXPECT_EQ("abc", textOf(empty));
    obufFree(empty);
}

TEST_F(Obuf, DuplicateSharesTheBytesAndOutlivesTheFirst) {
    phantom_OBUF* buf = bufferOf("shared");
    phantom_OBUF* dup = obufDup(buf);
    EXPECT_EQ(obufFirstByte(buf), obufFirstByte(dup));
    ASSERT_EQ(1, obufInsert(buf, bufferOf("-"), 3));
    EXPECT_EQ("sha-red", textOf(buf));
    EXPECT_EQ("shared", textOf(dup));
    obufFree(buf);
    EXPECT_EQ("shared", textOf(dup));
    phantom_OBUF* third = obufDup(dup);
    obufFree(dup);
    EXPECT_EQ("shared", textOf(third));
    obufFree(third);
}

TEST_F(Obuf, DuplicateInsertedIntoItsOriginKeepsTheBlockUntilTheEnd) {
    phantom_OBUF* buf = bufferOf("ab");
    ASSERT_EQ(1, obufInsert(buf, obufDup(buf), 1));
    EXPECT_EQ("aabb", textOf(buf));
    obufFree(buf);
}

TEST_F(Obuf, SourceRecordThatLivesInItsBlockIsGivenUpBySplice) {
    phantom_OBUF* host = bufferOf("host");
    phantom_OBUF* guest = bufferOf("guest");
    ASSERT_EQ(1, obufInsert(host, guest, 2));
    phantom_OBUF* dup = obufDup(host);
    obufFree(host);
    EXPECT_EQ("hoguestst", textOf(dup));
    obufFree(dup);
}

TEST_F(Obuf, RandomEditsMatchAText) {
    std::mt19937 random(20260807);
    for (int round = 0; round < 50; ++round) {
        std::string expected = "0123456789";
        phantom_OBUF* buf = bufferOf(expected);
        for (int edit = 0; edit < 40; ++edit) {
            const auto at = static_cast<unsigned>(random() % (expected.size() + 1));
            const bool self = random() % 4 == 0 && expected.size() < 4000;
            const std::string added = self ? expected : std::string(random() % 7, static_cast<char>('a' + edit % 26));
            phantom_OBUF* source = self ? obufDup(buf) : bufferOf(added, static_cast<unsigned>(random() % 3));
            ASSERT_EQ(1, obufInsert(buf, source, at));
            expected.insert(at, added);
        }
        EXPECT_EQ(expected.size(), obufSize(buf));
        EXPECT_EQ(expected, textOf(buf));
        obufFree(buf);
    }
}

TEST_F(Obuf, ReferencesToSharedBytesMayBeDroppedOnManyThreads) {
    for (int round = 0; round < 20; ++round) {
        phantom_OBUF* buf = bufferOf("many");
        ASSERT_EQ(1, obufInsert(buf, bufferOf("threads"), obufAppend));
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([mine = obufDup(buf)] {
                for (int k = 0; k < 500; ++k) {
                    phantom_OBUF* copy = obufDup(mine);
                    ASSERT_EQ(1, obufInsert(copy, obufAllocate(0, 4096), obufAppend));
                    obufFree(copy);
                }
                EXPECT_EQ("manythreads", textOf(mine));
                obufFree(mine);
            });
        }
        obufFree(buf);
        for (std::thread& thread : threads)
            thread.join();
    }
}

}  // namespace
