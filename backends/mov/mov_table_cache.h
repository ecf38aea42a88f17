#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "services/file/basic_file_io.h"
#include "support/auto_ptr.h"

class MediaObj;

// The sample tables of a movie, which stay in its file, through a few windows of it. What is wanted often is answered
// from memory; the rest costs one small read.
// **Threads:** any number read; a window is copied out and its number looked at before and behind, so that nobody waits
// for anybody. **Locks:** none of its own; a window that isn't there is read through the movie's file list.
// **Owns:** the windows, and the parser's handle until the movie stands. **Units:** bytes from the file's start.
class MovTableCache {
public:
    static constexpr unsigned s_window = 512;
    static constexpr unsigned s_leastSlots = 16, s_mostSlots = 128;  // powers of two
    static constexpr unsigned s_heldBytes = 384 * 1024;

    // As many windows as cover tables of so many bytes, within the limits.
    explicit MovTableCache(AutoRefPtr<BasicFileIO> file, std::uint64_t tableBytes = 0)
        : m_file(file), m_slotCount(slotsFor(tableBytes)), m_slots(new Slot[m_slotCount]) {}

    // From here on the handle is the one that the movie gives for its first file. Takes: the movie borrowed; it
    // outlives this.
    void bind(const MediaObj& movie) {
        m_movie = &movie;
        m_file = AutoRefPtr<BasicFileIO>();
    }

    // Copies bytes of the file. Fails: false when they can't be read.
    bool read(std::uint64_t offset, void* target, unsigned size) const;
    // The same past the windows, for a walk over much of a table.
    bool readThrough(std::uint64_t offset, void* target, unsigned size) const;

    // The memory that the tracks of the movie together may take for what they were asked for, `s_heldBytes` in all.
    bool hasRoom(unsigned bytes) const { return m_room.load(std::memory_order_relaxed) >= bytes; }
    // Fails: false when there isn't so much left.
    bool spend(unsigned bytes) const {
        unsigned room = m_room.load(std::memory_order_relaxed);
        while (room >= bytes) {
            if (m_room.compare_exchange_weak(room, room - bytes, std::memory_order_relaxed)) return true;
        }
        return false;
    }
    void giveBack(unsigned bytes) const { m_room.fetch_add(bytes, std::memory_order_relaxed); }

private:
    static constexpr unsigned s_words = s_window / 8;
    static constexpr std::uint64_t s_none = ~0ull;

    struct Slot {
        std::atomic<std::uint64_t> turn{0};  // odd while the window is exchanged
        std::atomic<std::uint64_t> window{s_none};
        std::atomic<std::uint64_t> words[s_words] = {};
    };

    static unsigned slotsFor(std::uint64_t tableBytes) {
        unsigned slots = s_leastSlots;
        while (slots < s_mostSlots && std::uint64_t{slots} * s_window < tableBytes)
            slots *= 2;
        return slots;
    }
    static bool copyFrom(const Slot& slot, std::uint64_t window, unsigned inside, void* target, unsigned size);
    static void exchange(Slot& slot, std::uint64_t window, const std::uint64_t* words);
    bool fetch(Slot& slot, std::uint64_t window, unsigned inside, void* target, unsigned size) const;
    AutoRefPtr<BasicFileIO> handle() const;

    const MediaObj* m_movie = nullptr;
    AutoRefPtr<BasicFileIO> m_file;  // empty once the movie stands
    const unsigned m_slotCount;
    std::unique_ptr<Slot[]> m_slots;
    mutable std::atomic<unsigned> m_room{s_heldBytes};  // bytes left
};
