// Time: a clip's conversions between clocks, and timecode from frames to digits and back, beside libavutil and bare
// integers.

#include "bench/arithmetic_kit.h"
#include "bench/clip_movie.h"
#include "shared/include/description/media_timecode.h"

#ifdef MEDIACORE_HAVE_AVFORMAT
extern "C" {
#include <libavutil/timecode.h>
}
#endif

namespace {

constexpr unsigned s_audioRate = 48000;
constexpr unsigned s_clockRate = 90000;

// ---- between clocks

void measureConversions(const bench::Options& options) {
    bench::ClipPlan plan;
    plan.m_rate = s_audioRate;
    MediaObj* const movie = bench::PlannedMovie::make(plan);
    const MediaClipDesc& clip = *movie->getTrackAt(0)->getClip(0);
    const unsigned clock = bench::unforeseen(s_clockRate);
    const auto up = static_cast<std::int64_t>(bench::unforeseen(s_audioRate));
    const auto down = static_cast<std::int64_t>(clock);
    bench::Rounds all(options);
    bench::addSum(all, "to", [&clip, clock](unsigned long long t) { return clip.convertTo(FixedPoint<16>(t), clock); });
    bench::addSum(all, "from",
                  [&clip, clock](unsigned long long t) { return clip.convertFrom(FixedPoint<16>(t), clock); });
    const auto bare = [up, down](unsigned long long t) { return static_cast<std::int64_t>(t << 16) * up / down; };
    bench::addSum(all, "bare", bare);
    bench::addSum(all, "bare again", bare);
#ifdef MEDIACORE_HAVE_AVFORMAT
    const AVRational one{1, bench::unforeseen(static_cast<int>(s_audioRate))}, other{1, static_cast<int>(clock)};
    bench::addSum(all, "rescaled", [one, other](unsigned long long t) {
        return av_rescale_q(static_cast<std::int64_t>(t), one, other);
    });
#endif
    all.run("bare", "bare again");
    for (const char* const way : {"to", "from"}) {
        const std::string what = std::string("convert ") + way + " another clock, beside ";
#ifdef MEDIACORE_HAVE_AVFORMAT
        all.tell(what + "av_rescale_q", way, "rescaled", "1");
#endif
        all.tell(what + "bare integers", way, "bare", "1.5");
    }
    movie->release();
}

// ---- timecode

struct Digits {
    std::uint8_t m_hours, m_minutes, m_seconds, m_frames;
};

// Drop-frame at 30 frames a second, as the two lines that everybody writes.
Digits bareDigits(unsigned frame) {
    const unsigned tens = frame / 17982, rest = frame % 17982;
    frame += tens * 18 + (rest < 2 ? 0 : (rest - 2) / 1798 * 2);
    const unsigned seconds = frame / 30, minutes = seconds / 60;
    return {static_cast<std::uint8_t>(minutes / 60), static_cast<std::uint8_t>(minutes % 60),
            static_cast<std::uint8_t>(seconds % 60), static_cast<std::uint8_t>(frame % 30)};
}

unsigned bareFrame(const Digits& digits) {
    const unsigned minutes = digits.m_hours * 60u + digits.m_minutes;
    return (minutes * 60 + digits.m_seconds) * 30 + digits.m_frames - 2 * (minutes - minutes / 10);
}

MediaTimecode timecodeAt(unsigned frame) {
    MediaTimecode timecode;
    timecode.setCounter(static_cast<int>(frame), FixedPoint<16>(30000) / 1001, true);
    return timecode;
}

constexpr unsigned s_fewFrames = 256;  // so that the records of either side stay in the innermost cache

// Digits of frames that are spread over a day, so that every place of them changes.
template <class Make>
auto digitsOfADay(Make make) {
    std::vector<decltype(make(0u))> all;
    for (unsigned i = 0; i < s_fewFrames; ++i)
        all.push_back(make(i * 10007u));
    return all;
}

#ifdef MEDIACORE_HAVE_AVFORMAT
AVTimecode avTimecode() {
    AVTimecode timecode{};
    if (av_timecode_init(&timecode, AVRational{30000, 1001}, AV_TIMECODE_FLAG_DROPFRAME, 0, nullptr) < 0) std::abort();
    return timecode;
}

// Back from digits it has one road: a start made of them.
int avFrame(const Digits& digits) {
    AVTimecode timecode;
    av_timecode_init_from_components(&timecode, AVRational{30000, 1001}, AV_TIMECODE_FLAG_DROPFRAME, digits.m_hours,
                                     digits.m_minutes, digits.m_seconds, digits.m_frames, nullptr);
    return timecode.start;
}
#endif

constexpr unsigned s_dayMask = 0x1FFFFF;  // frames, of the 2.6 million of a day

void measureDigits(const bench::Options& options) {
    bench::Rounds all(options);
    bench::addSum(
        all, "ours",
        [timecode = timecodeAt(0)](unsigned long long frame) mutable -> const MediaTimecode& {
            timecode.setCounter(static_cast<int>(frame));
            return timecode;
        },
        s_dayMask + 1);
    const auto bare = [](unsigned long long frame) { return bareDigits(static_cast<unsigned>(frame)); };
    bench::addSum(all, "bare", bare, s_dayMask + 1);
    bench::addSum(all, "bare again", bare, s_dayMask + 1);
#ifdef MEDIACORE_HAVE_AVFORMAT
    bench::addSum(
        all, "libavutil",
        [timecode = avTimecode()](unsigned long long frame) {
            return av_timecode_get_smpte_from_framenum(&timecode, static_cast<int>(frame));
        },
        s_dayMask + 1);
#endif
    all.run("bare", "bare again");
#ifdef MEDIACORE_HAVE_AVFORMAT
    all.tell("drop-frame to digits beside av_timecode_get_smpte_from_framenum", "ours", "libavutil", "1");
#endif
    all.tell("drop-frame to digits beside bare arithmetic", "ours", "bare", "1.5");
}

void measureFrame(const bench::Options& options) {
    bench::Rounds all(options);
    const auto ours = digitsOfADay(timecodeAt);
    const auto theirs = digitsOfADay(bareDigits);
    bench::addSum(
        all, "ours", [&ours](unsigned long long i) { return ours[i].getCounter(); }, s_fewFrames);
    const auto bare = [&theirs](unsigned long long i) { return bareFrame(theirs[i]); };
    bench::addSum(all, "bare", bare, s_fewFrames);
    bench::addSum(all, "bare again", bare, s_fewFrames);
#ifdef MEDIACORE_HAVE_AVFORMAT
    bench::addSum(
        all, "libavutil", [&theirs](unsigned long long i) { return avFrame(theirs[i]); }, s_fewFrames);
#endif
    all.run("bare", "bare again");
#ifdef MEDIACORE_HAVE_AVFORMAT
    all.tell("digits to drop-frame beside av_timecode_init_from_components", "ours", "libavutil", "1");
#endif
    all.tell("digits to drop-frame beside bare arithmetic", "ours", "bare", "1.5");
}

// The same number there and back again.
void measureRoundTrip(const bench::Options& options) {
    bench::Rounds all(options);
    bench::addSum(
        all, "ours",
        [timecode = timecodeAt(0)](unsigned long long frame) mutable {
            timecode.setCounter(static_cast<int>(frame));
            bench::keep(timecode);
            return timecode.getCounter();
        },
        s_dayMask + 1);
    const auto bare = [](unsigned long long frame) {
        const Digits digits = bareDigits(static_cast<unsigned>(frame));
        bench::keep(digits);
        return bareFrame(digits);
    };
    bench::addSum(all, "bare", bare, s_dayMask + 1);
    bench::addSum(all, "bare again", bare, s_dayMask + 1);
    all.run("bare", "bare again");
    all.tell("drop-frame to digits and back beside bare arithmetic", "ours", "bare", "1.5");
}

}  // namespace

int main(int argc, char** argv) {
    const bench::Options options(argc, argv);
    measureConversions(options);
    measureDigits(options);
    measureFrame(options);
    measureRoundTrip(options);
    return 0;
}
