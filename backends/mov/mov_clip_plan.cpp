#include "backends/mov/mov_clip_plan.h"

#include <algorithm>
#include <string>

#include "services/system/format_str.h"

namespace {

__extension__ using Wide = unsigned __int128;

constexpr std::uint64_t s_mostTicks = 1ull << 46;  // of an edit: months at any time scale
constexpr std::size_t s_mostStretches = 1u << 16;  // of samples of one description; what follows isn't shown

// Ticks of one scale in ticks of another, to the nearest.
std::uint64_t convert(std::uint64_t ticks, std::uint32_t from, std::uint32_t to) {
    const Wide exact = (Wide{ticks} * to + from / 2) / from;
    return exact < s_mostTicks ? static_cast<std::uint64_t>(exact) : s_mostTicks;
}

class Planner {
public:
    Planner(const MovTrack& track, const MovTrackSamples& samples, std::uint32_t movieScale,
            std::vector<std::string>& remarks)
        : m_track(track),
          m_samples(samples),
          m_movieScale(movieScale),
          m_step(samples.evenStep()),
          m_gapStep(m_step),
          m_remarks(remarks) {
        if (m_gapStep == 0) m_gapStep = std::max(samples.usualStep(9), 1u);
        std::int32_t shift = 0;
        if (samples.count() != 0 && samples.shiftOf(0, shift) && shift > 0) m_shift = static_cast<std::uint32_t>(shift);
        m_isCoded = track.type == MediaDataType::Audio && m_step != 1;
    }

    std::vector<MovClipPlan> run() {
        if (m_track.edits.empty()) {
            addMedia(0, m_samples.count());
        } else {
            for (const MovEdit& edit : m_track.edits)
                addEdit(edit);
        }
        const bool hasMedia =
            std::any_of(m_plans.begin(), m_plans.end(), [](const MovClipPlan& p) { return !p.isGap; });
        // A track of nothing still says what it would be of.
        if (!hasMedia) m_plans.assign(1, MovClipPlan());
        return std::move(m_plans);
    }

private:
    // Samples of one description.
    struct Stretch {
        std::uint64_t m_end;
        std::uint32_t m_description;
    };

    void addEdit(const MovEdit& edit) {
        const std::uint64_t duration = convert(edit.duration, m_movieScale, m_track.timeScale);
        if (edit.start < 0) {
            addGap(duration);
            return;
        }
        if (edit.rate != 0x10000) remark("an edit's speed isn't heeded");
        const auto start = static_cast<std::uint64_t>(edit.start);
        const std::uint64_t skipped = start > m_shift ? std::min(start - m_shift, s_mostTicks) : 0;
        const std::uint64_t in = sampleNear(skipped, false);
        // A movie that is written in fragments gives its one edit no length.
        const std::uint64_t out = edit.duration == 0 ? m_samples.count() : endNear(skipped + duration);
        if (out > in) addMedia(in, out);
    }

    // The sample at whose start a time lies, to the nearest; of coded sound the one that it lies in, or behind it.
    std::uint64_t sampleNear(std::uint64_t ticks, bool isEnd) const {
        std::uint64_t sample = 0;
        if (m_step != 0) {
            const std::uint64_t round = m_isCoded ? (isEnd ? m_step - 1 : 0) : m_step / 2;
            return std::min((ticks + round) / m_step, m_samples.count());
        }
        std::uint64_t from = 0, to = 0;
        if (!m_samples.sampleAt(ticks, sample)) return std::min(sample, m_samples.count());
        if (!m_samples.timeOf(sample, from)) return sample;
        if (!m_samples.timeOf(sample + 1, to) || ticks <= from) return isEnd && ticks > from ? sample + 1 : sample;
        const bool isNext = m_isCoded ? isEnd : ticks - from > (to - from) / 2;
        return sample + (isNext ? 1 : 0);
    }

    // An end that misses the media's by no more than a tick of the movie means the media's.
    std::uint64_t endNear(std::uint64_t ticks) const {
        const std::uint64_t total = m_samples.count();
        const std::uint64_t tick = m_track.timeScale / m_movieScale + 1;
        return sampleNear(ticks + tick, false) >= total ? total : sampleNear(ticks, true);
    }

    void addGap(std::uint64_t ticks) {
        const std::uint64_t step = m_gapStep;
        if (ticks < (step + 1) / 2 || !hasRoom()) return;
        MovClipPlan plan;
        plan.isGap = true;
        plan.length = (ticks + step / 2) / step;
        if (plan.length != 0) m_plans.push_back(plan);
    }

    // Shows the samples [in, out), a clip for each stretch of one description.
    void addMedia(std::uint64_t in, std::uint64_t out) {
        while (in < out && hasRoom()) {
            std::uint32_t description = 1;
            std::uint64_t next = m_samples.count();
            if (m_track.entries.size() > 1 && !stretchOf(in, description, next)) return;
            MovClipPlan plan;
            plan.entry = description != 0 ? description - 1 : 0;
            plan.base = m_plans.empty() && startsAlike(in) ? 0 : in;
            plan.samples = next - plan.base;
            plan.in = in - plan.base;
            plan.length = std::min(out, next) - in;
            m_plans.push_back(plan);
            in = std::min(out, next);
        }
    }

    // Whether all samples up to this one are of one description.
    bool startsAlike(std::uint64_t sample) {
        std::uint32_t description = 0;
        std::uint64_t next = 0;
        return m_track.entries.size() <= 1 || (stretchOf(0, description, next) && next > sample);
    }

    // The description of a sample, and the next one of another description. The table is walked once for all edits.
    bool stretchOf(std::uint64_t sample, std::uint32_t& description, std::uint64_t& next) {
        std::uint64_t known = m_stretches.empty() ? 0 : m_stretches.back().m_end;
        while (known <= sample) {
            if (m_stretches.size() >= s_mostStretches) remark("more changes of the description than are shown");
            if (m_isLastStretch || m_stretches.size() >= s_mostStretches) return false;
            m_isLastStretch = !m_samples.changeOfDescription(known, description, next) || next <= known;
            if (m_isLastStretch) return false;
            m_stretches.push_back({next, description});
            known = next;
        }
        const auto stretch = std::upper_bound(m_stretches.begin(), m_stretches.end(), sample,
                                              [](std::uint64_t s, const Stretch& other) { return s < other.m_end; });
        description = stretch->m_description;
        next = stretch->m_end;
        return true;
    }

    bool hasRoom() {
        if (m_plans.size() < MovLimit::s_clips) return true;
        remark("more edits than are shown");
        return false;
    }

    void remark(const char* text) {
        if (m_isRemarked) return;
        m_isRemarked = true;
        m_remarks.emplace_back(FormatStr("mov: track %u: %s", m_track.id, text).get());
    }

    const MovTrack& m_track;
    const MovTrackSamples& m_samples;
    const std::uint32_t m_movieScale;
    const std::uint32_t m_step;  // ticks of the media, 0: they vary
    std::uint32_t m_gapStep;     // of a sample that isn't there
    std::uint32_t m_shift = 0;   // from decoding to showing of the first sample
    bool m_isCoded = false;
    bool m_isRemarked = false;
    std::vector<Stretch> m_stretches;  // from the first sample on
    bool m_isLastStretch = false;      // behind them nothing is known
    std::vector<std::string>& m_remarks;
    std::vector<MovClipPlan> m_plans;
};

}  // namespace

std::vector<MovClipPlan> MovClipPlanner::plan(const MovTrack& track, const MovTrackSamples& samples,
                                              std::uint32_t movieScale, std::vector<std::string>& remarks) {
    return Planner(track, samples, movieScale, remarks).run();
}
