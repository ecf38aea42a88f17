// From a time to a place in a file in a track of several clips: the walk to the clip and the index's answer, beside the
// same walk in bare integers.

#include "bench/arithmetic_kit.h"
#include "bench/clip_movie.h"
#include "shared/include/index/media_sample_desc.h"
#include "shared/include/index/media_sample_req.h"

namespace {

constexpr std::uint64_t s_blockSamples = 1920;  // asked for at a time

// A place of the walk: which clip, and where the samples lie.
struct Place {
    std::uint64_t m_clip, m_offset, m_size;
};

// ---- in bare integers, with times in 65536ths of a tick, which half a sample needs

struct BareClip {
    std::int64_t m_samples, m_ticks, m_rate;  // its length; that many samples in so many seconds
    std::uint64_t m_begin, m_end;             // in the file
    std::uint64_t m_sampleSize;               // bytes
};

struct BareTrack {
    std::vector<BareClip> m_clips;
    std::int64_t m_timeBase;
};

struct BareHit {
    std::size_t m_clip;
    std::int64_t m_start;
};

BareTrack bareTrack(const bench::ClipPlan& plan) {
    BareTrack track{{}, plan.m_timeBase};
    for (unsigned i = 0; i < plan.m_clips; ++i) {
        track.m_clips.push_back({static_cast<std::int64_t>(plan.m_samples), plan.m_ticks, plan.m_rate, i * plan.bytes(),
                                 (i + 1) * plan.bytes(), plan.m_sampleSize});
    }
    return track;
}

std::int64_t toTicks(const BareClip& clip, std::int64_t samples, std::int64_t timeBase) {
    const std::int64_t own = samples * clip.m_ticks << 16;
    return clip.m_rate == timeBase ? own : own * timeBase / clip.m_rate;
}

BareHit bareClipAt(const BareTrack& track, std::int64_t time) {
    BareHit hit{0, 0};
    for (; hit.m_clip + 1 < track.m_clips.size(); ++hit.m_clip) {
        const BareClip& clip = track.m_clips[hit.m_clip];
        const std::int64_t end = hit.m_start + toTicks(clip, clip.m_samples, track.m_timeBase);
        if (time + toTicks(clip, 1, track.m_timeBase) / 2 < end) break;
        hit.m_start = end;
    }
    return hit;
}

Place barePlaceAt(const BareTrack& track, std::int64_t time) {
    const BareHit hit = bareClipAt(track, time);
    const BareClip& clip = track.m_clips[hit.m_clip];
    const std::int64_t own = time - hit.m_start;
    const std::int64_t samples = clip.m_rate == track.m_timeBase ? own : own * clip.m_rate / track.m_timeBase;
    const std::uint64_t offset = clip.m_begin + static_cast<std::uint64_t>(samples >> 16) * clip.m_sampleSize;
    return {hit.m_clip, offset, std::min(s_blockSamples * clip.m_sampleSize, clip.m_end - offset)};
}

// ---- by the movie

Place placeAt(const MediaTrackDesc& track, FixedPoint<16> time, unsigned timeBase) {
    FixedPoint<16> start;
    const MediaClipDesc& clip = *track.clipAt(time, start);
    const unsigned long long sample = clip.convertFrom(time - start, timeBase).uint64Value();
    MediaSampleInMovie place;
    OpResult result;
    if (!clip.getMediaOffset(MediaPlayReq(sample, static_cast<unsigned>(s_blockSamples)), place, result)) std::abort();
    return {place.m_clipIndex, place.m_chunks[0].m_offset, place.m_chunks[0].m_size};
}

// ---- side by side

constexpr unsigned s_counts[] = {1, 10, 1000};

// One track in both shapes.
class Scene {
public:
    explicit Scene(const bench::ClipPlan& plan)
        : m_plan(plan),
          m_movie(bench::PlannedMovie::make(plan)),
          m_track(*m_movie->getTrackAt(0)),
          m_bare(bareTrack(plan)) {}
    ~Scene() { m_movie->release(); }
    Scene(const Scene&) = delete;
    Scene& operator=(const Scene&) = delete;

