#include "backends/mov/mov_index_editor.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "backends/common/byte_cursor.h"
#include "backends/mov/mov_atom_writer.h"
#include "backends/mov/mov_index_room.h"
#include "services/system/format_str.h"
#include "shared/include/object/core_subsystem.h"

namespace {

constexpr std::uint64_t s_mostMoov = 1u << 28;  // bytes
constexpr unsigned s_longHead = 16;

std::uint32_t word(const std::uint8_t* bytes) { return ByteCursor(bytes, 4).be32(); }

OpResult noEnd(const char* what) { return MO_WARNING(MediaCode::OperationUnsupported, what); }

}  // namespace

OpResult MovIndexEditor::unreadable() const {
    return MO_WARNING(MediaCode::UnknownError, FormatStr("mov: %s: the index can't be read", m_path.c_str()).get());
}

OpResult MovIndexEditor::unwritable() const {
    return MO_WARNING(MediaCode::WriteError, FormatStr("mov: %s: the index can't be written", m_path.c_str()).get());
}

OpResult MovIndexEditor::read() {
    const AutoRefPtr<FsFileIO> file(new FsFileIO("index", m_path.c_str(), BasicIOTypes::Mode::ReadOnly));
    return file->open() ? find(*file) : unreadable();
}

void MovIndexEditor::setPath(const std::string& path) {
    if (path != m_path) m_file = AutoRefPtr<FsFileIO>();
    m_path = path;
}

bool MovIndexEditor::isCurrent(const std::string& path) const {
    FileStat now;
    return statPath(path.c_str(), now) == 0 && now.m_key == m_seen.m_key && now.version() == m_seen.version();
}

// What the file is by now.
void MovIndexEditor::note() {
    if (!m_file->statOpen(m_seen)) m_seen = FileStat();
}

OpResult MovIndexEditor::find(FsFileIO& file) {
    if (!file.statOpen(m_seen)) return unreadable();
    m_length = file.getLength();
    m_otherAt = 0;
    std::vector<Stretch> frees;
    m_moovAt = m_moovSize = m_roomAt = m_freeBehind = 0;
    m_hasFragments = false;
    m_spare.clear();
    std::uint64_t room = 0, at = 0;
    std::uint8_t head[MovIndexRoom::s_head];
    for (std::uint64_t size = 0; at < m_length; at += size) {
        const auto there = static_cast<unsigned>(std::min<std::uint64_t>(sizeof head, m_length - at));
        std::memset(head, 0, sizeof head);
        if (there < s_head || file.readAt(at, head, there) != static_cast<int>(there)) break;
        size = word(head);
        const MovCode code = word(head + 4);
        const std::uint64_t longSize = ByteCursor(head + 8, 8).be64();
        const bool isPlain = size >= s_head;
        if (size == 1) size = longSize;
        m_lastAt = at;
        m_lastIsOpen = size == 0;
        m_lastCanClose = size == 0 && code == MovAtom::s_mdat && longSize == 0 && room == at;
        if (size == 0) size = m_length - at;
        if (size < s_head || size > m_length - at) break;
        MovIndexRoom found;
        if (code == MovAtom::s_free && there == sizeof head && MovIndexRoom::find(at, head, found)) {
            room = found.getEnd();
            if (m_moovSize == 0) m_roomAt = at;
        }
        const bool isFree = code == MovAtom::s_free || code == MovAtom::s_skip;
        // One that was a `moov` may still be read by somebody.
        const bool wasMoov = word(head + s_head + 4) == MovAtom::s_mvhd || size == m_moovSize;
        const bool isBehind = m_moovSize != 0 && at == m_moovAt + m_moovSize;
        if (isFree && isPlain && isBehind && !wasMoov) m_freeBehind = size;
        if (code == MovAtom::s_free && isPlain && size > sizeof head) frees.push_back({at, size});
        m_hasFragments = m_hasFragments || code == MovAtom::s_moof;
        if (code != MovAtom::s_moov) continue;
        if (m_moovSize != 0) {
            m_spare.push_back(at);
            if (isPlain) frees.push_back({at, size});
            continue;
        }
        m_moovAt = at;
        m_moovSize = size;
        if (size > s_mostMoov || !isPlain) return unreadable();
        if (room < at) m_roomAt = 0;
    }
    m_isCut = at != m_length;
    if (m_moovSize == 0) return unreadable();
    m_frees.clear();
    for (const Stretch& free : frees) {
        if (free.m_size == m_moovSize) m_frees.push_back(free.m_at);
    }
    m_content.resize(m_moovSize - s_head);
    const auto wanted = static_cast<unsigned>(m_content.size());
    return file.readAt(getContentAt(), m_content.data(), wanted) == static_cast<int>(wanted) ? OpResult(OpResult::Ok)
                                                                                             : unreadable();
}

