#include "backends/mov/mov_reference_list.h"

#include <algorithm>

#include "backends/common/byte_cursor.h"
#include "backends/mov/mov_alias.h"
#include "backends/mov/mov_references.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint64_t s_head = 8, s_fullHead = 12;
constexpr unsigned s_depth = 32;  // atoms inside one another

std::uint32_t word(const std::uint8_t* bytes) { return ByteCursor(bytes, 4).be32(); }

bool isFolder(MovCode code) { return code == MovAtom::s_trak || code == MovAtom::s_mdia || code == MovAtom::s_minf; }

bool isFree(MovCode code) { return code == MovAtom::s_free || code == MovAtom::s_skip; }

// An atom in memory that lies within `size` bytes. Fails: false.
bool atomAt(const std::uint8_t* bytes, std::uint64_t size, std::uint64_t& atom) {
    if (size < s_head) return false;
    atom = word(bytes);
    return atom >= s_head && atom <= size;
}

}  // namespace

bool MovReferenceList::read(const Bytes& content, const std::string& moviePath) {
    m_moviePath = m_firstPath = moviePath;
    m_entries.clear();
    m_lists.clear();
    m_dirty.clear();
    m_byPath.clear();
    m_variable.clear();
    m_start = content.data();
    return walk(content.data(), content.size(), Walk::Read, 0);
}

bool MovReferenceList::locate(const Bytes& content) {
    m_variable.clear();
    m_start = content.data();
    m_nextList = 0;
    return walk(content.data(), content.size(), Walk::Locate, 0) && m_nextList == m_lists.size();
}

// What may follow the last atom are a few bytes that close the list.
bool MovReferenceList::walk(const std::uint8_t* bytes, std::uint64_t size, Walk kind, unsigned depth) {
    while (size >= s_head) {
        std::uint64_t atom = 0;
        if (!atomAt(bytes, size, atom) || depth > s_depth) return false;
        const MovCode code = word(bytes + 4);
        const auto at = static_cast<std::uint64_t>(bytes - m_start);
        const bool isValue = depth == 0 && (code == MovAtom::s_udta || isFree(code));
        if (isFolder(code) && !walk(bytes + s_head, atom - s_head, kind, depth + 1)) return false;
        if (code == MovAtom::s_dinf && !walkList(bytes, atom, kind)) return false;
        if (isValue || code == MovAtom::s_dinf) m_variable.push_back({at, atom});
        bytes += atom;
        size -= atom;
    }
    return true;
}

bool MovReferenceList::walkList(const std::uint8_t* bytes, std::uint64_t size, Walk kind) {
    if (kind == Walk::Read) m_lists.push_back({0, 0, m_entries.size(), false});
    if (kind == Walk::Locate && m_nextList >= m_lists.size()) return false;
    List& list = kind == Walk::Read ? m_lists.back() : m_lists[m_nextList++];
    list.m_at = static_cast<std::uint64_t>(bytes - m_start);
    list.m_size = size;
    for (std::uint64_t at = s_head, atom = 0; size - at >= s_head; at += atom) {
        if (!atomAt(bytes + at, size - at, atom)) return false;
        if (word(bytes + at + 4) != MovAtom::s_dref) continue;
        if (!walkReferences(bytes + at + s_head, atom - s_head, kind)) return false;
    }
    return true;
}

bool MovReferenceList::walkReferences(const std::uint8_t* bytes, std::uint64_t size, Walk kind) {
    if (size < 8) return false;
    const std::uint32_t count = word(bytes + 4);
    std::uint64_t at = 8;
    for (std::uint32_t i = 0; i < count; ++i) {
        std::uint64_t atom = 0;
        if (!atomAt(bytes + at, size - at, atom) || atom < s_fullHead) return false;
        if (kind == Walk::Read) take(bytes + at, atom);
        at += atom;
    }
    return true;
}

