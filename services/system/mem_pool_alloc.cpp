// The pool's blocks and what came back.
//
// - Each block is one piece of heap: its head, its chunk's head, and the chunk. Blocks live as long as the pool.
// - m_block is the newest block; the list ends in the built-in one, which has an empty chunk, so that the fast path
//   needs no test for "no block yet".
// - A piece that comes back is kept under its exact size; the last one given out goes back to its chunk.

#include "support/mem_pool_alloc.h"

#include <algorithm>
#include <cstddef>
#include <new>

#include "services/system/log.h"
#include "services/system/text.h"

namespace {

constexpr std::align_val_t s_pieceAlignment{32};

}  // namespace

MemPoolAlloc::MemPoolAlloc(unsigned int firstBlockSize, unsigned int nextBlockSize)
    : m_block(&m_emptyBlock),
      m_firstBlockSize(firstBlockSize),
      m_nextBlockSize(nextBlockSize),
      m_builtIn(&m_emptyBlock) {}

unsigned char* MemPoolAlloc::slowAlloc(unsigned int size, unsigned int attempt) {
    if (size == 0) return nullptr;
    // After a fault only a block that is new can be trusted.
    if (attempt == 0) {
        if (unsigned char* const piece = takeFreed(size)) return piece;
        if (unsigned char* const piece = takeFromOlderBlock(size)) return piece;
    }
    return addBlock(size) ? m_block->fastAlloc(this, size) : nullptr;
}

void MemPoolAlloc::slowFree(unsigned char* piece, unsigned int size) {
    const unsigned int given = quantizeUp(size);
    if (!piece || given == 0) return;
    Chunk& chunk = *m_block->m_chunk;
    if (piece == chunk.m_base + chunk.m_size) {
        chunk.m_size += given;
        m_block->m_free += given;
        return;
    }
    FreePiece** const list = findFreeList(given);
    FreePiece* const first = *list;
    *list = new (piece) FreePiece{first, first ? first->m_nextSize : nullptr, given};
}

unsigned char* MemPoolAlloc::badAlloc(Chunk* chunk, unsigned int size) {
    errorMsg("MemPoolAlloc@%p: chunk %p has only %u of %u bytes, dropped\n", static_cast<void*>(this),
             static_cast<void*>(chunk), chunk->m_size, size);
    debugBkpt();
    chunk->m_size = 0;
    return slowAlloc(size, 1);
}

// The link to the first piece of that size, or to the end of the list of sizes.
MemPoolAlloc::FreePiece** MemPoolAlloc::findFreeList(unsigned int size) {
    FreePiece** link = &m_freed;
    while (*link && (*link)->m_size != size)
        link = &(*link)->m_nextSize;
    return link;
}

unsigned char* MemPoolAlloc::takeFreed(unsigned int size) {
    FreePiece** const list = findFreeList(size);
    FreePiece* const piece = *list;
    if (!piece) return nullptr;
    FreePiece* const next = piece->m_nextSame;
    if (next) next->m_nextSize = piece->m_nextSize;
    *list = next ? next : piece->m_nextSize;
    return reinterpret_cast<unsigned char*>(piece);
}

unsigned char* MemPoolAlloc::takeFromOlderBlock(unsigned int size) {
    for (Block* block = m_block->m_next; block; block = block->m_next) {
        if (unsigned char* const piece = block->fastAlloc(this, size)) return piece;
    }
    return nullptr;
}

bool MemPoolAlloc::addBlock(unsigned int size) {
    constexpr std::size_t headSize = quantizeUp(sizeof(Block) + sizeof(Chunk));
    const unsigned int wanted = quantizeUp(m_block == m_builtIn ? m_firstBlockSize : m_nextBlockSize);
    const unsigned int chunkSize = std::max(wanted, size);
    void* const memory = ::operator new(headSize + chunkSize, s_pieceAlignment, std::nothrow);
    if (!memory) return false;

    unsigned char* const base = static_cast<unsigned char*>(memory);
    Chunk* const chunk = new (base + sizeof(Block)) Chunk{base + headSize, chunkSize};
    m_block = new (base) Block{chunkSize, m_block, chunk};
    return true;
}

void MemPoolAlloc::freeBlock(Block* block) { ::operator delete(block, s_pieceAlignment); }
