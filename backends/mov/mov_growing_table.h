#pragma once

#include <atomic>
#include <bit>
#include <cstdint>
#include <new>

// A table that one thread adds to while any number of threads read it: entries never move and never change.
// **Threads:** one adds, any read. **Locks:** none. **Owns:** its blocks, each twice as large as the one before it, so
// that memory is asked for ever more rarely.
template <class Entry>
class MovGrowingTable {
public:
    MovGrowingTable() = default;
    MovGrowingTable(const MovGrowingTable&) = delete;
    MovGrowingTable& operator=(const MovGrowingTable&) = delete;
    ~MovGrowingTable() {
        for (auto& block : m_blocks)
            delete[] block.load(std::memory_order_relaxed);
    }

    // What was told as the size before can be read for ever.
    std::uint64_t size() const { return m_size.load(std::memory_order_acquire); }
    // Requires: a number below a size that this thread has been told.
    Entry get(std::uint64_t number) const {
        const unsigned block = blockOf(number);
        return m_blocks[block].load(std::memory_order_acquire)[number - firstOf(block)];
    }
    // Fails: false without memory.
    bool push(const Entry& entry) {
        const std::uint64_t number = m_size.load(std::memory_order_relaxed);
        const unsigned block = blockOf(number);
        Entry* entries = m_blocks[block].load(std::memory_order_relaxed);
        if (entries == nullptr) {
            entries = new (std::nothrow) Entry[std::uint64_t{s_first} << block];
            if (entries == nullptr) return false;
            m_blocks[block].store(entries, std::memory_order_release);
        }
        entries[number - firstOf(block)] = entry;
        m_size.store(number + 1, std::memory_order_release);
        return true;
    }

private:
    static constexpr unsigned s_first = 64;   // entries of the first block
    static constexpr unsigned s_blocks = 40;  // more than memory holds

    static unsigned blockOf(std::uint64_t number) {
        return static_cast<unsigned>(std::bit_width(number / s_first + 1)) - 1;
    }
    static std::uint64_t firstOf(unsigned block) { return ((std::uint64_t{1} << block) - 1) * s_first; }

    std::atomic<Entry*> m_blocks[s_blocks] = {};
    std::atomic<std::uint64_t> m_size{0};
};
