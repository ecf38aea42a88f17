#include "backends/mov/mov_track_parser.h"

#include <algorithm>

#include "backends/common/byte_cursor.h"
#include "backends/mov/mov_entry_parser.h"
#include "services/system/format_str.h"
#include "shared/include/object/core_subsystem.h"

namespace {

constexpr unsigned s_fullHead = 4;  // version and flags

MediaDataType typeOf(MovCode handler) {
    if (handler == MovAtom::s_vide) return MediaDataType::Video;
    if (handler == MovAtom::s_soun) return MediaDataType::Audio;
    return MediaDataType::Data;
}

}  // namespace

OpResult MovTrackParser::parse(const MovBox& trak, MovTrack& track) {
    m_track = MovTrack();
    m_descriptionLists.clear();
    m_damage.clear();
    parseTrack(trak);
    for (const MovBox& list : m_descriptionLists)
        parseDescriptions(list);
    OpResult result = check();
    if (result) track = std::move(m_track);
    return result;
}

OpResult MovTrackParser::refuse(const char* what) const {
    const FormatStr text("mov: track %u: %s", m_track.id, what);
    return MO_WARNING(MediaCode::ParserError, text.get());
}

OpResult MovTrackParser::check() {
    if (!m_damage.empty()) return refuse(m_damage.c_str());
    if (m_track.handler == 0) return refuse("no hdlr atom says what it is");
    if (m_track.timeScale == 0) return refuse("no mdhd atom with a time scale");
    MovTablePlaces& places = m_track.places;
    const bool isEmpty = places.samples == 0 || places.chunks.count == 0;
    if (isEmpty) places.samples = 0;
    if (!isEmpty && places.runs.count == 0) return refuse("no stsc atom says which samples are in a chunk");
    if (places.fixedSize == 0) places.samples = std::min(places.samples, places.sizes.count);
    return OpResult(OpResult::Ok);
}

void MovTrackParser::damage(const MovBox& box, const char* what) {
    if (!m_damage.empty()) return;
    m_damage = FormatStr("the %s atom at %llu %s", MovCodeText(box.type).text,
                         static_cast<unsigned long long>(box.start), what)
                   .get();
}

const std::uint8_t* MovTrackParser::bodyOf(const MovBox& box, unsigned size) {
    return box.size() >= size ? m_file.at(box.body, size) : nullptr;
}

void MovTrackParser::parseTrack(const MovBox& trak) {
    MovBoxReader reader(m_file, trak.body, trak.end, m_left);
    MovBox box;
    while (reader.next(box)) {
        if (box.type == MovAtom::s_tkhd) parseHeader(box);
        if (box.type == MovAtom::s_mdia) parseMedia(box);
        if (box.type == MovAtom::s_tref) parseReferenceToTracks(box);
        if (box.type == MovAtom::s_edts) {
            MovBoxReader edits(m_file, box.body, box.end, m_left);
            MovBox list;
            while (edits.next(list)) {
                if (list.type == MovAtom::s_elst) parseEdits(list);
            }
        }
    }
}

void MovTrackParser::parseMedia(const MovBox& mdia) {
    MovBoxReader reader(m_file, mdia.body, mdia.end, m_left);
    MovBox box;
    while (reader.next(box)) {
        if (box.type == MovAtom::s_mdhd) parseMediaHeader(box);
        if (box.type == MovAtom::s_hdlr) parseHandler(box);
        if (box.type == MovAtom::s_minf) parseInformation(box);
    }
}

void MovTrackParser::parseInformation(const MovBox& minf) {
    MovBoxReader reader(m_file, minf.body, minf.end, m_left);
    MovBox box;
    while (reader.next(box)) {
        if (box.type == MovAtom::s_dinf) parseDataInformation(box);
        if (box.type == MovAtom::s_stbl) parseSampleTable(box);
    }
}

void MovTrackParser::parseDataInformation(const MovBox& dinf) {
    MovBoxReader reader(m_file, dinf.body, dinf.end, m_left);
    MovBox box;
    while (reader.next(box)) {
        if (box.type == MovAtom::s_dref) parseReferences(box);
    }
}

