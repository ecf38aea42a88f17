#pragma once

#include <cstdint>
#include <vector>

#include "backends/mov/mov_facts.h"
#include "backends/mov/mov_fragments.h"
#include "backends/mov/mov_sample_tables.h"

// All samples of a track: those of its tables, and behind them those of its fragments, in one numbering from 0.
// **Threads:** any number. **Owns:** its marks and the list of runs; the cache outlives it.
// Answers are false when an entry can't be read or there is no such sample.
class MovTrackSamples {
public:
    // Takes: the track's runs.
    MovTrackSamples(MovTrack& track, const MovTableCache& cache);

    std::uint64_t count() const { return m_tables.samples() + m_fragmentSamples; }
    MovSampleTables& tables() { return m_tables; }
    const MovSampleTables& tables() const { return m_tables; }
    // Bytes of every sample, or 0.
    std::uint32_t fixedSize() const { return m_runs.empty() ? m_tables.fixedSize() : 0; }

    bool find(std::uint64_t sample, MovSpot& spot) const;
    // As many of `count` samples as lie together from that one on, and their bytes. A single one is held in memory from
    // then on, as `MovSampleTables::findAlone` does; of it the spot says no more than that.
    bool findTogether(std::uint64_t sample, std::uint64_t count, MovSpot& spot, std::uint64_t& found,
                      std::uint64_t& bytes) const;
    bool isSync(std::uint64_t sample) const;
    // True when every sample is a sync sample, as far as the tables tell.
    bool isAllSync() const;
    bool timeOf(std::uint64_t sample, std::uint64_t& ticks) const;
    bool shiftOf(std::uint64_t sample, std::int32_t& ticks) const;
    bool sampleAt(std::uint64_t ticks, std::uint64_t& sample) const;
    // The ticks from each sample to the next, 0 where they vary; and those of at least so many tenths of the
    // samples at the start, else 0.
    std::uint32_t evenStep() const;
    std::uint32_t usualStep(unsigned tenths) const;
    bool changeOfDescription(std::uint64_t sample, std::uint32_t& description, std::uint64_t& next) const;

private:
    const MovFragmentRun* runOf(std::uint64_t sample) const;
    bool entryOf(const MovFragmentRun& run, std::uint32_t place, MovRunEntry::Facts& facts) const;
    bool sum(const MovFragmentRun& run, std::uint32_t from, std::uint32_t to, std::uint64_t& bytes,
             std::uint64_t& ticks) const;

    const MovTableCache& m_cache;  // borrowed
    MovSampleTables m_tables;
    const std::vector<MovFragmentRun> m_runs;
    std::uint64_t m_fragmentSamples = 0;
};
