#include "mediautil/description/containment.h"
#include "mediautil/description/frame_length.h"
#include "mediautil/object/media_obj_impl.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/object/core_subsystem.h"
#include "shared/include/object/media_obj.h"

// What a movie says about itself as a whole.

MediaEncodingType MediaObj::calcEncoding() const {
    MediaEncodingType common = MediaEncodingType::Unknown;
    for (unsigned i = 0; i < getTrackCount(); ++i) {
        const MediaEncodingType encoding = getTrackAt(i)->getEncoding();
        if (common != MediaEncodingType::Unknown && encoding != common) return MediaEncodingType::Mixed;
        common = encoding;
    }
    return common;
}

MediaIdRec* MediaObj::commonId() const {
    MediaIdRec* common = nullptr;
    for (unsigned i = 0; i < getTrackCount(); ++i) {
        MediaIdRec* id = getTrackAt(i)->commonId();
        if (common && id != common) return nullptr;
        common = id;
    }
    return common;
}

MediaContainment MediaObj::getContainment() const {
    const MediaContainment known = impl().m_containment.load(std::memory_order_relaxed);
    if (getMovieDesc()->getLastTrackLength() != 0 && known != MediaContainment::Unknown) return known;
    MediaContainment sum = MediaContainment::Unknown;
    for (unsigned i = 0; i < getTrackCount(); ++i)
        sum = addContainment(sum, getTrackAt(i)->getContainment());
    impl().m_containment.store(sum, std::memory_order_relaxed);
    return sum;
}

SequenceCodingType MediaObj::getVideoSequenceCoding() const {
    unsigned index = 0;
    MediaTrackEnum track = getNext(MediaTrackEnum::None, index);
    for (; track != MediaTrackEnum::End; track = getNext(track, index)) {
        const MediaTrackDesc* desc = getTrackAt(index);
        if (desc->getDataType() != MediaDataType::Video || desc->getClipCount() == 0) continue;
        if (desc->getClip(0)->getSequenceCoding() == SequenceCodingType::LongGop) return SequenceCodingType::LongGop;
    }
    return SequenceCodingType::Intra;
}

namespace {

// Frames of a group of pictures, from what is known of it; 0 when nothing is.
unsigned gopLength(const MediaTrackDesc& track) {
    const MediaProperty* b = track.getProperty(MediaPropertyEnum::Name::BPictCount);
    const MediaProperty* p = track.getProperty(MediaPropertyEnum::Name::PPictCount);
    if (!b && !p) return 0;
    return (p ? p->uintValue() + 1 : 1) * (b ? b->uintValue() + 1 : 1);
}

}  // namespace

unsigned MediaObj::getMovieGopLength() const {
    unsigned longest = 0;
    for (unsigned i = 0; i < getTrackCount(); ++i) {
        const unsigned length = gopLength(*getTrackAt(i));
        if (length > longest) longest = length;
    }
    return longest;
}

unsigned long long MediaObj::getFrameLength() const {
    const MediaMovieDesc* desc = getMovieDesc();
    return framesOf(desc->getLastTrackLength(), desc->getTimeBase(), getRealVideoRate());
}

FixedPoint<16> MediaObj::getMaxLength() const {
    if (getTrackCount() == 0) return FixedPoint<16>(0);
    FixedPoint<16> least{FixedPoint<16>::MaxValue()};
    for (unsigned i = 0; i < getTrackCount(); ++i) {
        const FixedPoint<16> time = getTrackAt(i)->getMaxTime();
        if (time < least) least = time;
    }
    return least;
}

unsigned long long MediaObj::getSyncAdjustedFrame(unsigned long long frame, unsigned trackIndex) const {
    const MediaTrackDesc* track = getTrackAt(trackIndex);
    if (!track) return frame;
    unsigned long long adjusted = 0;  // an adjustment back past the first frame wraps
    static_cast<void>(__builtin_add_overflow(frame, track->getSyncAdjustment(), &adjusted));
    return adjusted;
}

void MediaObj::computeSyncAdjustments() {
    const SwVersion version = getMediaLayerVersion();
    // Writers of this house put line data a frame early beside MPEG until 5.4; one that doesn't say its version is old.
    if (!isZarnexMovie() || (version.isValid() && !(version < SwVersion(5, 4, 0, 0)))) return;
    MediaTrackDesc* vbi = nullptr;
    MediaTrackDesc* anc = nullptr;
    bool hasMpeg = false;
    for (unsigned i = 0; i < getTrackCount(); ++i) {
        MediaTrackDesc* track = getTrackAt(i);
        switch (track->getEncoding()) {
            case MediaEncodingType::S436mAnc:
                anc = track;
                break;
            case MediaEncodingType::Vbi:
            case MediaEncodingType::S436mVbi:
                vbi = track;
                break;
            case MediaEncodingType::Mpeg:
                hasMpeg = true;
                break;
            default:
                break;
        }
    }
    if (hasMpeg && vbi) vbi->setSyncAdjustment(1);
    if (hasMpeg && anc) anc->setSyncAdjustment(1);
}

bool MediaObj::notifyLength(MediaTrackDesc& track) {
    MediaMovieDesc* desc = getMovieDesc();
    if (!desc->isWritable()) return false;
    desc->setLength(track);
    return true;
}

const MediaPropertyList& MediaObj::getProperties() const {
    static const EmptyMediaProperties& none = *new EmptyMediaProperties;  // never destroyed: read to the very end
    return none;
}

// The empty bag takes nothing, so it does no harm that every movie shares it.
MediaPropertyList& MediaObj::getPropertiesForUpd() { return const_cast<MediaPropertyList&>(getProperties()); }

OpResult MediaObj::setProperty(const MediaProperty& property) { return getPropertiesForUpd().set(property); }

ClipPropsProperty MediaObj::get(MediaPropertyEnum::ClipProps tag) const { return getProperties().get(tag); }

void MediaObj::inheritVideoRate(MediaVideoRate rate) {
    MediaMovieDesc* desc = getMovieDesc();
    if (desc->getStandard() == MediaVideoRate::Unknown) desc->setStandard(rate);
}

void MediaObj::setDefaultVideoRate(MediaVideoRate rate) {
    impl().m_defaultVideoRate.store(rate, std::memory_order_relaxed);
    for (unsigned i = 0; i < getTrackCount(); ++i)
        getTrackAt(i)->setDefaultVideoRate(rate);
}

OpResult MediaObj::setTimecode(const MediaTimecode&) { return MO_WARNING(MediaCode::OperationUnsupported, nullptr); }

OpResult MediaObj::setTimecode(MediaAgent, unsigned long long, const MediaTimecode&) {
    return MO_WARNING(MediaCode::InternalError, nullptr);
}

MediaTimecode MediaObj::getTimecode() const {
    static const MediaTimecode none;
    return none;
}

OpResult MediaObj::requestStyle(const char* style, bool) {
    return style ? MO_WARNING(MediaCode::InternalError, nullptr) : OpResult(OpResult::Ok);
}

const char* MediaObj::getStyle() const { return nullptr; }

const char* const* MediaObj::getStyles(unsigned& count) const {
    count = 0;
    return nullptr;
}
