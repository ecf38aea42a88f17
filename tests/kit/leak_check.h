#pragma once

#include <string>

namespace kit {

// What the process holds: movies, media buffers, descriptors (but for rings and event counters), threads. Compared
// before and after, it says what leaked. What the services keep from their first use on (a watch's descriptor, an
// engine's threads) must be there already when the first count is taken; that some of it has gone since, as after a
// shutdown, is no leak.
class LeakCheck {
public:
    LeakCheck() : m_before(now()) {}

    // Empty when no count is, or soon none is, above what it was; else what differs.
    std::string difference() const;

private:
    struct Counts {
        int m_movies = 0;
        unsigned long long m_obufBlocks = 0;
        unsigned long long m_obufNodes = 0;
        unsigned m_descriptors = 0;
        unsigned m_threads = 0;

        bool holdsNoMoreThan(const Counts& before) const;
    };
    static Counts now();

    Counts m_before;
};

}  // namespace kit
