#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <memory>
#include <new>

// Sums over a long table, kept for every so many entries and worked out when they are first wanted: the table's own
// sparse index. Each sum is a count of something that the entries stand for.
// **Threads:** any number; all work out the same sums. **Owns:** its marks, a few bytes for a KiB of table.
class MovMarks {
public:
    static constexpr std::uint64_t s_mostMarks = 1u << 16;

    // For a table of so many entries. Fails: without memory for the marks every walk begins at the first entry.
    void init(std::uint64_t entries, std::uint64_t stride) {
        m_entries = entries;
        m_stride = stride;
        while (entries / m_stride > s_mostMarks)
            m_stride *= 2;
        m_count = entries / m_stride;
        m_marks.reset(m_count != 0 ? new (std::nothrow) std::atomic<std::uint64_t>[m_count]() : nullptr);
        if (m_marks == nullptr) m_count = 0;
    }

    std::uint64_t entries() const { return m_entries; }

    // The sum of all entries before `index`. `walk(from, to, sum)` answers false when these can't be read, and else
    // adds what the entries from `from` to before `to` stand for.
    template <class Walk>
    bool sumBefore(std::uint64_t index, const Walk& walk, std::uint64_t& sum) const {
        const std::uint64_t mark = std::min(index / m_stride, m_count);
        std::uint64_t known = std::min(mark, m_known.load(std::memory_order_acquire));
        sum = at(known);
        for (; known < mark; ++known) {
            if (!walk(known * m_stride, (known + 1) * m_stride, sum)) return false;
            note(known + 1, sum);
        }
        return walk(mark * m_stride, index, sum);
    }

    // The stretch of entries [from, to) in which the sum passes `target`, and the sum before it; the last stretch when
    // it never does.
    template <class Walk>
    bool findStretch(std::uint64_t target, const Walk& walk, std::uint64_t& from, std::uint64_t& to,
                     std::uint64_t& sum) const {
        std::uint64_t known = m_known.load(std::memory_order_acquire);
        std::uint64_t reached = at(known);
        while (known < m_count && reached <= target) {
            if (!walk(known * m_stride, (known + 1) * m_stride, reached)) return false;
            note(++known, reached);
        }
        std::uint64_t low = 0, high = known;  // the last mark whose sum isn't above the target
        while (low < high) {
            const std::uint64_t middle = low + (high - low + 1) / 2;
            if (at(middle) <= target) {
                low = middle;
            } else {
                high = middle - 1;
            }
        }
        from = low * m_stride;
        to = std::min(from + m_stride, m_entries);
        sum = at(low);
        return true;
    }

private:
    std::uint64_t at(std::uint64_t mark) const {
        return mark == 0 ? 0 : m_marks[mark - 1].load(std::memory_order_relaxed);
    }
    // Marks are noted in their order, so that all up to the last known one are known.
    void note(std::uint64_t mark, std::uint64_t sum) const {
        m_marks[mark - 1].store(sum, std::memory_order_relaxed);
        std::uint64_t known = mark - 1;
        m_known.compare_exchange_strong(known, mark, std::memory_order_release, std::memory_order_relaxed);
    }

    std::uint64_t m_entries = 0;
    std::uint64_t m_stride = 64;
    std::uint64_t m_count = 0;  // marks, that of entry 0 not counted
    std::unique_ptr<std::atomic<std::uint64_t>[]> m_marks;
    mutable std::atomic<std::uint64_t> m_known{0};
};
