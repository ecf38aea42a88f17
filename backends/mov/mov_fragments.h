#pragma once

#include <cstdint>

#include "backends/mov/mov_box_reader.h"
#include "backends/mov/mov_facts.h"

// The entries of a run, wherever their bytes come from.
namespace MovRunEntry {

constexpr std::uint32_t s_hasOffset = 1, s_hasFirstFlags = 4, s_hasStep = 0x100, s_hasSize = 0x200, s_hasFlags = 0x400,
                        s_hasShift = 0x800;
constexpr std::uint32_t s_isNoSync = 0x10000;  // of a sample's flags

// Bytes of an entry of a run with these flags.
unsigned sizeOf(std::uint32_t flags);

struct Facts {
    std::uint32_t step = 0, size = 0, flags = 0;
    std::int32_t shift = 0;
};

// Reads the entry at that place in the run. Requires: `sizeOf` bytes.
Facts read(const MovFragmentRun& run, std::uint32_t place, const std::uint8_t* bytes);

}  // namespace MovRunEntry

// Reads the fragments of a movie (`moof`): for each run of samples where its entries and its first sample lie, and
// when the next one begins.
// **Threads:** one.
class MovFragments {
public:
    // A longer run is kept in pieces, so that no look-up has more entries to sum up.
    static constexpr std::uint32_t s_mostInRun = 4096;

    MovFragments(FileWindow& file, unsigned& left) : m_file(file), m_left(left) {}

    // False when the movie has as many runs as there may be; what follows isn't shown, and a remark says so.
    bool add(const MovBox& moof, MovMovie& movie);
    // Behind the last fragment: what a cut file doesn't have any more is taken off.
    void finish(MovMovie& movie);

private:
    struct Head {
        std::uint64_t base = 0;
        bool hasBase = false;
        std::uint32_t description = 1, step = 0, size = 0, flags = 0;
    };

    bool addTrack(const MovBox& traf, MovMovie& movie);
    MovTrack* readHead(const MovBox& box, MovMovie& movie, Head& head);
    void readTime(const MovBox& box, MovTrack& track);
    bool addRun(const MovBox& box, const Head& head, MovTrack& track);
    bool keep(MovFragmentRun run, MovTrack& track);
    void push(const MovFragmentRun& run, MovTrack& track);
    // Of plain sound, sample by sample. Fails: false, and nothing is kept, where entries don't stand for whole samples.
    bool keepWords(const MovFragmentRun& run, MovTrack& track);
    void pushWords(const MovFragmentRun& run, MovFragmentRun words, MovTrack& track);
    MovRunEntry::Facts factsOf(const MovFragmentRun& run, std::uint32_t place);
    // Sums up bytes and ticks of entries of a run. Fails: false when they can't be read.
    bool sum(const MovFragmentRun& run, std::uint32_t from, std::uint32_t to, std::uint64_t& bytes,
             std::uint64_t& ticks);
    bool endOf(const MovFragmentRun& run, std::uint64_t& end);

    FileWindow& m_file;
    unsigned& m_left;
    unsigned m_runs = 0;
    std::uint64_t m_moof = 0;               // where this fragment begins
    const MovTrack* m_lastTrack = nullptr;  // whose run came last in this fragment, or null
    bool m_isFirst = true;                  // no track of this fragment came before
    bool m_isFull = false;
};
