#include "backends/mov/mov_track_samples.h"

#include <algorithm>
#include <utility>

MovTrackSamples::MovTrackSamples(MovTrack& track, const MovTableCache& cache)
    : m_cache(cache), m_tables(track.places, cache), m_runs(std::move(track.runs)) {
    if (!m_runs.empty()) m_fragmentSamples = m_runs.back().firstSample + m_runs.back().count;
}

const MovFragmentRun* MovTrackSamples::runOf(std::uint64_t sample) const {
    const std::uint64_t inFragments = sample - m_tables.samples();
    if (sample < m_tables.samples() || inFragments >= m_fragmentSamples) return nullptr;
    const auto behind =
        std::upper_bound(m_runs.begin(), m_runs.end(), inFragments,
                         [](std::uint64_t s, const MovFragmentRun& run) { return s < run.firstSample; });
    return &*(behind - 1);
}

bool MovTrackSamples::entryOf(const MovFragmentRun& run, std::uint32_t place, MovRunEntry::Facts& facts) const {
    std::uint8_t bytes[16];
    const unsigned size = MovRunEntry::sizeOf(run.flags);
    if (size != 0 && !m_cache.read(run.entries + std::uint64_t{place} * size, bytes, size)) return false;
    facts = MovRunEntry::read(run, place, bytes);
    return true;
}

bool MovTrackSamples::sum(const MovFragmentRun& run, std::uint32_t from, std::uint32_t to, std::uint64_t& bytes,
                          std::uint64_t& ticks) const {
    bytes = ticks = 0;
    const unsigned size = MovRunEntry::sizeOf(run.flags);
    if (size == 0) {
        bytes = std::uint64_t{run.size} * (to - from);
        ticks = std::uint64_t{run.step} * (to - from);
        return true;
    }
    constexpr unsigned room = 960;  // whole entries of 4, 8, 12 and 16 bytes
    std::uint8_t entries[room];
    while (from < to) {
        const std::uint32_t count = std::min(to - from, room / size);
        if (!m_cache.read(run.entries + std::uint64_t{from} * size, entries, count * size)) return false;
        for (std::uint32_t i = 0; i < count; ++i) {
            const MovRunEntry::Facts facts = MovRunEntry::read(run, from + i, entries + i * size);
            bytes += facts.size;
            ticks += facts.step;
        }
        from += count;
    }
    return true;
}

bool MovTrackSamples::find(std::uint64_t sample, MovSpot& spot) const {
    std::uint64_t found = 0, bytes = 0;
    return sample < m_tables.samples() ? m_tables.find(sample, spot) : findTogether(sample, 1, spot, found, bytes);
}

bool MovTrackSamples::findTogether(std::uint64_t sample, std::uint64_t count, MovSpot& spot, std::uint64_t& found,
                                   std::uint64_t& bytes) const {
    if (sample < m_tables.samples()) {
        if (count == 1) {
            if (!m_tables.findAlone(sample, spot)) return false;
            found = 1;
            bytes = spot.size;
            return true;
        }
        if (!m_tables.find(sample, spot)) return false;
        found = std::min(count, spot.following + 1);
        bytes = spot.size;
        return found == 1 || m_tables.sumSizes(sample, sample + found, bytes);
    }
    const MovFragmentRun* run = runOf(sample);
    if (run == nullptr) return false;
    const auto place = static_cast<std::uint32_t>(sample - m_tables.samples() - run->firstSample);
    std::uint64_t before = 0, ticks = 0;
    MovRunEntry::Facts facts;
    if (!sum(*run, 0, place, before, ticks) || !entryOf(*run, place, facts)) return false;
    if (__builtin_add_overflow(run->data, before, &spot.offset)) return false;
    spot.size = facts.size;
    spot.following = run->count - place - 1;
    spot.description = run->description;
    found = std::min(count, spot.following + 1);
    bytes = facts.size;
    return found == 1 || sum(*run, place, static_cast<std::uint32_t>(place + found), bytes, ticks);
}

bool MovTrackSamples::isSync(std::uint64_t sample) const {
    if (sample < m_tables.samples()) return m_tables.isSync(sample);
    const MovFragmentRun* run = runOf(sample);
    MovRunEntry::Facts facts;
    if (run == nullptr) return false;
    const auto place = static_cast<std::uint32_t>(sample - m_tables.samples() - run->firstSample);
    return entryOf(*run, place, facts) && (facts.flags & MovRunEntry::s_isNoSync) == 0;
}

