#include <algorithm>

#include "shared/include/index/essence_tracker.h"
#include "tests/unit/index/recording_movie.h"

using kit::isWarning;
using recording::Clip;
using recording::s_frame;
using recording::Track;
using U64 = unsigned long long;

// Numbers that no honest recorder hands over: lengths follow them as sums of 64 bits do, nothing is a fault, and a
// clip beside them stays as it is.

namespace {

constexpr U64 s_held = 10;  // samples that the clip has at the start

constexpr U64 s_hostile[] = {0,
                             1,
                             s_held - 1,
                             s_held,
                             s_held + 1,
                             (1ull << 31) - 1,
                             1ull << 31,
                             (1ull << 32) - 1,
                             1ull << 32,
                             (1ull << 47) - 1,
                             1ull << 47,
                             1ull << 48,
                             (1ull << 63) - 1,
                             1ull << 63,
                             ~0ull - 1,
                             ~0ull};
constexpr unsigned s_counts[] = {0, 1, s_held, s_held + 1, 0x7fffffff, 0x80000000, 0xffffffff};

class HostileRecording : public recording::Scene {
protected:
    static Track& trackOf(Clip& clip) { return static_cast<Track&>(clip.getTrack()); }
    // A fresh clip of ten samples.
    Clip& held() {
        Clip& clip = video();
        clip.hold(s_held);
        trackOf(clip).setLength(s_held * s_frame);
        return clip;
    }
    // What a frame clip's samples last in the movie, to the tick as conversions cut it.
    static U64 ticksOf(const Clip& clip, U64 samples) {
        return clip.convertTo(FixedPoint<16>(samples), 90000).uint64Value();
    }
    Clip& m_beside = held();

    void TearDown() override {
        EXPECT_EQ(m_beside.edit().getOut(), s_held);
        EXPECT_EQ(m_beside.getLength(), s_held);
        EXPECT_EQ(trackOf(m_beside).getLength(), s_held * s_frame);
    }
};

}  // namespace

TEST_F(HostileRecording, SampleNumbersAndCounts) {
    for (const U64 sample : s_hostile) {
        for (const unsigned count : s_counts) {
            Clip& clip = held();
            EXPECT_TRUE(add(trackOf(clip), sample, count));
            EXPECT_EQ(m_sample.m_sample, sample);
            EXPECT_EQ(m_sample.m_count, count);
            EXPECT_EQ(clip.edit().getOut(), s_held + count);
            EXPECT_EQ(clip.getLength(), s_held + count);
            EXPECT_EQ(trackOf(clip).getLength(), ticksOf(clip, s_held + count));
        }
    }
}

TEST_F(HostileRecording, SampleNumbersOfAMasterAndItsSlave) {
    for (const U64 sample : s_hostile) {
        for (const unsigned count : s_counts) {
            Clip& clip = held();
            Clip& slave = audio();
            clip.m_slave = &slave;
            const SampleAndCount frame = slave.getSampleAndCount(sample);
            EXPECT_TRUE(add(trackOf(clip), sample, count));
            ASSERT_EQ(slave.placing().m_requests.size(), 1u);
            EXPECT_EQ(slave.placing().m_requests[0].m_sample, frame.m_sample);
            EXPECT_EQ(slave.placing().m_requests[0].m_count, frame.m_count);
            EXPECT_EQ(slave.getLength(), frame.m_count);
        }
    }
}

TEST_F(HostileRecording, GapsOfTheFirstSamples) {
    for (const U64 gap : s_hostile) {
        m_movie->m_desc.m_selected.clear();
        Clip& clip = video();
        clip.placing().m_gap = static_cast<long long>(gap);
        EXPECT_TRUE(add(trackOf(clip), 0));
        EXPECT_EQ(m_movie->m_desc.m_selected.size(), gap != 0 ? 1u : 0u);
        if (gap < 1ull << 31 && gap != 0) {
            EXPECT_EQ(m_movie->m_desc.getSelectIn(), clip.convertTo(FixedPoint<16>(gap), 90000).round().uint64Value());
        }
        EXPECT_EQ(clip.getLength(), 1u);
    }
}

TEST_F(HostileRecording, EmptyEdits) {
    for (const U64 sample : s_hostile) {
        Clip& clip = held();
        OpResult result = trackOf(clip).addEmptyEdit(sample);
        EXPECT_EQ(result.success(), sample > s_held);
        if (!result) {
            EXPECT_TRUE(isWarning(result, 1));
        }
        result.discard();
        EXPECT_EQ(clip.edit().getOut(), std::max(sample, s_held));
        EXPECT_EQ(clip.getLength(), std::max(sample, s_held));
    }
}

TEST_F(HostileRecording, RolloutsAndTheirTargets) {
    for (const U64 rollout : s_hostile) {
        for (const U64 target : s_hostile) {
            for (const unsigned count : s_counts) {
                Clip& clip = held();
                clip.setRollout(rollout);
                clip.setTargetRollout(target);
                EXPECT_TRUE(add(clip, s_held, count));
                const bool held = rollout < target;
                EXPECT_EQ(clip.getRollout(), held ? rollout + count : rollout);
                EXPECT_EQ(clip.getTargetRollout(), target);
                EXPECT_EQ(clip.getLength(), held ? s_held : s_held + count);
                EXPECT_EQ(clip.edit().getOut(), clip.getLength());
            }
        }
    }
}

TEST_F(HostileRecording, TargetsOfAudio) {
    for (const U64 rollout : s_hostile) {
        for (const U64 target : s_hostile) {
            Clip& clip = audio();
            clip.setRollout(rollout);
            clip.setTargetRollout(target);
            EXPECT_TRUE(add(clip, 0, 1));
            const U64 now = rollout < target ? rollout + 1 : rollout;
            EXPECT_EQ(clip.getRollout(), now);
            const bool near = rollout < target && now < target && target - now < 3;
            EXPECT_EQ(clip.getTargetRollout(), near ? now : target);
        }
    }
}