    const MediaTrackDesc& track() const { return m_track; }
    const BareTrack& bare() const { return m_bare; }
    unsigned timeBase() const { return m_plan.m_timeBase; }
    // A tick of the track for each number, all over it in an order that nothing foresees. Blocks at the end of a clip
    // are left out, since one or two samples aren't served.
    unsigned timeOf(unsigned long long number) const {
        const std::uint64_t spread = number * 0x9E3779B97F4A7C15ull >> 32;
        const std::uint64_t clip = spread * m_plan.m_clips >> 32;
        const std::uint64_t within = (spread & 0xFFFF) * (m_plan.length() / 2) >> 16;
        return static_cast<unsigned>(clip * m_plan.length() + within);
    }
    void check() const;

private:
    const bench::ClipPlan m_plan;
    MediaObj* const m_movie;
    const MediaTrackDesc& m_track;
    const BareTrack m_bare;
};

// Both ways come to the same place, or the comparison says nothing.
void Scene::check() const {
    for (unsigned i = 0; i < 1000; ++i) {
        const unsigned time = timeOf(i);
        const Place ours = placeAt(track(), FixedPoint<16>(time), timeBase());
        const Place bare = barePlaceAt(m_bare, std::int64_t{time} << 16);
        if (ours.m_clip != bare.m_clip || ours.m_offset != bare.m_offset || ours.m_size != bare.m_size) std::abort();
    }
}

void addWalks(bench::Rounds& all, const std::string& count, const Scene& scene) {
    bench::addSum(all, "clipAt " + count, [&scene](unsigned long long number) {
        FixedPoint<16> start;
        return scene.track().clipAt(FixedPoint<16>(scene.timeOf(number)), start);
    });
    bench::addSum(all, "place " + count, [&scene](unsigned long long number) {
        return placeAt(scene.track(), FixedPoint<16>(scene.timeOf(number)), scene.timeBase());
    });
    const auto bare = [&scene](unsigned long long number) {
        return bareClipAt(scene.bare(), std::int64_t{scene.timeOf(number)} << 16);
    };
    bench::addSum(all, "bare clipAt " + count, bare);
    bench::addSum(all, "bare clipAt again " + count, bare);
    bench::addSum(all, "bare place " + count, [&scene](unsigned long long number) {
        return barePlaceAt(scene.bare(), std::int64_t{scene.timeOf(number)} << 16);
    });
}

void measureWalks(unsigned rate, const bench::Options& options) {
    std::vector<std::unique_ptr<Scene>> scenes;
    bench::Rounds all(options);
    for (const unsigned count : s_counts) {
        bench::ClipPlan plan;
        plan.m_clips = count;
        plan.m_rate = rate;
        plan.m_samples = rate;
        scenes.push_back(std::make_unique<Scene>(plan));
        scenes.back()->check();
        addWalks(all, std::to_string(count), *scenes.back());
    }
    all.run("bare clipAt 10", "bare clipAt again 10");
    const std::string clock = rate == scenes[0]->timeBase() ? " of the movie's rate" : " of another rate";
    for (const unsigned number : s_counts) {
        const std::string count = std::to_string(number), among = " among " + count + " clips" + clock;
        all.tell("clipAt" + among + " beside the bare walk", "clipAt " + count, "bare clipAt " + count, "2");
        all.tell("clipAt and getMediaOffset" + among + " beside the same", "place " + count, "bare place " + count,
                 "2");
    }
    all.tell("clipAt among 1000 clips" + clock + " beside 10", "clipAt 1000", "clipAt 10", "100");
}

}  // namespace

int main(int argc, char** argv) {
    const bench::Options options(argc, argv);
    measureWalks(48000, options);
    measureWalks(44100, options);
    return 0;
}
