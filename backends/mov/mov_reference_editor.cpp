#include "backends/mov/mov_reference_editor.h"

#include <algorithm>
#include <cstring>

#include "backends/common/byte_cursor.h"
#include "backends/mov/mov_alias.h"
#include "backends/mov/mov_index_room.h"
#include "backends/mov/mov_references.h"
#include "services/system/format_str.h"
#include "shared/include/object/core_subsystem.h"
#include "shared/include/object/media_obj.h"

namespace {

constexpr std::uint64_t s_mostMoov = 1u << 28;  // bytes
constexpr unsigned s_head = 8, s_longHead = 16;
constexpr unsigned s_depth = 32;  // atoms inside one another

OpResult unreadable(const std::string& path) {
    return MO_WARNING(MediaCode::UnknownError, FormatStr("mov: %s: the references can't be read", path.c_str()).get());
}

OpResult unwritable(const std::string& path) {
    return MO_WARNING(MediaCode::WriteError, FormatStr("mov: %s: the references can't be written", path.c_str()).get());
}

std::uint32_t word(const std::uint8_t* bytes) { return ByteCursor(bytes, 4).be32(); }

bool isFolder(MovCode code) {
    return code == MovAtom::s_trak || code == MovAtom::s_mdia || code == MovAtom::s_minf || code == MovAtom::s_dinf;
}

std::string absolute(const char* path) {
    const AutoRefPtr<FsFileIO> file(new FsFileIO("temp", path, BasicIOTypes::Mode::ReadOnly));
    return MovAlias::normal(file->getAbsolutePath());
}

}  // namespace

MovReferenceEditor::MovReferenceEditor(const std::string& path) : m_path(MovAlias::normal(path)) {}

OpResult MovReferenceEditor::read() {
    const AutoRefPtr<FsFileIO> file(new FsFileIO("references", m_path.c_str(), BasicIOTypes::Mode::ReadOnly));
    if (!file->open()) return unreadable(m_path);
    OpResult result = findMovie(*file);
    if (!result) return result;
    m_entries.clear();
    return walk(m_moov.data(), m_moov.size(), false, 0) ? OpResult(OpResult::Ok) : unreadable(m_path);
}

OpResult MovReferenceEditor::findMovie(FsFileIO& file) {
    m_length = file.getLength();
    m_moovAt = m_roomAt = 0;
    std::uint64_t room = 0;
    std::uint8_t head[MovIndexRoom::s_head];
    for (std::uint64_t at = 0, size = 0; at < m_length; at += size) {
        const auto there = static_cast<unsigned>(std::min<std::uint64_t>(sizeof head, m_length - at));
        std::memset(head, 0, sizeof head);
        if (there < s_head || file.readAt(at, head, there) != static_cast<int>(there)) break;
        size = word(head);
        const MovCode code = word(head + 4);
        const std::uint64_t longSize = ByteCursor(head + 8, 8).be64();
        if (size == 1) size = longSize;
        m_lastAt = at;
        m_lastIsOpen = size == 0;
        m_lastCanClose = size == 0 && code == MovAtom::s_mdat && longSize == 0 && room == at;
        if (size == 0) size = m_length - at;
        if (size < s_head || size > m_length - at) break;
        MovIndexRoom found;
        if (code == MovAtom::s_free && there == sizeof head && MovIndexRoom::find(at, head, found)) {
            room = found.getEnd();
            if (m_moovAt == 0) m_roomAt = at;
        }
        if (code != MovAtom::s_moov || m_moovAt != 0) continue;
        m_moovAt = at;
        m_moovSize = size;
        if (size > s_mostMoov || word(head) < s_head) return unreadable(m_path);
        if (room < at) m_roomAt = 0;
    }
    if (m_moovAt == 0) return unreadable(m_path);
    m_moov.resize(m_moovSize - s_head);
    const auto wanted = static_cast<unsigned>(m_moov.size());
    return file.readAt(m_moovAt + s_head, m_moov.data(), wanted) == static_cast<int>(wanted) ? OpResult(OpResult::Ok)
                                                                                             : unreadable(m_path);
}

