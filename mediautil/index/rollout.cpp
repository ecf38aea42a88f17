// What a recorded clip has before its in point and behind its out point, and what clients say of it beforehand.

#include "services/system/format_str.h"
#include "services/system/log.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_edit_desc.h"
#include "shared/include/index/media_offset_lookup.h"
#include "shared/include/index/media_red_zone.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/object/core_subsystem.h"
#include "shared/include/object/media_obj.h"

namespace {

// After a rollout has begun, every sample that is added counts towards it.
constexpr unsigned long long s_rolledOut = ~0ull;
// A precharge of audio may exceed what there is by less than this: it came out of a rounding.
constexpr std::uint64_t s_audioSlack = 3;

// Samples of the clip in so many frames, to the nearest.
FixedPoint<16> samplesOf(const MediaClipDesc& clip, unsigned int frames) {
    return (FixedPoint<16>(frames) * clip.getMediaRate() / MediaObj::getRealVideoRate(clip.getVideoRate())).round();
}

// The whole clip in ticks of the movie's time base.
FixedPoint<16> movieTicks(const MediaClipDesc& clip, unsigned long long samples, unsigned int timeBase) {
    return clip.convertTo(FixedPoint<16>(samples * clip.getTicksPerSample()), timeBase);
}

bool mayRecord(const MediaObj& obj) { return obj.isRecording() || obj.getMovieDesc()->isWritable(); }

// Takes samples from the front of the clip, and what it lacks from its rollout.
void giveUp(MediaClipDesc& clip, MediaEditDesc& edit, std::uint32_t samples) {
    const unsigned long long length = clip.getLength();
    if (length >= samples) {
        clip.setLength(length - samples);
        return;
    }
    const unsigned long long rollout = clip.getRollout();
    const unsigned long long lacking = samples - length;
    const unsigned long long taken = lacking <= rollout ? lacking : rollout;
    edit.increaseOut(taken);
    clip.setRollout(rollout - taken);
    clip.setLength(0);
}

}  // namespace

OpResult MediaTrackDesc::setPrecharge(unsigned int frames) {
    MediaClipDesc* const clip = getClipCount() != 0 ? getClip(0) : nullptr;
    if (clip == nullptr || clip->getEditCount() == 0)
        return frames == 0 ? OpResult(OpResult::Ok) : MO_WARNING(MediaCode::InternalError, nullptr);
    MediaEditDesc& edit = *clip->getEdit(0);
    std::uint32_t want = samplesOf(*clip, frames).uint32Value();
    const std::uint64_t available = edit.getIn() + clip->getLength() + clip->getRollout();
    const bool rounded = want > available && want - available < s_audioSlack;
    if (rounded && m_type == MediaDataType::Audio && clip->getEncoding() != MediaEncodingType::Aac)
        want = static_cast<std::uint32_t>(available);
    edit.setPrecharge(want);  // the out point stays
    giveUp(*clip, edit, want);
    const unsigned long long ticks = movieTicks(*clip, want, getTimeBase()).uint64Value();
    m_length = m_length > ticks ? m_length - ticks : 0;
    return OpResult(OpResult::Ok);
}

unsigned int MediaTrackDesc::getPrecharge() const {
    if (getClipCount() == 0) return 0;
    const MediaClipDesc& clip = *getClip(0);
    const std::uint32_t known = m_prechargeFrames;
    if (clip.getLength() != 0 && known != s_unknownPrecharge) return known;
    if (clip.getEditCount() == 0) return 0;
    const FixedPoint<16> in(clip.getEdit(0)->getIn());
    const FixedPoint<16> frames = in * MediaObj::getRealVideoRate(clip.getVideoRate()) / clip.getMediaRate();
    m_prechargeFrames = frames.round().uint32Value();
    return m_prechargeFrames;
}

OpResult MediaTrackDesc::setTargetRollout(unsigned int frames) {
    const unsigned int count = getClipCount();
    if (count == 0) return MO_WARNING(MediaCode::InternalError, nullptr);
    if (!mayRecord(getObj())) return MO_WARNING(MediaCode::FileNotWritable, nullptr);
    MediaClipDesc& clip = *getClip(count - 1);
    clip.setTargetRollout(samplesOf(clip, frames).uint64Value());
    return OpResult(OpResult::Ok);
}

