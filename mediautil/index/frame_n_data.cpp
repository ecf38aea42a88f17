#include <cstring>
#include <new>

#include "mediautil/index/frame_n.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_clip_param.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/io/media_read_req.h"
#include "shared/include/object/media_obj.h"
#include "support/numeric.h"

// The black frame behind a clip's last.

namespace {

MediaClipDesc* createLike(const MediaClipDesc& clip, MediaObj& scratch, OpResult& result) {
    const MediaClipParam param(clip);
    MediaTrackDesc* const track = scratch.createTrack(param, result);
    return track != nullptr ? track->createClip(param, result) : nullptr;
}

}  // namespace

MediaOffsetLookup::FrameNData::FrameNData(const MediaClipDesc& clip, const MediaPlayReq&) {
    OpResult result(OpResult::Ok);
    const AutoReleasePtr<MediaObj> scratch(MediaObj::openObj(clip.getFileType(), result));
    MediaClipDesc* const newClip = scratch.get() != nullptr ? createLike(clip, *scratch.get(), result) : nullptr;
    if (newClip == nullptr) {
        result.deliverNote(true);
        return;
    }
    m_buf = new (std::nothrow) MediaSampleBuf(*newClip);
    if (!valid()) return;
    const FixedPoint<16> oneSample(newClip->getTicksPerSample());
    // What the buffer holds then is what frame N shows.
    if (!newClip->fillBlack(*m_buf, FixedPoint<16>(0), oneSample, false)) {
        logIfFalse(false, "FrameNData", "mediautil", __LINE__);
    }
}

MediaOffsetLookup::FrameNData::~FrameNData() { obufFree(m_obuf.load(std::memory_order_acquire)); }

phantom_OBUF* MediaOffsetLookup::FrameNData::getObufCopy(const MediaReadReq& req) {
    if (!valid()) return nullptr;
    if (phantom_OBUF* const made = m_obuf.load(std::memory_order_acquire)) return obufDup(made);
    ZarnexPosix::ScopeLock<ZarnexPosix::JMutex> lock(m_mutex);
    if (m_obuf.load(std::memory_order_relaxed) == nullptr) {
        phantom_OBUF* const made = makeObuf(req.m_allocId);
        if (made == nullptr) return nullptr;
        m_obuf.store(made, std::memory_order_release);
    }
    return obufDup(m_obuf.load(std::memory_order_relaxed));
}

phantom_OBUF* MediaOffsetLookup::FrameNData::makeObuf(phantom_obAllocationId_t allocId) const {
    phantom_OBUF* const obuf = obufAllocate(allocId, size());
    const unsigned count = obufSegmentCount(obuf);
    const AutoArrayPtr<iovec> pieces(new (std::nothrow) iovec[count]);
    const bool reachable = obuf != nullptr && pieces.get() != nullptr &&
                           obufNTranslateHost(obuf, pieces.get(), static_cast<int>(count)) == static_cast<int>(count);
    if (!logIfFalse(reachable, "getObufCopy", "mediautil", __LINE__)) {
        obufFree(obuf);
        return nullptr;
    }
    const unsigned char* from = m_buf->getMem();
    for (unsigned i = 0; i < count; ++i) {
        std::memcpy(pieces[i].iov_base, from, pieces[i].iov_len);
        from += pieces[i].iov_len;
    }
    return obuf;
}