// Reads the entries in their order, or copies all but them.
bool MovReferenceEditor::walk(const std::uint8_t* bytes, std::uint64_t size, bool isRewrite, unsigned depth) {
    while (size >= s_head) {
        const std::uint64_t atom = word(bytes);
        const MovCode code = word(bytes + 4);
        if (atom < s_head || atom > size || depth > s_depth) return false;
        if (isFolder(code)) {
            if (isRewrite) m_out.open(code);
            if (!walk(bytes + s_head, atom - s_head, isRewrite, depth + 1)) return false;
            if (isRewrite) m_out.close();
        } else if (code == MovAtom::s_dref) {
            if (!walkReferences(bytes + s_head, atom - s_head, isRewrite)) return false;
        } else if (isRewrite) {
            m_out.bytes(bytes, atom);
        }
        bytes += atom;
        size -= atom;
    }
    if (isRewrite) m_out.bytes(bytes, size);  // such as a closing word of zeros
    return true;
}

bool MovReferenceEditor::walkReferences(const std::uint8_t* bytes, std::uint64_t size, bool isRewrite) {
    if (size < 8) return false;
    const std::uint32_t count = std::min<std::uint32_t>(word(bytes + 4), MovLimit::s_references);
    if (isRewrite) m_out.open(MovAtom::s_dref, 0, 0).be32(count);
    std::uint64_t at = 8;
    for (std::uint32_t i = 0; i < count; ++i) {
        if (size - at < 12) return false;
        const std::uint64_t atom = word(bytes + at);
        if (atom < 12 || atom > size - at) return false;
        if (isRewrite) {
            putEntry(m_entries[m_next++]);
        } else {
            Entry entry;
            entry.m_kind = word(bytes + at + 4);
            const MovReference reference =
                MovReferences::parse(entry.m_kind, word(bytes + at + 8) & 0xFFFFFF, bytes + at + 12, atom - 12);
            bool isThere = false;
            entry.m_isSelf = reference.isSelf;
            if (!entry.m_isSelf) entry.m_path = MovReferences::resolve(reference, m_path, isThere);
            if (!entry.m_path.empty()) entry.m_path = MovAlias::normal(entry.m_path);
            entry.m_bytes.assign(bytes + at, bytes + at + atom);
            m_entries.push_back(entry);
        }
        at += atom;
    }
    if (isRewrite) m_out.close();
    return true;
}

bool MovReferenceEditor::hasOthers() const {
    return std::any_of(m_entries.begin(), m_entries.end(), [](const Entry& entry) { return !entry.m_path.empty(); });
}

bool MovReferenceEditor::lead(const std::string& from, const std::string& to) {
    bool isLed = false;
    for (Entry& entry : m_entries) {
        if (entry.m_isSelf || entry.m_path != from) continue;
        entry.m_path = to;
        isLed = true;
    }
    return isLed;
}

// In the form that it had.
void MovReferenceEditor::putEntry(const Entry& entry) {
    if (entry.m_isSelf || entry.m_path.empty()) {
        m_out.bytes(entry.m_bytes.data(), entry.m_bytes.size());
    } else if (entry.m_kind == MovAtom::s_url) {
        const std::string folder = MovReferences::folderOf(m_path);
        const bool isInside = entry.m_path.compare(0, folder.size(), folder) == 0;
        const std::string url = MovReferences::encodeUrl(isInside ? entry.m_path.substr(folder.size()) : entry.m_path);
        m_out.open(entry.m_kind, 0, 0).bytes(url.c_str(), url.size() + 1).close();
    } else {
        MovAlias::put(m_out, m_path, entry.m_path);
    }
}

OpResult MovReferenceEditor::put(FsFileIO& file, std::uint64_t at, const std::vector<std::uint8_t>& bytes) {
    const auto size = static_cast<unsigned>(bytes.size());
    return file.writeAt(at, bytes.data(), size) == static_cast<int>(size) ? OpResult(OpResult::Ok)
                                                                          : unwritable(file.getPath());
}

OpResult MovReferenceEditor::write(const std::string& path) {
    m_path = MovAlias::normal(path);
    const AutoRefPtr<FsFileIO> file(new FsFileIO("references", m_path.c_str(), BasicIOTypes::Mode::Update));
    if (!file->open()) return MO_WARNING(MediaCode::FileNotWritable, nullptr);
    m_out = MovAtomWriter();
    m_next = 0;
    m_out.open(MovAtom::s_moov);
    if (!walk(m_moov.data(), m_moov.size(), true, 0)) return unreadable(m_path);
    m_out.close();
    const bool fits = m_roomAt != 0 && m_out.getBytes().size() == m_moovSize;
    OpResult result = fits ? putInSlot(*file) : putBehind(*file);
    return result && !file->flush() ? unwritable(m_path) : std::move(result);
}

