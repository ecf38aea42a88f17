#include "mediautil/object/media_obj_impl.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_clip_param.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_offset_lookup.h"
#include "shared/include/object/core_subsystem.h"
#include "shared/include/object/media_obj.h"

// New tracks and clips that copy another movie's, and which movies may follow each other.

namespace {

// A clip that refers to essence knows its sample layout at once.
void passSummary(const MediaClipDesc& source, MediaClipDesc& clip) {
    const MediaOffsetLookup* from = source.getLookup();
    MediaOffsetLookup* to = clip.getLookup();
    if (from && to) to->update(from->getSummary()).discard();
}

bool seamFits(const MediaTrackDesc& ours, const MediaTrackDesc& theirs) {
    const unsigned count = ours.getClipCount();
    return count != 0 && ours.getClip(count - 1)->canReceive(*theirs.getClip(0));
}

}  // namespace

MediaTrackDesc* MediaObj::createTrack(const MediaTrackDesc& source, OpResult& result) {
    return createTrack(source.getParam(), result);
}

MediaTrackDesc* MediaObj::createClip(const MediaTrackDesc& source, MediaContainment containment, OpResult& result) {
    if (source.getClipCount() == 0) {
        result = MO_WARNING(MediaCode::InternalError, nullptr);
        return nullptr;
    }
    MediaTrackDesc* track = createTrack(source, result);
    if (!track) return nullptr;
    const MediaClipDesc& first = *source.getClip(0);
    MediaClipDesc* clip = track->createClip(first, containment, result);
    if (!clip) return nullptr;
    track->setDefaultVideoRate(impl().m_defaultVideoRate.load(std::memory_order_relaxed));
    if (containment == MediaContainment::ByRef) passSummary(first, *clip);
    return track;
}

MediaTrackDesc* MediaObj::copyClips(const MediaTrackDesc& source, OpResult& result) {
    MediaTrackDesc* track = createTrack(source, result);
    if (!track) return nullptr;
    for (unsigned i = 0; i < source.getClipCount(); ++i) {
        if (!track->copyClip(*source.getClip(i), result)) return nullptr;
    }
    return track;
}

bool MediaObj::canReceive(const MediaObj& source, MediaEncodingType& encoding) const {
    encoding = MediaEncodingType::Unknown;
    unsigned index = 0;
    MediaTrackEnum track = source.getNext(MediaTrackEnum::None, index);
    for (; track != MediaTrackEnum::End; track = source.getNext(track, index)) {
        const MediaTrackDesc* ours = getTrack(track);
        if (!ours) return false;
        const MediaTrackDesc& theirs = *source.getTrackAt(index);
        if (theirs.getClipCount() == 0) continue;
        if (!seamFits(*ours, theirs)) return false;
        const MediaEncodingType next = theirs.getEncoding();
        const bool differs = encoding != MediaEncodingType::Unknown && encoding != next;
        encoding = differs ? MediaEncodingType::Mixed : next;
    }
    return true;
}
