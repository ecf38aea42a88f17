#include "services/buffer/obuf_pool.h"

#include <sys/mman.h>

#include <algorithm>
#include <bit>
#include <new>

#if defined(__SANITIZE_ADDRESS__)
#define MO_POISON_BUFFERS 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define MO_POISON_BUFFERS 1
#endif
#endif
#ifdef MO_POISON_BUFFERS
#include <sanitizer/asan_interface.h>
#endif

namespace {

using ObufDetail::Block;
using ObufDetail::Piece;
using ObufDetail::Pool;
using ObufDetail::RecordPool;

constexpr std::size_t s_page = 4096;
constexpr unsigned s_pools = 64;
constexpr unsigned long long s_defaultIdleLimit = 64ull << 20;

// Everything that buffers share. Never destroyed: buffers may outlive the statics of their holders.
struct Shared {
    Pool m_pools[s_pools];                           // the first is the everyday class
    std::atomic<std::uint64_t> m_ids[s_pools] = {};  // class of each further pool plus 1, 0 while it is free
    RecordPool<phantom_OBUF> m_records;
    RecordPool<Piece> m_pieces;
    RecordPool<Block> m_blocks;
    std::atomic<unsigned long long> m_idleLimit{s_defaultIdleLimit};
    std::atomic<unsigned long long> m_memoryLimit{0};
    std::atomic<unsigned long long> m_mappedBytes{0};
    std::atomic<unsigned long long> m_mappings{0};
};

Shared& shared() {
    static Shared* const all = new Shared;
    return *all;
}

// Under the address sanitizer idle memory and the rest behind a buffer's size are out of bounds.
void showBytes(const Block& block, unsigned size) {
#ifdef MO_POISON_BUFFERS
    ASAN_POISON_MEMORY_REGION(block.m_memory, block.m_capacity);
    ASAN_UNPOISON_MEMORY_REGION(block.m_memory, size);
#else
    static_cast<void>(block);
    static_cast<void>(size);
#endif
}

bool chargeMapping(std::size_t bytes) {
    Shared& all = shared();
    const unsigned long long limit = all.m_memoryLimit.load(std::memory_order_relaxed);
    const unsigned long long now = all.m_mappedBytes.fetch_add(bytes, std::memory_order_relaxed) + bytes;
    if (limit == 0 || now <= limit) return true;
    all.m_mappedBytes.fetch_sub(bytes, std::memory_order_relaxed);
    return false;
}

void dischargeMapping(std::size_t bytes) { shared().m_mappedBytes.fetch_sub(bytes, std::memory_order_relaxed); }

}  // namespace

