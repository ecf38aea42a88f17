#include "backends/mov/mov_parser.h"

#include <utility>

#include "backends/common/byte_cursor.h"
#include "backends/mov/mov_fragments.h"
#include "backends/mov/mov_track_parser.h"
#include "services/system/format_str.h"
#include "shared/include/object/core_subsystem.h"

namespace {

OpResult refuse(const char* text) { return MO_WARNING(MediaCode::ParserError, text); }

OpResult refuse(const FormatStr& text) { return MO_WARNING(MediaCode::ParserError, text.get()); }

// What a movie file may begin with. Another file is none of ours.
bool mayBegin(MovCode type) {
    constexpr MovCode known[] = {MovAtom::s_ftyp, MovAtom::s_styp, MovAtom::s_moov, MovAtom::s_mdat,
                                 MovAtom::s_free, MovAtom::s_skip, MovAtom::s_wide, MovAtom::s_pnot,
                                 MovAtom::s_pict, MovAtom::s_uuid, MovAtom::s_moof, MovAtom::s_sidx,
                                 MovAtom::s_udta, MovAtom::s_meta, MovAtom::s_junk, MovAtom::s_pdin};
    for (const MovCode code : known) {
        if (code == type) return true;
    }
    return false;
}

}  // namespace

OpResult MovParser::parse(MovMovie& movie) {
    OpResult result = parseAtoms();
    if (m_file.failed() && !m_hasMovie) {
        result.discard();
        return MO_WARNING(MediaCode::ReadError, "mov: the file's atoms can't be read");
    }
    if (result) movie = std::move(m_movie);
    return result;
}

void MovParser::remark(const char* text) {
    if (text != nullptr) m_movie.remarks.emplace_back(text);
}

// Tells of what nobody will see.
void MovParser::cut(const char* text) {
    remark(text);
    m_movie.isPartial = true;
}

OpResult MovParser::parseAtoms() {
    const std::uint64_t length = m_file.length();
    MovBoxReader reader(m_file, 0, length, m_left);
    MovFragments fragments(m_file, m_leftOfFragments);
    MovBox box;
    bool isFirst = true, hasFragments = false;
    while (reader.next(box)) {
        if (isFirst && !mayBegin(box.type)) {
            return MO_WARNING(MediaCode::UnsupportedMediaType, "mov: no atom of a movie at the start");
        }
        isFirst = false;
        if (box.type == MovAtom::s_moov && !m_hasMovie) {
            OpResult result = parseMovie(box);
            if (!result) return result;
        } else if (box.type == MovAtom::s_moof && m_hasMovie) {
            hasFragments = true;
            if (!fragments.add(box, m_movie)) break;
        }
    }
    if (hasFragments) fragments.finish(m_movie);
    if (m_hasMovie && (m_left == 0 || m_leftOfFragments == 0)) cut("mov: more atoms than are looked at");
    if (isFirst) return refuse("mov: the file is too short for an atom");
    if (!m_hasMovie && reader.isDamaged()) {
        return refuse(
            FormatStr("mov: no atom at %llu, and no moov before it", static_cast<unsigned long long>(reader.place())));
    }
    if (!m_hasMovie) {
        return refuse(FormatStr("mov: no moov atom in %llu bytes", static_cast<unsigned long long>(length)));
    }
    m_movie.isFragmented = hasFragments;
    return OpResult(OpResult::Ok);
}

OpResult MovParser::parseMovie(const MovBox& moov) {
    if (moov.isCut) {
        return refuse(FormatStr("mov: the moov atom at %llu runs past the end of the file",
                                static_cast<unsigned long long>(moov.start)));
    }
    m_hasMovie = true;
    unsigned refused = 0;
    OpResult result = parseTracks(moov, refused);
    if (!result) return result;
    if (m_movie.timeScale == 0) return refuse("mov: no mvhd atom with a time scale");
    if (m_movie.tracks.empty()) return refuse("mov: no track can be shown");
    return OpResult(OpResult::Ok);
}

// A track that makes no sense is left out, and the last reason is told when none is left.
OpResult MovParser::parseTracks(const MovBox& moov, unsigned& refused) {
    MovBoxReader reader(m_file, moov.body, moov.end, m_left);
    MovTrackParser parser(m_file, m_left);
    OpResult last(OpResult::Ok);
    MovBox box;
    while (reader.next(box)) {
        if (box.type == MovAtom::s_mvhd) parseMovieHeader(box);
        if (box.type == MovAtom::s_cmov) {
            return MO_WARNING(MediaCode::UnsupportedMediaType, "mov: compressed headers are not supported");
        }
        if (box.type == MovAtom::s_udta) {
            m_movie.userData = box.body;
            m_movie.userDataSize = box.size();
        }
        const bool isFull = m_movie.tracks.size() >= MovLimit::s_tracks;
        if (box.type == MovAtom::s_trak && isFull && !m_movie.isPartial) {
            cut(FormatStr("mov: the tracks behind the first %u aren't shown", MovLimit::s_tracks).get());
        }
        if (box.type == MovAtom::s_trak && !isFull) {
            MovTrack track;
            OpResult result = parser.parse(box, track);
            if (result) {
                if (track.hasMoreEntries) {
                    cut(FormatStr("mov: track %u: samples behind the first %u descriptions lie nowhere", track.id,
                                  MovLimit::s_descriptions)
                            .get());
                }
                m_movie.tracks.push_back(std::move(track));
            } else {
                ++refused;
                remark(result.getMessage());
                last.discard();
                last = result;
            }
        }
        if (box.type == MovAtom::s_mvex) parseExtends(box);
    }
    if (m_movie.tracks.empty() && refused != 0) return last;
    last.discard();
    return OpResult(OpResult::Ok);
}

void MovParser::parseMovieHeader(const MovBox& box) {
    const std::uint8_t* head = box.size() >= 1 ? m_file.at(box.body, 1) : nullptr;
    if (head == nullptr) return;
    const bool isLong = head[0] == 1;
    const unsigned times = isLong ? 16 : 8;
    const unsigned size = 4 + times + (isLong ? 12 : 8);
    const std::uint8_t* body = box.size() >= size ? m_file.at(box.body, size) : nullptr;
    if (body == nullptr) return;
    ByteCursor cursor(body + 4 + times, size - 4 - times);
    m_movie.timeScale = cursor.be32();
    m_movie.duration = isLong ? cursor.be64() : cursor.be32();
}

void MovParser::parseExtends(const MovBox& mvex) {
    MovBoxReader reader(m_file, mvex.body, mvex.end, m_left);
    MovBox box;
    while (reader.next(box)) {
        if (box.type == MovAtom::s_trex) parseExtendsTrack(box);
    }
}

void MovParser::parseExtendsTrack(const MovBox& box) {
    constexpr unsigned size = 24;
    const std::uint8_t* body = box.size() >= size ? m_file.at(box.body, size) : nullptr;
    if (body == nullptr) return;
    ByteCursor cursor(body + 4, size - 4);
    const std::uint32_t id = cursor.be32();
    for (MovTrack& track : m_movie.tracks) {
        if (track.id != id) continue;
        track.defaultDescription = cursor.be32();
        track.defaultStep = cursor.be32();
        track.defaultSize = cursor.be32();
        track.defaultFlags = cursor.be32();
        return;
    }
}
