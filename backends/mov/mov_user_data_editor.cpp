#include "backends/mov/mov_user_data_editor.h"

#include <algorithm>

#include "backends/common/byte_cursor.h"
#include "backends/mov/mov_atom_writer.h"
#include "backends/mov/mov_moov_growth.h"
#include "backends/mov/mov_user_data.h"
#include "services/system/format_str.h"
#include "shared/include/object/core_subsystem.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint64_t s_head = 8;
constexpr std::size_t s_most = MovUserData::s_most / 2;  // bytes of a value
constexpr std::size_t s_growth = 1024;                   // bytes to spare in a place of our making
constexpr std::size_t s_mostValues = 1024;               // of others

std::uint32_t word(const std::uint8_t* bytes) { return ByteCursor(bytes, 4).be32(); }

// What is in a `udta` that fills a place of so many bytes with its head.
std::vector<std::uint8_t> filled(const std::vector<std::uint8_t>& content, std::uint64_t size) {
    MovAtomWriter out;
    const std::uint64_t rest = size - s_head - content.size();
    out.bytes(content.data(), content.size());
    if (rest >= s_head) out.be32(rest).be32(MovAtom::s_free);
    return out.zeros(rest >= s_head ? rest - s_head : rest).getBytes();
}

}  // namespace

OpResult MovUserDataEditor::put(MovCode code, const std::vector<std::uint8_t>& atom) {
    if (atom.size() > s_most) {
        const FormatStr text("mov: %zu bytes are more than a movie's user data may have", atom.size());
        return MO_WARNING(MediaCode::OutOfRange, text.get());
    }
    OpResult result = m_index.openClaimed();
    if (result) result = m_index.read();
    if (!result) return result;
    if (!look() || !gather(code, atom))
        return MO_WARNING(MediaCode::UnknownError,
                          FormatStr("mov: %s: the user data can't be read", m_index.getPath().c_str()).get());
    if (m_index.isInRoom()) {
        const std::vector<std::uint8_t> moov = build(false);
        const bool fits = isAtEnd() && m_index.hasSlotFor(moov.size());
        return fits ? m_index.replace(moov, true) : m_index.replace(build(true), false);
    }
    if (findFree() == nullptr) result = takeFree();
    if (!result) return result;
    const Atom* const place = findFree();
    return place != nullptr ? show(*place) : m_index.replace(build(true), false);
}

// What may follow the last atom are a few bytes that close the list.
bool MovUserDataEditor::look() {
    const std::vector<std::uint8_t>& content = m_index.getContent();
    m_atoms.clear();
    std::uint64_t at = 0;
    while (content.size() - at >= s_head) {
        const std::uint64_t size = word(content.data() + at);
        if (size < s_head || size > content.size() - at || m_atoms.size() == MovLimit::s_atoms) return false;
        m_atoms.push_back({word(content.data() + at + 4), at, size});
        at += size;
    }
    return true;
}

// Our own values come first, where a reader is sure to look. Of several `udta`, as a process that was killed may leave
// them, the last one has these, and what others have put is in each of them.
bool MovUserDataEditor::gather(MovCode code, const std::vector<std::uint8_t>& atom) {
    std::vector<Bytes> own, others;
    for (const Atom& udta : m_atoms) {
        if (udta.m_code != MovAtom::s_udta) continue;
        own.clear();
        const std::uint8_t* bytes = m_index.getContent().data() + udta.m_at + s_head;
        std::uint64_t left = udta.m_size - s_head;
        while (left >= s_head && word(bytes) != 0) {
            const std::uint64_t size = word(bytes);
            const MovCode there = word(bytes + 4);
            if (size < s_head || size > left || others.size() == s_mostValues) return false;
            const Bytes whole(bytes, bytes + size);
            const bool isKnown = std::find(others.begin(), others.end(), whole) != others.end();
            if (MovUserData::isOwn(there)) {
                if (there != code) own.push_back(whole);
            } else if (there != MovAtom::s_free && !isKnown) {
                others.push_back(whole);
            }
            bytes += size;
            left -= size;
        }
    }
    own.insert(own.begin(), atom);
    own.insert(own.end(), others.begin(), others.end());
    m_content.clear();
    for (const Bytes& value : own)
        m_content.insert(m_content.end(), value.begin(), value.end());
    return true;
}

