#include "backends/mov/mov_run_index.h"

#include <algorithm>

bool MovRunIndex::add(std::uint64_t offset, std::uint64_t count, const SampleInfo& info) {
    const std::uint64_t samples = m_samples.load(std::memory_order_relaxed);
    const std::uint64_t runs = m_runs.size();
    if (m_fixedSize == 0 && !m_infos.push(info)) return false;
    const bool isFull = m_fixedSize == 0 && runs != 0 && samples - m_runs.get(runs - 1).m_first >= s_mostInRun;
    if ((runs == 0 || offset != m_end || isFull) && !m_runs.push({offset, samples})) return false;
    m_end = offset + (m_fixedSize != 0 ? count * m_fixedSize : info.getSize());
    m_samples.store(samples + count, std::memory_order_release);
    return true;
}

std::uint64_t MovRunIndex::runOf(std::uint64_t sample, std::uint64_t runs) const {
    std::uint64_t low = 0;
    while (runs - low > 1) {
        const std::uint64_t middle = low + (runs - low) / 2;
        (m_runs.get(middle).m_first <= sample ? low : runs) = middle;
    }
    return low;
}

std::uint64_t MovRunIndex::bytesOf(std::uint64_t sample, std::uint64_t count) const {
    if (m_fixedSize != 0) return count * m_fixedSize;
    std::uint64_t bytes = 0;
    for (std::uint64_t i = 0; i < count; ++i)
        bytes += m_infos.get(sample + i).getSize();
    return bytes;
}

MovRunIndex::Stretch MovRunIndex::find(std::uint64_t sample, std::uint64_t most) const {
    const std::uint64_t samples = getSamples();
    const std::uint64_t runs = m_runs.size();
    const std::uint64_t number = runOf(sample, runs);
    const Run run = m_runs.get(number);
    // A run that has been entered for samples that aren't told yet begins where those told end.
    const std::uint64_t end = number + 1 < runs ? std::min(m_runs.get(number + 1).m_first, samples) : samples;
    Stretch stretch;
    stretch.m_offset = run.m_offset + bytesOf(run.m_first, sample - run.m_first);
    stretch.m_samples = std::min(end - sample, most);
    stretch.m_bytes = bytesOf(sample, stretch.m_samples);
    return stretch;
}

SampleInfo MovRunIndex::getInfo(std::uint64_t sample) const {
    if (m_fixedSize == 0) return m_infos.get(sample);
    SampleInfo info;
    info.reset(m_fixedSize);
    return info;
}
