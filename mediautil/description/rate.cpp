#include "mediautil/description/real_rate.h"
#include "mediautil/object/media_obj_impl.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/object/media_obj.h"

namespace {

// No two rates lie within this of one measured rate, so at most one matches.
constexpr FixedPoint<16> s_rateTolerance = FixedPoint<16>(1) / 200;

constexpr MediaTrackEnum s_firstVideo = encodeMte(MediaDataType::Video, 0);

FixedPoint<16> rateOfFirstClip(const MediaTrackDesc& track) {
    if (track.getClipCount() == 0) return FixedPoint<16>(0);
    const MediaClipDesc* clip = track.getClip(0);
    // In double precision on purpose: it is what the answer is made of.
    return FixedPoint<16>(static_cast<double>(clip->getSampleRate()) / clip->getTicksPerSample());
}

}  // namespace

FixedPoint<16> MediaObj::getRealVideoRate(MediaVideoRate rate) { return realRate(rate); }

MediaVideoRate MediaObj::getVideoRate(FixedPoint<16> rate) {
    static constexpr MediaVideoRate order[] = {
        MediaVideoRate::Ntsc2997, MediaVideoRate::Pal25, MediaVideoRate::Hz50,   MediaVideoRate::Hz5994,
        MediaVideoRate::Hz60,     MediaVideoRate::Hz30,  MediaVideoRate::Film24, MediaVideoRate::Film23976,
    };
    for (MediaVideoRate candidate : order) {
        if ((rate - getRealVideoRate(candidate)).abs() <= s_rateTolerance) return candidate;
    }
    return MediaVideoRate::Unknown;
}

MediaVideoRate MediaObj::getVideoRate() const {
    const MediaVideoRate standard = impl().m_defaultVideoRate.load(std::memory_order_relaxed);
    const MediaTrackDesc* video = getTrack(s_firstVideo);
    if (!video) return standard;
    const MediaVideoRate rate = video->getVideoRate();
    if (rate != MediaVideoRate::Unknown) return rate;
    if (video->getClipCount() == 0) return standard;
    const MediaVideoRate nearest = getVideoRate(video->getClip(0)->getMediaRate());
    return nearest != MediaVideoRate::Unknown ? nearest : standard;
}

FixedPoint<16> MediaObj::getRealVideoRate() const {
    if (const MediaTrackDesc* video = getTrack(s_firstVideo)) {
        const MediaVideoRate rate = video->getVideoRate();
        return rate != MediaVideoRate::Unknown ? getRealVideoRate(rate) : rateOfFirstClip(*video);
    }
    const MediaVideoRate standard = getMovieDesc()->getStandard();
    if (standard != MediaVideoRate::Unknown) return getRealVideoRate(standard);
    const MediaVideoRate fallback = impl().m_defaultVideoRate.load(std::memory_order_relaxed);
    return fallback != MediaVideoRate::Unknown ? getRealVideoRate(fallback) : FixedPoint<16>(29.97);
}
