#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "backends/mov/mov_table_cache.h"

// Where samples of a track lie that have been asked for, packed in memory: by blocks of 64, of which each keeps the
// place of its first sample, and of every sample by how much its size and the gap in front of it are above the block's
// least. A block takes one slot. Slots come by pages when they are first wanted, out of the movie's budget. A block
// takes the slot of another one when it is asked for twice and the other one not in between.
// **Threads:** any number; a slot is copied out and its turn looked at before and behind, so that nobody waits for
// anybody. **Owns:** its pages, for as long as it lives; the cache, whose budget they are taken from, outlives it.
class MovHeldSpots {
public:
    static constexpr unsigned s_block = 64;       // samples
    static constexpr unsigned s_slotBytes = 224;  // of a block in memory
    static constexpr unsigned s_pageSlots = 32;
    // Blocks as many apart, in a longer track, share a slot.
    static constexpr unsigned s_mostSlots = MovTableCache::s_heldBytes / (s_pageSlots * s_slotBytes) * s_pageSlots;

    struct Place {
        std::uint64_t offset = 0;       // bytes from the media file's start
        std::uint32_t size = 0;         // bytes
        std::uint32_t description = 0;  // from 1
    };

    // The samples of a block, written out. One without any can't be held, and nobody tries again.
    struct Block {
        unsigned count = 0;  // less than a whole block at the end of the track
        std::uint32_t description = 0;
        std::uint64_t syncs = 0;  // a bit for each sample, the lowest for the first
        std::uint64_t offsets[s_block];
        std::uint32_t sizes[s_block];
    };

    enum class Answer {
        Held,    // here it is
        Wanted,  // its block should be handed over
        Absent   // its block has no place here, or not yet
    };

    MovHeldSpots() = default;
    MovHeldSpots(const MovHeldSpots&) = delete;
    MovHeldSpots& operator=(const MovHeldSpots&) = delete;
    ~MovHeldSpots();

    // For a track of so many samples. Fails: without memory nothing is ever wanted.
    void init(std::uint64_t samples, const MovTableCache& cache);

    Answer find(std::uint64_t sample, Place& place) const;
    // Fails: false when the sample's block isn't held.
    bool findSync(std::uint64_t sample, bool& isSync) const;
    // Keeps the block that a sample is in. One that doesn't fit a slot is kept as one that can't be held.
    void hold(std::uint64_t sample, const Block& block) const;

private:
    static constexpr unsigned s_words = s_slotBytes / 8 - 1;

    struct Slot {
        std::atomic<std::uint32_t> turn{0};    // odd while the block is exchanged
        std::atomic<std::uint32_t> missed{0};  // the block, and one, that was last asked for in vain
        std::atomic<std::uint64_t> words[s_words] = {};
    };
    static_assert(sizeof(Slot) == s_slotBytes);

    unsigned slotOf(std::uint64_t block) const { return static_cast<unsigned>(block % m_slotCount); }
    Slot* look(std::uint64_t block) const;
    Slot* take(std::uint64_t block) const;
    static void exchange(Slot& slot, const std::uint64_t* words);

    const MovTableCache* m_cache = nullptr;  // borrowed
    unsigned m_slotCount = 0;
    std::unique_ptr<std::atomic<Slot*>[]> m_pages;  // null until wanted
};
