#include "support/mem_pool_alloc.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <map>
#include <random>
#include <set>
#include <vector>

#include "tests/unit/support/captured_log.h"

namespace {

// Opens what derived pools may see.
class OpenPool : public MemPoolAlloc {
public:
    using MemPoolAlloc::Block;
    using MemPoolAlloc::Chunk;
    using MemPoolAlloc::MemPoolAlloc;
    using MemPoolAlloc::slowAlloc;
};

bool isAligned(const unsigned char* piece) { return reinterpret_cast<std::uintptr_t>(piece) % 32 == 0; }

}  // namespace

TEST(MemPoolAlloc, SizesGoUpToMultiplesOf32) {
    EXPECT_EQ(MemPoolAlloc::quantizeUp(0), 0u);
    EXPECT_EQ(MemPoolAlloc::quantizeUp(1), 32u);
    EXPECT_EQ(MemPoolAlloc::quantizeUp(31), 32u);
    EXPECT_EQ(MemPoolAlloc::quantizeUp(32), 32u);
    EXPECT_EQ(MemPoolAlloc::quantizeUp(33), 64u);
}

TEST(MemPoolAlloc, GivesOutDownwardsFromTheTopOfABlock) {
    MemPoolAlloc pool(320, 320);
    unsigned char* before = pool.alloc(20);
    ASSERT_NE(before, nullptr);
    EXPECT_TRUE(isAligned(before));
    for (int i = 0; i < 9; ++i) {
        unsigned char* const piece = pool.alloc(32);
        EXPECT_EQ(piece, before - 32);
        before = piece;
    }
}

TEST(MemPoolAlloc, PiecesThatComeBackAreUsedAgain) {
    // Fifteen pieces a block: three blocks hold the forty, and five more.
    MemPoolAlloc pool(4864, 4864);
    std::vector<unsigned char*> pieces;
    std::set<unsigned char*> known;
    for (int i = 0; i < 40; ++i) {
        pieces.push_back(pool.alloc(304));
        ASSERT_NE(pieces.back(), nullptr);
        known.insert(pieces.back());
    }
    EXPECT_EQ(known.size(), 40u);
    for (int round = 0; round < 100; ++round) {
        for (unsigned char* const piece : pieces)
            pool.free(piece, 304);
        for (unsigned char*& piece : pieces) {
            piece = pool.alloc(304);
            known.insert(piece);
        }
        EXPECT_EQ(std::set<unsigned char*>(pieces.begin(), pieces.end()).size(), 40u);
    }
    EXPECT_LE(known.size(), 45u);
}

TEST(MemPoolAlloc, SizesAreKeptApart) {
    MemPoolAlloc pool(256, 256);
    unsigned char* const small = pool.alloc(32);
    unsigned char* const large = pool.alloc(96);
    unsigned char* const rest = pool.alloc(128);
    pool.free(small, 32);
    pool.free(large, 96);
    EXPECT_EQ(pool.alloc(70), large);
    EXPECT_EQ(pool.alloc(1), small);
    EXPECT_NE(rest, nullptr);
}

TEST(MemPoolAlloc, LastPieceGoesBackToItsChunk) {
    MemPoolAlloc pool(128, 128);
    unsigned char* const piece = pool.alloc(64);
    pool.free(piece, 64);
    EXPECT_EQ(pool.alloc(128), piece - 64);
}

TEST(MemPoolAlloc, RequestBeyondTheBlockSizeGetsABlockOfItsOwn) {
    MemPoolAlloc pool(64, 64);
    unsigned char* const piece = pool.alloc(100000);
    ASSERT_NE(piece, nullptr);
    std::memset(piece, 1, 100000);
    pool.free(piece, 100000);
    EXPECT_EQ(pool.alloc(100000), piece);
}

TEST(MemPoolAlloc, OlderBlockServesWhatStillFits) {
    MemPoolAlloc pool(128, 128);
    unsigned char* const first = pool.alloc(64);
    pool.alloc(128);
    EXPECT_EQ(pool.alloc(64), first - 64);
}

TEST(MemPoolAlloc, NothingAndMoreThan32BitsHoldGetNull) {
    MemPoolAlloc pool(128, 128);
    EXPECT_EQ(pool.alloc(0), nullptr);
    EXPECT_NE(pool.alloc(32), nullptr);
    EXPECT_EQ(pool.alloc(0), nullptr);
    EXPECT_EQ(pool.alloc(0xFFFFFFFF), nullptr);
    pool.free(nullptr, 32);
    EXPECT_NE(pool.alloc(32), nullptr);
}

TEST(MemPoolAlloc, ChunkWithTooLittleIsReportedAndServedElsewhere) {
    const CapturedLog log;
    OpenPool pool(128, 128);
    unsigned char memory[64];
    OpenPool::Chunk chunk{memory, 32};
    unsigned char* const piece = chunk.alloc(&pool, 64);
    ASSERT_NE(piece, nullptr);
    std::memset(piece, 1, 64);
    EXPECT_EQ(chunk.m_size, 0u);
    EXPECT_EQ(log.count(LogLevel::Error, "has only 32 of 64 bytes"), 1);
}

TEST(MemPoolAlloc, BlockKeepsCountOfItsFreeBytes) {
    OpenPool pool(128, 128);
    unsigned char memory[96];
    OpenPool::Chunk chunk{memory, 96};
    OpenPool::Block block{96, nullptr, &chunk};
    EXPECT_EQ(block.fastAlloc(&pool, 64), memory + 32);
    EXPECT_EQ(block.m_free, 32u);
    EXPECT_EQ(chunk.m_size, 32u);
    EXPECT_EQ(block.fastAlloc(&pool, 64), nullptr);
    EXPECT_EQ(block.fastAlloc(&pool, 0), nullptr);
    EXPECT_EQ(block.m_free, 32u);
    EXPECT_EQ(block.fastAlloc(&pool, 32), memory);
}

TEST(MemPoolAlloc, RandomUseNeverGivesOutOverlappingPieces) {
    MemPoolAlloc pool(1024, 2048);
    std::mt19937 random(1);
    struct Piece {
        unsigned int m_size;
        unsigned char m_fill;
    };
    std::map<unsigned char*, Piece> live;
    for (int i = 0; i < 20000; ++i) {
        if (live.size() < 100 && random() % 2 == 0) {
            const Piece piece = {1 + static_cast<unsigned int>(random() % 700), static_cast<unsigned char>(random())};
            unsigned char* const memory = pool.alloc(piece.m_size);
            ASSERT_NE(memory, nullptr);
            ASSERT_TRUE(isAligned(memory));
            ASSERT_TRUE(live.emplace(memory, piece).second);
            std::memset(memory, piece.m_fill, piece.m_size);
        } else if (!live.empty()) {
            auto it = live.begin();
            std::advance(it, static_cast<int>(random() % live.size()));
            for (unsigned int k = 0; k < it->second.m_size; ++k)
                ASSERT_EQ(it->first[k], it->second.m_fill);
            pool.free(it->first, it->second.m_size);
            live.erase(it);
        }
    }
}
