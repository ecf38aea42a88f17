// The arithmetic of the index: which samples belong to a frame and where they lie, at the rates that have a table and
// at others, beside the same sum by libavutil and in bare integers.

#include "bench/arithmetic_kit.h"
#include "bench/clip_movie.h"
#include "shared/include/index/media_offset_lookup.h"
#include "shared/include/index/media_sample_desc.h"
#include "shared/include/index/media_sample_req.h"

namespace {

constexpr unsigned s_sampleSize = 4;            // bytes
constexpr unsigned long long s_baseOffset = 0;  // where the first clip of a planned movie lies

// A pair of rates, the frames as a fraction.
struct Rates {
    MediaVideoRate m_video;
    int m_frames, m_seconds;  // so many frames in so many seconds
    int m_samples;            // a second
};

constexpr Rates s_tabled[] = {
    {MediaVideoRate::Ntsc2997, 30000, 1001, 48000}, {MediaVideoRate::Ntsc2997, 30000, 1001, 44100},
    {MediaVideoRate::Ntsc2997, 30000, 1001, 32000}, {MediaVideoRate::Ntsc2997, 30000, 1001, 8000},
    {MediaVideoRate::Hz5994, 60000, 1001, 48000},   {MediaVideoRate::Hz5994, 60000, 1001, 44100},
    {MediaVideoRate::Hz5994, 60000, 1001, 32000},   {MediaVideoRate::Hz5994, 60000, 1001, 8000},
};
constexpr Rates s_general[] = {
    {MediaVideoRate::Pal25, 25, 1, 48000},
    {MediaVideoRate::Film23976, 24000, 1001, 48000},
    {MediaVideoRate::Ntsc2997, 30000, 1001, 96000},
};

// Where a frame's samples lie in the file.
struct Place {
    std::uint64_t m_offset, m_size;
};

Place placeOf(std::uint64_t begin, std::uint64_t count) {
    return {s_baseOffset + begin * s_sampleSize, count * s_sampleSize};
}

// As all callers ask: the clip, which asks its index.
Place byClip(const MediaClipDesc& clip, unsigned long long frame) {
    const SampleAndCount samples = clip.getSampleAndCount(frame);
    return placeOf(samples.m_sample, samples.m_count);
}

#ifdef MEDIACORE_HAVE_AVFORMAT
Place rescaled(std::int64_t frame, AVRational video, AVRational audio) {
    const std::int64_t begin = av_rescale_q(frame, video, audio), end = av_rescale_q(frame + 1, video, audio);
    return placeOf(static_cast<std::uint64_t>(begin), static_cast<std::uint64_t>(end - begin));
}
#endif

void addBare(bench::Rounds& all, const char* name, const Rates& rates) {
    const auto up = static_cast<std::uint64_t>(bench::unforeseen(rates.m_samples * rates.m_seconds));
    const auto down = static_cast<std::uint64_t>(bench::unforeseen(rates.m_frames));
    bench::addSum(all, name, [up, down](unsigned long long frame) {
        const std::uint64_t begin = frame * up / down;
        return placeOf(begin, (frame + 1) * up / down - begin);
    });
}

void measureFrames(const Rates& rates, const char* rule, const bench::Options& options) {
    bench::ClipPlan plan;
    plan.m_rate = static_cast<unsigned>(rates.m_samples);
    plan.m_sampleSize = s_sampleSize;
    plan.m_videoRate = rates.m_video;
    MediaObj* const movie = bench::PlannedMovie::make(plan);
    const MediaClipDesc& clip = *movie->getTrackAt(0)->getClip(0);
    bench::Rounds all(options);
    bench::addSum(all, "ours", [&clip](unsigned long long frame) { return byClip(clip, frame); });
    addBare(all, "bare", rates);
    addBare(all, "bare again", rates);
#ifdef MEDIACORE_HAVE_AVFORMAT
    const AVRational video{bench::unforeseen(rates.m_seconds), rates.m_frames}, audio{1, rates.m_samples};
    bench::addSum(all, "rescaled", [video, audio](unsigned long long frame) {
        return rescaled(static_cast<std::int64_t>(frame), video, audio);
    });
#endif
    all.run("bare", "bare again");
    char what[96];
    std::snprintf(what, sizeof what, "a frame's samples %s, %d Hz at %.5g", rule, rates.m_samples,
                  static_cast<double>(rates.m_frames) / rates.m_seconds);
#ifdef MEDIACORE_HAVE_AVFORMAT
    all.tell(std::string(what) + ", beside two av_rescale_q", "ours", "rescaled", "1");
#endif
    all.tell(std::string(what) + ", beside bare integers", "ours", "bare", "none");
    movie->release();
}

}  // namespace

int main(int argc, char** argv) {
    const bench::Options options(argc, argv);
    for (const Rates& rates : s_tabled)
        measureFrames(rates, "by the table", options);
    for (const Rates& rates : s_general)
        measureFrames(rates, "by the general rule", options);
    return 0;
}