void MovReferenceList::take(const std::uint8_t* bytes, std::uint64_t size) {
    Entry entry;
    entry.m_kind = word(bytes + 4);
    entry.m_list = m_lists.size() - 1;
    const MovReference reference =
        MovReferences::parse(entry.m_kind, word(bytes + 8) & 0xFFFFFF, bytes + s_fullHead, size - s_fullHead);
    bool isThere = false;
    if (!reference.isSelf) entry.m_path = MovReferences::resolve(reference, m_moviePath, isThere);
    entry.m_isAbsolute =
        entry.m_kind == MovAtom::s_url && !reference.candidates.empty() && reference.candidates.front().front() == '/';
    entry.m_bytes.assign(bytes, bytes + size);
    if (!entry.m_path.empty()) m_byPath.emplace(entry.m_path, m_entries.size());
    m_entries.push_back(std::move(entry));
}

void MovReferenceList::soil(std::size_t list) {
    if (m_lists[list].m_isDirty) return;
    m_lists[list].m_isDirty = true;
    m_dirty.push_back(list);
}

bool MovReferenceList::lead(const std::string& from, const std::string& to) {
    const auto [first, last] = m_byPath.equal_range(from);
    std::vector<std::size_t> led;
    for (auto it = first; it != last; ++it)
        led.push_back(it->second);
    if (from == to) return !led.empty();
    m_byPath.erase(first, last);
    for (const std::size_t number : led) {
        m_entries[number].m_path = to;
        m_entries[number].m_isLed = true;
        m_byPath.emplace(to, number);
        soil(m_entries[number].m_list);
    }
    return !led.empty();
}

void MovReferenceList::setMovie(const std::string& path) {
    const bool isNear = MovReferences::folderOf(path) == MovReferences::folderOf(m_moviePath);
    m_moviePath = path;
    for (Entry& entry : m_entries) {
        if (isNear || entry.m_path.empty()) continue;
        entry.m_isLed = entry.m_isLed || !stands(entry);
        if (entry.m_isLed) soil(entry.m_list);
    }
}

// Whether an entry leads to the same place from the movie's new one.
bool MovReferenceList::stands(const Entry& entry) const {
    if (entry.m_isAbsolute) return true;
    return entry.m_kind != MovAtom::s_url && MovAlias::isSameWay(m_firstPath, m_moviePath, entry.m_path);
}

// In the form that it had. `pad` bytes behind the text or the record are nobody's.
void MovReferenceList::putEntry(const Entry& entry, std::uint64_t pad, MovAtomWriter& out) const {
    if (!entry.m_isLed) {
        out.bytes(entry.m_bytes.data(), entry.m_bytes.size());
    } else if (entry.m_kind == MovAtom::s_url) {
        const std::string folder = MovReferences::folderOf(m_moviePath);
        const std::string inside =
            entry.m_path.compare(0, folder.size(), folder) == 0 ? entry.m_path.substr(folder.size()) : std::string();
        const bool isInside = !inside.empty() && !MovReferences::climbs(inside);
        const std::string url = MovReferences::encodeUrl(isInside ? inside : entry.m_path);
        out.open(entry.m_kind, 0, 0).bytes(url.c_str(), url.size() + 1).zeros(pad).close();
    } else {
        MovAlias::put(out, m_moviePath, entry.m_path, pad);
    }
}

std::size_t MovReferenceList::endOf(const List& list) const {
    const bool isLast = &list == &m_lists.back();
    return isLast ? m_entries.size() : (&list + 1)->m_first;
}

// The entry that a few bytes may be put behind; the end of the list's if there is none.
std::size_t MovReferenceList::lastLed(const List& list) const {
    std::size_t found = endOf(list);
    for (std::size_t i = list.m_first; i < endOf(list); ++i) {
        if (m_entries[i].m_isLed) found = i;
    }
    return found;
}

