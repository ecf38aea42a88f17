#pragma once

#include <cstdint>

#include "backends/mov/mov_held_spots.h"
#include "backends/mov/mov_marks.h"
#include "backends/mov/mov_table_cache.h"

// A table of a track as it lies in the file, checked to lie there whole.
struct MovTable {
    std::uint64_t offset = 0;  // of the first entry, bytes from the file's start
    std::uint64_t count = 0;   // entries
};

// Where the sample tables of a track lie, and what they say in a word.
struct MovTablePlaces {
    std::uint64_t samples = 0;    // as the table of sizes counts them
    std::uint32_t fixedSize = 0;  // bytes of every sample, or 0: as the table says
    unsigned sizeBits = 32;       // of an entry of that table: 4, 8, 16 or 32
    MovTable sizes;
    bool isWide = false;    // offsets of 64 bits
    MovTable chunks;        // offsets
    MovTable runs;          // first chunk, samples a chunk, description; 12 bytes
    MovTable times;         // count, ticks; 8 bytes
    MovTable shifts;        // count, ticks from decoding to showing; 8 bytes
    MovTable syncs;         // sample numbers from 1; 4 bytes
    bool hasSyncs = false;  // without the table every sample is one
};

// Where a sample lies, and what follows it there.
struct MovSpot {
    std::uint64_t offset = 0;       // bytes from the media file's start
    std::uint32_t size = 0;         // bytes
    std::uint64_t chunk = 0;        // from 0
    std::uint64_t following = 0;    // samples of the same chunk behind this one
    std::uint32_t description = 0;  // from 1
};

// The sample tables of one track, searched where they lie. Sample numbers count from 0 in the order of the tables,
// which is the order of decoding.
// **Threads:** any number. **Owns:** the marks and what it holds; the cache outlives it. **Units:** ticks of the
// media's time scale. All answers are false when a table can't be read or doesn't cover the sample.
class MovSampleTables {
public:
    MovSampleTables(const MovTablePlaces& places, const MovTableCache& cache);

    std::uint64_t samples() const { return m_samples; }
    std::uint32_t fixedSize() const { return m_places.fixedSize; }
    const MovTablePlaces& places() const { return m_places; }
    // A size of every sample that the description knows better than the table. Counts the samples anew when the table
    // counts none.
    void setFixedSize(std::uint32_t size) { m_places.fixedSize = size; }
    // What lies behind isn't there.
    void setSamples(std::uint64_t samples) { m_samples = samples; }

    bool find(std::uint64_t sample, MovSpot& spot) const;
    // The same without the chunk and what follows there, for who wants many samples one by one: samples that differ in
    // size, and their neighbours, are held in memory from then on, as far as the movie's budget goes.
    bool findAlone(std::uint64_t sample, MovSpot& spot) const;
    bool sizeOf(std::uint64_t sample, std::uint32_t& size) const;
    // Bytes of the samples [from, to).
    bool sumSizes(std::uint64_t from, std::uint64_t to, std::uint64_t& sum) const;
    bool isSync(std::uint64_t sample) const;
    // When a sample is decoded and how much later it is shown.
    bool timeOf(std::uint64_t sample, std::uint64_t& ticks) const;
    bool shiftOf(std::uint64_t sample, std::int32_t& ticks) const;
    // The last sample that is decoded at or before a time, at most the number of samples for one past the end.
    bool sampleAt(std::uint64_t ticks, std::uint64_t& sample) const;
    // The one step of the times when all samples have the same, but for the last; else 0.
    std::uint32_t evenStep() const;
    // The step that at least so many tenths of the samples have among the first entries of the times; else 0.
    std::uint32_t usualStep(unsigned tenths) const;
    // The first sample at or behind `sample` whose description is another one, or the number of samples.
    bool changeOfDescription(std::uint64_t sample, std::uint32_t& description, std::uint64_t& next) const;
    // The samples that lie before that length of the media file, as far as the last chunk tells; looks further only
    // when it tells that some don't.
    std::uint64_t samplesWithin(std::uint64_t length) const;

private:
    struct Run {
        std::uint64_t first = 0;  // chunk, from 0
        std::uint64_t chunks = 0;
        std::uint32_t perChunk = 0;
        std::uint32_t description = 0;
        std::uint64_t samplesBefore = 0;
    };

    bool runOf(std::uint64_t sample, Run& run) const;
    bool readRuns(std::uint64_t from, std::uint64_t to, std::uint8_t* entries) const;
    bool walkRuns(std::uint64_t from, std::uint64_t to, std::uint64_t& samples) const;
    Run runFrom(const std::uint8_t* entry, bool isLast) const;
    bool chunkOffset(std::uint64_t chunk, std::uint64_t& offset) const;
    bool walkSizes(std::uint64_t from, std::uint64_t to, std::uint64_t& sum) const;
    bool addSizes(const std::uint8_t* bytes, std::uint64_t from, std::uint64_t count, std::uint64_t& sum) const;
    bool walkCounts(const MovTable& table, std::uint64_t from, std::uint64_t to, std::uint64_t& sum) const;
    bool walkTicks(std::uint64_t from, std::uint64_t to, std::uint64_t& sum) const;
    bool findCounted(const MovTable& table, const MovMarks& marks, std::uint64_t sample, std::uint64_t& entry,
                     std::uint64_t& before, std::uint32_t& value) const;
    bool findSync(std::uint64_t sample, std::uint64_t& place, std::uint32_t& number) const;
    void writeOut(std::uint64_t sample, MovHeldSpots::Block& block) const;
    bool writeSizes(std::uint64_t first, MovHeldSpots::Block& block) const;
    bool writeOffsets(std::uint64_t first, MovHeldSpots::Block& block) const;
    bool writeRun(std::uint64_t sample, const Run& run, unsigned from, unsigned to, MovHeldSpots::Block& block) const;
    bool writeSyncs(std::uint64_t first, MovHeldSpots::Block& block) const;

    MovTablePlaces m_places;
    const MovTableCache& m_cache;  // borrowed
    std::uint64_t m_samples;
    MovMarks m_runMarks;    // samples before a run
    MovMarks m_sizeMarks;   // bytes before a sample
    MovMarks m_timeMarks;   // samples before an entry of the times
    MovMarks m_tickMarks;   // ticks before it
    MovMarks m_shiftMarks;  // samples before an entry of the shifts
    MovHeldSpots m_held;
};