TEST_F(HostileRecording, BegunRollouts) {
    for (const U64 rollout : s_hostile) {
        Clip& clip = held();
        clip.setRollout(rollout);
        EXPECT_TRUE(trackOf(clip).beginRollout());
        EXPECT_EQ(clip.edit().getOut(), s_held + rollout);
        EXPECT_EQ(clip.getLength(), s_held + rollout);
        EXPECT_EQ(clip.getRollout(), 0u);
        EXPECT_EQ(clip.getTargetRollout(), rollout != 0 ? ~0ull : 0);
        const FixedPoint<16> before = clip.convertTo(FixedPoint<16>(s_held), 90000);
        const FixedPoint<16> after = clip.convertTo(FixedPoint<16>(s_held + rollout), 90000);
        EXPECT_EQ(trackOf(clip).getLength(), s_held * s_frame + (after - before).round().uint64Value());
    }
}

TEST_F(HostileRecording, DecodedLengths) {
    for (const U64 samples : s_hostile) {
        Clip& clip = held();
        EXPECT_TRUE(clip.updateDecodedLength(samples));
        EXPECT_EQ(clip.getLength(), samples);
        EXPECT_EQ(clip.edit().getOut(), samples);
        EXPECT_EQ(trackOf(clip).getLength(), ticksOf(clip, samples));
        EXPECT_TRUE(trackOf(clip).MediaTrackDesc::updateDecodedLength(samples));
        EXPECT_EQ(trackOf(clip).getLength(), samples);
    }
}

TEST_F(HostileRecording, FramesOfAPrecharge) {
    for (const unsigned frames : s_counts) {
        Clip& clip = held();
        EXPECT_TRUE(trackOf(clip).setPrecharge(frames));
        EXPECT_EQ(clip.edit().getIn(), frames);
        EXPECT_EQ(clip.edit().getOut(), s_held);
        EXPECT_EQ(clip.getLength(), frames < s_held ? s_held - frames : 0);
        EXPECT_EQ(trackOf(clip).getLength(), frames < s_held ? (s_held - frames) * s_frame : 0);
        EXPECT_EQ(trackOf(clip).getPrecharge(), frames);
    }
}

TEST_F(HostileRecording, ClipsBeforeAPrecharge) {
    for (const U64 number : s_hostile) {
        Clip& sound = audio();
        sound.hold(number, number);
        sound.setRollout(number);
        EXPECT_TRUE(trackOf(sound).setPrecharge(1));
        // What it can give up is three times the number, as a sum of 64 bits.
        const U64 available = 3 * number;
        const U64 taken = available < 1920 && 1920 - available < 3 ? available : 1920;
        EXPECT_EQ(sound.edit().getIn(), taken);
        EXPECT_EQ(sound.getLength(), number >= taken ? number - taken : 0);
        EXPECT_EQ(sound.getRollout(), number >= taken ? number : number - std::min(number, taken - number));
        Clip& picture = video();
        picture.m_edits[0].setPrecharge(number);
        const unsigned frames = trackOf(picture).getPrecharge();
        if (number < 1ull << 32) {
            EXPECT_EQ(frames, number);
        }
    }
}

TEST_F(HostileRecording, FramesOfATargetRollout) {
    for (const unsigned frames : s_counts) {
        Clip& clip = held();
        EXPECT_TRUE(trackOf(clip).setTargetRollout(frames));
        EXPECT_EQ(clip.getTargetRollout(), frames);
    }
}

TEST_F(HostileRecording, Capacities) {
    for (const U64 capacity : s_hostile) {
        Clip& clip = held();
        m_log.clear();
        trackOf(clip).adviseCapacity(capacity);
        // 48 bits are counted, the highest is the sign.
        const U64 counted = capacity & ((1ull << 48) - 1);
        if (counted < 1ull << 47) {
            ASSERT_EQ(clip.m_capacities.size(), 1u) << capacity;
            EXPECT_EQ(clip.m_capacities[0], (counted + 1800) / 3600) << capacity;
        } else {
            EXPECT_EQ(clip.m_capacities.size() + m_log.lines().size(), 1u) << capacity;
        }
    }
}

TEST_F(HostileRecording, LookAheads) {
    Clip& clip = video();
    for (const U64 sample : s_hostile) {
        for (const unsigned count : s_counts) {
            EXPECT_TRUE(clip.adviseLookAhead(MediaPlayReq(sample, count), true, sample));
            EXPECT_EQ(clip.placing().m_advised, sample);
        }
    }
}

TEST_F(HostileRecording, RunsOfAnEssenceTracker) {
    for (const U64 sample : s_hostile) {
        for (const unsigned count : s_counts) {
            EssenceTracker tracker(0, true);
            MediaSampleDesc desc;
            desc.set(count, sample, 0, 0u, 0, false);
            EXPECT_FALSE(tracker.isAvailable(desc));
            tracker.notifyAdd(MediaRecordReq(sample, count, SampleInfo()));
            EXPECT_FALSE(tracker.isAvailable(desc)) << count << "s@" << sample;
            tracker.notifyWrite(desc);
            EXPECT_TRUE(tracker.isAvailable(desc)) << count << "s@" << sample;
            EXPECT_EQ(std::string(tracker.toString().get()),
                      kit::formatted("trk 0: drop=2,hiw=1,list[1]={%llds@%lldw}, free[7]",
                                     static_cast<long long>(count), static_cast<long long>(sample)));
        }
    }
}
