#include "mediautil/object/length_watch.h"

#include <algorithm>
#include <utility>

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

// Ticks of the movie's time base from a track's start that may be read.
unsigned long long ticksInside(const MediaObj& obj, const MediaTrackDesc& track) {
    const unsigned timeBase = obj.getMovieDesc()->getTimeBase();
    FixedPoint<16> ticks(0);
    for (unsigned i = 0; i < track.getClipCount(); ++i) {
        const MediaClipDesc* clip = track.getClip(i);
        const unsigned long long inside = samplesInside(*clip, obj.getMediaSize(clip->getMediaId()));
        ticks += clip->convertTo(FixedPoint<16>(inside * clip->getTicksPerSample()), timeBase);
        if (inside < clip->getLength()) break;
    }
    return ticks.uint64Value();
}

// Whole frames that every track of the movie has inside its files.
unsigned long long framesInside(const MediaObj& obj) {
    const FixedPoint<16> rate = obj.getRealVideoRate();
    unsigned long long frames = obj.getFrameLength();
    for (unsigned i = 0; i < obj.getTrackCount(); ++i) {
        const MediaTrackDesc* track = obj.getTrackAt(i);
        if (track->getClipCount() == 0) continue;
        const unsigned long long ticks = ticksInside(obj, *track);
        const unsigned long long whole = track->getLength();
        // A track that is all there bounds nothing, so that rounding takes no frame away.
        if (ticks >= whole) continue;
        FixedPoint<16> perFrame = obj.getMovieDesc()->getTimeBase() / rate;
        if (!(perFrame > FixedPoint<16>(0))) perFrame = FixedPoint<16>(1);
        frames = std::min<unsigned long long>(frames, (ticks / perFrame).uint64Value());
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