OpResult MediaClipDesc::beginRollout() {
    const unsigned int edits = getEditCount();
    if (edits == 0) return MO_WARNING(MediaCode::InternalError, nullptr);
    if (getRollout() == 0) return OpResult(OpResult::Ok);
    MediaEditDesc& edit = *getEdit(edits - 1);
    const unsigned long long before = edit.getLength();
    edit.increaseOut(getRollout());
    setLength(getLength() + edit.getLength() - before);
    setRollout(0);
    setTargetRollout(s_rolledOut);
    return OpResult(OpResult::Ok);
}

OpResult MediaTrackDesc::beginRollout() {
    MediaObj& obj = getObj();
    if (!mayRecord(obj)) return MO_WARNING(MediaCode::FileNotWritable, nullptr);
    const unsigned int count = getClipCount();
    if (count == 0) return MO_WARNING(MediaCode::InternalError, nullptr);
    MediaClipDesc& clip = *getClip(count - 1);
    const FixedPoint<16> before = movieTicks(clip, clip.getLength(), getTimeBase());
    OpResult result = clip.beginRollout();
    if (!result) return result;
    const FixedPoint<16> after = movieTicks(clip, clip.getLength(), getTimeBase());
    m_length = m_length + static_cast<unsigned long long>((after - before).round().int64Value());
    static_cast<void>(obj.notifyLength(*this));
    return OpResult(OpResult::Ok);
}

OpResult MediaObj::beginRollout() {
    for (unsigned i = 0; i < getTrackCount(); ++i) {
        OpResult result = getTrackAt(i)->beginRollout();
        if (!result) return result;
    }
    return OpResult(OpResult::Ok);
}

unsigned MediaObj::getMoviePrecharge() const {
    unsigned longest = 0;
    for (unsigned i = 0; i < getTrackCount(); ++i) {
        const unsigned frames = getTrackAt(i)->getPrecharge();
        if (frames > longest) longest = frames;
    }
    return longest;
}

bool MediaObj::canPrecharge() const { return getMovieGopLength() > 1; }

bool MediaObj::canPrecharge(unsigned& gopLength) const {
    gopLength = getMovieGopLength();
    return gopLength >= 2;
}

void MediaObj::adviseCapacity(unsigned long long capacity) {
    for (unsigned i = 0; i < getTrackCount(); ++i)
        getTrackAt(i)->adviseCapacity(capacity);
}

void MediaTrackDesc::adviseCapacity(unsigned long long capacity) {
    const unsigned int count = getClipCount();
    if (count == 0) return;
    const unsigned int timeBase = getTimeBase();
    FixedPoint<16> left(capacity);
    for (unsigned int i = 0; i + 1 < count; ++i)
        left -= getClip(i)->convertTo(timeBase);
    MediaClipDesc& last = *getClip(count - 1);
    const FixedPoint<16> room = last.convertFrom(left, timeBase).round();
    if (last.convertFrom(left, timeBase) < FixedPoint<16>(0)) {
        errorMsg("MediaTrackDesc::adviseCapacity: %lld?\n", room.int64Value());
        return;
    }
    last.adviseCapacity(room.uint64Value());
}

void MediaClipDesc::adviseCapacity(unsigned long long) {}

OpResult MediaClipDesc::adviseLookAhead(const MediaPlayReq& req, bool flag, phantom_obAllocationId_t allocationId) {
    MediaOffsetLookup* const lookup = getLookup();
    if (lookup == nullptr) return MO_WARNING(MediaCode::InternalError, nullptr);
    return lookup->adviseLookAhead(req, flag, allocationId);
}

void MediaObj::setLookAhead(MediaAgent agent, unsigned bytes) {
    OpResult result(OpResult::Ok);
    for (unsigned i = 0; i < getMediaCount(); ++i) {
        const AutoRefPtr<BasicFileIO> file = getFp(result, getMediaId(i), agent);
        result.discard();  // a file that the agent doesn't have open is no matter
        if (!file) continue;
        file->resetLookAhead();
        file->setLookAhead(bytes);
    }
}

MediaRedZone MediaObj::getRedZone(bool) const { return MediaRedZone::okToCopy(); }

AutoPtr<char> MediaRedZone::toString() const {
    switch (m_type) {
        case ZoneType::Bytes:
            return FormatStr("%llu bytes", m_size);
        case ZoneType::WholeFile:
            return FormatStr("%llu whole file", m_size);
    }
    return FormatStr("?redZone=%d", static_cast<int>(m_type));
}
