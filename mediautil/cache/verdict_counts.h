#pragma once

#include <atomic>
#include <cstddef>

#include "mediautil/cache/replacement_verdict.h"

// How often each verdict has been given since the process started.
// **Threads:** any; plain counters without an order among them.
class VerdictCounts {
public:
    struct Name {
        ReplacementVerdict::Code m_code;
        const char* m_name;  // on the control socket, for ever
    };
    static constexpr Name s_names[] = {{ReplacementVerdict::Update, "update"},
                                       {ReplacementVerdict::StructureChange, "structureChange"},
                                       {ReplacementVerdict::InvalidChange, "invalidChange"},
                                       {ReplacementVerdict::Redundant, "redundant"},
                                       {ReplacementVerdict::Vetoed, "vetoed"},
                                       {ReplacementVerdict::TooShort, "tooShort"}};

    void count(ReplacementVerdict::Code code) { m_counts[placeOf(code)].fetch_add(1, std::memory_order_relaxed); }
    unsigned long long get(ReplacementVerdict::Code code) const {
        return m_counts[placeOf(code)].load(std::memory_order_relaxed);
    }

private:
    static constexpr std::size_t s_size = sizeof s_names / sizeof *s_names;

    static constexpr std::size_t placeOf(ReplacementVerdict::Code code) {
        std::size_t place = 0;
        while (place + 1 < s_size && s_names[place].m_code != code)
            ++place;
        return place;
    }

    std::atomic<unsigned long long> m_counts[s_size] = {};
};
