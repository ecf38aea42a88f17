#include "mediautil/description/containment.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_edit_desc.h"

namespace {

// Ticks of the movie that a clip takes up. What a file's first edit skips at its start counts as part of its clip.
FixedPoint<16> shownTicks(const MediaClipDesc& clip, bool first, unsigned int timeBase) {
    const unsigned int ticks = clip.getTicksPerSample();
    FixedPoint<16> length(clip.getLength() * ticks);
    if (first && clip.getEditCount() != 0) length += FixedPoint<16>(clip.getEdit(0)->getIn() * ticks);
    return clip.convertTo(length, timeBase);
}

// Positions round to the nearest sample: half a sample ahead of its start a clip begins already.
FixedPoint<16> halfSample(const MediaClipDesc& clip, unsigned int timeBase) {
    return clip.convertTo(FixedPoint<16>(clip.getTicksPerSample()), timeBase) / 2;
}

}  // namespace

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

// The clip at a time before the last clip of several. On the way `start` becomes the start of what comes next.
[[gnu::flatten]] const MediaClipDesc* MediaTrackDesc::clipBeforeLast(FixedPoint<16> time, unsigned int count,
                                                                     FixedPoint<16>& start) const {
    const unsigned int timeBase = getTimeBase();
    FixedPoint<16> pos(0);
    const MediaClipDesc* hit = nullptr;
    for (unsigned int i = 0; i + 1 < count && !hit; ++i) {
        const MediaClipDesc& clip = *getClip(i);
        const FixedPoint<16> end = pos + shownTicks(clip, i == 0, timeBase);
        // A time that is past the clip by itself is so with half a sample more, which is worked out only for the
        // others.
        if (time < end) {
            const FixedPoint<16> rounded = time + halfSample(clip, timeBase);
            if (rounded >= pos && rounded < end) hit = &clip;
        }
        if (!hit) pos = end;
    }
    start = pos;
    return hit;
}

// The clip behind a seam to shorter samples: the time is past the clip before it by half of that one's sample, and not
// yet at this clip by half of its own. Null with a start of 0 for what lies before all clips.
const MediaClipDesc* MediaTrackDesc::clipBehindSeam(FixedPoint<16> time, unsigned int count,
                                                    FixedPoint<16>& start) const {
    const unsigned int timeBase = getTimeBase();
    start = FixedPoint<16>(0);
    for (unsigned int i = 0; i + 1 < count; ++i) {
        const MediaClipDesc& clip = *getClip(i);
        const MediaClipDesc& next = *getClip(i + 1);
        start += shownTicks(clip, i == 0, timeBase);
        const bool passed = time + halfSample(clip, timeBase) >= start;
        if (passed && time + halfSample(next, timeBase) < start) return &next;
    }
    start = FixedPoint<16>(0);
    return nullptr;
}

// A walk over all clips of a track for every position: what is the same for all of them is asked for once.
const MediaClipDesc* MediaTrackDesc::clipAt(FixedPoint<16> time, FixedPoint<16>& clipStart) const {
    clipStart = FixedPoint<16>(0);
    const unsigned int count = getClipCount();
    if (count == 0) return nullptr;
    FixedPoint<16> start(0);
    const MediaClipDesc* clip = count > 1 ? clipBeforeLast(time, count, start) : nullptr;
    if (!clip) {
        clip = getClip(count - 1);
        if (time < start && time + halfSample(*clip, getTimeBase()) < start) clip = clipBehindSeam(time, count, start);
    }
    clipStart = start;
    return clip;
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
