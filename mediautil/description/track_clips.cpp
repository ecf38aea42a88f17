#include "mediautil/description/containment.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_edit_desc.h"

void MediaTrackDesc::close() const {
    for (unsigned int i = 0; i < getClipCount(); ++i)
        getClip(i)->close();
}

MediaContainment MediaTrackDesc::getContainment() const {
    const unsigned int count = getClipCount();
    if (count == 0) return MediaContainment::Unknown;
    const MediaContainment known = m_containment;
    // Believed only once there is essence: until then the clips may still change.
    if (getClip(0)->getLength() != 0 && known != MediaContainment::Unknown) return known;
    MediaContainment sum = getClip(0)->getContainer();
    for (unsigned int i = 1; i < count; ++i)
        sum = addContainment(sum, getClip(i)->getContainer());
    m_containment = sum;
    return sum;
}

MediaEncodingType MediaTrackDesc::getEncoding() const {
    return getClipCount() != 0 ? getClip(0)->getEncoding() : MediaEncodingType::Unknown;
}

FixedPoint<16> MediaTrackDesc::getMediaRate() const {
    return getClipCount() != 0 ? getClip(0)->getMediaRate() : FixedPoint<16>(1);
}

void MediaTrackDesc::setDefaultVideoRate(MediaVideoRate rate) {
    const MediaVideoRate own = m_videoRate;
    if (own != MediaVideoRate::Unknown && own != rate) return;
    for (unsigned int i = 0; i < getClipCount(); ++i)
        getClip(i)->setDefaultVideoRate(rate);
}

MediaIdRec* MediaTrackDesc::commonId() const {
    MediaIdRec* common = nullptr;
    for (unsigned int i = 0; i < getClipCount(); ++i) {
        MediaIdRec* id = getClip(i)->getMediaId();
        if (common && id != common) return nullptr;
        common = id;
    }
    return common;
}

// Ticks of the movie that a clip takes up. What a file's first edit skips at its start counts as part of its clip.
FixedPoint<16> MediaTrackDesc::shownTicks(const MediaClipDesc& clip, bool first) const {
    const unsigned int ticks = clip.getTicksPerSample();
    FixedPoint<16> length(clip.getLength() * ticks);
    if (first && clip.getEditCount() != 0) length += FixedPoint<16>(clip.getEdit(0)->getIn() * ticks);
    return clip.convertTo(length, getTimeBase());
}

const MediaClipDesc* MediaTrackDesc::clipAt(FixedPoint<16> time, FixedPoint<16>& clipStart) const {
    FixedPoint<16> pos(0);
    clipStart = pos;
    const unsigned int count = getClipCount();
    for (unsigned int i = 0; i < count; ++i) {
        const MediaClipDesc& clip = *getClip(i);
        const FixedPoint<16> end = pos + shownTicks(clip, i == 0);
        // Rounds to the nearest sample: half a sample ahead of its start a clip begins already.
        const FixedPoint<16> half = clip.convertTo(FixedPoint<16>(clip.getTicksPerSample()), getTimeBase()) / 2;
        const FixedPoint<16> rounded = time + half;
        if (rounded >= pos && (rounded < end || i + 1 == count)) {
            clipStart = pos;
            return &clip;
        }
        pos = end;
    }
    return nullptr;
}

MediaClipDesc* MediaTrackDesc::clipAt(FixedPoint<16> time, FixedPoint<16>& clipStart) {
    return const_cast<MediaClipDesc*>(static_cast<const MediaTrackDesc&>(*this).clipAt(time, clipStart));
}

bool MediaTrackDesc::isSlave() const {
    for (unsigned int i = 0; i < getClipCount(); ++i) {
        if (getClip(i)->isSlave()) return true;
    }
    return false;
}

MediaTrackDesc* MediaTrackDesc::getSlaveTrack() {
    for (unsigned int i = 0; i < getClipCount(); ++i) {
        if (MediaClipDesc* slave = getClip(i)->getSlaveClip()) return &slave->getTrack();
    }
    return nullptr;
}

FixedPoint<16> MediaTrackDesc::getMaxLength() const {
    if (getClipCount() == 0) return FixedPoint<16>(0);
    return FixedPoint<16>(FixedPoint<16>::MaxValue()) / getClip(0)->getSampleRate();
}
