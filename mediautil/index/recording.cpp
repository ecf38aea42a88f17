// How a recorded sample enters a movie: track, clip, index, and then the track that rides on this one.

#include "services/system/format_str.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/description/media_names.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_edit_desc.h"
#include "shared/include/index/media_offset_lookup.h"
#include "shared/include/index/media_sample_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/object/core_subsystem.h"
#include "shared/include/object/media_obj.h"
#include "shared/include/object/switches.h"

namespace {

// Audio that lacks fewer samples than this of its target rollout is there: the target came out of a rounding.
constexpr unsigned long long s_audioSlack = 3;

OpResult noClips() { return MO_ERROR(MediaCode::InternalError, "no clips for adding a sample!"); }

OpResult noLookup(const MediaClipDesc& clip) {
    const MediaTrackDesc& track = clip.getTrack();
    const FormatStr text("%s track %d, no offset lookup class!", MediaNames::get(track.getDataType()),
                         static_cast<int>(track.getTrackIndex()));
    return MO_ERROR(MediaCode::InternalError, text.get());
}

// The clip's length in its own ticks.
unsigned long long ticksOf(const MediaClipDesc& clip) { return clip.getLength() * clip.getTicksPerSample(); }

// Clip ticks as ticks of the movie's time base.
FixedPoint<16> movieTicks(const MediaClipDesc& clip, const MediaObj& obj, unsigned long long ticks) {
    return clip.convertTo(FixedPoint<16>(ticks), obj.getMovieDesc()->getTimeBase());
}

void setSelectIn(const MediaClipDesc& clip, MediaObj& obj, unsigned long long ticks) {
    const unsigned long long in = movieTicks(clip, obj, ticks).round().uint64Value();
    obj.getMovieDesc()->setSelectIn(in).discard();
}

}  // namespace

bool MediaTrackDesc::addSamples(const MediaRecordReq& req, MediaSampleInMovie& desc, OpResult& result) {
    result = OpResult(OpResult::Ok);
    MediaObj& obj = getObj();
    if (!obj.getMovieDesc()->isWritable()) return false;
    const unsigned int count = getClipCount();
    if (count == 0) {
        result = noClips();
        return false;
    }
    MediaClipDesc& clip = *getClip(count - 1);
    desc.set(MediaAgent(nullptr), clip.getMediaId(), getTrackIndex(), clip.getClipIndex(), obj.getPathId(), false);
    const unsigned long long before = ticksOf(clip);
    if (!clip.addSamples(req, desc, result)) return false;
    growBy(clip, before);
    // The clip's first samples don't stand at its start.
    if (before == 0 && desc.m_gap != 0) {
        setSelectIn(clip, obj, static_cast<unsigned long long>(desc.m_gap) * clip.getTicksPerSample());
    }
    return clip.addSlaveSamples(req, desc, result);
}

// Takes over what the clip has grown since it was `before` ticks long. The difference of two conversions keeps the
// track exact across many small additions.
void MediaTrackDesc::growBy(const MediaClipDesc& clip, unsigned long long before) {
    const unsigned long long after = ticksOf(clip);
    if (after <= before) return;
    MediaObj& obj = getObj();
    m_length = m_length - movieTicks(clip, obj, before).uint64Value() + movieTicks(clip, obj, after).uint64Value();
    static_cast<void>(obj.notifyLength(*this));
}

bool MediaClipDesc::addSamples(const MediaRecordReq& req, MediaSampleDesc& desc, OpResult& result) {
    result = OpResult(OpResult::Ok);
    const unsigned int edits = getEditCount();
    if (edits == 0) return false;
    MediaEditDesc& edit = *getEdit(edits - 1);
    MediaOffsetLookup* const lookup = getLookup();
    if (lookup == nullptr) {
        result = noLookup(*this);
        return false;
    }
    const unsigned long long before = edit.getLength();
    if (!lookup->addSamples(req, desc, result)) return false;
    if (mediaObjDbg.on(MediaDbg::Record1, MediaDbg::Record2)) getObj().log(*this, req);
    if (getRollout() < getTargetRollout()) {
        addRollout(req.m_count);
    } else {
        edit.increaseOut(req.m_count);
    }
    setLength(getLength() + edit.getLength() - before);
    return true;
}

