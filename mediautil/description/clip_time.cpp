#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_track_desc.h"

MediaVideoRate MediaClipDesc::getVideoRate() const { return getTrack().getVideoRate(); }

FixedPoint<16> MediaClipDesc::getMediaRate() const { return FixedPoint<16>(m_sampleRate) / m_ticksPerSample; }

FixedPoint<16> MediaClipDesc::convertTo(unsigned int rate) const {
    return convertTo(FixedPoint<16>(getLength() * m_ticksPerSample), rate);
}

FixedPoint<16> MediaClipDesc::convertFrom(FixedPoint<16> value, FixedPoint<16> rate) const {
    return value * m_sampleRate / rate;
}
