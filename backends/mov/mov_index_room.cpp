#include "backends/mov/mov_index_room.h"

#include <algorithm>
#include <cstring>

namespace {

using Table = MovTrackTables::Table;

constexpr unsigned s_freeHead = 8;
constexpr unsigned s_spare = 1024;     // bytes of a slot for user data that come when the movie is finished
constexpr unsigned s_mostUnits = 127;  // twice of which fits a byte
constexpr char s_note[] = "room for moov";

// Entries that a table has room for at least.
constexpr MovCapacities s_fewest = {16, 32, 16, 32, 64};

bool needsWide(const MovToldMovie& movie) {
    return std::any_of(movie.m_tracks.begin(), movie.m_tracks.end(),
                       [](const auto& track) { return track->m_tables.isWide(); });
}

}  // namespace

MovIndexRoom::MovIndexRoom(std::uint64_t at, std::uint64_t slotBytes) : m_at(at) {
    const auto units = [this, slotBytes] { return ((slotBytes - 1) >> m_shift) + 1; };
    while (units() > s_mostUnits && m_shift < 24)
        m_shift += 8;
    m_units = static_cast<unsigned>(std::min<std::uint64_t>(units(), s_mostUnits));
}

std::uint8_t MovIndexRoom::stateByte(unsigned shown) const { return static_cast<std::uint8_t>(m_units * shown); }

OpResult MovIndexRoom::putHead(const Put& put, unsigned shown) {
    MovAtomWriter out;
    out.be32(s_head + shown * getSlotSize()).be32(MovAtom::s_free).bytes(s_note, sizeof s_note);
    out.be8(m_units).be8(m_shift).zeros(s_head - out.getBytes().size());
    OpResult result = put(m_at, out.getBytes());
    if (result) m_shown = shown;
    return result;
}

OpResult MovIndexRoom::show(const Put& put, unsigned shown) {
    OpResult result = put(m_at + 3 - m_shift / 8, {stateByte(shown)});
    if (result) m_shown = shown;
    return result;
}

bool MovIndexRoom::find(std::uint64_t at, const std::uint8_t (&head)[s_head], MovIndexRoom& room) {
    constexpr std::size_t note = 8, units = note + sizeof s_note, shift = units + 1;
    const bool isRoom = std::memcmp(head + 4, "free", 4) == 0 && std::memcmp(head + note, s_note, sizeof s_note) == 0;
    if (!isRoom || head[units] == 0 || head[units] > s_mostUnits || head[shift] % 8 != 0 || head[shift] == 0 ||
        head[shift] > 24)
        return false;
    room = MovIndexRoom();
    room.m_at = at;
    room.m_units = head[units];
    room.m_shift = head[shift];
    room.takeState({head[0], head[1], head[2], head[3]});
    return true;
}

void MovIndexRoom::takeState(const std::array<std::uint8_t, 4>& head) {
    const unsigned state = head[3 - m_shift / 8];
    m_shown = state == stateByte(0) ? 0 : state == stateByte(1) ? 1 : s_hidden;
}

std::vector<MovCapacities> MovIndexRoom::capacitiesFor(const MovToldMovie& movie, unsigned factor) {
    std::vector<MovCapacities> all;
    for (const auto& track : movie.m_tracks) {
        MovCapacities capacities;
        for (unsigned i = 0; i < Table::Count; ++i)
            capacities[i] = (s_fewest[i] + track->m_tables.getEntries(static_cast<Table>(i))) * factor;
        all.push_back(capacities);
    }
    return all;
}

std::uint64_t MovIndexRoom::wantedSlot(const MovToldMovie& movie) {
    return MovMoov(movie, capacitiesFor(movie, 2), needsWide(movie)).getSize() + s_freeHead + s_spare;
}

bool MovIndexRoom::layOut(const MovToldMovie& movie) {
    m_isWide = needsWide(movie);
    m_capacities.clear();
    for (unsigned factor = 1; factor < 1024; factor *= 2) {
        const std::vector<MovCapacities> larger = capacitiesFor(movie, factor);
        if (MovMoov(movie, larger, m_isWide).getSize() + s_freeHead + s_spare > getSlotSize()) break;
        m_capacities = larger;
    }
    if (m_capacities.size() != movie.m_tracks.size()) return false;
    const MovMoov moov = build(movie);
    m_rooms = moov.getRooms();
    m_moovSize = moov.getSize();
    distrust();
    return true;
}

bool MovIndexRoom::isLaidOut(const MovToldMovie& movie) const {
    return !m_capacities.empty() && m_capacities.size() == movie.m_tracks.size();
}

bool MovIndexRoom::holds(const MovToldMovie& movie, const MovMoov& moov) const {
    if (moov.getSize() != m_moovSize || moov.getRooms() != m_rooms || (needsWide(movie) && !m_isWide)) return false;
    return std::all_of(m_rooms.begin(), m_rooms.end(), [&movie](const MovMoov::Room& room) {
        return movie.m_tracks[room.m_track]->m_tables.getEntries(room.m_table) <= room.m_capacity;
    });
}

OpResult MovIndexRoom::putMoov(const Put& put, unsigned slot, const MovToldMovie& movie, const MovMoov& moov) {
    const std::uint64_t start = m_at + s_head + slot * getSlotSize();
    std::vector<std::uint8_t> bytes;
    OpResult result(OpResult::Ok);
    for (const MovMoov::Segment& segment : moov.getSegments()) {
        const auto from = moov.getBytes().begin() + static_cast<std::ptrdiff_t>(segment.m_from);
        bytes.assign(from, from + static_cast<std::ptrdiff_t>(segment.m_count));
        result = put(start + segment.m_at, bytes);
        if (!result) return result;
    }
    for (std::size_t i = 0; i < m_rooms.size(); ++i) {
        const MovMoov::Room& room = m_rooms[i];
        const MovToldTrack& track = *movie.m_tracks[room.m_track];
        std::uint64_t& written = m_written[slot][i];
        bytes.clear();
        MovMoov::putEntries(track, room, written, m_isWide, bytes);
        result = put(start + room.m_at + written * MovTrackTables::entrySize(room.m_table, m_isWide), bytes);
        if (!result) return result;
        written = track.m_tables.getSettled(room.m_table);
    }
    MovAtomWriter rest;
    rest.be32(getEnd() - start - moov.getSize()).be32(MovAtom::s_free);
    return put(start + moov.getSize(), rest.getBytes());
}

void MovIndexRoom::distrust() {
    for (auto& written : m_written)
        written.assign(m_rooms.size(), 0);
}