OpResult MovIndexEditor::open() {
    if (m_file && m_file->isOpen()) return OpResult(OpResult::Ok);
    m_file = AutoRefPtr<FsFileIO>(new FsFileIO("index", m_path.c_str(), BasicIOTypes::Mode::Update));
    return m_file->open() ? OpResult(OpResult::Ok) : MO_WARNING(MediaCode::FileNotWritable, nullptr);
}

OpResult MovIndexEditor::openClaimed() {
    OpResult result = open();
    if (!result || m_file->claim() || m_file->getLastError() != EBUSY) return result;
    const FormatStr text("mov: %s is being written by another process", m_path.c_str());
    return MO_WARNING(MediaCode::FileExists, text.get());
}

OpResult MovIndexEditor::put(std::uint64_t at, const std::vector<std::uint8_t>& bytes) {
    const auto size = static_cast<unsigned>(bytes.size());
    return m_file->writeAt(at, bytes.data(), size) == static_cast<int>(size) ? OpResult(OpResult::Ok) : unwritable();
}

OpResult MovIndexEditor::flush() { return m_file->flush() ? OpResult(OpResult::Ok) : unwritable(); }

OpResult MovIndexEditor::putCode(std::uint64_t at, MovCode code) {
    MovAtomWriter out;
    out.be32(code);
    return put(at + 4, out.getBytes());
}

OpResult MovIndexEditor::replace(const std::vector<std::uint8_t>& moov, bool isAlike) {
    MovIndexRoom room;
    return isAlike && findRoom(moov.size(), room) ? putInSlot(moov, room) : putBehind(moov);
}

bool MovIndexEditor::hasSlotFor(std::uint64_t size) {
    MovIndexRoom room;
    return findRoom(size, room);
}

// The room, where a slot holds so many bytes: somebody may have damaged it.
bool MovIndexEditor::findRoom(std::uint64_t size, MovIndexRoom& room) {
    std::uint8_t head[MovIndexRoom::s_head];
    if (m_roomAt == 0 || m_file->readAt(m_roomAt, head, sizeof head) != static_cast<int>(sizeof head)) return false;
    if (!MovIndexRoom::find(m_roomAt, head, room) || room.getEnd() > m_length) return false;
    const bool isShown = room.getShown() < MovIndexRoom::s_hidden && room.getSlotAt(room.getShown()) == m_moovAt;
    return isShown && size + s_head <= room.getSlotSize();
}

OpResult MovIndexEditor::putInSlot(std::vector<std::uint8_t> moov, MovIndexRoom& room) {
    const unsigned before = room.getShown(), slot = 1 - before;
    const std::uint64_t at = room.getSlotAt(slot);
    MovAtomWriter rest;
    rest.be32(room.getEnd() - at - moov.size()).be32(MovAtom::s_free);
    moov.insert(moov.end(), rest.getBytes().begin(), rest.getBytes().end());
    OpResult result = put(at, moov);
    return result ? showSlot(room, slot) : std::move(result);
}

// What has been put there is on the disk first.
OpResult MovIndexEditor::showSlot(MovIndexRoom& room, unsigned slot) {
    const auto putter = [this](std::uint64_t offset, const std::vector<std::uint8_t>& byte) {
        return put(offset, byte);
    };
    OpResult result = flush();
    if (!result) return result;
    result = room.show(putter, slot);
    if (result) result = flush();
    if (!result) room.show(putter, 1 - slot).discard();
    return result;
}

