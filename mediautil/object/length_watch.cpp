#include "mediautil/object/length_watch.h"

#include <algorithm>
#include <utility>

#include "mediautil/description/frame_length.h"
#include "mediautil/description/real_rate.h"
#include "mediautil/index/cadence.h"
#include "services/file/fs_file_io.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_offset_lookup.h"
#include "shared/include/index/media_sample_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/object/media_obj.h"
#include "support/clock.h"

using WatchScope = ZarnexPosix::ScopeLock<ZarnexPosix::JMutex>;

namespace {

// True when the whole of one sample lies inside a file of `bytes`.
bool sampleInside(const MediaOffsetLookup& lookup, unsigned long long sample, unsigned long long bytes) {
    MediaPlayReq req;
    req.m_sample = sample;
    req.m_count = 1;
    MediaSampleDesc desc;
    OpResult result(OpResult::Ok);
    if (!lookup.getMediaOffset(req, desc, result)) {
        result.discard();
        return false;
    }
    for (unsigned i = 0; i < desc.m_numChunks; ++i) {
        if (desc.m_chunks[i].m_offset + desc.m_chunks[i].m_size > bytes) return false;
    }
    return true;
}

// Samples of a clip from its start whose bytes lie inside the file. Samples lie in rising order in their file.
unsigned long long samplesInside(const MediaClipDesc& clip, unsigned long long bytes) {
    const MediaOffsetLookup* lookup = clip.getLookup();
    const unsigned long long length = clip.getLength();
    if (lookup == nullptr) return length;
    if (const unsigned size = lookup->getFixedSize(); size != 0) {
        // Such an index of a slave counts its master's samples, and the master bounds them both.
        if (clip.isSlave()) return length;
        const unsigned long long base = lookup->getBaseOffset();
        return std::min(length, bytes > base ? (bytes - base) / size : 0);
    }
    unsigned long long good = 0, bad = length + 1;
    while (bad - good > 1) {
        const unsigned long long middle = good + (bad - good) / 2;
        (sampleInside(*lookup, middle - 1, bytes) ? good : bad) = middle;
    }
    return good;
}

// Whether readers cut a clip into the movie's own frames. Without a rate of its own sound is cut by a table, for
// 29.97 Hz, and without a table it has no frames that the movie knows.
bool hasMoviesFrames(const MediaClipDesc& clip, FixedPoint<16> movieRate) {
    const MediaVideoRate own = clip.getVideoRate();
    if (own != MediaVideoRate::Unknown) return realRate(own) == movieRate;
    return Cadence::byTable(own, clip.getSampleRate(), 0).m_count != 0 &&
           realRate(MediaVideoRate::Ntsc2997) == movieRate;
}

// Frames of a clip, `most` at most, whose samples are all among its first `samples`.
unsigned long long framesAmong(const MediaClipDesc& clip, unsigned long long samples, unsigned long long most) {
    unsigned long long good = 0, bad = most + 1;
    while (bad - good > 1) {
        const unsigned long long middle = good + (bad - good) / 2;
        const SampleAndCount last = clip.getSampleAndCount(middle - 1);
        (last.m_sample + last.m_count <= samples ? good : bad) = middle;
    }
    return good;
}

// The time of a movie, in ticks of its time base and in frames.
class MovieTime {
public:
    explicit MovieTime(const MediaObj& obj)
        : m_base(obj.getMovieDesc()->getTimeBase()),
          m_rate(obj.getRealVideoRate()),
          m_perFrame(ticksPerFrame(m_base, m_rate)) {}

    FixedPoint<16> ticksOf(const MediaClipDesc& clip, unsigned long long samples) const {
        return clip.convertTo(FixedPoint<16>(samples * clip.getTicksPerSample()), m_base);
    }
    // Whole frames from a track's start to the end of the first `samples` samples of a clip that begins at `start`.
    unsigned long long framesUpTo(const MediaClipDesc& clip, FixedPoint<16> start, unsigned long long samples) const {
        const FixedPoint<16> end = start + ticksOf(clip, samples);
        if (hasMoviesFrames(clip, m_rate)) {
            const unsigned long long before = nearestTo(start);
            return before + framesAmong(clip, samples, nearestTo(end) - before + 1);
        }
        // By time: a frame that ends within half a sample of the last one is whole.
        return ((end + ticksOf(clip, 1) / 2) / m_perFrame).uint64Value();
    }

private:
    unsigned long long nearestTo(FixedPoint<16> ticks) const { return (ticks / m_perFrame).round().uint64Value(); }

