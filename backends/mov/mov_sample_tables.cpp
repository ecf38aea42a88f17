#include "backends/mov/mov_sample_tables.h"

#include <algorithm>

#include "backends/common/byte_cursor.h"

namespace {

constexpr unsigned s_runSize = 12, s_pairSize = 8, s_syncSize = 4;
constexpr std::uint64_t s_runStride = 64, s_pairStride = 64, s_sizeStride = 512;
// Sizes of samples that lie together are summed up straight away up to so many; beyond, the marks help.
constexpr std::uint64_t s_plainSum = 1024;
// A walk reads so much at once.
constexpr unsigned s_walkBytes = 6144;  // whole entries of 4, 8 and 12 bytes

std::uint32_t word(const std::uint8_t* at) {
    return std::uint32_t{at[0]} << 24 | std::uint32_t{at[1]} << 16 | std::uint32_t{at[2]} << 8 | at[3];
}

// Sums of what a file says stop at the top and don't begin anew.
std::uint64_t add(std::uint64_t a, std::uint64_t b) {
    std::uint64_t sum = 0;
    return __builtin_add_overflow(a, b, &sum) ? ~0ull : sum;
}

std::uint64_t multiply(std::uint64_t a, std::uint64_t b) {
    std::uint64_t product = 0;
    return __builtin_mul_overflow(a, b, &product) ? ~0ull : product;
}

}  // namespace

MovSampleTables::MovSampleTables(const MovTablePlaces& places, const MovTableCache& cache)
    : m_places(places), m_cache(cache), m_samples(places.samples) {
    m_runMarks.init(places.runs.count, s_runStride);
    m_sizeMarks.init(places.fixedSize == 0 ? places.samples : 0, s_sizeStride);
    m_timeMarks.init(places.times.count, s_pairStride);
    m_tickMarks.init(places.times.count, s_pairStride);
    m_shiftMarks.init(places.shifts.count, s_pairStride);
    m_held.init(places.fixedSize == 0 ? places.samples : 0, cache);
}

bool MovSampleTables::find(std::uint64_t sample, MovSpot& spot) const {
    if (sample >= m_samples) return false;
    Run run;
    if (!runOf(sample, run)) return false;
    const std::uint64_t within = sample - run.samplesBefore;
    spot.chunk = run.first + within / run.perChunk;
    const std::uint64_t inChunk = within % run.perChunk;
    spot.following = std::min(run.perChunk - inChunk, m_samples - sample) - 1;
    spot.description = run.description;
    std::uint64_t start = 0, before = 0;
    if (!chunkOffset(spot.chunk, start) || !sizeOf(sample, spot.size)) return false;
    if (!sumSizes(sample - inChunk, sample, before)) return false;
    spot.offset = add(start, before);
    return spot.offset < 1ull << 62;
}

bool MovSampleTables::findAlone(std::uint64_t sample, MovSpot& spot) const {
    if (m_places.fixedSize != 0 || sample >= m_samples) return find(sample, spot);
    MovHeldSpots::Place place;
    MovHeldSpots::Answer answer = m_held.find(sample, place);
    if (answer == MovHeldSpots::Answer::Wanted) {
        MovHeldSpots::Block block;
        writeOut(sample, block);
        m_held.hold(sample, block);
        answer = m_held.find(sample, place);
    }
    if (answer != MovHeldSpots::Answer::Held) return find(sample, spot);
    spot.offset = place.offset;
    spot.size = place.size;
    spot.description = place.description;
    return true;
}

// The samples of a block that can't all be told are found one by one, as far as they can.
void MovSampleTables::writeOut(std::uint64_t sample, MovHeldSpots::Block& block) const {
    const std::uint64_t first = sample - sample % MovHeldSpots::s_block;
    block.count = static_cast<unsigned>(std::min<std::uint64_t>(m_samples - first, MovHeldSpots::s_block));
    const bool isWritten = writeSizes(first, block) && writeOffsets(first, block) && writeSyncs(first, block);
    if (!isWritten) block.count = 0;
}