// As a `free` at first: half of it is none of anybody's business. The first one in the file is the one that counts.
OpResult MovIndexEditor::putBehind(std::vector<std::uint8_t> moov) {
    if (m_hasFragments) return noEnd("mov: the index stands in front of the movie's fragments and has no room there");
    MovAtomWriter hidden;
    hidden.be32(MovAtom::s_free);
    std::copy_n(hidden.getBytes().begin(), 4, moov.begin() + 4);
    OpResult result = closeLast();
    if (result) result = put(m_length, moov);
    return result ? showInstead(m_length) : std::move(result);
}

// The first `moov` in the file counts. What leads to the one that is there now changes with all of it on the disk.
OpResult MovIndexEditor::showInstead(std::uint64_t at) {
    const bool isBehind = at > m_moovAt;
    OpResult result(OpResult::Ok);
    for (std::size_t i = 0; result && isBehind && i < m_spare.size(); ++i)
        result = putCode(m_spare[i], MovAtom::s_free);
    if (result) result = isBehind ? putCode(at, MovAtom::s_moov) : flush();
    if (result) result = isBehind ? flush() : putCode(at, MovAtom::s_moov);
    if (result && isBehind) result = putCode(m_moovAt, MovAtom::s_free);
    if (result) result = flush();
    if (result) {
        // Nobody comes to the old one any more.
        if (!isBehind) putCode(m_moovAt, MovAtom::s_free).discard();
        return result;
    }
    // The old one counts again, and only then may the new one go.
    OpResult restored = putCode(m_moovAt, MovAtom::s_moov);
    if (restored) restored = putCode(at, MovAtom::s_free);
    restored.discard();
    return result;
}

OpResult MovIndexEditor::change(std::vector<Patch>& patches, const std::vector<Stretch>& variable) {
    if (!isCurrent(m_path)) {
        const FormatStr text("mov: %s is being written by somebody else", m_path.c_str());
        return MO_WARNING(MediaCode::UnknownError, text.get());
    }
    MovIndexRoom room;
    apply(patches);
    const std::uint64_t end = m_length;
    const bool isSlot = findRoom(m_moovSize, room);
    const bool isTwin = !isSlot && findTwin(variable);
    OpResult result = isSlot ? changeInSlot(room, patches) : isTwin ? changeInTwin(patches) : putBehind(getMoov());
    if (!result) {
        apply(patches);
        return result;
    }
    m_otherLacks.clear();
    for (const Patch& patch : patches)
        m_otherLacks.push_back({patch.m_at, patch.m_bytes.size()});
    shownAt(isSlot ? room.getSlotAt(room.getShown()) : isTwin ? m_otherAt : end);
    m_otherIsSlot = isSlot;
    note();
    return result;
}

// Afterwards the patches have what stood there: a second time all is as it was.
void MovIndexEditor::apply(std::vector<Patch>& patches) {
    for (Patch& patch : patches) {
        const auto at = m_content.begin() + static_cast<std::ptrdiff_t>(patch.m_at);
        std::swap_ranges(patch.m_bytes.begin(), patch.m_bytes.end(), at);
    }
}

// The `moov` has gone there, and has left its place to the next one.
void MovIndexEditor::shownAt(std::uint64_t at) {
    if (at == m_length) {
        m_length += m_moovSize;
        m_lastIsOpen = false;
        m_spare.clear();
    }
    m_otherAt = m_moovAt;
    m_moovAt = at;
    m_freeBehind = 0;
}

std::vector<std::uint8_t> MovIndexEditor::getMoov() const {
    MovAtomWriter out;
    return out.open(MovAtom::s_moov).bytes(m_content.data(), m_content.size()).close().getBytes();
}

