#pragma once

#include "support/visibility.h"

// A pool of pieces of memory for one purpose, all of them multiples of 32 bytes and aligned so. Pieces that come back
// are kept for the next request of their size: in steady state nothing is asked of the heap.
// **Locks:** none; the owner's lock guards the pool.
// **Owns:** its blocks, until it goes.
class MO_PUBLIC MemPoolAlloc {
public:
    // Sizes in bytes of the first block, which is made on first use, and of the ones behind it.
    MemPoolAlloc(unsigned int firstBlockSize, unsigned int nextBlockSize);
    MemPoolAlloc(const MemPoolAlloc&) = delete;
    MemPoolAlloc& operator=(const MemPoolAlloc&) = delete;

    // Requires: nothing of the pool is in use any more.
    ~MemPoolAlloc() {
        checkLists(true);
        while (m_block) {
            Block* const block = m_block;
            m_block = block->m_next;
            if (block != m_builtIn) freeBlock(block);
        }
    }

    // A piece of at least that size, or null for a size of 0 and when memory doesn't come.
    unsigned char* alloc(unsigned int size) {
        incAlloc();
        const unsigned int needed = quantizeUp(size);
        unsigned char* piece = m_block->fastAlloc(this, needed);
        if (!piece) piece = slowAlloc(needed, 0);
        checkLists(true);
        return piece;
    }

    // Takes: a piece of this pool, with the size that it was asked for. Null is left alone.
    void free(unsigned char* piece, unsigned int size) {
        slowFree(piece, size);
        checkLists(true);
    }

    // Up to the next multiple of 32. A size whose multiple doesn't fit into 32 bits comes to 0, which nobody gets.
    static constexpr unsigned int quantizeUp(unsigned int size) {
        unsigned int sum = 0;
        static_cast<void>(__builtin_add_overflow(size, 31u, &sum));
        return sum & ~31u;
    }

protected:
    // A stretch of memory that is given out from its top downwards.
    struct Chunk {
        unsigned char* m_base;
        unsigned int m_size;  // bytes left

        unsigned char* alloc(MemPoolAlloc* pool, unsigned int size) {
            if (m_size < size) return pool->badAlloc(this, size);
            m_size -= size;
            traceAlloc(pool, size);
            return m_base + m_size;
        }
        void traceAlloc(MemPoolAlloc*, unsigned int) {}
    };

    // What is asked of the heap at a time.
    struct Block {
        unsigned int m_free;  // bytes free in all its chunks
        Block* m_next;
        Chunk* m_chunk;  // the one in use

        // Null for a size of 0, and if the chunk has too little left.
        unsigned char* fastAlloc(MemPoolAlloc* pool, unsigned int size) {
            if (size == 0 || size > m_chunk->m_size) return nullptr;
            m_free -= size;
            return m_chunk->alloc(pool, size);
        }
    };

    // A piece of a multiple of 32 bytes when the current block has none: from what came back, from an older block, or
    // from a new one. The attempt is 0 for a request, and more for one that comes back after a fault.
    unsigned char* slowAlloc(unsigned int size, unsigned int attempt);
    // Takes a piece back, with the size that it was asked for.
    void slowFree(unsigned char* piece, unsigned int size);
    // Reports a chunk that has less than its block believed, takes it out of use, and serves the request elsewhere.
    unsigned char* badAlloc(Chunk* chunk, unsigned int size);

private:
    // A piece that came back. Lists of one size hang on each other by their first pieces.
    struct FreePiece {
        FreePiece* m_nextSame;
        FreePiece* m_nextSize;
        unsigned int m_size;
    };
    static_assert(sizeof(FreePiece) <= 32, "a free piece must fit into the smallest one");

    // Places for checks and statistics of a debugging build; empty here.
    void incAlloc() {}
    void checkLists(bool) {}

    FreePiece** findFreeList(unsigned int size);
    unsigned char* takeFreed(unsigned int size);
    unsigned char* takeFromOlderBlock(unsigned int size);
    bool addBlock(unsigned int size);
    static void freeBlock(Block* block);

    Block* m_block;  // the current one, head of the list; never null
    const unsigned int m_firstBlockSize;
    const unsigned int m_nextBlockSize;
    FreePiece* m_freed = nullptr;
    Block* const m_builtIn;  // address of m_emptyBlock: end of the list, which has nothing to give
    Chunk m_emptyChunk{nullptr, 0};
    Block m_emptyBlock{0, nullptr, &m_emptyChunk};
};
