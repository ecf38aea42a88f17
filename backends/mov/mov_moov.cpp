#include "backends/mov/mov_moov.h"

#include <algorithm>

#include "backends/mov/mov_alias.h"
#include "backends/mov/mov_sample_entry.h"
#include "backends/mov/mov_timecode.h"

namespace {

using Table = MovTrackTables::Table;
__extension__ using Wide = unsigned __int128;

constexpr unsigned s_free = 8;               // the head of an atom that fills a room
constexpr std::uint32_t s_one = 1u << 16;    // 1.0
constexpr std::uint32_t s_trackFlags = 0xF;  // enabled, in movie, preview and poster
constexpr unsigned s_unknownLanguage = 0x7FFF;

struct Edit {
    std::uint64_t m_in;  // sample of the track
    std::uint64_t m_samples;
};

// As much of what the clip shows as the file tells of.
Edit editOf(const MovToldClip& clip) {
    const std::uint64_t in = std::min(clip.m_span->m_in.load(std::memory_order_relaxed), clip.m_told);
    const std::uint64_t out = std::min(clip.m_span->m_out.load(std::memory_order_relaxed), clip.m_told);
    return {clip.m_base + in, out > in ? out - in : 0};
}

// Rounded; exact as long as the movie's time base is a multiple of the track's.
std::uint64_t movieTicks(const MovToldMovie& movie, const MovToldTrack& track, std::uint64_t samples) {
    const std::uint64_t rate = track.m_param.m_sampleRate;
    const Wide ticks = Wide{samples} * track.m_param.m_ticksPerSample * movie.m_timescale;
    return static_cast<std::uint64_t>((ticks + rate / 2) / rate);
}

std::uint64_t durationOf(const MovToldMovie& movie, const MovToldTrack& track) {
    std::uint64_t ticks = 0;
    for (const MovToldClip& clip : track.m_clips)
        ticks += movieTicks(movie, track, editOf(clip).m_samples);
    return ticks;
}

std::uint64_t durationOf(const MovToldMovie& movie) {
    std::uint64_t ticks = 0;
    for (const auto& track : movie.m_tracks)
        ticks = std::max(ticks, durationOf(movie, *track));
    return ticks;
}

// The number of the track behind all others.
std::size_t timecodeTrack(const MovToldMovie& movie) { return movie.m_tracks.size() + 1; }

void putMatrix(MovAtomWriter& out) { out.be32(s_one).zeros(12).be32(s_one).zeros(12).be32(1u << 30); }

MovCode codeOf(Table table, bool isWide) {
    switch (table) {
        case Table::Sync:
            return MovAtom::s_stss;
        case Table::Order:
            return MovAtom::s_ctts;
        case Table::Chunk:
            return MovAtom::s_stsc;
        case Table::Size:
            return MovAtom::s_stsz;
        default:
            return isWide ? MovAtom::s_co64 : MovAtom::s_stco;
    }
}

void putHandler(MovAtomWriter& out, MovCode type, MovCode subtype, const char* name) {
    out.open(MovAtom::s_hdlr, 0, 0).be32(type).be32(subtype).zeros(12).pascal(name).close();
}

}  // namespace

std::vector<unsigned> MovToldTrack::getMedia() const {
    std::vector<unsigned> media;
    for (const MovToldClip& clip : m_clips) {
        if (std::find(media.begin(), media.end(), clip.m_media) == media.end()) media.push_back(clip.m_media);
    }
    return media;
}

unsigned MovToldTrack::getDescription(unsigned media) const {
    const std::vector<unsigned> all = getMedia();
    return static_cast<unsigned>(std::find(all.begin(), all.end(), media) - all.begin()) + 1;
}

std::uint64_t MovMoov::roomBytes(Table table, std::uint64_t capacity, bool isWide) {
    return capacity * MovTrackTables::entrySize(table, isWide) + s_free;
}

void MovMoov::putEntries(const MovToldTrack& track, const Room& room, std::uint64_t from, bool isWide,
                         std::vector<std::uint8_t>& bytes) {
    const std::uint64_t entries = track.m_tables.getEntries(room.m_table);
    track.m_tables.encode(room.m_table, from, entries, isWide, track.m_param.m_ticksPerSample, bytes);
    const std::uint64_t rest = roomBytes(room.m_table, room.m_capacity - entries, isWide);
    MovAtomWriter out;
    out.be32(rest).be32(MovAtom::s_free);
    bytes.insert(bytes.end(), out.getBytes().begin(), out.getBytes().end());
}

MovMoov::MovMoov(const MovToldMovie& movie, const std::vector<MovCapacities>& capacities, bool isWide) {
    m_out.open(MovAtom::s_moov);
    putMovieHead(movie);
    for (unsigned i = 0; i < movie.m_tracks.size(); ++i)
        putTrack(movie, i, capacities[i], isWide);
    if (movie.m_timecode.m_scale != 0) putTimecode(movie);
    if (!movie.m_userData.empty()) {
        m_out.open(MovAtom::s_udta).bytes(movie.m_userData.data(), movie.m_userData.size()).close();
    }
    m_out.close();
    cut();
}

