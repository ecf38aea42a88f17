#include "backends/mov/mov_fragments.h"

#include <algorithm>

#include "backends/common/byte_cursor.h"

namespace {

std::uint64_t capped(std::uint64_t a, std::uint64_t b) {
    std::uint64_t sum = 0;
    return __builtin_add_overflow(a, b, &sum) ? ~0ull : sum;
}

}  // namespace

unsigned MovRunEntry::sizeOf(std::uint32_t flags) {
    unsigned size = 0;
    for (const std::uint32_t bit : {s_hasStep, s_hasSize, s_hasFlags, s_hasShift})
        size += (flags & bit) != 0 ? 4 : 0;
    return size;
}

MovRunEntry::Facts MovRunEntry::read(const MovFragmentRun& run, std::uint32_t place, const std::uint8_t* bytes) {
    ByteCursor cursor(bytes, sizeOf(run.flags));
    Facts facts;
    facts.step = (run.flags & s_hasStep) != 0 ? cursor.be32() : run.step;
    facts.size = (run.flags & s_hasSize) != 0 ? cursor.be32() : run.size;
    facts.flags = (run.flags & s_hasFlags) != 0 ? cursor.be32() : run.sampleFlags;
    if (place == 0 && (run.flags & s_hasFirstFlags) != 0) facts.flags = run.firstFlags;
    if ((run.flags & s_hasShift) != 0) facts.shift = static_cast<std::int32_t>(cursor.be32());
    return facts;
}

bool MovFragments::add(const MovBox& moof, MovMovie& movie) {
    m_moof = moof.start;
    m_lastTrack = nullptr;
    m_isFirst = true;
    MovBoxReader reader(m_file, moof.body, moof.end, m_left);
    MovBox box;
    while (reader.next(box)) {
        if (box.type == MovAtom::s_traf && !addTrack(box, movie)) break;
    }
    if (m_isFull) movie.remarks.emplace_back("mov: more runs of samples in fragments than are shown");
    return !m_isFull;
}

bool MovFragments::addTrack(const MovBox& traf, MovMovie& movie) {
    MovBoxReader reader(m_file, traf.body, traf.end, m_left);
    MovBox box;
    MovTrack* track = nullptr;
    Head head;
    while (reader.next(box)) {
        if (box.type == MovAtom::s_tfhd && track == nullptr) track = readHead(box, movie, head);
        if (track == nullptr) continue;
        if (box.type == MovAtom::s_tfdt) readTime(box, *track);
        if (box.type == MovAtom::s_trun && !addRun(box, head, *track)) return false;
    }
    m_isFirst = false;
    return true;
}

MovTrack* MovFragments::readHead(const MovBox& box, MovMovie& movie, Head& head) {
    const auto size = static_cast<unsigned>(std::min<std::uint64_t>(box.size(), 32));
    const std::uint8_t* body = size >= 8 ? m_file.at(box.body, size) : nullptr;
    if (body == nullptr) return nullptr;
    ByteCursor cursor(body, size);
    const std::uint32_t flags = cursor.be32();
    const std::uint32_t id = cursor.be32();
    const auto found =
        std::find_if(movie.tracks.begin(), movie.tracks.end(), [id](const MovTrack& track) { return track.id == id; });
    if (found == movie.tracks.end()) return nullptr;
    MovTrack& track = *found;
    head.hasBase = (flags & 0x1) != 0;
    head.base = head.hasBase ? cursor.be64() : m_moof;
    head.description = (flags & 0x2) != 0 ? cursor.be32() : track.defaultDescription;
    head.step = (flags & 0x8) != 0 ? cursor.be32() : track.defaultStep;
    head.size = (flags & 0x10) != 0 ? cursor.be32() : track.defaultSize;
    head.flags = (flags & 0x20) != 0 ? cursor.be32() : track.defaultFlags;
    // Without a place of its own, and unless all count from the fragment, a track's data follow those of the one
    // before.
    if (!head.hasBase && (flags & 0x20000) == 0 && !m_isFirst && m_lastTrack != nullptr) {
        if (!endOf(m_lastTrack->runs.back(), head.base)) return nullptr;
    }
    return cursor.ok() ? &track : nullptr;
}