OpResult MovReferenceEditor::putInSlot(FsFileIO& file) {
    std::uint8_t head[MovIndexRoom::s_head];
    MovIndexRoom room;
    const bool isRead = file.readAt(m_roomAt, head, sizeof head) == static_cast<int>(sizeof head);
    if (!isRead || !MovIndexRoom::find(m_roomAt, head, room)) return unreadable(m_path);
    const unsigned slot = room.getShown() == 0 ? 1 : 0;
    std::vector<std::uint8_t> bytes = m_out.getBytes();
    const std::uint64_t at = room.getSlotAt(slot);
    MovAtomWriter rest;
    rest.be32(room.getEnd() - at - bytes.size()).be32(MovAtom::s_free);
    bytes.insert(bytes.end(), rest.getBytes().begin(), rest.getBytes().end());
    OpResult result = put(file, at, bytes);
    if (result && !file.flush()) result = unwritable(m_path);
    if (!result) return result;
    return room.show(
        [&file](std::uint64_t offset, const std::vector<std::uint8_t>& byte) { return put(file, offset, byte); }, slot);
}

// As a `free` at first: half of it is none of anybody's business.
OpResult MovReferenceEditor::putBehind(FsFileIO& file) {
    MovAtomWriter hidden, shown;
    hidden.be32(MovAtom::s_free);
    shown.be32(MovAtom::s_moov);
    std::vector<std::uint8_t> bytes = m_out.getBytes();
    std::copy_n(hidden.getBytes().begin(), 4, bytes.begin() + 4);
    OpResult result = closeLast(file);
    if (result) result = put(file, m_length, bytes);
    if (result && !file.flush()) result = unwritable(m_path);
    if (result) result = put(file, m_length + 4, shown.getBytes());
    if (result && !file.flush()) result = unwritable(m_path);
    return result ? put(file, m_moovAt + 4, hidden.getBytes()) : std::move(result);
}

// An atom that goes to the end of the file would swallow what is put there.
OpResult MovReferenceEditor::closeLast(FsFileIO& file) {
    if (!m_lastIsOpen) return OpResult(OpResult::Ok);
    if (!m_lastCanClose)
        return MO_WARNING(MediaCode::OperationUnsupported, "mov: the last part of the file has no end");
    MovAtomWriter size;
    size.be64(m_length - m_lastAt);
    OpResult result = put(file, m_lastAt + s_longHead - 8, size.getBytes());
    return result ? put(file, m_lastAt + 3, {1}) : std::move(result);
}

// Whatever has come of the new references: those of the file in its old place are wanted.
void MovReferenceEditor::takeBack(const std::string& moviePath, const std::string& from, const std::string& to) {
    MovReferenceEditor editor(moviePath);
    OpResult result = editor.read();
    if (result && (moviePath == from || editor.lead(to, from))) result = editor.write(moviePath);
    result.discard();
}

OpResult MovReferenceEditor::rename(MediaObj& movie, MediaIdRec* id, const char* path,
                                    const std::function<OpResult(const char*)>& move) {
    const std::string moviePath = absolute(movie.getPath(nullptr));
    const std::string from = absolute(movie.getPath(id)), to = absolute(path);
    const bool isMovie = id == movie.getMediaId(0);
    const bool isNear = isMovie && MovReferences::folderOf(from) == MovReferences::folderOf(to);
    if (isNear || from == to) return move(path);
    MovReferenceEditor editor(moviePath);
    OpResult result = editor.read();
    if (!result && movie.getMediaCount() == 1) {
        result.discard();
        return move(path);
    }
    // A file that moves without its references is lost to the movie.
    if (result && !isMovie && !editor.lead(from, to)) result = unreadable(moviePath);
    if (result) result = move(path);
    if (!result || !editor.hasOthers()) return result;
    result = editor.write(isMovie ? to : moviePath);
    if (result) return result;
    move(from.c_str()).discard();
    takeBack(moviePath, from, to);
    return result;
}