// What has been put since the last cut goes in one piece.
void MovMoov::cut() {
    const std::size_t count = m_out.getBytes().size() - m_cutAt;
    if (count != 0) m_segments.push_back({m_cutAt, count, m_segmentAt});
    m_cutAt += count;
    m_segmentAt += count;
}

void MovMoov::putMovieHead(const MovToldMovie& movie) {
    const std::uint64_t duration = durationOf(movie);
    m_out.open(MovAtom::s_mvhd, 1, 0).be64(movie.m_created).be64(movie.m_created);
    m_out.be32(movie.m_timescale).be64(duration).be32(s_one).be16(0x100).zeros(10);
    putMatrix(m_out);
    m_out.zeros(24).be32(timecodeTrack(movie) + (movie.m_timecode.m_scale != 0 ? 1 : 0)).close();
}

void MovMoov::putTrack(const MovToldMovie& movie, unsigned number, const MovCapacities& capacities, bool isWide) {
    const MovToldTrack& track = *movie.m_tracks[number];
    m_out.open(MovAtom::s_trak);
    putTrackHead(movie, track, number);
    putEdits(movie, track);
    if (movie.m_timecode.m_scale != 0 && track.m_param.m_dataType == MediaDataType::Video)
        m_out.open(MovAtom::s_tref).open(MovAtom::s_tmcd).be32(timecodeTrack(movie)).close().close();
    m_out.open(MovAtom::s_mdia);
    putMediaHead(movie, track);
    m_out.open(MovAtom::s_minf);
    if (track.m_param.m_dataType == MediaDataType::Video) {
        m_out.open(MovAtom::s_vmhd, 0, 1).be16(0x40).be16(0x8000).be16(0x8000).be16(0x8000).close();
    } else {
        m_out.open(MovAtom::s_smhd, 0, 0).be32(0).close();
    }
    putHandler(m_out, MovAtom::s_dhlr, MovAtom::s_url, "DataHandler");
    putReferences(movie, track);
    m_out.open(movCode("stbl"));
    putDescriptions(track);
    const std::uint64_t samples = track.m_tables.getSamples();
    m_out.open(MovAtom::s_stts, 0, 0).be32(1).be32(samples).be32(track.m_param.m_ticksPerSample).close();
    for (const Table table : {Table::Sync, Table::Order, Table::Chunk, Table::Size, Table::Offset}) {
        if (track.m_tables.has(table)) putTable(track, number, table, capacities[table], isWide);
    }
    m_out.close().close().close().close();  // stbl, minf, mdia, trak
}

void MovMoov::putTrackHead(const MovToldMovie& movie, const MovToldTrack& track, unsigned number) {
    const bool isVideo = track.m_param.m_dataType == MediaDataType::Video;
    m_out.open(MovAtom::s_tkhd, 1, s_trackFlags).be64(movie.m_created).be64(movie.m_created).be32(number + 1).be32(0);
    m_out.be64(durationOf(movie, track)).zeros(8).be16(0).be16(0).be16(isVideo ? 0 : 0x100).be16(0);
    putMatrix(m_out);
    m_out.be32(isVideo ? track.m_param.m_width << 16 : 0).be32(isVideo ? track.m_param.m_height << 16 : 0).close();
}

void MovMoov::putEdits(const MovToldMovie& movie, const MovToldTrack& track) {
    if (track.m_clips.empty()) return;
    const std::uint64_t late = track.m_tables.getLate();
    m_out.open(MovAtom::s_edts).open(MovAtom::s_elst, 1, 0).be32(track.m_clips.size());
    for (const MovToldClip& clip : track.m_clips) {
        const Edit edit = editOf(clip);
        m_out.be64(movieTicks(movie, track, edit.m_samples));
        m_out.be64((edit.m_in + late) * track.m_param.m_ticksPerSample).be32(s_one);
    }
    m_out.close().close();
}

void MovMoov::putMediaHead(const MovToldMovie& movie, const MovToldTrack& track) {
    const MediaClipParam& param = track.m_param;
    m_out.open(MovAtom::s_mdhd, 1, 0).be64(movie.m_created).be64(movie.m_created).be32(param.m_sampleRate);
    m_out.be64(track.m_tables.getSamples() * param.m_ticksPerSample).be16(s_unknownLanguage).be16(0).close();
    const bool isVideo = param.m_dataType == MediaDataType::Video;
    putHandler(m_out, MovAtom::s_mhlr, isVideo ? MovAtom::s_vide : MovAtom::s_soun,
               isVideo ? "VideoHandler" : "SoundHandler");
}

void MovMoov::putReferences(const MovToldMovie& movie, const MovToldTrack& track) {
    const std::vector<unsigned> all = track.getMedia();
    m_out.open(MovAtom::s_dinf).open(MovAtom::s_dref, 0, 0).be32(std::max<std::size_t>(all.size(), 1));
    for (const unsigned number : all) {
        const MovToldMedia& media = movie.m_media[number];
        media.m_isSelf ? MovAlias::putSelf(m_out) : MovAlias::put(m_out, movie.m_path, media.m_path);
    }
    if (all.empty()) MovAlias::putSelf(m_out);
    m_out.close().close();
}

