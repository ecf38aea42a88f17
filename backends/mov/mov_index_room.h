#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <vector>

#include "backends/mov/mov_moov.h"
#include "support/op_result.h"

// The place of a growing file that holds its `moov`: a `free` atom, and behind it two slots for a `moov` each. The size
// of the `free` decides which one a reader comes to; between the two sizes, and that which skips both, one single byte
// differs. An update goes into the slot that nobody is led to, and then that byte is written: at no moment, whichever
// bytes of a write have arrived, does a reader find half an index or none, and wherever the writer is killed the file
// is whole. Who has read the `free` before the change finds the older `moov` in its slot until the update after the
// next.
//
//     free (32 bytes, size 32, 32 + slot or 32 + 2 slots) | slot 0: moov, free to the end of slot 1 | slot 1: moov,
//     free
//
// Both slots have one layout, which stays as long as the room is in use; what has outgrown it moves to a larger room at
// the end of the file. The bytes of a room that was left stay, for those who still read its tables.
// **Threads:** one. **Units:** bytes from the file's start.
class MovIndexRoom {
public:
    using Put = std::function<OpResult(std::uint64_t offset, const std::vector<std::uint8_t>& bytes)>;

    static constexpr unsigned s_head = 32;
    static constexpr unsigned s_hidden = 2;  // the state that leads past both slots

    MovIndexRoom() = default;
    // A room of slots that hold at least so many bytes.
    MovIndexRoom(std::uint64_t at, std::uint64_t slotBytes);

    // Bytes of the whole room.
    std::uint64_t getSize() const { return s_head + 2 * getSlotSize(); }
    std::uint64_t getAt() const { return m_at; }
    std::uint64_t getEnd() const { return m_at + getSize(); }
    std::uint64_t getSlotSize() const { return std::uint64_t{m_units} << m_shift; }
    // The slot that readers come to, or `s_hidden`.
    unsigned getShown() const { return m_shown; }

    // The head of the room, in that state.
    OpResult putHead(const Put& put, unsigned shown);
    // Leads readers to that slot, or past both: one byte.
    OpResult show(const Put& put, unsigned shown);
    // What the file says, for a writer that has lost writes: the first bytes of the head.
    void takeState(const std::array<std::uint8_t, 4>& head);
    // The room whose head stands there. Fails: false when it is none.
    static bool find(std::uint64_t at, const std::uint8_t (&head)[s_head], MovIndexRoom& room);
    // Where a slot begins.
    std::uint64_t getSlotAt(unsigned slot) const { return m_at + s_head + slot * getSlotSize(); }

    // Lays the room out for a movie, with tables that can grow. Fails: false when the slots are too small.
    bool layOut(const MovToldMovie& movie);
    // Whether the movie can be told of within the layout.
    bool holds(const MovToldMovie& movie, const MovMoov& moov) const;
    // The `moov` of the movie in this layout. Requires: a layout with a place for each track.
    MovMoov build(const MovToldMovie& movie) const { return MovMoov(movie, m_capacities, m_isWide); }
    bool isLaidOut(const MovToldMovie& movie) const;
    // Writes it into that slot. Requires: a layout that holds it.
    OpResult putMoov(const Put& put, unsigned slot, const MovToldMovie& movie, const MovMoov& moov);
    // What the slots hold isn't known any more.
    void distrust();

    // A slot that would hold the movie with tables of twice the entries, in bytes.
    static std::uint64_t wantedSlot(const MovToldMovie& movie);

private:
    std::uint8_t stateByte(unsigned shown) const;
    static std::vector<MovCapacities> capacitiesFor(const MovToldMovie& movie, unsigned factor);

    std::uint64_t m_at = 0;
    unsigned m_units = 0, m_shift = 8;  // the size of a slot
    unsigned m_shown = s_hidden;
    bool m_isWide = false;
    std::vector<MovCapacities> m_capacities;  // of each track
    std::vector<MovMoov::Room> m_rooms;       // of the layout
    std::uint64_t m_moovSize = 0;             // the same
    std::vector<std::uint64_t> m_written[2];  // entries of each of its rooms that a slot has for good
};