bool MovSampleTables::writeSizes(std::uint64_t first, MovHeldSpots::Block& block) const {
    const unsigned bits = m_places.sizeBits;
    const std::uint64_t begin = first * bits / 8;
    std::uint8_t bytes[MovHeldSpots::s_block * sizeof(std::uint32_t)];
    if (first + block.count > m_places.sizes.count) return false;
    if (!m_cache.readThrough(m_places.sizes.offset + begin, bytes, (block.count * bits + 7) / 8)) return false;
    for (unsigned i = 0; i < block.count; ++i) {
        std::uint64_t size = 0;
        if (!addSizes(bytes + ((first + i) * bits / 8 - begin), first + i, 1, size)) return false;
        block.sizes[i] = static_cast<std::uint32_t>(size);
    }
    return true;
}

bool MovSampleTables::writeOffsets(std::uint64_t first, MovHeldSpots::Block& block) const {
    for (unsigned i = 0; i < block.count;) {
        Run run;
        if (!runOf(first + i, run)) return false;
        if (i == 0) block.description = run.description;
        if (run.description != block.description) return false;
        const std::uint64_t left = multiply(run.chunks, run.perChunk) - (first + i - run.samplesBefore);
        const unsigned to = i + static_cast<unsigned>(std::min<std::uint64_t>(left, block.count - i));
        if (!writeRun(first + i, run, i, to, block)) return false;
        i = to;
    }
    return true;
}

// The block's samples [from, to), the first of which is `sample`, all of one run.
bool MovSampleTables::writeRun(std::uint64_t sample, const Run& run, unsigned from, unsigned to,
                               MovHeldSpots::Block& block) const {
    const std::uint64_t chunk = run.first + (sample - run.samplesBefore) / run.perChunk;
    std::uint64_t inChunk = (sample - run.samplesBefore) % run.perChunk;
    const std::uint64_t chunks = (inChunk + (to - from) + run.perChunk - 1) / run.perChunk;
    const unsigned size = m_places.isWide ? 8 : 4;
    std::uint8_t bytes[MovHeldSpots::s_block * 8];
    if (chunk + chunks > m_places.chunks.count) return false;
    // Runs of a few chunks are neighbours, of each other as of those that come next.
    const auto wanted = static_cast<unsigned>(chunks * size);
    const std::uint64_t place = m_places.chunks.offset + chunk * size;
    const bool isRead = chunks < MovHeldSpots::s_block / 4 ? m_cache.read(place, bytes, wanted)
                                                           : m_cache.readThrough(place, bytes, wanted);
    std::uint64_t before = 0;
    if (!isRead || !sumSizes(sample - inChunk, sample, before)) return false;
    ByteCursor cursor(bytes, wanted);
    std::uint64_t at = add(m_places.isWide ? cursor.be64() : cursor.be32(), before);
    for (unsigned i = from; i < to; ++i, ++inChunk) {
        if (inChunk == run.perChunk) {
            at = m_places.isWide ? cursor.be64() : cursor.be32();
            inChunk = 0;
        }
        if (at >= 1ull << 62) return false;
        block.offsets[i] = at;
        at += block.sizes[i];
    }
    return true;
}

bool MovSampleTables::writeSyncs(std::uint64_t first, MovHeldSpots::Block& block) const {
    std::uint64_t place = 0;
    std::uint32_t number = 0;
    block.syncs = 0;
    if (!m_places.hasSyncs) return true;
    if (!findSync(first, place, number)) return false;
    if (number == first + 1) block.syncs = 1;
    std::uint8_t bytes[MovHeldSpots::s_block * s_syncSize];
    const std::uint64_t count = std::min<std::uint64_t>(m_places.syncs.count - place, block.count - 1);
    const auto size = static_cast<unsigned>(count * s_syncSize);
    if (!m_cache.read(m_places.syncs.offset + place * s_syncSize, bytes, size)) return false;
    for (unsigned i = 0; i < count; ++i) {
        number = word(bytes + i * s_syncSize);
        if (number <= first + 1 || number > first + block.count) break;
        block.syncs |= 1ull << (number - 1 - first);
    }
    return true;
}