void MovMoov::putDescriptions(const MovToldTrack& track) {
    const std::size_t count = std::max<std::size_t>(track.getMedia().size(), 1);
    m_out.open(MovAtom::s_stsd, 0, 0).be32(count);
    for (unsigned i = 1; i <= count; ++i)
        MovSampleEntry::put(m_out, track.m_param, i, track.m_avcC);
    m_out.close();
}

// One sample, of the whole movie's length. The places have one size wherever it lies.
void MovMoov::putTimecode(const MovToldMovie& movie) {
    const MovToldTimecode& timecode = movie.m_timecode;
    const std::uint64_t length = durationOf(movie);
    const Wide wide = (Wide{length} * timecode.m_scale + movie.m_timescale / 2) / movie.m_timescale;
    const auto duration = static_cast<std::uint32_t>(std::min<Wide>(wide, 0xFFFFFFFF));
    m_out.open(MovAtom::s_trak);
    m_out.open(MovAtom::s_tkhd, 1, s_trackFlags).be64(movie.m_created).be64(movie.m_created);
    m_out.be32(timecodeTrack(movie)).be32(0).be64(length).zeros(16);
    putMatrix(m_out);
    m_out.be32(0).be32(0).close();
    m_out.open(MovAtom::s_edts).open(MovAtom::s_elst, 1, 0).be32(1).be64(length).be64(0).be32(s_one).close().close();
    m_out.open(MovAtom::s_mdia);
    m_out.open(MovAtom::s_mdhd, 1, 0).be64(movie.m_created).be64(movie.m_created).be32(timecode.m_scale);
    m_out.be64(duration).be16(s_unknownLanguage).be16(0).close();
    putHandler(m_out, MovAtom::s_mhlr, MovAtom::s_tmcd, "TimeCodeHandler");
    m_out.open(MovAtom::s_minf);
    putTimecodeHead(timecode);
    m_out.open(MovAtom::s_stts, 0, 0).be32(1).be32(1).be32(duration).close();
    m_out.open(MovAtom::s_stsc, 0, 0).be32(1).be32(1).be32(1).be32(1).close();
    m_out.open(MovAtom::s_stsz, 0, 0).be32(MovTimecode::s_sampleSize).be32(1).close();
    m_out.open(MovAtom::s_co64, 0, 0).be32(1).be64(timecode.m_at).close();
    m_out.close().close().close().close();  // stbl, minf, mdia, trak
}

// Up to the tables; how it looks on a picture is the player's own business, but has to be said.
void MovMoov::putTimecodeHead(const MovToldTimecode& timecode) {
    constexpr unsigned fontSize = 12, wraps = 2;
    m_out.open(MovAtom::s_gmhd);
    m_out.open(MovAtom::s_gmin, 0, 0).be16(0x40).be16(0x8000).be16(0x8000).be16(0x8000).be16(0).be16(0).close();
    m_out.open(MovAtom::s_tmcd).open(MovAtom::s_tcmi, 0, 0).be16(0).be16(0).be16(fontSize).be16(0);
    m_out.zeros(6).be16(0xFFFF).be16(0xFFFF).be16(0xFFFF).pascal("Monaco").close().close();
    m_out.close();
    putHandler(m_out, MovAtom::s_dhlr, MovAtom::s_url, "DataHandler");
    m_out.open(MovAtom::s_dinf).open(MovAtom::s_dref, 0, 0).be32(1);
    MovAlias::putSelf(m_out);
    m_out.close().close();
    m_out.open(MovAtom::s_stbl).open(MovAtom::s_stsd, 0, 0).be32(1);
    m_out.open(MovAtom::s_tmcd).zeros(6).be16(1).be32(0).be32(wraps | (timecode.m_isDropFrame ? 1 : 0));
    const unsigned frames = (timecode.m_scale + timecode.m_step - 1) / timecode.m_step;
    m_out.be32(timecode.m_scale).be32(timecode.m_step).be8(frames).be8(0).close().close();
}

void MovMoov::putTable(const MovToldTrack& track, unsigned number, Table table, std::uint64_t capacity, bool isWide) {
    const MovTrackTables& tables = track.m_tables;
    const std::uint64_t entries = tables.getEntries(table);
    m_out.open(codeOf(table, isWide), 0, 0);
    if (table == Table::Size) m_out.be32(tables.getFixedSize());
    const bool isFixed = table == Table::Size && tables.getFixedSize() != 0;
    m_out.be32(isFixed ? tables.getSamples() : entries);
    if (isFixed) {
        m_out.close();
        return;
    }
    // The atom ends with its entries; the rest of the room counts for the atoms around it.
    const std::uint64_t held = entries * MovTrackTables::entrySize(table, isWide);
    cut();
    m_rooms.push_back({number, table, m_out.getPosition(), capacity});
    m_out.leaveOut(held).close();
    m_out.leaveOut(roomBytes(table, capacity, isWide) - held);
    m_segmentAt = m_out.getPosition();
}
