#pragma once

#include <atomic>
#include <cstdint>

#include "backends/mov/mov_growing_table.h"
#include "shared/include/index/sample_info.h"

// Where the samples of a recorded clip lie, in memory: runs of samples that follow one another in the file. Of samples
// of one size a run is all that there is; of others there is the size and the kind of each.
// **Threads:** one adds, any ask. **Locks:** none. **Units:** bytes from the file's start, samples of the clip.
class MovRunIndex {
public:
    struct Stretch {
        std::uint64_t m_offset = 0;
        std::uint64_t m_samples = 0;
        std::uint64_t m_bytes = 0;
    };

    // `fixedSize` is 0 for samples that differ in size.
    explicit MovRunIndex(std::uint32_t fixedSize) : m_fixedSize(fixedSize) {}

    std::uint32_t getFixedSize() const { return m_fixedSize; }
    std::uint64_t getSamples() const { return m_samples.load(std::memory_order_acquire); }
    // Enters samples behind the last ones; `info` is that of each. Fails: false without memory.
    // Requires: one sample at a time unless they are of one size.
    bool add(std::uint64_t offset, std::uint64_t count, const SampleInfo& info);
    // The samples from that one on that lie in one piece, at most so many. Requires: a sample of the index.
    Stretch find(std::uint64_t sample, std::uint64_t most) const;
    // Requires: a sample of the index.
    SampleInfo getInfo(std::uint64_t sample) const;

private:
    struct Run {
        std::uint64_t m_offset;
        std::uint64_t m_first;  // sample
    };

    // A place in a run of samples of several sizes is found by adding them up.
    static constexpr unsigned s_mostInRun = 32;

    std::uint64_t runOf(std::uint64_t sample, std::uint64_t runs) const;
    std::uint64_t bytesOf(std::uint64_t sample, std::uint64_t count) const;

    const std::uint32_t m_fixedSize;
    std::uint64_t m_end = 0;  // of the last run; the adder's own
    MovGrowingTable<Run> m_runs;
    MovGrowingTable<SampleInfo> m_infos;  // of samples that differ in size
    std::atomic<std::uint64_t> m_samples{0};
};
