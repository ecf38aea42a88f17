#include "shared/include/description/media_track_desc.h"

#include "mediautil/description/frame_length.h"
#include "services/system/format_str.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_clip_param.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/description/media_names.h"
#include "shared/include/object/core_subsystem.h"
#include "shared/include/object/media_obj.h"

MediaClipDesc* MediaTrackDesc::createClip(const MediaClipDesc& source, MediaContainment containment, OpResult& result) {
    if (containment == MediaContainment::Embedded) return createClip(MediaClipParam(source), result);
    const FormatStr message("\"%s\" containment requested, \"%s\" required", MediaNames::get(containment),
                            MediaNames::get(MediaContainment::Embedded));
    result = MO_ERROR(MediaCode::OperationUnsupported, message.get());
    return nullptr;
}

MediaClipDesc* MediaTrackDesc::copyClip(const MediaClipDesc&, OpResult& result) {
    result = MO_WARNING(MediaCode::InternalError, nullptr);
    return nullptr;
}

const MediaPropertyList& MediaTrackDesc::getProperties() const {
    static const EmptyMediaProperties& none = *new EmptyMediaProperties;  // never destroyed: read to the very end
    return none;
}

// The empty bag takes nothing, so it does no harm that every track shares it.
MediaPropertyList& MediaTrackDesc::getPropertiesForUpd() { return const_cast<MediaPropertyList&>(getProperties()); }

OpResult MediaTrackDesc::setProperty(const MediaProperty& property) { return getPropertiesForUpd().set(property); }

const MediaProperty* MediaTrackDesc::getProperty(MediaPropertyEnum::Name name) const {
    return getProperties().get(name);
}

VbiMaskProperty MediaTrackDesc::get(MediaPropertyEnum::VbiMask tag) const { return getProperties().get(tag); }

void MediaTrackDesc::inheritVideoRate(MediaVideoRate rate) {
    if (m_videoRate == MediaVideoRate::Unknown) m_videoRate = rate;
    getObj().inheritVideoRate(rate);  // also when the track had one: the movie's standard comes from below
}

MediaVideoRate MediaTrackDesc::getMovieStandard() const { return getObj().getMovieDesc()->getStandard(); }

unsigned int MediaTrackDesc::getTimeBase() const { return getObj().getMovieDesc()->getTimeBase(); }

unsigned long long MediaTrackDesc::getFrameLength() const {
    return framesOf(getLength(), getTimeBase(), getObj().getRealVideoRate());
}

FixedPoint<16> MediaTrackDesc::getDuration() const { return FixedPoint<16>(getLength()) / getTimeBase(); }

MediaAspectRatio MediaTrackDesc::getAspectRatio() const { return m_aspect.get(); }

MediaAspectRatio MediaTrackDesc::getAspectRatio(GuessUnknownAspect) const {
    if (m_aspect.get() != MediaAspectRatio::Unknown) return getAspectRatio();
    if (isProxy()) return MediaAspectRatio::Other;
    return isHighDef() ? MediaAspectRatio::Ratio16x9 : MediaAspectRatio::Ratio4x3;
}

bool MediaTrackDesc::setAspectRatio(MediaAspectRatio ratio) { return m_aspect.set(ratio); }

bool MediaTrackDesc::setAspectRatio(MediaAspectRatio ratio, AspectRatio::ViaAFD via) {
    return m_aspect.set(ratio, via);
}
