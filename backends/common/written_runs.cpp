#include "backends/common/written_runs.h"

#include <algorithm>

void WrittenRuns::add(std::uint64_t from, std::uint64_t to) {
    if (from >= to) return;
    if (from > m_end) return keep(from, to);
    m_end = std::max(m_end, to);
    absorb();
}

// Joins the run with those that it meets.
void WrittenRuns::keep(std::uint64_t from, std::uint64_t to) {
    auto first = std::find_if(m_later.begin(), m_later.end(), [from](const Run& run) { return run.m_to >= from; });
    auto last = first;
    for (; last != m_later.end() && last->m_from <= to; ++last) {
        from = std::min(from, last->m_from);
        to = std::max(to, last->m_to);
    }
    first = m_later.erase(first, last);
    m_later.insert(first, Run{from, to});
}

void WrittenRuns::absorb() {
    auto last = m_later.begin();
    for (; last != m_later.end() && last->m_from <= m_end; ++last)
        m_end = std::max(m_end, last->m_to);
    m_later.erase(m_later.begin(), last);
}

bool WrittenRuns::contains(std::uint64_t from, std::uint64_t to) const {
    if (to <= m_end) return true;
    from = std::max(from, m_end);
    return std::any_of(m_later.begin(), m_later.end(),
                       [from, to](const Run& run) { return run.m_from <= from && to <= run.m_to; });
}
