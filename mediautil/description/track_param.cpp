#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_clip_param.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_offset_lookup.h"
#include "shared/include/object/core_subsystem.h"

namespace {

// State of a single clip, which never moves to a track.
bool belongsToClip(MediaPropertyEnum::Name name) {
    return name == MediaPropertyEnum::Name::NBlack || name == MediaPropertyEnum::Name::NPrecharge;
}

}  // namespace

MediaClipParam MediaTrackDesc::getParam() const {
    if (getClipCount() == 0) return MediaClipParam();
    const MediaClipDesc& clip = *getClip(0);
    const MediaOffsetLookup* lookup = clip.getLookup();
    if (!lookup) return MediaClipParam();

    MediaClipParam param(*this, clip.getEncoding(), lookup->getSummary(), clip.getSampleRate(),
                         clip.getTicksPerSample(), clip.getMaxBitsPerSample(), clip.getBitsPerUnit(),
                         clip.getChannels(), clip.getEndian(), m_width, m_height, m_aspect);
    param.m_coding = clip.getSequenceCoding();
    param.m_chroma = clip.getChroma();
    param.m_vscan = clip.getVscan();
    param.m_bitrate = clip.getBitrate();
    // From last to first: the record's bag comes out reversed, which is meant.
    const MediaPropertyList& bag = getProperties();
    for (unsigned int i = bag.getPropertyCount(); i-- > 0;)
        param.setParam(*bag.get(i)).discard();
    return param;
}

OpResult MediaTrackDesc::setParam(const MediaClipParam& param) {
    if (getLength() != 0) return MO_WARNING(MediaCode::InternalError, nullptr);
    m_type = param.m_dataType;
    m_width = param.m_width;
    m_height = param.m_height;
    m_aspect = param.m_aspect;
    m_videoRate = param.m_videoRate;
    inheritVideoRate(param.m_videoRate);
    takePropertiesOf(param.getParams());
    return OpResult(OpResult::Ok);
}

OpResult MediaTrackDesc::setParam(const MediaTrackDesc& other) {
    const bool typed = m_type != MediaDataType::Unknown;
    if (typed && m_type != other.m_type) return MO_WARNING(MediaCode::InternalError, nullptr);
    if (getLength() != 0) return MO_WARNING(MediaCode::InternalError, nullptr);
    m_type = other.m_type;
    m_width = other.m_width;
    m_height = other.m_height;
    m_aspect = other.m_aspect;
    m_videoRate = other.m_videoRate;
    inheritVideoRate(other.m_videoRate);
    takePropertiesOf(other.getProperties());
    return OpResult(OpResult::Ok);
}

void MediaTrackDesc::takePropertiesOf(const MediaPropertyList& bag) {
    for (unsigned int i = bag.getPropertyCount(); i-- > 0;) {
        const MediaProperty& property = *bag.get(i);
        if (!belongsToClip(property.getName())) setProperty(property).discard();
    }
}
