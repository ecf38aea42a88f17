#include "shared/include/validation/pcm_pattern.h"

#include <algorithm>

#include "mediautil/validation/pcm_stretch.h"
#include "services/system/format_str.h"

namespace {

// In 32 bits, as the difference itself: between samples of 32 bits it wraps.
std::uint32_t stepBetween(std::int32_t from, std::int32_t to) {
    const std::uint32_t difference = static_cast<std::uint32_t>(to) - static_cast<std::uint32_t>(from);
    return static_cast<std::int32_t>(difference) < 0 ? 0 - difference : difference;
}

}  // namespace

PcmPattern::PcmPattern(unsigned int limit, unsigned int channels) : m_nChannels(channels), m_limit(limit) {}

void PcmPattern::add(const Sample& sample) {
    if (sample.m_inBurst) {
        if (!m_ac3Seen) {
            m_ac3Seen = true;
            m_silent = false;
            m_ac3Count = 1;
            m_ac3First = m_nSamples;
        } else {
            ++m_ac3Count;
        }
        for (unsigned channel = 0; channel < m_nChannels; ++channel)
            addAc3(channel);
    } else {
        bool isOver = false;
        for (unsigned channel = 0; channel < m_nChannels; ++channel)
            isOver |= add(sample.m_values[channel % s_maxChannels], channel);
        m_suspect = isOver;
    }
    ++m_nSamples;
}

bool PcmPattern::add(int value, unsigned int channel) {
    Channel& seen = m_chan[channel % s_maxChannels];
    if (value != 0) m_silent = false;
    if (seen.m_over + seen.m_ok == 0) {
        seen.m_prev = value;
        seen.m_ok = 1;
        seen.m_step = 0;
        return false;
    }
    seen.m_step = stepBetween(seen.m_prev, value);
    seen.m_maxStep = std::max(seen.m_maxStep, seen.m_step);
    seen.m_minStep = std::min(seen.m_minStep, seen.m_step);
    seen.m_prev = value;
    ++(m_limit >= seen.m_step ? seen.m_ok : seen.m_over);
    return seen.m_over > 0;
}

bool PcmPattern::addAc3(unsigned int channel) {
    Channel& seen = m_chan[channel % s_maxChannels];
    ++seen.m_ok;
    seen.m_prev = 0;
    seen.m_step = 0;
    return seen.m_over > 0;
}

void PcmPattern::add(const PcmStretch& stretch) {
    if (stretch.m_samples == 0) return;
    bool isOver = false;
    for (unsigned channel = 0; channel < m_nChannels; ++channel) {
        const PcmStretch::Channel& from = stretch.m_chan[channel];
        Channel& seen = m_chan[channel];
        seen.m_step = from.m_lastStep;
        seen.m_maxStep = std::max(seen.m_maxStep, from.m_maxStep);
        seen.m_prev = from.m_last;
        seen.m_over += from.m_over;
        seen.m_ok += stretch.m_samples - from.m_over;
        isOver |= seen.m_over > 0;
        // Without a step all are what the sample ahead was, which has been seen.
        if (from.m_maxStep > 0) m_silent = false;
    }
    m_suspect = isOver;
    m_nSamples += stretch.m_samples;
}

void PcmPattern::addBurst(unsigned int samples) {
    m_ac3Count += samples;
    for (unsigned channel = 0; channel < m_nChannels; ++channel)
        m_chan[channel].m_ok += samples;
    m_nSamples += samples;
}

void PcmPattern::setAc3SampleCount(unsigned int samples) {
    if (samples == 0) return;
    m_ac3Expected = samples;
    if (!isBurstWhole()) m_suspect = true;
}

AutoPtr<char> PcmPattern::toString() const {
    FormatStr text("%d samples", static_cast<int>(m_nSamples));
    for (unsigned channel = 0; channel < m_nChannels; ++channel) {
        const Channel& seen = m_chan[channel % s_maxChannels];
        text.format(",ch%d:", static_cast<int>(channel));
        if (m_suspect) {
            if (seen.m_over > 0)
                text.format(",%d over,max=%d", static_cast<int>(seen.m_over), static_cast<int>(seen.m_maxStep));
            else
                text.cat(",ok");
        } else if (m_silent) {
            text.cat("silent");
        } else if (seen.m_maxStep == 0) {
            text.format("constant 0x%x", static_cast<unsigned>(seen.m_prev));
        } else {
            text.cat("ok");
        }
    }
    // A suspect block without a burst tells of the two samples that every burst has on top; it is kept so.
    if (m_suspect && !isBurstWhole()) {
        text.format(",ac3:expected %d,got %d samples", static_cast<int>(m_ac3Expected + s_burstHead),
                    static_cast<int>(m_ac3Count));
    } else if (m_ac3Count > 0) {
        text.format(",%d ac3 samples @s%d", static_cast<int>(m_ac3Count), static_cast<int>(m_ac3First));
    }
    return text;
}