MovSampleTables::Run MovSampleTables::runFrom(const std::uint8_t* entry, bool isLast) const {
    Run run;
    const std::uint64_t first = word(entry);
    run.first = first != 0 ? first - 1 : 0;
    run.perChunk = word(entry + 4);
    run.description = word(entry + 8);
    const std::uint64_t next = isLast ? m_places.chunks.count + 1 : word(entry + s_runSize);
    run.chunks = next > run.first + 1 ? next - 1 - run.first : 0;
    return run;
}

// Reads the runs [from, to) and the one behind them, if there is one, for where the last of them ends.
bool MovSampleTables::readRuns(std::uint64_t from, std::uint64_t to, std::uint8_t* entries) const {
    const std::uint64_t end = std::min(to + 1, m_places.runs.count);
    const auto size = static_cast<unsigned>((end - from) * s_runSize);
    const std::uint64_t offset = m_places.runs.offset + from * s_runSize;
    return size <= 2 * MovTableCache::s_window ? m_cache.read(offset, entries, size)
                                               : m_cache.readThrough(offset, entries, size);
}

bool MovSampleTables::walkRuns(std::uint64_t from, std::uint64_t to, std::uint64_t& samples) const {
    constexpr std::uint64_t most = s_walkBytes / s_runSize - 1;
    std::uint8_t entries[s_walkBytes];
    while (from < to) {
        const std::uint64_t end = std::min(to, from + most);
        if (!readRuns(from, end, entries)) return false;
        for (std::uint64_t i = from; i < end; ++i) {
            const Run run = runFrom(entries + (i - from) * s_runSize, i + 1 == m_places.runs.count);
            samples = add(samples, multiply(run.chunks, run.perChunk));
        }
        from = end;
    }
    return true;
}

bool MovSampleTables::runOf(std::uint64_t sample, Run& run) const {
    constexpr std::uint64_t most = s_walkBytes / s_runSize - 1;
    std::uint64_t from = 0, to = 0, before = 0;
    const auto walk = [this](std::uint64_t a, std::uint64_t b, std::uint64_t& sum) { return walkRuns(a, b, sum); };
    if (!m_runMarks.findStretch(sample, walk, from, to, before)) return false;
    std::uint8_t entries[s_walkBytes];
    while (from < to) {
        const std::uint64_t end = std::min(to, from + most);
        if (!readRuns(from, end, entries)) return false;
        for (std::uint64_t i = from; i < end; ++i) {
            run = runFrom(entries + (i - from) * s_runSize, i + 1 == m_places.runs.count);
            const std::uint64_t samples = multiply(run.chunks, run.perChunk);
            if (sample - before < samples) {
                run.samplesBefore = before;
                return true;
            }
            before += samples;
        }
        from = end;
    }
    return false;
}

bool MovSampleTables::chunkOffset(std::uint64_t chunk, std::uint64_t& offset) const {
    if (chunk >= m_places.chunks.count) return false;
    std::uint8_t bytes[8];
    const unsigned size = m_places.isWide ? 8 : 4;
    if (!m_cache.read(m_places.chunks.offset + chunk * size, bytes, size)) return false;
    ByteCursor cursor(bytes, size);
    offset = m_places.isWide ? cursor.be64() : cursor.be32();
    return true;
}

bool MovSampleTables::sizeOf(std::uint64_t sample, std::uint32_t& size) const {
    size = m_places.fixedSize;
    if (size != 0) return true;
    std::uint64_t sum = 0;
    if (sample >= m_places.sizes.count || !walkSizes(sample, sample + 1, sum)) return false;
    size = static_cast<std::uint32_t>(sum);
    return true;
}

