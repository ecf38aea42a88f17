#pragma once

#include <cstdint>
#include <vector>

// Which bytes of a growing file are there: all up to a place, and runs behind it whose forerunners are still missing.
// **Threads:** one. **Units:** bytes from the file's start. In order it takes no memory.
class WrittenRuns {
public:
    explicit WrittenRuns(std::uint64_t start) : m_end(start) {}

    // All bytes before this place are there.
    std::uint64_t end() const { return m_end; }
    void add(std::uint64_t from, std::uint64_t to);
    bool contains(std::uint64_t from, std::uint64_t to) const;

private:
    struct Run {
        std::uint64_t m_from;
        std::uint64_t m_to;
    };

    void keep(std::uint64_t from, std::uint64_t to);
    void absorb();

    std::uint64_t m_end;
    std::vector<Run> m_later;  // in order, apart from each other and from `m_end`
};
