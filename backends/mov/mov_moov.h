#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "backends/mov/mov_atom_writer.h"
#include "backends/mov/mov_told_movie.h"

// How many entries a table has room for.
using MovCapacities = std::array<std::uint64_t, MovTrackTables::Count>;

// The `moov` of a movie as it is told of, with room for its tables to grow in: behind the entries of each stands a
// `free` atom that takes the rest of its room. So an update touches the heads of the tables and what has been added,
// and whoever has read an older state finds all of it in its place.
// **Owns:** the bytes outside the tables' rooms. **Threads:** one. **Units:** bytes from the `moov`'s start.
class MovMoov {
public:
    // Bytes outside the rooms, and where they go.
    struct Segment {
        std::size_t m_from;  // in the writer's bytes
        std::size_t m_count;
        std::uint64_t m_at;
    };
    struct Room {
        unsigned m_track;
        MovTrackTables::Table m_table;
        std::uint64_t m_at;
        std::uint64_t m_capacity;  // entries

        bool operator==(const Room&) const = default;
    };

    // The largest entry tables that fit a file with 32-bit atom sizes are far beyond what is built here.
    MovMoov(const MovToldMovie& movie, const std::vector<MovCapacities>& capacities, bool isWide);

    std::uint64_t getSize() const { return m_out.getPosition(); }
    const std::vector<std::uint8_t>& getBytes() const { return m_out.getBytes(); }
    const std::vector<Segment>& getSegments() const { return m_segments; }
    const std::vector<Room>& getRooms() const { return m_rooms; }

    // Bytes of a room: its entries and the head of the `free` behind them.
    static std::uint64_t roomBytes(MovTrackTables::Table table, std::uint64_t capacity, bool isWide);
    // Adds the entries from that one on, and the head of the `free` that takes the rest of the room.
    static void putEntries(const MovToldTrack& track, const Room& room, std::uint64_t from, bool isWide,
                           std::vector<std::uint8_t>& bytes);

private:
    void putMovieHead(const MovToldMovie& movie);
    void putTrack(const MovToldMovie& movie, unsigned number, const MovCapacities& capacities, bool isWide);
    void putTrackHead(const MovToldMovie& movie, const MovToldTrack& track, unsigned number);
    void putEdits(const MovToldMovie& movie, const MovToldTrack& track);
    void putMediaHead(const MovToldMovie& movie, const MovToldTrack& track);
    void putReferences(const MovToldMovie& movie, const MovToldTrack& track);
    void putDescriptions(const MovToldTrack& track);
    void putTimecode(const MovToldMovie& movie);
    void putTimecodeHead(const MovToldTimecode& timecode);
    void putTable(const MovToldTrack& track, unsigned number, MovTrackTables::Table table, std::uint64_t capacity,
                  bool isWide);
    void cut();

    MovAtomWriter m_out;
    std::size_t m_cutAt = 0;        // bytes that have a segment
    std::uint64_t m_segmentAt = 0;  // where the next segment goes
    std::vector<Segment> m_segments;
    std::vector<Room> m_rooms;
};
