#include "backends/mov/mov_track_tables.h"

#include <algorithm>

namespace {

constexpr std::uint64_t s_mostInChunk = 1u << 30;  // bytes

void put(std::vector<std::uint8_t>& bytes, std::uint64_t value, unsigned count) {
    for (unsigned left = count; left > 0; --left)
        bytes.push_back(static_cast<std::uint8_t>(value >> (8 * (left - 1))));
}

}  // namespace

void MovTrackTables::tell(const MovRunIndex& clip, std::uint64_t from, std::uint64_t to, unsigned description,
                          const MovPictureOrder& order) {
    while (from < to) {
        const std::uint64_t most = m_fixedSize != 0 ? s_mostInChunk / m_fixedSize + 1 : to;
        const MovRunIndex::Stretch stretch = clip.find(from, to - from < most ? to - from : most);
        tellChunk(stretch, description);
        if (m_fixedSize == 0 || m_hasOrder) {
            for (std::uint64_t i = 0; i < stretch.m_samples; ++i)
                tellSample(clip.getInfo(from + i), order);
        } else {
            m_samples += stretch.m_samples;
        }
        from += stretch.m_samples;
    }
}

void MovTrackTables::tellChunk(const MovRunIndex::Stretch& stretch, unsigned description) {
    m_offsets.push_back(stretch.m_offset);
    m_isWide = m_isWide || stretch.m_offset > 0xFFFFFFFF;
    const auto samples = static_cast<std::uint32_t>(stretch.m_samples);
    const bool isLikeLast =
        !m_chunks.empty() && m_chunks.back().m_samples == samples && m_chunks.back().m_description == description;
    if (!isLikeLast) m_chunks.push_back({static_cast<std::uint32_t>(m_offsets.size()), samples, description});
}

void MovTrackTables::tellSample(const SampleInfo& info, const MovPictureOrder& order) {
    if (m_fixedSize == 0) m_sizes.push_back(info.getSize());
    if (m_hasOrder) {
        const MovPictureOrder::Picture picture = order.get(m_samples);
        if (m_samples == 0) {
            m_isByCount = picture.m_isTold;
            m_late = m_isByCount ? order.getMostLate() : 1;
        }
        const bool isSync = picture.m_isTold ? picture.m_isFirst : info.getEncoding() == SampleCodingType::I;
        if (isSync) m_syncs.push_back(static_cast<std::uint32_t>(m_samples + 1));
        m_isByCount ? tellByCount(picture) : tellByKind(info.getEncoding() == SampleCodingType::B);
    }
    ++m_samples;
}

// An anchor is decoded ahead of the pictures that are shown before it, and shown behind them.
void MovTrackTables::tellByKind(bool isB) {
    m_orders.push_back(isB ? 0 : 1);
    if (!isB) m_lastAnchor = m_samples;
    if (isB && m_lastAnchor < m_samples) ++m_orders[m_lastAnchor];
}

// What waits has been decoded and is shown later than all that doesn't. More than so many pictures never wait: with
// one too many the first of them is shown, and its time is settled.
void MovTrackTables::tellByCount(const MovPictureOrder::Picture& picture) {
    if (picture.m_isFirst || picture.m_isReset) m_waiting.clear();
    const std::int64_t count = countOf(picture);
    std::uint32_t early = 0;
    for (const Waiting& other : m_waiting) {
        if (other.m_count <= count) continue;
        ++m_orders[other.m_sample];
        ++early;
    }
    m_orders.push_back(m_late - std::min(m_late, early));
    m_waiting.push_back({m_samples, count});
    if (m_waiting.size() <= m_late) return;
    m_waiting.erase(std::min_element(m_waiting.begin(), m_waiting.end(), [](const Waiting& one, const Waiting& other) {
        return one.m_count < other.m_count;
    }));
}

// Pictures tell the lowest bits of their counts; the rest is whatever lies nearest to the last one that others depend
// on. A picture that doesn't tell it is shown behind those before it.
std::int64_t MovTrackTables::countOf(const MovPictureOrder::Picture& picture) {
    if (picture.m_isFirst || picture.m_isReset) {
        m_base = m_lastCount = 0;
        m_shownTo = -1;
    }
    std::int64_t count = m_shownTo + 1;
    if (picture.m_isTold && picture.m_bits != 0) {
        const std::int64_t range = std::int64_t{1} << picture.m_bits, half = range / 2;
        const std::int64_t step = std::int64_t{picture.m_count} - m_lastCount;
        const std::int64_t base = m_base + (step <= -half ? range : step > half ? -range : 0);
        count = base + picture.m_count;
        if (picture.m_isReference) {
            m_base = base;
            m_lastCount = picture.m_count;
        }
    }
    m_shownTo = std::max(m_shownTo, count);
    return count;
}

void MovTrackTables::forget() {
    m_isWide = false;
    m_samples = 0;
    m_lastAnchor = 0;
    m_waiting.clear();
    m_offsets.clear();
    m_chunks.clear();
    m_sizes.clear();
    m_syncs.clear();
    m_orders.clear();
}

bool MovTrackTables::has(Table table) const { return m_hasOrder || (table != Sync && table != Order); }

std::uint64_t MovTrackTables::getEntries(Table table) const {
    switch (table) {
        case Sync:
            return m_syncs.size();
        case Order:
            return m_orders.size();
        case Chunk:
            return m_chunks.size();
        case Size:
            return m_sizes.size();
        default:
            return m_offsets.size();
    }
}

std::uint64_t MovTrackTables::getSettled(Table table) const {
    if (table != Order) return getEntries(table);
    if (!m_isByCount) return m_lastAnchor;
    std::uint64_t settled = m_orders.size();
    for (const Waiting& picture : m_waiting)
        settled = std::min(settled, picture.m_sample);
    return settled;
}

unsigned MovTrackTables::entrySize(Table table, bool wide) {
    switch (table) {
        case Order:
            return 8;
        case Chunk:
            return 12;
        case Offset:
            return wide ? 8 : 4;
        default:
            return 4;
    }
}

void MovTrackTables::encode(Table table, std::uint64_t from, std::uint64_t to, bool wide, unsigned ticks,
                            std::vector<std::uint8_t>& bytes) const {
    for (std::uint64_t i = from; i < to; ++i) {
        if (table == Sync) put(bytes, m_syncs[i], 4);
        if (table == Size) put(bytes, m_sizes[i], 4);
        if (table == Offset) put(bytes, m_offsets[i], wide ? 8 : 4);
        if (table == Order) put(bytes, std::uint64_t{1} << 32 | m_orders[i] * ticks, 8);
        if (table != Chunk) continue;
        put(bytes, m_chunks[i].m_firstChunk, 4);
        put(bytes, m_chunks[i].m_samples, 4);
        put(bytes, m_chunks[i].m_description, 4);
    }
}