void MovFragments::readTime(const MovBox& box, MovTrack& track) {
    const std::uint8_t* head = box.size() >= 8 ? m_file.at(box.body, 8) : nullptr;
    if (head == nullptr) return;
    const bool isLong = head[0] == 1;
    const std::uint8_t* body = !isLong ? head : box.size() >= 12 ? m_file.at(box.body, 12) : nullptr;
    if (body == nullptr) return;
    ByteCursor cursor(body + 4, isLong ? 8 : 4);
    track.fragmentTime = isLong ? cursor.be64() : cursor.be32();
}

bool MovFragments::addRun(const MovBox& box, const Head& head, MovTrack& track) {
    const auto headSize = static_cast<unsigned>(std::min<std::uint64_t>(box.size(), 16));
    const std::uint8_t* body = headSize >= 8 ? m_file.at(box.body, headSize) : nullptr;
    if (body == nullptr) return true;
    ByteCursor cursor(body, headSize);
    MovFragmentRun run;
    run.flags = cursor.be32() & 0xFFFFFF;
    run.count = cursor.be32();
    const bool hasOffset = (run.flags & MovRunEntry::s_hasOffset) != 0;
    const auto offset = static_cast<std::int32_t>(hasOffset ? cursor.be32() : 0);
    if ((run.flags & MovRunEntry::s_hasFirstFlags) != 0) run.firstFlags = cursor.be32();
    if (!cursor.ok()) return true;
    run.entries = box.body + (headSize - cursor.left());
    run.step = head.step;
    run.size = head.size;
    run.sampleFlags = head.flags;
    run.description = head.description;
    run.firstSample = track.fragmentSamples;
    run.time = track.fragmentTime;
    const unsigned entrySize = MovRunEntry::sizeOf(run.flags);
    const std::uint64_t room = box.end - run.entries;
    if (entrySize != 0) run.count = static_cast<std::uint32_t>(std::min<std::uint64_t>(run.count, room / entrySize));
    // An offset may lead back.
    if (__builtin_add_overflow(head.base, offset, &run.data)) return true;
    const bool follows = !hasOffset && m_lastTrack == &track;
    if (follows && !endOf(track.runs.back(), run.data)) return true;
    if (run.data > m_file.length()) return true;
    if (entrySize == 0 || (run.flags & MovRunEntry::s_hasSize) == 0) {
        if (run.size == 0) return true;
        const std::uint64_t most = (m_file.length() - run.data) / run.size;
        run.count = static_cast<std::uint32_t>(std::min<std::uint64_t>(run.count, most));
    }
    if (run.count == 0) return true;
    const bool hasRoom = keep(run, track);
    if (!track.runs.empty()) m_lastTrack = &track;
    return hasRoom;
}

// Long runs are kept in pieces, and the track's time goes on.
bool MovFragments::keep(MovFragmentRun run, MovTrack& track) {
    std::uint32_t left = run.count;
    const unsigned entrySize = MovRunEntry::sizeOf(run.flags);
    while (left != 0) {
        m_isFull = m_runs >= MovLimit::s_runs;
        if (m_isFull) return false;
        // Without entries every sample is found by multiplication.
        run.count = entrySize != 0 ? std::min(left, s_mostInRun) : left;
        std::uint64_t bytes = 0, ticks = 0;
        if (!sum(run, 0, run.count, bytes, ticks)) return true;
        if (!keepWords(run, track)) push(run, track);
        track.fragmentTime = capped(run.time, ticks);
        left -= run.count;
        run.firstSample = track.fragmentSamples;
        run.entries += std::uint64_t{run.count} * entrySize;
        run.data = capped(run.data, bytes);
        run.time = track.fragmentTime;
        run.flags &= ~MovRunEntry::s_hasFirstFlags;
    }
    return true;
}

void MovFragments::push(const MovFragmentRun& run, MovTrack& track) {
    track.runs.push_back(run);
    ++m_runs;
    track.fragmentSamples += run.count;
}

