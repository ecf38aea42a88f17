#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "services/buffer/obuf.h"
#include "services/system/short_lock.h"
#include "support/thread_annotations.h"
#include "support/visibility.h"

// What the buffers of the process hold at this moment.
struct ObufStats {
    unsigned long long m_liveBlocks = 0;  // blocks in buffers, each counted once however many references share it
    unsigned long long m_liveBytes = 0;   // capacity of those
    unsigned long long m_idleBlocks = 0;  // blocks kept for the next buffer
    unsigned long long m_idleBytes = 0;
    unsigned long long m_liveNodes = 0;  // references beyond a block's own, and pieces beyond a reference's own
    unsigned long long m_mappings = 0;   // times that memory was asked of the system since the start
};

MO_PUBLIC ObufStats obufStats();
// Gives all idle memory back to the system.
MO_PUBLIC void obufTrim();
// Bytes that each pool may keep idle. Takes effect as buffers come back.
MO_PUBLIC void obufSetIdleLimit(unsigned long long bytes);
// Bytes that all buffers together may take of the system, idle ones included; 0 is without limit.
MO_PUBLIC void obufSetMemoryLimit(unsigned long long bytes);
// The first byte of the first piece, null when there is none. A buffer fresh from `obufAllocate` is one piece.
MO_PUBLIC unsigned char* obufFirstByte(const phantom_OBUF* buf);

namespace ObufDetail {

struct Block;
class Pool;

// A run of bytes of one block. It counts as one user of the block.
struct Piece {
    Block* m_block;
    unsigned char* m_data;
    unsigned m_length;
    Piece* m_next;
};

}  // namespace ObufDetail

// One reference: a list of pieces with its sums. The first piece lies in the record itself where possible, so that an
// everyday buffer is one block and nothing else.
struct phantom_OBUF {
    ObufDetail::Piece* m_first;
    ObufDetail::Piece* m_last;
    unsigned m_size;            // bytes in all pieces
    unsigned m_count;           // pieces
    ObufDetail::Block* m_home;  // the block that this record is part of, null for one from the record pool
    ObufDetail::Piece m_inline;
};

namespace ObufDetail {

// A page-aligned stretch of memory with the record of the buffer that it was allocated for.
// Lives until its users are gone: the pieces that show its bytes, and the record while it is a buffer's.
struct Block {
    std::atomic<unsigned> m_users;
    unsigned m_class;        // size class, or s_unpooled
    std::size_t m_capacity;  // bytes
    unsigned char* m_memory;
    Pool* m_pool;
    Block* m_next;  // in a free list
    phantom_OBUF m_record;
};

// Free list of small records that come by chunks and stay for the life of the process: their number is that of the
// busiest moment.
template <class T>
class RecordPool {
public:
    // Gives: an uninitialised record, or null when memory doesn't come.
    T* get();
    void put(T* record);
    unsigned long long liveCount();

private:
    static constexpr unsigned s_chunk = 64;
    union Cell {
        Cell* m_next;
        alignas(T) unsigned char m_bytes[sizeof(T)];
    };
    struct Chunk {
        Chunk* m_next;
        Cell m_cells[s_chunk];
    };
    bool grow() MO_REQUIRES(m_lock);

    ShortLock m_lock;
    Cell* m_free MO_GUARDED_BY(m_lock) = nullptr;
    Chunk* m_chunks MO_GUARDED_BY(m_lock) = nullptr;  // keeps the chunks reachable for leak checkers
    unsigned long long m_live MO_GUARDED_BY(m_lock) = 0;
};

// The blocks of one allocation class, idle ones by size class.
// **Threads:** any. **Locks:** m_lock, a leaf; the system is asked for memory outside it.
class Pool {
public:
    static constexpr unsigned s_classes = 48;          // 4 KiB to 32 MiB, four steps a doubling
    static constexpr unsigned s_unpooled = s_classes;  // larger blocks go straight back to the system

    // Gives: a block of at least `size` bytes with 2 users, the record and its first piece; null when memory doesn't
    // come.
    Block* get(unsigned size);
    // Takes a block that nobody uses any more.
    void put(Block* block);
    void trim();
    void addTo(ObufStats& stats);

    static unsigned classOf(unsigned size);
    static std::size_t capacityOf(unsigned sizeClass);

private:
    Block* takeIdle(unsigned sizeClass);
    Block* map(unsigned sizeClass, unsigned size);
    static void unmap(Block* block);

    ShortLock m_lock;
    Block* m_idle[s_classes] MO_GUARDED_BY(m_lock) = {};
    unsigned long long m_idleBytes MO_GUARDED_BY(m_lock) = 0;
    unsigned long long m_idleBlocks MO_GUARDED_BY(m_lock) = 0;
    unsigned long long m_liveBytes MO_GUARDED_BY(m_lock) = 0;
    unsigned long long m_liveBlocks MO_GUARDED_BY(m_lock) = 0;
};

// The pool of an allocation class. Classes beyond the first 63 different ones share a pool.
Pool& poolOf(phantom_obAllocationId_t id);
RecordPool<phantom_OBUF>& records();
RecordPool<Piece>& pieces();

}  // namespace ObufDetail