bool MovSampleTables::sumSizes(std::uint64_t from, std::uint64_t to, std::uint64_t& sum) const {
    sum = 0;
    if (m_places.fixedSize != 0) {
        sum = multiply(m_places.fixedSize, to - from);
        return true;
    }
    if (to > m_places.sizes.count) return false;
    if (to - from <= s_plainSum) return walkSizes(from, to, sum);
    const auto walk = [this](std::uint64_t a, std::uint64_t b, std::uint64_t& part) { return walkSizes(a, b, part); };
    std::uint64_t before = 0;
    if (!m_sizeMarks.sumBefore(from, walk, before) || !m_sizeMarks.sumBefore(to, walk, sum)) return false;
    sum -= before;
    return true;
}

bool MovSampleTables::walkSizes(std::uint64_t from, std::uint64_t to, std::uint64_t& sum) const {
    std::uint8_t bytes[s_walkBytes];
    const unsigned bits = m_places.sizeBits;
    const std::uint64_t most = (s_walkBytes - 1) * 8ull / bits;
    while (from < to) {
        const std::uint64_t count = std::min(to - from, most);
        const std::uint64_t first = from * bits / 8;
        const auto size = static_cast<unsigned>((from + count) * bits / 8 + ((from + count) * bits % 8 != 0) - first);
        const std::uint64_t offset = m_places.sizes.offset + first;
        const bool isRead = size <= 2 * MovTableCache::s_window ? m_cache.read(offset, bytes, size)
                                                                : m_cache.readThrough(offset, bytes, size);
        if (!isRead || !addSizes(bytes, from, count, sum)) return false;
        from += count;
    }
    return true;
}

bool MovSampleTables::addSizes(const std::uint8_t* bytes, std::uint64_t from, std::uint64_t count,
                               std::uint64_t& sum) const {
    switch (m_places.sizeBits) {
        case 4:
            for (std::uint64_t i = 0, odd = from % 2; i < count; ++i) {
                const std::uint8_t pair = bytes[(i + odd) / 2];
                sum = add(sum, (i + odd) % 2 == 0 ? pair >> 4 : pair & 15);
            }
            return true;
        case 8:
            for (std::uint64_t i = 0; i < count; ++i)
                sum = add(sum, bytes[i]);
            return true;
        case 16:
            for (std::uint64_t i = 0; i < count; ++i)
                sum = add(sum, std::uint64_t{bytes[2 * i]} << 8 | bytes[2 * i + 1]);
            return true;
        case 32:
            for (std::uint64_t i = 0; i < count; ++i)
                sum = add(sum, word(bytes + 4 * i));
            return true;
        default:
            return false;
    }
}

// Both tables of runs of times begin an entry with its count of samples.
bool MovSampleTables::walkCounts(const MovTable& table, std::uint64_t from, std::uint64_t to,
                                 std::uint64_t& sum) const {
    std::uint8_t bytes[s_walkBytes];
    while (from < to) {
        const std::uint64_t count = std::min<std::uint64_t>(to - from, s_walkBytes / s_pairSize);
        const auto size = static_cast<unsigned>(count * s_pairSize);
        const std::uint64_t offset = table.offset + from * s_pairSize;
        const bool isRead = size <= 2 * MovTableCache::s_window ? m_cache.read(offset, bytes, size)
                                                                : m_cache.readThrough(offset, bytes, size);
        if (!isRead) return false;
        for (std::uint64_t i = 0; i < count; ++i)
            sum = add(sum, word(bytes + i * s_pairSize));
        from += count;
    }
    return true;
}

bool MovSampleTables::walkTicks(std::uint64_t from, std::uint64_t to, std::uint64_t& sum) const {
    std::uint8_t bytes[s_walkBytes];
    while (from < to) {
        const std::uint64_t count = std::min<std::uint64_t>(to - from, s_walkBytes / s_pairSize);
        const auto size = static_cast<unsigned>(count * s_pairSize);
        const std::uint64_t offset = m_places.times.offset + from * s_pairSize;
        const bool isRead = size <= 2 * MovTableCache::s_window ? m_cache.read(offset, bytes, size)
                                                                : m_cache.readThrough(offset, bytes, size);
        if (!isRead) return false;
        for (std::uint64_t i = 0; i < count; ++i)
            sum = add(sum, multiply(word(bytes + i * s_pairSize), word(bytes + i * s_pairSize + 4)));
        from += count;
    }
    return true;
}