// An entry of plain sound may stand for many samples. Each of them counts, as in the tables: entries of which each
// begins where the one before it ends become one run that has none any more.
bool MovFragments::keepWords(const MovFragmentRun& run, MovTrack& track) {
    const std::size_t description = run.description != 0 ? run.description - 1 : 0;
    const std::uint32_t size = description < track.entries.size() ? track.entries[description].sampleBytes : 0;
    if (size == 0 || track.entries[description].sampleRate != track.timeScale) return false;
    MovFragmentRun words = run;
    words.flags = words.sampleFlags = 0;
    words.step = 1;
    words.size = size;
    words.count = 0;
    if (MovRunEntry::sizeOf(run.flags) == 0) {
        const std::uint64_t count = run.size / size * std::uint64_t{run.count};
        if (std::uint64_t{run.step} * size != run.size || count > 0xFFFFFFFF) return false;
        words.count = static_cast<std::uint32_t>(count);
        push(words, track);
        return true;
    }
    for (std::uint32_t i = 0; i < run.count; ++i) {
        if (factsOf(run, i).size % size != 0) return false;
    }
    pushWords(run, words, track);
    return true;
}

void MovFragments::pushWords(const MovFragmentRun& run, MovFragmentRun words, MovTrack& track) {
    const std::uint64_t length = m_file.length();
    std::uint64_t time = run.time, data = run.data;
    for (std::uint32_t i = 0; i < run.count && data < length; ++i) {
        const MovRunEntry::Facts facts = factsOf(run, i);
        const auto count = static_cast<std::uint32_t>(std::min<std::uint64_t>(facts.size, length - data) / words.size);
        if (time != capped(words.time, words.count) || count > 0xFFFFFFFF - words.count) {
            if (words.count != 0) push(words, track);
            words.firstSample = track.fragmentSamples;
            words.time = time;
            words.data = data;
            words.count = 0;
        }
        words.count += count;
        time = capped(time, facts.step);
        data = capped(data, facts.size);
    }
    if (words.count != 0) push(words, track);
}

// Requires: a run with entries, which can be read.
MovRunEntry::Facts MovFragments::factsOf(const MovFragmentRun& run, std::uint32_t place) {
    const unsigned size = MovRunEntry::sizeOf(run.flags);
    const std::uint8_t* const entry = m_file.at(run.entries + std::uint64_t{place} * size, size);
    return entry != nullptr ? MovRunEntry::read(run, place, entry) : MovRunEntry::Facts();
}

bool MovFragments::sum(const MovFragmentRun& run, std::uint32_t from, std::uint32_t to, std::uint64_t& bytes,
                       std::uint64_t& ticks) {
    const unsigned entrySize = MovRunEntry::sizeOf(run.flags);
    if (entrySize == 0) {
        bytes += std::uint64_t{run.size} * (to - from);
        ticks += std::uint64_t{run.step} * (to - from);
        return true;
    }
    for (std::uint32_t i = from; i < to; ++i) {
        const std::uint8_t* entry = m_file.at(run.entries + std::uint64_t{i} * entrySize, entrySize);
        if (entry == nullptr) return false;
        const MovRunEntry::Facts facts = MovRunEntry::read(run, i, entry);
        bytes += facts.size;
        ticks += facts.step;
    }
    return true;
}

bool MovFragments::endOf(const MovFragmentRun& run, std::uint64_t& end) {
    std::uint64_t bytes = 0, ticks = 0;
    if (!sum(run, 0, run.count, bytes, ticks)) return false;
    end = capped(run.data, bytes);
    return true;
}

void MovFragments::finish(MovMovie& movie) {
    const std::uint64_t length = m_file.length();
    for (MovTrack& track : movie.tracks) {
        while (!track.runs.empty()) {
            MovFragmentRun& run = track.runs.back();
            std::uint64_t end = 0;
            if (!endOf(run, end)) break;
            if (end <= length) break;
            // A piece of a long run may begin behind the end.
            const bool isInside = run.data <= length;
            std::uint32_t count = 0;
            std::uint64_t bytes = 0, ticks = 0;
            while (isInside && count < run.count && sum(run, count, count + 1, bytes, ticks) &&
                   bytes <= length - run.data)
                ++count;
            track.fragmentSamples -= run.count - count;
            run.count = count;
            if (count != 0) break;
            track.runs.pop_back();
        }
    }
}