    const unsigned m_base;
    const FixedPoint<16> m_rate;
    const FixedPoint<16> m_perFrame;
};

struct TrackInside {
    unsigned long long m_frames = 0;  // whole ones from the start
    bool m_isAll = true;              // the whole track lies inside its files
};

TrackInside trackInside(const MediaObj& obj, const MediaTrackDesc& track, const MovieTime& time) {
    TrackInside answer;
    FixedPoint<16> start(0);
    for (unsigned i = 0; i < track.getClipCount() && answer.m_isAll; ++i) {
        const MediaClipDesc& clip = *track.getClip(i);
        const unsigned long long inside = samplesInside(clip, obj.getMediaSize(clip.getMediaId()));
        answer.m_isAll = inside >= clip.getLength();
        answer.m_frames = time.framesUpTo(clip, start, inside);
        start += time.ticksOf(clip, inside);
    }
    return answer;
}

// Frames of the movie that every track has whole inside its files.
unsigned long long framesInside(const MediaObj& obj) {
    const MovieTime time(obj);
    unsigned long long frames = obj.getFrameLength();
    for (unsigned i = 0; i < obj.getTrackCount(); ++i) {
        // A track that is all there bounds nothing, so that rounding takes no frame away.
        const TrackInside track = trackInside(obj, *obj.getTrackAt(i), time);
        if (!track.m_isAll) frames = std::min(frames, track.m_frames);
    }
    return frames;
}

}  // namespace

LengthWatch::LengthWatch() = default;

LengthWatch::LengthWatch(const LengthWatch& other) {
    WatchScope lock(other.m_mutex);
    m_timeLimit = other.m_timeLimit;
    m_lastGrowth = other.m_lastGrowth;
    m_lastBytes = other.m_lastBytes;
    m_safeFrames = other.m_safeFrames;
    if (other.m_file != nullptr) {
        m_file = new FsFileIO("LengthWatch", other.m_file->getPath(), BasicIOTypes::Mode::ReadOnly);
        m_file->preserve();
    }
}

LengthWatch::~LengthWatch() {
    if (m_file != nullptr) m_file->release();
}

void LengthWatch::takeOver(const LengthWatch& other) {
    LengthWatch copy(other);  // so that the two locks are never held together
    WatchScope lock(m_mutex);
    m_timeLimit = copy.m_timeLimit;
    m_lastGrowth = copy.m_lastGrowth;
    m_lastBytes = copy.m_lastBytes;
    m_safeFrames = copy.m_safeFrames;
    std::swap(m_file, copy.m_file);
}

unsigned long long LengthWatch::primaryLength(const MediaObj* obj) {
    if (m_file == nullptr) {
        const char* path = obj->getPath(nullptr);
        if (path == nullptr || *path == '\0') return 0;
        m_file = new FsFileIO("LengthWatch", path, BasicIOTypes::Mode::ReadOnly);
        m_file->preserve();
    }
    return m_file->getLength();
}

unsigned long long LengthWatch::safeLength(const MediaObj* obj) { return safeLengthAt(obj, Clock::nowRelative()); }

unsigned long long LengthWatch::safeLengthAt(const MediaObj* obj, long long now) {
    const unsigned long long whole = obj->getFrameLength();
    const unsigned long long inside = framesInside(*obj);
    WatchScope lock(m_mutex);
    const unsigned long long bytes = primaryLength(obj);
    if (m_lastGrowth == 0 || bytes > m_lastBytes || inside > m_safeFrames) m_lastGrowth = now;
    m_lastBytes = std::max(m_lastBytes, bytes);
    if (now - m_lastGrowth > m_timeLimit) {
        m_safeFrames = whole;
        return whole;
    }
    m_safeFrames = std::max(m_safeFrames, inside);
    return m_safeFrames;
}