// What goes to the rollout lengthens neither edit nor clip.
void MediaClipDesc::addRollout(unsigned long long samples) {
    setRollout(getRollout() + samples);
    const unsigned long long rollout = getRollout();
    const unsigned long long target = getTargetRollout();
    if (rollout < target && getTrack().getDataType() == MediaDataType::Audio && target - rollout < s_audioSlack)
        setTargetRollout(rollout);
}

bool MediaClipDesc::addSlaveSamples(const MediaRecordReq& req, const MediaSampleDesc& desc, OpResult& result) {
    MediaClipDesc* const slave = getSlaveClip();
    return slave == nullptr || slave->getTrack().addSlaveSamples(*this, req, desc, result);
}

// The master's sample is taken for a frame, and the slave's samples lie where the master's first chunk does.
bool MediaTrackDesc::addSlaveSamples(const MediaClipDesc&, const MediaRecordReq& req, const MediaSampleDesc& desc,
                                     OpResult& result) {
    const unsigned int count = getClipCount();
    if (count == 0) {
        result = noClips();
        return false;
    }
    const SampleAndCount slave = getClip(count - 1)->getSampleAndCount(req.m_sample);
    const MediaRecordReq slaveReq(slave.m_sample, slave.m_count, req.m_info, desc.m_chunks[0].m_offset);
    MediaSampleInMovie unused;
    return addSamples(slaveReq, unused, result);
}

OpResult MediaClipDesc::addEmptyEdit(unsigned long long sample) {
    const unsigned int edits = getEditCount();
    if (edits == 0) return MO_WARNING(MediaCode::InternalError, nullptr);
    MediaOffsetLookup* const lookup = getLookup();
    if (lookup == nullptr) return noLookup(*this);
    MediaEditDesc& edit = *getEdit(edits - 1);
    const unsigned long long out = edit.getOut();
    if (out >= sample) return MO_WARNING(MediaCode::InternalError, nullptr);  // never backward
    OpResult result = lookup->addEmptyEdit(sample);
    if (!result) return result;
    edit.increaseOut(sample - out);
    setLength(getLength() + (sample - out));
    return OpResult(OpResult::Ok);
}

OpResult MediaTrackDesc::addEmptyEdit(unsigned long long sample) {
    MediaObj& obj = getObj();
    if (!obj.getMovieDesc()->isWritable()) return MO_WARNING(MediaCode::FileNotWritable, nullptr);
    const unsigned int count = getClipCount();
    if (count == 0) return noClips();
    MediaClipDesc& clip = *getClip(count - 1);
    const unsigned long long before = ticksOf(clip);
    OpResult result = clip.addEmptyEdit(sample);
    if (!result || ticksOf(clip) <= before) return result;
    growBy(clip, before);
    if (before == 0) setSelectIn(clip, obj, clip.getTicksPerSample());
    return result;
}

bool MediaClipDesc::updateDecodedLength(unsigned long long samples) {
    const unsigned int edits = getEditCount();
    if (edits == 0) return false;
    m_length = samples;  // as it is, past what `setLength` may be overridden to do
    getEdit(edits - 1)->setLength(samples);
    return getTrack().updateDecodedLength(movieTicks(*this, getObj(), samples * m_ticksPerSample).uint64Value());
}

bool MediaTrackDesc::updateDecodedLength(unsigned long long ticks) {
    m_length = ticks;
    getObj().getMovieDesc()->setLength(*this);
    return true;
}

bool MediaClipDesc::appendLookupChain(MediaOffsetLookup* next) {
    MediaOffsetLookup* const lookup = getLookup();
    return lookup != nullptr && lookup->appendChainedLookup(next);
}