// Then all tables keep their places when it changes.
bool MovUserDataEditor::isAtEnd() const {
    const auto isUserData = [](const Atom& atom) { return atom.m_code == MovAtom::s_udta; };
    const auto first = std::find_if(m_atoms.begin(), m_atoms.end(), isUserData);
    return std::all_of(first, m_atoms.end(), isUserData);
}

// All the rest as it is; what is free stays behind where the atom moves.
std::vector<std::uint8_t> MovUserDataEditor::build(bool hasRoom) const {
    MovAtomWriter out;
    out.open(MovAtom::s_moov);
    for (const Atom& atom : m_atoms) {
        const bool isKept = atom.m_code != MovAtom::s_udta && (atom.m_code != MovAtom::s_free || !hasRoom);
        if (isKept) out.bytes(m_index.getContent().data() + atom.m_at, atom.m_size);
    }
    if (!hasRoom) {
        out.open(MovAtom::s_udta).bytes(m_content.data(), m_content.size()).close();
        return out.close().getBytes();
    }
    // Two places, which take turns.
    const std::uint64_t room = s_head + m_content.size() + s_growth;
    const std::vector<std::uint8_t> content = filled(m_content, room);
    out.open(MovAtom::s_udta).bytes(content.data(), content.size()).close();
    out.open(MovAtom::s_free).zeros(room - s_head).close();
    return out.close().getBytes();
}

// The smallest place that is large enough.
const MovUserDataEditor::Atom* MovUserDataEditor::findFree() const {
    const Atom* best = nullptr;
    for (const Atom& atom : m_atoms) {
        const bool isFree = atom.m_code == MovAtom::s_free || atom.m_code == MovAtom::s_skip;
        if (!isFree || atom.m_size < s_head + m_content.size()) continue;
        if (best == nullptr || atom.m_size < best->m_size) best = &atom;
    }
    return best;
}

// Takes in of the `free` behind the `moov` what is needed, where there is a way.
OpResult MovUserDataEditor::takeFree() {
    const auto wanted = static_cast<std::uint32_t>(s_head + m_content.size());
    const auto there = static_cast<std::uint32_t>(m_index.getFreeBehind());
    const auto size = static_cast<std::uint32_t>(m_index.getSize());
    // A list that is closed by a few bytes has nothing behind these.
    const bool isClosed = m_atoms.empty() || m_atoms.back().m_at + m_atoms.back().m_size + s_head < size;
    const MovMoovGrowth::Plan plan = MovMoovGrowth::make(size, isClosed ? 0 : there, wanted);
    OpResult result(OpResult::Ok);
    for (std::size_t i = 0; result && i < plan.m_steps.size(); ++i) {
        result = m_index.put(m_index.getContentAt() - s_head + plan.m_steps[i].m_at, plan.m_steps[i].m_bytes);
        if (result) result = m_index.flush();
    }
    if (result && plan.m_taken != 0) m_atoms.push_back({MovAtom::s_free, size - s_head, plan.m_taken});
    return result;
}

OpResult MovUserDataEditor::show(const Atom& place) {
    const std::uint64_t start = m_index.getContentAt();
    OpResult result = m_index.put(start + place.m_at + s_head, filled(m_content, place.m_size));
    if (result) result = m_index.flush();
    if (!result) return result;
    result = m_index.putCode(start + place.m_at, MovAtom::s_udta);
    if (result) result = m_index.flush();
    for (std::size_t i = 0; result && i < m_atoms.size(); ++i) {
        if (m_atoms[i].m_code == MovAtom::s_udta) result = m_index.putCode(start + m_atoms[i].m_at, MovAtom::s_free);
    }
    if (result) result = m_index.flush();
    if (result) return result;
    for (const Atom& atom : m_atoms) {
        if (atom.m_code == MovAtom::s_udta) m_index.putCode(start + atom.m_at, MovAtom::s_udta).discard();
    }
    m_index.putCode(start + place.m_at, MovAtom::s_free).discard();
    return result;
}