// The entry of a table of runs that a sample falls into, and the samples before it.
bool MovSampleTables::findCounted(const MovTable& table, const MovMarks& marks, std::uint64_t sample,
                                  std::uint64_t& entry, std::uint64_t& before, std::uint32_t& value) const {
    const auto walk = [&](std::uint64_t a, std::uint64_t b, std::uint64_t& sum) {
        return walkCounts(table, a, b, sum);
    };
    std::uint64_t to = 0;
    if (!marks.findStretch(sample, walk, entry, to, before)) return false;
    for (; entry < to; ++entry) {
        std::uint8_t bytes[s_pairSize];
        if (!m_cache.read(table.offset + entry * s_pairSize, bytes, sizeof bytes)) return false;
        const std::uint32_t count = word(bytes);
        value = word(bytes + 4);
        if (sample - before < count) return true;
        before += count;
    }
    return false;
}

bool MovSampleTables::timeOf(std::uint64_t sample, std::uint64_t& ticks) const {
    std::uint64_t entry = 0, before = 0;
    std::uint32_t step = 0;
    if (!findCounted(m_places.times, m_timeMarks, sample, entry, before, step)) return false;
    const auto walk = [this](std::uint64_t a, std::uint64_t b, std::uint64_t& sum) { return walkTicks(a, b, sum); };
    if (!m_tickMarks.sumBefore(entry, walk, ticks)) return false;
    ticks = add(ticks, multiply(sample - before, step));
    return true;
}

bool MovSampleTables::shiftOf(std::uint64_t sample, std::int32_t& ticks) const {
    ticks = 0;
    if (m_places.shifts.count == 0) return true;
    std::uint64_t entry = 0, before = 0;
    std::uint32_t value = 0;
    if (!findCounted(m_places.shifts, m_shiftMarks, sample, entry, before, value)) return false;
    // Writers put negative shifts into tables of either version.
    ticks = static_cast<std::int32_t>(value);
    return true;
}

bool MovSampleTables::sampleAt(std::uint64_t ticks, std::uint64_t& sample) const {
    const auto walkTime = [this](std::uint64_t a, std::uint64_t b, std::uint64_t& sum) { return walkTicks(a, b, sum); };
    const auto walkCount = [this](std::uint64_t a, std::uint64_t b, std::uint64_t& sum) {
        return walkCounts(m_places.times, a, b, sum);
    };
    std::uint64_t entry = 0, to = 0, at = 0;
    if (!m_tickMarks.findStretch(ticks, walkTime, entry, to, at)) return false;
    if (!m_timeMarks.sumBefore(entry, walkCount, sample)) return false;
    for (; entry < to; ++entry) {
        std::uint8_t bytes[s_pairSize];
        if (!m_cache.read(m_places.times.offset + entry * s_pairSize, bytes, sizeof bytes)) return false;
        const std::uint32_t count = word(bytes), step = word(bytes + 4);
        const std::uint64_t length = multiply(count, step);
        if (ticks - at < length) {
            sample = add(sample, (ticks - at) / step);
            break;
        }
        at = add(at, length);
        sample = add(sample, count);
    }
    sample = std::min(sample, m_samples);
    return true;
}

std::uint32_t MovSampleTables::evenStep() const {
    if (m_places.times.count == 0 || m_places.times.count > 2) return 0;
    std::uint8_t bytes[2 * s_pairSize] = {};
    const auto size = static_cast<unsigned>(m_places.times.count * s_pairSize);
    if (!m_cache.read(m_places.times.offset, bytes, size)) return 0;
    const bool isLastAlone = m_places.times.count == 2 && word(bytes + s_pairSize) == 1;
    return m_places.times.count == 1 || isLastAlone ? word(bytes + 4) : 0;
}