// One that hasn't been written from here may hold anything.
OpResult MovIndexEditor::changeInSlot(MovIndexRoom& room, const std::vector<Patch>& patches) {
    const unsigned slot = room.getShown() == 0 ? 1 : 0;
    const std::uint64_t at = room.getSlotAt(slot);
    if (at != m_otherAt) return putInSlot(getMoov(), room);
    OpResult result = putStretches(at, patches);
    return result ? showSlot(room, slot) : std::move(result);
}

OpResult MovIndexEditor::changeInTwin(const std::vector<Patch>& patches) {
    OpResult result = putStretches(m_otherAt, patches);
    return result ? showInstead(m_otherAt) : std::move(result);
}

// Of the content, what the older `moov` there lacks: what it lacked before, and the patches. Such as lie close together
// are one write.
OpResult MovIndexEditor::putStretches(std::uint64_t at, const std::vector<Patch>& patches) {
    constexpr std::uint64_t close = 1024;
    std::vector<Stretch> all = m_otherLacks;
    for (const Patch& patch : patches)
        all.push_back({patch.m_at, patch.m_bytes.size()});
    std::sort(all.begin(), all.end(), [](const Stretch& a, const Stretch& b) { return a.m_at < b.m_at; });
    OpResult result(OpResult::Ok);
    for (std::size_t i = 0; result && i < all.size();) {
        const std::uint64_t from = all[i].m_at;
        std::uint64_t end = from;
        for (; i < all.size() && all[i].m_at <= end + close; ++i)
            end = std::max(end, all[i].m_at + all[i].m_size);
        const auto first = m_content.begin() + static_cast<std::ptrdiff_t>(from);
        const std::vector<std::uint8_t> bytes(first, first + static_cast<std::ptrdiff_t>(end - from));
        result = put(at + s_head + from, bytes);
    }
    return result;
}

// A place that this one has left, or an older one in which all stands where it does here.
bool MovIndexEditor::findTwin(const std::vector<Stretch>& variable) {
    if (m_hasFragments) return false;
    if (m_otherAt != 0 && !m_otherIsSlot) return true;
    const auto twin = std::find_if(m_frees.begin(), m_frees.end(),
                                   [this, &variable](std::uint64_t at) { return isTwin(at, variable); });
    if (twin == m_frees.end()) return false;
    m_otherAt = *twin;
    m_otherIsSlot = false;
    m_otherLacks = variable;
    return true;
}

bool MovIndexEditor::isTwin(std::uint64_t at, const std::vector<Stretch>& variable) {
    constexpr std::uint64_t most = 1u << 16;  // bytes at once
    std::vector<std::uint8_t> bytes;
    std::size_t skipped = 0;
    for (std::uint64_t from = 0; from < m_content.size(); from += bytes.size()) {
        bytes.resize(std::min<std::uint64_t>(most, m_content.size() - from));
        const auto size = static_cast<unsigned>(bytes.size());
        if (m_file->readAt(at + s_head + from, bytes.data(), size) != static_cast<int>(size)) return false;
        const std::uint64_t end = from + size;
        std::uint64_t same = from;  // up to there
        for (; skipped < variable.size() && variable[skipped].m_at < end; ++skipped) {
            const std::uint64_t next = std::max(variable[skipped].m_at, same);
            if (std::memcmp(&bytes[same - from], &m_content[same], next - same) != 0) return false;
            same = variable[skipped].m_at + variable[skipped].m_size;
            if (same >= end) break;
        }
        if (same < end && std::memcmp(&bytes[same - from], &m_content[same], end - same) != 0) return false;
    }
    return true;
}

// An atom that goes to the end of the file would swallow what is put there.
OpResult MovIndexEditor::closeLast() {
    if (m_isCut) return noEnd("mov: the last part of the file is cut");
    if (!m_lastIsOpen) return OpResult(OpResult::Ok);
    if (!m_lastCanClose) return noEnd("mov: the last part of the file has no end");
    MovAtomWriter size;
    size.be64(m_length - m_lastAt);
    OpResult result = put(m_lastAt + s_longHead - 8, size.getBytes());
    return result ? put(m_lastAt + 3, {1}) : std::move(result);
}
