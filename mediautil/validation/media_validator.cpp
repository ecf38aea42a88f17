#include "mediautil/validation/media_validator.h"

#include "services/system/log.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_sample_desc.h"

using Scope = ZarnexPosix::ScopeLock<ZarnexPosix::JMutex>;

MsgClamp MediaValidator::s_badValidate;

MediaValidator::MediaValidator() : DLinkedList("mediaValidate", 1) { SampleCheck::enter(this); }

MediaValidator::~MediaValidator() {
    SampleCheck::enter(nullptr);
    const Scope lock(m_mutex);
    while (Validator* const validator = popClient())
        delete validator;
}

void MediaValidator::validate(const MediaSampleInMovie& sample, bool writing, const MediaIoBuf& data) {
    validateAny<const MediaIoBuf&>(sample, writing, data);
}

void MediaValidator::validate(const MediaSampleInMovie& sample, bool writing, phantom_OBUF* data) {
    validateAny<phantom_OBUF*>(sample, writing, data);
}

// The lock is held across the look: checkers may keep a state.
template <class Data>
void MediaValidator::validateAny(const MediaSampleInMovie& sample, bool writing, const Data& data) {
    // The client's own object may have been replaced meanwhile: the one that is live now is held for the whole look,
    // and let go of behind the lock.
    const AutoReleasePtr<MediaObj> obj(MediaObj::getOpenObj(sample.m_pathId));
    MediaClipDesc* const clip = findClip(sample, obj.get());
    if (clip == nullptr) return;
    const Scope lock(m_mutex);
    const AutoPtr<char> finding = getValidatorLokd(*clip)->validate(data);
    if (finding.get() == nullptr || *finding.get() == '\0') return;
    const MediaSampleDesc::Chunk& first = sample.m_chunks[0];
    debugMsg("Val:%s(o=%llx,trk%d,clp%d,smpl%lld,%db@%lld):%s\n", writing ? "wr" : "rd", sample.m_pathId.getId(),
             sample.m_trackIndex, sample.m_clipIndex, static_cast<long long>(sample.m_sample),
             static_cast<int>(first.m_size), static_cast<long long>(first.m_offset), finding.get());
}

MediaClipDesc* MediaValidator::getClip(const MediaSampleInMovie& sample) {
    const AutoReleasePtr<MediaObj> obj(MediaObj::getOpenObj(sample.m_pathId));
    return findClip(sample, obj.get());
}

MediaClipDesc* MediaValidator::findClip(const MediaSampleInMovie& sample, MediaObj* obj) {
    if (obj == nullptr) {
        s_badValidate.error("MediaValidator: no object for %s\n", sample.toString(Brevity::Long).get());
        return nullptr;
    }
    const int trackIndex = sample.m_trackIndex, clipIndex = sample.m_clipIndex;
    if (sample.m_trackIndex >= obj->getTrackCount()) {
        s_badValidate.error("MediaValidator: no track %d in %s\n", trackIndex, obj->getPath(nullptr));
        return nullptr;
    }
    MediaTrackDesc* const track = obj->getTrackAt(sample.m_trackIndex);
    if (sample.m_clipIndex >= track->getClipCount()) {
        s_badValidate.error("MediaValidator: no clip %d in track %d in %s\n", clipIndex, trackIndex,
                            obj->getPath(nullptr));
        return nullptr;
    }
    return track->getClip(sample.m_clipIndex);
}

MediaValidator::Validator* MediaValidator::getValidatorLokd(MediaClipDesc& clip) {
    const std::uint32_t paramId = clip.getParamId();
    for (Validator* known = getHeadClient(); known != nullptr; known = known->getNext()) {
        if (known->getParamId() == paramId) return known;
    }
    auto* const made = new Validator(clip);
    insert(made->getNode());
    return made;
}

MediaValidatorEntry::MediaValidatorEntry(MediaClipDesc& clip) : m_paramId(clip.getParamId()) {
    OpResult result(OpResult::Ok);
    m_obj = MediaObj::openObj(clip.getFileType(), result);
    if (m_obj) {
        m_obj->beginMorph();
        if (MediaTrackDesc* const track = m_obj->createTrack(clip.getTrack(), result))
            m_clip = track->createClip(clip, MediaContainment::Embedded, result);
        m_obj->endMorph();
    }
    // A format that makes no such objects is no fault: its samples aren't looked at.
    result.discard();
    if (m_clip != nullptr)
        debugMsg("Media validator created: %s\n", m_clip->toString().get());
    else
        m_obj = nullptr;
}

AutoPtr<char> MediaValidatorEntry::validate(const MediaIoBuf& data) {
    return m_clip != nullptr ? m_clip->validate(data) : AutoPtr<char>(nullptr);
}

AutoPtr<char> MediaValidatorEntry::validate(phantom_OBUF* data) {
    return m_clip != nullptr ? m_clip->validate(data) : AutoPtr<char>(nullptr);
}
