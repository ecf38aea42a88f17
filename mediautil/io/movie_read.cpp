#include "mediautil/object/media_obj_impl.h"
#include "services/system/msg_clamp.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_offset_lookup.h"
#include "shared/include/io/media_io_buf.h"
#include "shared/include/io/media_read_req.h"
#include "shared/include/object/core_subsystem.h"
#include "shared/include/object/media_obj.h"

// The roads of a read that begin at a movie. A movie is const on them: nothing changes but the file handles of its
// list.

namespace {

// Closes a track's other secondary files for a client, so that one who moves through a movie keeps at most one open.
void closeOthers(const MediaObj& obj, const MediaSampleInMovie& sample) {
    if (sample.m_trackIndex >= obj.getTrackCount()) return;
    const MediaTrackDesc* track = obj.getTrackAt(sample.m_trackIndex);
    MediaIdRec* const primary = obj.getMediaId(0);
    for (unsigned i = 0; i < track->getClipCount(); ++i) {
        MediaIdRec* const id = track->getClip(i)->getMediaId();
        // A clip in no file has nothing to close, and a null id would stand for all files.
        if (id != nullptr && id != primary && id != sample.m_mediaId) obj.close(id, sample.m_agent).discard();
    }
}

// A null handle is told by the list, so the result of getting one isn't looked at.
AutoRefPtr<BasicFileIO> readHandle(const MediaObj& obj, const MediaSampleInMovie& sample) {
    OpResult result(OpResult::Ok);
    AutoRefPtr<BasicFileIO> fp = obj.getFp(result, sample.m_mediaId, false, sample.m_agent);
    result.discard();
    return fp;
}

// The frame behind the last one lies in memory, with the track's last clip.
OpResult readFrameN(const MediaObj& obj, const MediaReadReq& req) {
    const unsigned index = req.m_sample.m_trackIndex;
    const MediaTrackDesc* const track = index < obj.getTrackCount() ? obj.getTrackAt(index) : nullptr;
    if (track == nullptr || track->getClipCount() == 0) return MO_ERROR(MediaCode::InternalError, nullptr);
    const MediaOffsetLookup* const lookup = track->getClip(track->getClipCount() - 1)->getLookup();
    phantom_OBUF* const obuf = lookup != nullptr ? lookup->getFrameNObufCopy(req) : nullptr;
    if (obuf == nullptr) return MO_ERROR(MediaCode::InternalError, nullptr);
    req.m_cb->callCb(BasicIOTypes::ReadNotify(obuf, req.m_tag));
    return OpResult(OpResult::Ok);
}

}  // namespace

OpResult MediaObj::vaRead(const MediaReadReq& req) const {
    const MediaSampleInMovie& sample = req.m_sample;
    if (!sample.hasSize() || !sample.hasOffset()) return MO_ERROR(MediaCode::InternalError, nullptr);
    if (sample.m_frameN) return readFrameN(*this, req);
    if (sample.m_closeOther) closeOthers(*this, sample);
    return m_impl->m_fileList.read(req, readHandle(*this, sample), isRecording());
}

OpResult MediaObj::vsRead(const MediaSampleInMovie& sample, MediaIoBuf& buf) const {
    return m_impl->m_fileList.read(sample, buf, readHandle(*this, sample));
}

OpResult MediaObj::saRead(const MediaReadReq& req) {
    AutoReleasePtr<MediaObj> obj(getOpenObj(req.m_sample.m_pathId));
    if (obj.get() == nullptr) {
        static MsgClamp clamp;
        clamp.error("MO::saRead: no object for %s\n", req.toString().get());
        return MO_WARNING(MediaCode::InternalError, nullptr);
    }
    return obj->vaRead(req);
}

void MediaObj::setReadReqOrigin(MediaReadReq& req, MediaReadReq::Origin origin) { req.setOrigin(origin); }
