#include "mediautil/index/frame_n.h"

#include <new>

#include "services/system/format_str.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/index/media_edit_desc.h"
#include "shared/include/index/media_sample_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/object/core_subsystem.h"
#include "shared/include/object/switches.h"

// The frame just past a clip's last.

namespace {

bool wantsFrameN(const MediaAgent& agent) {
    const GenericProperty<MediaAgentPropId>* const property = agent->get(MediaAgentPropId::FrameN);
    return property != nullptr && property->getId() == MediaAgentPropId::FrameN && property->uintValue() != 0;
}

// The first sample past the clip. One without edits shows all that it has.
unsigned long long endOf(const MediaClipDesc& clip) {
    const unsigned long long in = clip.getEditCount() != 0 ? clip.getEdit(0)->getIn() : 0;
    return in + clip.getLength();
}

bool isFrameNReq(const MediaClipDesc& clip, const MediaPlayReq& req) {
    if (req.m_agent == nullptr || clip.getLength() == 0 || req.m_sample != endOf(clip)) return false;
    return wantsFrameN(req.m_agent);
}

MediaPlayReq askFor(const MediaPlayReq& req, unsigned long long sample) {
    MediaPlayReq other = req;
    other.m_sample = sample;
    other.m_sample2 = sample;
    return other;
}

// The failure that a lookup gave, or this one when it gave none.
bool failed(OpResult& result) {
    if (result) result = MO_ERROR(MediaCode::InternalError, nullptr);
    return false;
}

OpResult noLastAnchor(const MediaClipDesc& clip, const MediaPlayReq& req) {
    // The flag stands as a number.
    const FormatStr text(
        "Unexpected getMediaOffset() failure while looking for last anchor frame: clip=[%s],req=[%d,%d,%d,%d]",
        clip.toString().get(), static_cast<int>(req.m_sample), static_cast<int>(req.m_count),
        static_cast<int>(req.m_sample2), req.m_flag ? 1 : 0);
    return MO_ERROR(MediaCode::InternalError, text.get());
}

}  // namespace

bool MediaOffsetLookup::getMediaOffsetFrameN(const MediaClipDesc& clip, const MediaPlayReq& req, MediaSampleDesc& desc,
                                             OpResult& result) const {
    result = OpResult(OpResult::Ok);
    if (!isFrameNReq(clip, req)) return false;
    const bool black = mediaObjDbg.on(MediaDbg::SynthFrameN);
    return black ? placeBlackFrame(clip, req, desc, result) : repeatLastAnchor(clip, req, desc, result);
}

bool MediaOffsetLookup::repeatLastAnchor(const MediaClipDesc& clip, const MediaPlayReq& req, MediaSampleDesc& desc,
                                         OpResult& result) const {
    unsigned long long anchor = req.m_sample - 1;
    if (!getMediaOffset(askFor(req, anchor), desc, result)) {
        if (result) result = noLastAnchor(clip, req);
        return false;
    }
    if (desc.m_info.getEncoding() == SampleCodingType::B) {
        // The clip ends in pictures that need the anchor before them: that one is shown again.
        if (static_cast<long long>(anchor) <= static_cast<long long>(desc.m_anchor)) {
            result = MO_ERROR(MediaCode::InternalError, nullptr);
            return false;
        }
        anchor = desc.m_anchor;
        if (!getMediaOffset(askFor(req, anchor), desc, result)) return failed(result);
    }
    if (desc.m_info.getEncoding() == SampleCodingType::B) {
        result = MO_ERROR(MediaCode::InternalError, "expected I or P frame");
        return false;
    }
    desc.m_frameN = false;
    desc.m_sample = req.m_sample;
    desc.m_anchor = anchor;
    return true;
}

bool MediaOffsetLookup::placeBlackFrame(const MediaClipDesc& clip, const MediaPlayReq& req, MediaSampleDesc& desc,
                                        OpResult& result) const {
    FrameNData* const frame = makeFrameN(clip, req);
    if (frame == nullptr) {
        result = MO_ERROR(MediaCode::InternalError, nullptr);
        return false;
    }
    MediaPlayReq last = req;
    last.m_sample = req.m_sample - 1;
    if (!getMediaOffset(last, desc, result)) return failed(result);
    if (desc.m_info.getEncoding() != SampleCodingType::B) desc.m_anchor = desc.m_sample;
    desc.m_frameN = true;
    desc.m_sample = req.m_sample;
    desc.m_numChunks = 1;
    desc.m_chunks[0].m_offset += desc.m_info.getSize();
    desc.m_chunks[0].m_size = frame->size();
    desc.m_info.setEncoding(SampleCodingType::I);
    desc.m_info.setSize(frame->size());
    frame->setOffset(desc.m_chunks[0].m_offset);
    return true;
}

// A frame that couldn't be made isn't kept: the next request tries again.
MediaOffsetLookup::FrameNData* MediaOffsetLookup::makeFrameN(const MediaClipDesc& clip, const MediaPlayReq& req) const {
    if (FrameNData* const made = m_frameN.load(std::memory_order_acquire)) return made;
    ZarnexPosix::ScopeLock<ZarnexPosix::JMutex> lock(m_frameNMutex);
    if (FrameNData* const made = m_frameN.load(std::memory_order_relaxed)) return made;
    FrameNData* const made = new (std::nothrow) FrameNData(clip, req);
    if (made == nullptr || !made->valid()) {
        delete made;
        return nullptr;
    }
    m_frameN.store(made, std::memory_order_release);
    return made;
}

phantom_OBUF* MediaOffsetLookup::getFrameNObufCopy(const MediaReadReq& req) const {
    FrameNData* const frame = m_frameN.load(std::memory_order_acquire);
    return frame != nullptr ? frame->getObufCopy(req) : nullptr;
}
