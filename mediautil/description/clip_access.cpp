#include "services/file/os_path_id.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_offset_lookup.h"
#include "shared/include/index/media_sample_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/object/media_obj.h"

namespace {

// A lookup works on adjusted positions; the caller never sees the adjustment.
void restorePosition(const MediaPlayReq& req, MediaSampleInMovie& desc) {
    // The anchor may lie on either side: a distance modulo 2^64.
    unsigned long long distance = 0;
    static_cast<void>(__builtin_sub_overflow(desc.m_anchor, desc.m_sample, &distance));
    static_cast<void>(__builtin_add_overflow(req.m_sample, distance, &desc.m_anchor));
    desc.m_sample = req.m_sample;
}

}  // namespace

MediaPlayReq MediaClipDesc::prepareRead(const MediaPlayReq& req, MediaSampleInMovie& desc) const {
    const MediaTrackDesc& track = getTrack();
    const MediaObj& obj = track.getObj();
    const unsigned int trackIndex = track.getTrackIndex();
    desc.set(req.m_agent, m_mediaId, trackIndex, getClipIndex(), obj.getPathId(), track.getClipCount() > 1);
    MediaPlayReq adjusted = req;
    adjusted.m_sample = obj.getSyncAdjustedFrame(req.m_sample, trackIndex);
    return adjusted;
}

bool MediaClipDesc::getMediaOffset(const MediaPlayReq& req, MediaSampleInMovie& desc, OpResult& result) const {
    result = OpResult(OpResult::Ok);
    const MediaOffsetLookup* lookup = getLookup();
    if (!lookup) return false;
    if (!lookup->getMediaOffset(prepareRead(req, desc), desc, result)) return false;
    restorePosition(req, desc);
    return true;
}

bool MediaClipDesc::getFrameInfo(const MediaPlayReq& req, MediaSampleInMovie& desc, OpResult& result) const {
    result = OpResult(OpResult::Ok);
    const MediaOffsetLookup* lookup = getLookup();
    if (!lookup) return false;
    if (!lookup->getFrameInfo(prepareRead(req, desc), desc, result)) return false;
    restorePosition(req, desc);
    return true;
}

SampleAndCount MediaClipDesc::getSampleAndCount(unsigned long long frame) const {
    const MediaOffsetLookup* lookup = getLookup();
    return lookup ? lookup->getSampleAndCount(*this, frame) : SampleAndCount();
}

// This class has no pixels of its own. A clip of the writer of this kind of essence has, so that any wrapper's clip can
// fill with any encoding's frames; such a clip overrides the three operations below that lead back here.
bool MediaClipDesc::fill(FillType type, MediaSampleBuf& buf, FixedPoint<16> first, FixedPoint<16> second,
                         bool flag) const {
    if (getFileType() == MediaFileType::Mxf) return false;
    OpResult result;
    const AutoReleasePtr<MediaObj> scratch(MediaObj::openObj(getFileType(), result));
    if (!scratch.get()) return false;
    MediaClipDesc* clip = createFillClip(*scratch.get(), result);
    if (!clip) return false;
    switch (type) {
        case FillType::BackwardRepeat:
            return clip->fillBakRepeat(buf);
        case FillType::ForwardRepeat:
            return clip->fillFwdRepeat(buf);
        case FillType::Black:
            return clip->fillBlack(buf, first, second, flag);
    }
    return false;
}

MediaClipDesc* MediaClipDesc::createFillClip(MediaObj& scratch, OpResult& result) const {
    MediaTrackDesc* track = scratch.createTrack(getTrack(), result);
    if (!track) return nullptr;
    MediaClipDesc* clip = track->createClip(*this, MediaContainment::Embedded, result);
    if (!clip || clip->getEncoding() != MediaEncodingType::Vbi) return clip;
    return track->setProperty(VbiMaskProperty(0)) ? clip : nullptr;
}

bool MediaClipDesc::fillBlack(MediaSampleBuf& buf, FixedPoint<16> first, FixedPoint<16> second, bool flag) const {
    return fill(FillType::Black, buf, first, second, flag);
}

bool MediaClipDesc::fillFwdRepeat(MediaSampleBuf& buf) const {
    return fill(FillType::ForwardRepeat, buf, FixedPoint<16>(0), FixedPoint<16>(0), false);
}

bool MediaClipDesc::fillBakRepeat(MediaSampleBuf& buf) const {
    return fill(FillType::BackwardRepeat, buf, FixedPoint<16>(0), FixedPoint<16>(0), false);
}
