#pragma once

#include <cstdint>
#include <vector>

#include "backends/mov/mov_picture_order.h"
#include "backends/mov/mov_run_index.h"

// The sample tables of a recorded track as its file has them: what has been told of its samples so far. Entries are
// only ever added; the last ones of the table of display times alone are settled by the pictures that follow.
// **Threads:** one. **Units:** samples of the track, from 0.
class MovTrackTables {
public:
    // In the order in which they stand in the file.
    enum Table : unsigned { Sync = 0, Order = 1, Chunk = 2, Size = 3, Offset = 4, Count = 5 };

    // `hasOrder`: pictures that depend on others, decoded in another order than they are shown.
    MovTrackTables(std::uint32_t fixedSize, bool hasOrder) : m_fixedSize(fixedSize), m_hasOrder(hasOrder) {}

    // The next samples, of a clip, up to its sample `to`. Whether the pictures say themselves when they are shown, the
    // first one settles; of others it follows from their kinds. Requires: all before them have been told.
    void tell(const MovRunIndex& clip, std::uint64_t from, std::uint64_t to, unsigned description,
              const MovPictureOrder& order);
    // Back to no samples.
    void forget();

    std::uint64_t getSamples() const { return m_samples; }
    std::uint32_t getFixedSize() const { return m_fixedSize; }
    bool hasOrder() const { return m_hasOrder; }
    // Samples by which all is shown late, so that nothing is shown before it is decoded.
    std::uint32_t getLate() const { return m_hasOrder ? m_late : 0; }
    // Whether a place needs more than 32 bits.
    bool isWide() const { return m_isWide; }

    bool has(Table table) const;
    std::uint64_t getEntries(Table table) const;
    // Entries before this one stay as they are.
    std::uint64_t getSettled(Table table) const;
    static unsigned entrySize(Table table, bool wide);
    // Adds entries to `bytes` as they stand in the file; durations of `ticks` a sample.
    void encode(Table table, std::uint64_t from, std::uint64_t to, bool wide, unsigned ticks,
                std::vector<std::uint8_t>& bytes) const;

private:
    // A picture in front of which others may still be shown.
    struct Waiting {
        std::uint64_t m_sample;
        std::int64_t m_count;
    };
    struct ChunkRun {
        std::uint32_t m_firstChunk;  // from 1
        std::uint32_t m_samples;     // of each chunk
        std::uint32_t m_description;
    };

    void tellChunk(const MovRunIndex::Stretch& stretch, unsigned description);
    void tellSample(const SampleInfo& info, const MovPictureOrder& order);
    void tellByKind(bool isB);
    void tellByCount(const MovPictureOrder::Picture& picture);
    std::int64_t countOf(const MovPictureOrder::Picture& picture);

    const std::uint32_t m_fixedSize;
    const bool m_hasOrder;
    bool m_isWide = false;
    std::uint64_t m_samples = 0;
    std::uint64_t m_lastAnchor = 0;  // the picture whose followers aren't all known
    bool m_isByCount = false;
    std::uint32_t m_late = 1;
    std::vector<Waiting> m_waiting;  // at most m_late
    std::int64_t m_shownTo = 0;      // the highest count of the sequence
    std::int64_t m_base = 0;         // what the count of the last picture that others depend on is added to
    std::uint32_t m_lastCount = 0;   // of that picture
    std::vector<std::uint64_t> m_offsets;
    std::vector<ChunkRun> m_chunks;
    std::vector<std::uint32_t> m_sizes;
    std::vector<std::uint32_t> m_syncs;   // from 1
    std::vector<std::uint32_t> m_orders;  // samples from decoding to showing
};