void MovTrackParser::parseSampleTable(const MovBox& stbl) {
    MovTablePlaces& places = m_track.places;
    MovBoxReader reader(m_file, stbl.body, stbl.end, m_left);
    MovBox box;
    while (reader.next(box)) {
        if (box.type == MovAtom::s_stsd && m_descriptionLists.empty()) m_descriptionLists.push_back(box);
        if (box.type == MovAtom::s_stsz) parseSizes(box);
        if (box.type == MovAtom::s_stz2) parseCompactSizes(box);
        if (box.type == MovAtom::s_stsc) parseTable(box, 12, places.runs);
        if (box.type == MovAtom::s_stts) parseTable(box, 8, places.times);
        if (box.type == MovAtom::s_ctts) parseTable(box, 8, places.shifts);
        if (box.type == MovAtom::s_stco || box.type == MovAtom::s_co64) {
            places.isWide = box.type == MovAtom::s_co64;
            parseTable(box, places.isWide ? 8 : 4, places.chunks);
        }
        if (box.type == MovAtom::s_stss) {
            parseTable(box, 4, places.syncs);
            places.hasSyncs = true;
        }
    }
}

void MovTrackParser::parseHeader(const MovBox& box) {
    const std::uint8_t* head = bodyOf(box, 1);
    const bool isLong = head != nullptr && head[0] == 1;
    const unsigned size = isLong ? 96 : 84;
    const std::uint8_t* body = bodyOf(box, size);
    if (body == nullptr) return;
    ByteCursor id(body + s_fullHead + (isLong ? 16 : 8), 4);
    m_track.id = id.be32();
    ByteCursor shape(body + size - 8, 8);
    m_track.displayWidth = shape.be32() >> 16;
    m_track.displayHeight = shape.be32() >> 16;
}

void MovTrackParser::parseMediaHeader(const MovBox& box) {
    const std::uint8_t* head = bodyOf(box, 1);
    const bool isLong = head != nullptr && head[0] == 1;
    const unsigned size = isLong ? 32 : 20;
    const std::uint8_t* body = bodyOf(box, size);
    if (body == nullptr) return;
    ByteCursor cursor(body + s_fullHead + (isLong ? 16 : 8), size - s_fullHead - (isLong ? 16 : 8));
    m_track.timeScale = cursor.be32();
    m_track.duration = isLong ? cursor.be64() : cursor.be32();
}

void MovTrackParser::parseHandler(const MovBox& box) {
    const std::uint8_t* body = bodyOf(box, 12);
    if (body == nullptr) return;
    ByteCursor cursor(body + 8, 4);
    m_track.handler = cursor.be32();
    m_track.type = typeOf(m_track.handler);
}

void MovTrackParser::parseReferenceToTracks(const MovBox& tref) {
    MovBoxReader reader(m_file, tref.body, tref.end, m_left);
    MovBox box;
    while (reader.next(box)) {
        const std::uint8_t* body = box.type == MovAtom::s_tmcd ? bodyOf(box, 4) : nullptr;
        if (body == nullptr) continue;
        ByteCursor cursor(body, 4);
        m_track.timecodeTrack = cursor.be32();
    }
}

// A list's count, which stands `before` bytes into the atom, cut to what the atom can hold.
bool MovTrackParser::readCount(const MovBox& box, unsigned before, std::uint32_t& count, std::uint64_t& entries) {
    const std::uint8_t* body = bodyOf(box, before + 4);
    if (body == nullptr) {
        damage(box, "is too short");
        return false;
    }
    ByteCursor cursor(body + before, 4);
    count = cursor.be32();
    entries = box.body + before + 4;
    return true;
}

// A table that claims more than its atom holds can't be trusted in anything.
void MovTrackParser::parseTable(const MovBox& box, unsigned entrySize, MovTable& table) {
    std::uint32_t count = 0;
    if (!readCount(box, s_fullHead, count, table.offset)) return;
    if (std::uint64_t{count} * entrySize > box.end - table.offset) {
        damage(box, "claims more entries than it holds");
        return;
    }
    table.count = count;
}

