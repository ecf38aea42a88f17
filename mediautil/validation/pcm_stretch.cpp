#include "mediautil/validation/pcm_stretch.h"

#include <algorithm>

#include "shared/include/validation/pcm_parser.h"

namespace {

std::uint32_t stepBetween(std::int32_t from, std::int32_t to) {
    const std::uint32_t difference = static_cast<std::uint32_t>(to) - static_cast<std::uint32_t>(from);
    return static_cast<std::int32_t>(difference) < 0 ? 0 - difference : difference;
}

}  // namespace

PcmScanner::PcmScanner(const PcmParser& parser, unsigned limit, PcmVectors vectors)
    : m_form{parser.getBytesPerSample(), parser.getChannels(), limit, parser.getSyncPa(), parser.getSyncPb()},
      m_parser(parser),
      m_isBlind(parser.getEndian() == MediaEndian::Little && (m_form.m_bytes == 1 || m_form.m_bytes == 2)) {
    if (m_form.m_channels == 0 || m_form.m_channels > PcmPattern::s_maxChannels) return;
    m_reader = PcmPass::readerOf(parser.getEndian(), m_form.m_bytes, vectors);
    if (m_isBlind) m_least = 1;
    if (m_reader.m_pass == nullptr) return;
    const unsigned group = PcmPass::vectorsOfGroup(m_form.m_channels, m_reader.m_lanes);
    m_least = group * m_reader.m_lanes / m_form.m_channels;
    m_mostGroups = PcmPass::s_mostVectors / group;
}

PcmStretch PcmScanner::scan(const unsigned char* memory, unsigned samples) {
    PcmStretch stretch;
    if (m_isBlind) {
        stretch.m_samples = samples;
        return stretch;
    }
    unsigned groups = std::min(samples / m_least, m_mostGroups);
    PcmPass::Found found = look(memory, groups);
    if (found.m_sync && m_parser.isLookingForBurst()) {
        groups = findSync(memory, groups * m_least) / m_least;
        found = look(memory, groups);
    }
    stretch.m_samples = groups * m_least;
    if (groups > 0) close(memory, found, stretch);
    return stretch;
}

// Sound without damage has no step above the limit, and nothing to count. Where there was damage more is likely.
PcmPass::Found PcmScanner::look(const unsigned char* memory, unsigned groups) {
    PcmPass::Found found;
    if (!m_isDamaged) {
        m_reader.m_pass(m_form, memory, groups, found);
        if (!isOver(found)) return found;
    }
    m_reader.m_countingPass(m_form, memory, groups, found);
    m_isDamaged = isOver(found);
    return found;
}

bool PcmScanner::isOver(const PcmPass::Found& found) const {
    return *std::max_element(std::begin(found.m_maxStep), std::end(found.m_maxStep)) > m_form.m_limit;
}

unsigned PcmScanner::findSync(const unsigned char* memory, unsigned samples) const {
    const std::size_t bytes = m_form.m_bytes;
    for (unsigned i = 0; i < samples; ++i) {
        const unsigned char* const at = memory + i * 2 * bytes;
        if (m_reader.m_value(at) == m_form.m_syncPa && m_reader.m_value(at + bytes) == m_form.m_syncPb) return i;
    }
    return samples;
}

void PcmScanner::close(const unsigned char* memory, const PcmPass::Found& found, PcmStretch& stretch) const {
    const std::size_t instant = std::size_t{m_form.m_channels} * m_form.m_bytes;
    const unsigned char* const last = memory + (stretch.m_samples - 1) * instant;
    for (unsigned i = 0; i < m_form.m_channels; ++i) {
        const unsigned char* const at = last + i * m_form.m_bytes;
        PcmStretch::Channel& channel = stretch.m_chan[i];
        channel.m_last = m_reader.m_value(at);
        channel.m_lastStep = stepBetween(m_reader.m_value(at - instant), channel.m_last);
        channel.m_maxStep = found.m_maxStep[i];
        channel.m_over = found.m_over[i];
    }
}