// The `dinf` that stands there, with its entries as they are by now and without a `free`.
Bytes MovReferenceList::build(const std::uint8_t* dinf, const List& list, std::uint64_t pad) const {
    const std::size_t padded = lastLed(list);
    std::size_t next = list.m_first;
    MovAtomWriter out;
    out.open(MovAtom::s_dinf);
    for (std::uint64_t at = s_head, atom = 0; list.m_size - at >= s_head; at += atom) {
        atom = word(dinf + at);
        const MovCode code = word(dinf + at + 4);
        if (code == MovAtom::s_dref) {
            const std::uint32_t count = word(dinf + at + s_fullHead);
            out.open(code).be32(word(dinf + at + s_head)).be32(count);
            for (const std::size_t end = next + count; next < end; ++next)
                putEntry(m_entries[next], next == padded ? pad : 0, out);
            out.close();
        } else if (!isFree(code)) {
            out.bytes(dinf + at, atom);
        }
    }
    return out.close().getBytes();
}

// The same, of that size. A rest that is too small for a `free` goes behind an entry.
bool MovReferenceList::buildIn(const std::uint8_t* dinf, const List& list, std::uint64_t size, Bytes& bytes) const {
    bytes = build(dinf, list, 0);
    if (bytes.size() > size) return false;
    std::uint64_t rest = size - bytes.size();
    if (rest != 0 && rest < s_head) {
        if (lastLed(list) == endOf(list)) return false;
        bytes = build(dinf, list, rest);
        rest = 0;
    }
    if (rest == 0) return true;
    MovAtomWriter head, free;
    head.be32(size);
    free.be32(rest).be32(MovAtom::s_free);
    std::copy(head.getBytes().begin(), head.getBytes().end(), bytes.begin());
    bytes.insert(bytes.end(), free.getBytes().begin(), free.getBytes().end());
    bytes.resize(size);
    return true;
}

bool MovReferenceList::makePatches(const Bytes& content, std::vector<MovIndexEditor::Patch>& patches) {
    patches.clear();
    for (const std::size_t number : m_dirty) {
        const List& list = m_lists[number];
        MovIndexEditor::Patch patch{list.m_at, {}};
        if (!buildIn(content.data() + list.m_at, list, list.m_size, patch.m_bytes)) return false;
        const auto present = content.begin() + static_cast<std::ptrdiff_t>(list.m_at);
        if (!std::equal(patch.m_bytes.begin(), patch.m_bytes.end(), present)) patches.push_back(std::move(patch));
    }
    clean();
    return true;
}

Bytes MovReferenceList::rebuild(const Bytes& content) {
    m_nextList = 0;
    MovAtomWriter out;
    out.open(MovAtom::s_moov);
    copy(content.data(), content.size(), out);
    clean();
    return out.close().getBytes();
}

// Of atoms that have been walked.
void MovReferenceList::copy(const std::uint8_t* bytes, std::uint64_t size, MovAtomWriter& out) {
    while (size >= s_head) {
        const std::uint64_t atom = word(bytes);
        const MovCode code = word(bytes + 4);
        if (isFolder(code)) {
            out.open(code);
            copy(bytes + s_head, atom - s_head, out);
            out.close();
        } else if (code == MovAtom::s_dinf) {
            copyList(bytes, m_lists[m_nextList++], out);
        } else {
            out.bytes(bytes, atom);
        }
        bytes += atom;
        size -= atom;
    }
    out.bytes(bytes, size);  // such as a closing word of zeros
}

void MovReferenceList::copyList(const std::uint8_t* dinf, const List& list, MovAtomWriter& out) const {
    bool hasOther = false;
    for (std::size_t i = list.m_first; i < endOf(list); ++i)
        hasOther = hasOther || !m_entries[i].m_path.empty();
    Bytes bytes;
    const std::uint64_t room = std::max<std::uint64_t>(list.m_size, 2 * build(dinf, list, 0).size());
    const bool isBuilt = hasOther && buildIn(dinf, list, room, bytes);
    out.bytes(isBuilt ? bytes.data() : dinf, isBuilt ? bytes.size() : list.m_size);
}

void MovReferenceList::clean() {
    for (const std::size_t number : m_dirty)
        m_lists[number].m_isDirty = false;
    m_dirty.clear();
}
