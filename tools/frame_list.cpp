#include "tools/frame_list.h"

#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_edit_desc.h"
#include "shared/include/index/media_sample_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/object/media_obj.h"

namespace {

// A frame of the track as a frame of one of its clips.
const MediaClipDesc* clipOf(const MediaTrackDesc& track, unsigned long long& frame) {
    if (track.getClipCount() == 1) return track.getClip(0);
    const MediaObj& movie = track.getObj();
    const FixedPoint<16> ticksPerFrame = movie.getMovieDesc()->getTimeBase() / movie.getRealVideoRate();
    FixedPoint<16> start;
    const MediaClipDesc* clip = track.clipAt(FixedPoint<16>(frame) * ticksPerFrame, start);
    if (clip != nullptr) frame -= (start / ticksPerFrame).round().uint64Value();
    return clip;
}

}  // namespace

Json FrameRow::document() const {
    return Json{{"frame", m_frame}, {"sample", m_sample}, {"count", m_count}, {"offset", m_offset}, {"bytes", m_bytes}};
}

FrameList::FrameList(const MediaTrackDesc& track) : m_track(track), m_count(track.getFrameLength()) {}

bool FrameList::find(unsigned long long frame, FrameRow& row, std::optional<Failure>& failure) const {
    unsigned long long frameOfClip = frame;
    const MediaClipDesc* clip = clipOf(m_track, frameOfClip);
    if (clip == nullptr) return false;
    const SampleAndCount samples = clip->getSampleAndCount(frameOfClip);
    MediaSampleInMovie where;
    OpResult result;
    if (!clip->getMediaOffset(MediaPlayReq(samples.m_sample, samples.m_count), where, result)) {
        if (!result) failure = Failure::from(result, m_track.getObj().getPath(nullptr));
        return false;
    }
    row = FrameRow{frame, samples.m_sample, where.m_count, where.m_chunks[0].m_offset, where.m_info.getSize()};
    return true;
}
