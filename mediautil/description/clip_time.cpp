#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_track_desc.h"

// Each conversion multiplies first whenever the product fits: the division then loses least.

MediaVideoRate MediaClipDesc::getVideoRate() const { return getTrack().getVideoRate(); }

FixedPoint<16> MediaClipDesc::getMediaRate() const { return FixedPoint<16>(m_sampleRate) / m_ticksPerSample; }

FixedPoint<16> MediaClipDesc::convertTo(FixedPoint<16> value, unsigned int rate) const {
    if (rate == m_sampleRate) return value;
    if (!value.checkProductOverflow(rate)) return value * rate / m_sampleRate;
    return value / m_sampleRate * rate;
}

FixedPoint<16> MediaClipDesc::convertTo(unsigned int rate) const {
    return convertTo(FixedPoint<16>(getLength() * m_ticksPerSample), rate);
}

FixedPoint<16> MediaClipDesc::convertFrom(FixedPoint<16> value, unsigned int rate) const {
    if (rate == m_sampleRate) return value;
    if (!value.checkProductOverflow(m_sampleRate)) return value * m_sampleRate / rate;
    return value / rate * m_sampleRate;
}

FixedPoint<16> MediaClipDesc::convertFrom(FixedPoint<16> value, FixedPoint<16> rate) const {
    return value * m_sampleRate / rate;
}