std::uint32_t MovSampleTables::usualStep(unsigned tenths) const {
    constexpr std::uint64_t most = 64;
    std::uint8_t bytes[most * s_pairSize];
    const std::uint64_t entries = std::min(m_places.times.count, most);
    if (!m_cache.read(m_places.times.offset, bytes, static_cast<unsigned>(entries * s_pairSize))) return 0;
    std::uint64_t all = 0, often = 0;
    std::uint32_t usual = 0;
    for (std::uint64_t i = 0; i < entries; ++i) {
        std::uint64_t same = 0;
        for (std::uint64_t j = 0; j < entries; ++j) {
            if (word(bytes + j * s_pairSize + 4) == word(bytes + i * s_pairSize + 4))
                same += word(bytes + j * s_pairSize);
        }
        all += word(bytes + i * s_pairSize);
        if (same <= often) continue;
        often = same;
        usual = word(bytes + i * s_pairSize + 4);
    }
    return often * 10 >= all * tenths ? usual : 0;
}

// The first entry of the sync table that is above a sample, and the number in the one before it; 0 without one.
bool MovSampleTables::findSync(std::uint64_t sample, std::uint64_t& place, std::uint32_t& number) const {
    std::uint64_t low = 0, high = m_places.syncs.count;
    number = 0;
    while (low < high) {
        const std::uint64_t middle = low + (high - low) / 2;
        std::uint8_t bytes[s_syncSize];
        if (!m_cache.read(m_places.syncs.offset + middle * s_syncSize, bytes, sizeof bytes)) return false;
        if (word(bytes) <= sample + 1) {
            number = word(bytes);
            low = middle + 1;
        } else {
            high = middle;
        }
    }
    place = low;
    return true;
}

bool MovSampleTables::isSync(std::uint64_t sample) const {
    if (!m_places.hasSyncs) return true;
    bool isOne = false;
    if (m_held.findSync(sample, isOne)) return isOne;
    std::uint64_t place = 0;
    std::uint32_t number = 0;
    return findSync(sample, place, number) && number == sample + 1;
}

bool MovSampleTables::changeOfDescription(std::uint64_t sample, std::uint32_t& description, std::uint64_t& next) const {
    Run run;
    next = sample;
    description = 0;
    while (next < m_samples) {
        if (!runOf(next, run)) return false;
        if (description == 0) description = run.description;
        if (run.description != description) break;
        next = add(run.samplesBefore, multiply(run.chunks, run.perChunk));
    }
    next = std::min(next, m_samples);
    return description != 0;
}

std::uint64_t MovSampleTables::samplesWithin(std::uint64_t length) const {
    std::uint64_t offset = 0;
    if (m_samples == 0 || m_places.chunks.count == 0) return 0;
    if (!chunkOffset(m_places.chunks.count - 1, offset)) return 0;
    // The last chunk's samples are the table's last ones; a sample is at least where its chunk begins.
    std::uint8_t last[s_runSize];
    if (!m_cache.read(m_places.runs.offset + (m_places.runs.count - 1) * s_runSize, last, sizeof last)) return 0;
    const std::uint64_t inLast = std::min<std::uint64_t>(word(last + 4), m_samples);
    std::uint64_t bytes = 0;
    const bool isKnown = inLast <= s_plainSum || m_places.fixedSize != 0;
    if (isKnown && !sumSizes(m_samples - inLast, m_samples, bytes)) return 0;
    if (add(offset, bytes) <= length) return m_samples;
    // Chunks mostly lie in their order: the last sample that is wholly there ends the movie.
    std::uint64_t low = 0, high = m_samples;
    while (low < high) {
        const std::uint64_t middle = low + (high - low) / 2;
        MovSpot spot;
        if (find(middle, spot) && spot.offset <= length && spot.size <= length - spot.offset) {
            low = middle + 1;
        } else {
            high = middle;
        }
    }
    return low;
}
