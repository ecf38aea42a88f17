// The arithmetic of the index: a frame's samples by table and by the general rule, and conversions between clocks,
// beside the same arithmetic by libavutil.

#include "bench/movie_kit.h"
#include "mediautil/index/cadence.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_movie_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_offset_lookup.h"
#include "shared/include/index/media_sample_desc.h"
#include "shared/include/index/media_sample_req.h"

#ifdef MEDIACORE_HAVE_AVFORMAT
extern "C" {
#include <libavutil/mathematics.h>
}
#endif

namespace {

using bench::keep;

constexpr unsigned s_frames = 1024;  // a batch, so that the clock isn't what is measured

#ifdef MEDIACORE_HAVE_AVFORMAT
// Where a frame begins and where it ends, in samples, at 30000 / 1001 Hz.
struct Edges {
    std::int64_t m_begin, m_end;
};
Edges rescaled(std::int64_t frame, int rate) {
    const AVRational video{1001, 30000}, audio{1, rate};
    return {av_rescale_q(frame, video, audio), av_rescale_q(frame + 1, video, audio)};
}
#endif

// Runs `one` for a batch of frames. The frame numbers can't be foreseen by the compiler.
template <class One>
auto batch(One one) {
    return [one, first = 0ull]() mutable {
        for (unsigned i = 0; i < s_frames; ++i)
            keep(one(first + i));
        first = (first + s_frames * 7) & 0xFFFFF;
    };
}

// A clip of that rate and track, as a WAV has it; the video rate is given to the rule directly.
void measureSamples(const MediaClipDesc& clip, const bench::Options& options) {
    bench::Rounds all(options);
    const MediaOffsetLookup& lookup = *clip.getLookup();
    const auto add = [&all](const char* name, auto one) { all.addCall(name, bench::threadSeconds, batch(one)); };
    add("table", [](unsigned long long frame) { return Cadence::byTable(MediaVideoRate::Ntsc2997, 48000, frame); });
    add("clip", [&lookup, &clip](unsigned long long frame) { return lookup.getSampleAndCount(clip, frame); });
    const FixedPoint<16> rate = MediaObj::getRealVideoRate(MediaVideoRate::Ntsc2997);
    add("general rule", [&clip, rate](unsigned long long frame) {
        const unsigned long long begin = Cadence::evenEdge(clip.convertFrom(FixedPoint<16>(frame), rate).uint64Value());
        const unsigned long long end =
            Cadence::evenEdge(clip.convertFrom(FixedPoint<16>(frame + 1), rate).uint64Value());
        return Cadence::between(begin, end);
    });
    add("convertTo", [&clip](unsigned long long sample) { return clip.convertTo(FixedPoint<16>(sample), 90000); });
    add("convertFrom", [&clip](unsigned long long tick) { return clip.convertFrom(FixedPoint<16>(tick), 90000u); });
    add("getMediaOffset", [&clip](unsigned long long frame) {
        MediaSampleInMovie sample;
        OpResult result;
        clip.getMediaOffset(MediaPlayReq(frame % 100, 4), sample, result);
        return sample.m_chunks[0].m_offset;
    });
#ifdef MEDIACORE_HAVE_AVFORMAT
    const auto pair = [](unsigned long long frame) { return rescaled(static_cast<std::int64_t>(frame), 48000); };
    const auto single = [](unsigned long long sample) {
        return av_rescale_q(static_cast<std::int64_t>(sample), AVRational{1, 48000}, AVRational{1, 90000});
    };
    add("rescaled pair", pair);
    add("rescaled pair again", pair);
    add("rescaled", single);
    all.run("rescaled pair", "rescaled pair again");
    const std::string each = " (1024 of them)";
    all.tell("a frame's samples by the table beside two av_rescale_q" + each, "table", "rescaled pair", "1");
    all.tell("a frame's samples asked of the clip's index beside the same" + each, "clip", "rescaled pair", "none");
    all.tell("a frame's samples by the general rule beside the same" + each, "general rule", "rescaled pair", "none");
    all.tell("convertTo beside av_rescale_q" + each, "convertTo", "rescaled", "none");
    all.tell("convertFrom beside av_rescale_q" + each, "convertFrom", "rescaled", "none");
    all.tell("getMediaOffset beside two av_rescale_q" + each, "getMediaOffset", "rescaled pair", "none");
#else
    all.run("table", "table");
    std::printf("a frame's samples by the table: %.2f ns\n", all.cost("table") / s_frames * 1e9);
#endif
}

}  // namespace

int main(int argc, char** argv) {
    const bench::Options options(argc, argv);
    const bench::Folder folder(options);
    const std::string path = bench::writeWavs(folder, 1).front();
    MediaObj* const movie = bench::openMovie(path);
    measureSamples(*movie->getTrackAt(0)->getClip(0), options);
    movie->release();
    bench::expireMovies();
    return 0;
}