namespace ObufDetail {

template <class T>
T* RecordPool<T>::get() {
    const ShortScope scope(m_lock);
    if (m_free == nullptr && !grow()) return nullptr;
    Cell* cell = m_free;
    m_free = cell->m_next;
    ++m_live;
    return reinterpret_cast<T*>(cell->m_bytes);
}

template <class T>
void RecordPool<T>::put(T* record) {
    Cell* cell = reinterpret_cast<Cell*>(record);
    const ShortScope scope(m_lock);
    cell->m_next = m_free;
    m_free = cell;
    --m_live;
}

template <class T>
unsigned long long RecordPool<T>::liveCount() {
    const ShortScope scope(m_lock);
    return m_live;
}

template <class T>
bool RecordPool<T>::grow() {
    auto* chunk = new (std::nothrow) Chunk;
    if (chunk == nullptr) return false;
    chunk->m_next = m_chunks;
    m_chunks = chunk;
    for (Cell& cell : chunk->m_cells) {
        cell.m_next = m_free;
        m_free = &cell;
    }
    return true;
}

template class RecordPool<phantom_OBUF>;
template class RecordPool<Piece>;
template class RecordPool<Block>;

// 4, 8, 12, 16 KiB, and then four even steps to each doubling.
unsigned Pool::classOf(unsigned size) {
    const std::size_t pages = (std::max<std::size_t>(size, 1) + s_page - 1) / s_page;
    if (pages <= 4) return static_cast<unsigned>(pages - 1);
    const unsigned doubling = std::bit_width(pages - 1) - 1;  // pages lie in (1 << doubling, 2 << doubling]
    const std::size_t step = std::size_t{1} << (doubling - 2);
    const std::size_t steps = (pages - (std::size_t{1} << doubling) + step - 1) / step;
    return std::min(static_cast<unsigned>((doubling - 2) * 4 + 3 + steps), s_unpooled);
}

std::size_t Pool::capacityOf(unsigned sizeClass) {
    if (sizeClass < 4) return (sizeClass + 1) * s_page;
    const unsigned doubling = (sizeClass - 4) / 4 + 2;
    const unsigned steps = (sizeClass - 4) % 4 + 1;
    return ((std::size_t{1} << doubling) + steps * (std::size_t{1} << (doubling - 2))) * s_page;
}

Block* Pool::get(unsigned size) {
    const unsigned sizeClass = classOf(size);
    Block* block = sizeClass < s_unpooled ? takeIdle(sizeClass) : nullptr;
    if (block == nullptr) block = map(sizeClass, size);
    if (block == nullptr) return nullptr;
    block->m_users.store(2, std::memory_order_relaxed);
    showBytes(*block, size);
    return block;
}

void Pool::put(Block* block) {
    showBytes(*block, 0);
    {
        const ShortScope scope(m_lock);
        --m_liveBlocks;
        m_liveBytes -= block->m_capacity;
        const unsigned long long idle = m_idleBytes + block->m_capacity;
        if (block->m_class < s_unpooled && idle <= shared().m_idleLimit.load(std::memory_order_relaxed)) {
            block->m_next = m_idle[block->m_class];
            m_idle[block->m_class] = block;
            m_idleBytes = idle;
            ++m_idleBlocks;
            return;
        }
    }
    unmap(block);
}

void Pool::trim() {
    for (Block*& list : m_idle) {
        Block* block;
        {
            const ShortScope scope(m_lock);
            block = list;
            list = nullptr;
            for (const Block* b = block; b != nullptr; b = b->m_next) {
                m_idleBytes -= b->m_capacity;
                --m_idleBlocks;
            }
        }
        while (block != nullptr) {
            Block* const next = block->m_next;
            unmap(block);
            block = next;
        }
    }
}

void Pool::addTo(ObufStats& stats) {
    const ShortScope scope(m_lock);
    stats.m_liveBlocks += m_liveBlocks;
    stats.m_liveBytes += m_liveBytes;
    stats.m_idleBlocks += m_idleBlocks;
    stats.m_idleBytes += m_idleBytes;
}

Block* Pool::takeIdle(unsigned sizeClass) {
    const ShortScope scope(m_lock);
    Block* block = m_idle[sizeClass];
    if (block == nullptr) return nullptr;
    m_idle[sizeClass] = block->m_next;
    m_idleBytes -= block->m_capacity;
    --m_idleBlocks;
    ++m_liveBlocks;
    m_liveBytes += block->m_capacity;
    return block;
}

Block* Pool::map(unsigned sizeClass, unsigned size) {
    const std::size_t capacity =
        sizeClass < s_unpooled ? capacityOf(sizeClass) : (std::size_t{size} + s_page - 1) / s_page * s_page;
    if (!chargeMapping(capacity)) return nullptr;
    Block* block = shared().m_blocks.get();
    void* memory = block == nullptr
                       ? MAP_FAILED
                       : mmap(nullptr, capacity, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        if (block != nullptr) shared().m_blocks.put(block);
        dischargeMapping(capacity);
        return nullptr;
    }
    shared().m_mappings.fetch_add(1, std::memory_order_relaxed);
    new (block) Block{};
    block->m_class = sizeClass;
    block->m_capacity = capacity;
    block->m_memory = static_cast<unsigned char*>(memory);
    block->m_pool = this;
    const ShortScope scope(m_lock);
    ++m_liveBlocks;
    m_liveBytes += capacity;
    return block;
}

void Pool::unmap(Block* block) {
    showBytes(*block, static_cast<unsigned>(std::min<std::size_t>(block->m_capacity, 0xFFFFFFFFu)));
    munmap(block->m_memory, block->m_capacity);
    dischargeMapping(block->m_capacity);
    shared().m_blocks.put(block);
}

Pool& poolOf(phantom_obAllocationId_t id) {
    Shared& all = shared();
    if (id == 0) return all.m_pools[0];
    const std::uint64_t wanted = std::uint64_t{id} + 1;
    for (unsigned probe = 0; probe < s_pools - 1; ++probe) {
        const unsigned place = 1 + (id + probe) % (s_pools - 1);
        std::uint64_t seen = all.m_ids[place].load(std::memory_order_acquire);
        if (seen == 0 && all.m_ids[place].compare_exchange_strong(seen, wanted, std::memory_order_acq_rel))
            seen = wanted;
        if (seen == wanted) return all.m_pools[place];
    }
    return all.m_pools[1 + id % (s_pools - 1)];
}

RecordPool<phantom_OBUF>& records() { return shared().m_records; }
RecordPool<Piece>& pieces() { return shared().m_pieces; }

}  // namespace ObufDetail

ObufStats obufStats() {
    ObufStats stats;
    for (Pool& pool : shared().m_pools)
        pool.addTo(stats);
    stats.m_liveNodes = shared().m_records.liveCount() + shared().m_pieces.liveCount();
    stats.m_mappings = shared().m_mappings.load(std::memory_order_relaxed);
    return stats;
}

void obufTrim() {
    for (Pool& pool : shared().m_pools)
        pool.trim();
}

void obufSetIdleLimit(unsigned long long bytes) { shared().m_idleLimit.store(bytes, std::memory_order_relaxed); }

void obufSetMemoryLimit(unsigned long long bytes) { shared().m_memoryLimit.store(bytes, std::memory_order_relaxed); }