void MovTrackParser::parseSizes(const MovBox& box) {
    MovTablePlaces& places = m_track.places;
    std::uint32_t count = 0;
    if (!readCount(box, s_fullHead + 4, count, places.sizes.offset)) return;
    const std::uint8_t* body = bodyOf(box, s_fullHead + 4);
    ByteCursor cursor(body + s_fullHead, 4);
    places.fixedSize = cursor.be32();
    places.sizeBits = 32;
    places.samples = count;
    if (places.fixedSize != 0) return;
    if (count * std::uint64_t{4} > box.end - places.sizes.offset) {
        damage(box, "claims more sizes than it holds");
        return;
    }
    places.sizes.count = count;
}

void MovTrackParser::parseCompactSizes(const MovBox& box) {
    MovTablePlaces& places = m_track.places;
    std::uint32_t count = 0;
    if (!readCount(box, s_fullHead + 4, count, places.sizes.offset)) return;
    const unsigned bits = bodyOf(box, s_fullHead + 4)[s_fullHead + 3];
    const bool isKnown = bits == 4 || bits == 8 || bits == 16;
    if (!isKnown || (std::uint64_t{count} * bits + 7) / 8 > box.end - places.sizes.offset) {
        damage(box, isKnown ? "claims more sizes than it holds" : "has sizes of an unknown width");
        return;
    }
    places.fixedSize = 0;
    places.sizeBits = bits;
    places.samples = places.sizes.count = count;
}

void MovTrackParser::parseEdits(const MovBox& box) {
    std::uint32_t count = 0;
    std::uint64_t at = 0;
    if (!readCount(box, s_fullHead, count, at)) return;
    const bool isLong = bodyOf(box, 1)[0] == 1;
    const unsigned size = isLong ? 20 : 12;
    count = std::min(count, MovLimit::s_clips + 1);
    for (std::uint32_t i = 0; i < count && box.end - at >= size; ++i, at += size) {
        const std::uint8_t* bytes = m_file.at(at, size);
        if (bytes == nullptr) break;
        ByteCursor cursor(bytes, size);
        MovEdit edit;
        edit.duration = isLong ? cursor.be64() : cursor.be32();
        edit.start = isLong ? static_cast<std::int64_t>(cursor.be64()) : static_cast<std::int32_t>(cursor.be32());
        edit.rate = cursor.be32();
        m_track.edits.push_back(edit);
    }
}

void MovTrackParser::parseReferences(const MovBox& dref) {
    std::uint32_t count = 0;
    std::uint64_t at = 0;
    if (!readCount(dref, s_fullHead, count, at)) return;
    MovBoxReader reader(m_file, at, dref.end, m_left);
    MovBox box;
    for (std::uint32_t i = 0; i < std::min(count, MovLimit::s_references) && reader.next(box); ++i) {
        const auto size = static_cast<unsigned>(std::min<std::uint64_t>(box.size(), FileWindow::s_size));
        const std::uint8_t* body = size >= s_fullHead ? m_file.at(box.body, size) : nullptr;
        if (body == nullptr) break;
        ByteCursor cursor(body, s_fullHead);
        m_track.references.push_back(
            MovReferences::parse(box.type, cursor.be32() & 0xFFFFFF, body + s_fullHead, size - s_fullHead));
    }
}

void MovTrackParser::parseDescriptions(const MovBox& stsd) {
    std::uint32_t count = 0;
    std::uint64_t at = 0;
    if (!readCount(stsd, s_fullHead, count, at)) return;
    const bool isIsoVersion1 = bodyOf(stsd, 1)[0] == 1;
    MovBoxReader reader(m_file, at, stsd.end, m_left);
    MovBox box;
    m_track.hasMoreEntries = count > MovLimit::s_descriptions;
    for (std::uint32_t i = 0; i < std::min(count, MovLimit::s_descriptions) && reader.next(box); ++i) {
        MovEntryParser parser(m_file, m_left);
        m_track.entries.push_back(parser.parse(box, m_track.type, m_track.handler, isIsoVersion1));
    }
}