bool MovTrackSamples::isAllSync() const {
    const MovTablePlaces& places = m_tables.places();
    if (places.hasSyncs && places.syncs.count < places.samples) return false;
    for (const MovFragmentRun& run : m_runs) {
        const bool hasFlags = (run.flags & (MovRunEntry::s_hasFlags | MovRunEntry::s_hasFirstFlags)) != 0;
        if (hasFlags || (run.sampleFlags & MovRunEntry::s_isNoSync) != 0) return false;
    }
    return true;
}

bool MovTrackSamples::timeOf(std::uint64_t sample, std::uint64_t& ticks) const {
    if (sample < m_tables.samples()) return m_tables.timeOf(sample, ticks);
    const MovFragmentRun* run = runOf(sample);
    if (run == nullptr) return false;
    std::uint64_t bytes = 0;
    const auto place = static_cast<std::uint32_t>(sample - m_tables.samples() - run->firstSample);
    if (!sum(*run, 0, place, bytes, ticks)) return false;
    return !__builtin_add_overflow(ticks, run->time, &ticks);
}

bool MovTrackSamples::shiftOf(std::uint64_t sample, std::int32_t& ticks) const {
    if (sample < m_tables.samples()) return m_tables.shiftOf(sample, ticks);
    const MovFragmentRun* run = runOf(sample);
    MovRunEntry::Facts facts;
    if (run == nullptr) return false;
    const auto place = static_cast<std::uint32_t>(sample - m_tables.samples() - run->firstSample);
    if (!entryOf(*run, place, facts)) return false;
    ticks = facts.shift;
    return true;
}

bool MovTrackSamples::sampleAt(std::uint64_t ticks, std::uint64_t& sample) const {
    if (m_runs.empty() || ticks < m_runs.front().time) {
        sample = 0;
        return m_tables.samples() == 0 || m_tables.sampleAt(ticks, sample);
    }
    const auto behind = std::upper_bound(m_runs.begin(), m_runs.end(), ticks,
                                         [](std::uint64_t t, const MovFragmentRun& run) { return t < run.time; });
    const MovFragmentRun& run = *(behind - 1);
    std::uint64_t left = ticks - run.time, place = 0;
    // Only runs whose entries tell their steps are short enough to be walked.
    if ((run.flags & MovRunEntry::s_hasStep) == 0) {
        place = run.step != 0 ? std::min<std::uint64_t>(left / run.step, run.count) : run.count;
    }
    for (; (run.flags & MovRunEntry::s_hasStep) != 0 && place < run.count; ++place) {
        MovRunEntry::Facts facts;
        if (!entryOf(run, static_cast<std::uint32_t>(place), facts)) return false;
        if (left < facts.step) break;
        left -= facts.step;
    }
    sample = m_tables.samples() + run.firstSample + place;
    return true;
}

std::uint32_t MovTrackSamples::evenStep() const {
    if (m_runs.empty()) return m_tables.evenStep();
    // Entries may all say something else.
    std::uint32_t step = m_tables.samples() != 0 ? m_tables.evenStep() : m_runs.front().step;
    for (const MovFragmentRun& run : m_runs) {
        if ((run.flags & MovRunEntry::s_hasStep) != 0 || run.step != step) return 0;
    }
    return step;
}

std::uint32_t MovTrackSamples::usualStep(unsigned tenths) const {
    if (m_tables.samples() >= m_fragmentSamples) return m_tables.usualStep(tenths);
    constexpr unsigned most = 64;
    std::uint32_t steps[most];
    unsigned count = 0;
    for (std::uint64_t sample = 0; sample < m_fragmentSamples && count < most; ++sample) {
        const MovFragmentRun* run = runOf(m_tables.samples() + sample);
        MovRunEntry::Facts facts;
        if (!entryOf(*run, static_cast<std::uint32_t>(sample - run->firstSample), facts)) break;
        steps[count++] = facts.step;
    }
    std::sort(steps, steps + count);
    const std::uint32_t middle = count != 0 ? steps[count / 2] : 0;
    const auto same = static_cast<unsigned>(std::count(steps, steps + count, middle));
    return same * 10 >= count * tenths ? middle : 0;
}

bool MovTrackSamples::changeOfDescription(std::uint64_t sample, std::uint32_t& description, std::uint64_t& next) const {
    next = sample;
    description = 0;
    if (sample < m_tables.samples()) {
        if (!m_tables.changeOfDescription(sample, description, next)) return false;
        if (next < m_tables.samples()) return true;
    }
    while (const MovFragmentRun* run = runOf(next)) {
        if (description == 0) description = run->description;
        if (run->description != description) break;
        next = m_tables.samples() + run->firstSample + run->count;
    }
    return description != 0;
}
