#include "tools/frame_list.h"

#include <algorithm>

#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_offset_lookup.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/object/core_subsystem.h"
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

// The first frame whose samples begin at the clip's end or behind it.
unsigned long long firstFrameBehind(const MediaClipDesc& clip, unsigned long long guess) {
    const auto isBehind = [&clip](unsigned long long frame) {
        return clip.getSampleAndCount(frame).m_sample >= clip.getLength();
    };
    unsigned long long low = 0, high = guess + 1;
    while (high < clip.getLength() && !isBehind(high))
        high *= 2;
    while (low < high) {
        const unsigned long long middle = low + (high - low) / 2;
        if (isBehind(middle))
            high = middle;
        else
            low = middle + 1;
    }
    return low;
}

// A track's length in frames is rounded, which may leave out a last frame of sound that isn't whole.
unsigned long long countFrames(const MediaTrackDesc& track) {
    const unsigned long long rounded = track.getFrameLength();
    if (track.getClipCount() != 1 || track.getDataType() != MediaDataType::Audio) return rounded;
    const MediaClipDesc& clip = *track.getClip(0);
    return clip.getLookup() != nullptr && clip.getLength() > 0 ? firstFrameBehind(clip, rounded) : rounded;
}

const char* nameOf(SampleCodingType coding) {
    switch (coding) {
        case SampleCodingType::I:
            return "I";
        case SampleCodingType::P:
            return "P";
        case SampleCodingType::B:
            return "B";
        default:
            return nullptr;
    }
}

}  // namespace

Json FrameRow::document() const {
    Json row{{"frame", m_frame}, {"sample", m_sample}, {"count", m_count}, {"offset", m_offset}, {"bytes", m_bytes}};
    if (m_coding != nullptr) row["coding"] = m_coding;
    return row;
}

FrameList::FrameList(const MediaTrackDesc& track) : m_track(track), m_count(countFrames(track)) {}

unsigned long long FrameList::bytesOf(unsigned long long from, unsigned long long count) const {
    const MediaClipDesc* clip = m_track.getClipCount() == 1 ? m_track.getClip(0) : nullptr;
    if (clip == nullptr || clip->getLookup() == nullptr) return 0;
    const unsigned long long size = clip->getLookup()->getFixedSize();
    if (m_track.getDataType() != MediaDataType::Audio || clip->isSlave()) return count * size;
    const unsigned long long first = clip->getSampleAndCount(from).m_sample;
    return (std::min(clip->getSampleAndCount(from + count).m_sample, clip->getLength()) - first) * size;
}

bool FrameList::hasCoding() const { return m_track.getDataType() == MediaDataType::Video; }

bool FrameList::ask(unsigned long long frame, MediaSampleInMovie& where, std::optional<Failure>& failure) const {
    const MediaClipDesc* clip = clipOf(m_track, frame);
    if (clip == nullptr) return false;
    SampleAndCount samples = clip->getSampleAndCount(frame);
    // The index refuses a block of which only a sample or two are left, so it isn't asked for more than there are.
    const unsigned long long length = clip->getLength();
    if (!clip->isSlave() && samples.m_sample < length && samples.m_count > length - samples.m_sample)
        samples.m_count = static_cast<std::uint32_t>(length - samples.m_sample);
    if (samples.m_count == 0) {
        where.m_sample = samples.m_sample;
        return true;
    }
    OpResult result;
    if (clip->getFrameInfo(MediaPlayReq(samples.m_sample, samples.m_count), where, result)) return true;
    if (!result) {
        failure = Failure::from(result, m_track.getObj().getPath(nullptr));
        return false;
    }
    // A gap between clips has frames and no samples.
    if (clip->getMediaId() != nullptr) return false;
    where.m_count = 0;
    return true;
}

bool FrameList::locate(unsigned long long at, unsigned long long, unsigned, Stretch& stretch,
                       std::optional<Failure>& failure) const {
    stretch.m_units = 1;
    if (ask(at, stretch.m_where, failure)) return true;
    if (!failure) {
        failure = Failure::make(ExitCode::IoError, MediaCode::ReadError, m_track.getObj().getPath(nullptr),
                                "the media end before frame " + std::to_string(at));
    }
    return false;
}

bool FrameList::find(unsigned long long frame, FrameRow& row, std::optional<Failure>& failure) const {
    MediaSampleInMovie where;
    if (!ask(frame, where, failure)) return false;
    row = FrameRow{frame, where.m_sample, where.m_count, 0, 0, nullptr};
    if (where.m_count == 0) return true;
    row.m_offset = where.m_chunks[0].m_offset;
    row.m_bytes = where.m_info.getSize();
    if (hasCoding()) row.m_coding = nameOf(where.m_info.getEncoding());
    return true;
}
