#pragma once

#include <cstdint>

// Counts what several places of a stream say of one fact. Two that agree settle it; else the most, and of equals the
// first.
// **Threads:** one.
class DvVote {
public:
    // Answers whether the fact is settled.
    bool add(std::uint64_t value) {
        unsigned at = 0;
        while (at < m_count && m_values[at] != value)
            ++at;
        if (at == s_most) return settled();
        if (at == m_count) {
            m_values[m_count] = value;
            m_votes[m_count++] = 0;
        }
        if (++m_votes[at] > m_votes[m_best]) m_best = at;
        return settled();
    }
    bool any() const { return m_count != 0; }
    bool settled() const { return any() && m_votes[m_best] >= s_enough; }
    // Requires: any.
    std::uint64_t best() const { return m_values[m_best]; }

private:
    static constexpr unsigned s_most = 12;  // different answers that are counted
    static constexpr unsigned s_enough = 2;

    std::uint64_t m_values[s_most] = {};
    unsigned m_votes[s_most] = {};
    unsigned m_count = 0;
    unsigned m_best = 0;
};
