#include <new>

#include "shared/include/index/essence_tracker.h"
#include "tests/kit/heap_taken.h"
#include "tests/unit/index/recording_movie.h"

using recording::Clip;
using U64 = unsigned long long;

// What recording takes from the heap: nothing, sample for sample.

namespace {

class RecordHeap : public recording::Scene {
protected:
    // Pictures of one size, with sound that rides on them.
    RecordHeap() {
        m_master.setLookup(new recording::FixedIndex(m_master, 1000, 1000));
        m_slave.placing().m_keeps = false;
        m_master.m_slave = &m_slave;
    }
    void addAll(U64 first) {
        SampleInfo info;
        info.reset(1000);
        for (U64 sample = first; sample < first + s_samples; ++sample) {
            EXPECT_TRUE(m_master.getTrack().addSamples(MediaRecordReq(sample, 1, info), m_sample, m_result));
        }
    }

    static constexpr U64 s_samples = 500;
    Clip& m_master = video();
    Clip& m_slave = audio();
};

}  // namespace

TEST_F(RecordHeap, CounterSeesABlock) {
    const kit::HeapTaken taken;
    // Calls and not expressions: those a compiler may leave out.
    ::operator delete(::operator new(4));
    ::operator delete[](::operator new[](4, std::nothrow));
    EXPECT_EQ(taken.count(), 2u);
}

TEST_F(RecordHeap, SamplesTakeNothing) {
    const kit::HeapTaken taken;
    addAll(0);
    EXPECT_EQ(taken.count(), 0u);
    EXPECT_EQ(m_master.getLength(), s_samples);
    EXPECT_EQ(m_slave.getLength(), 1920 * s_samples);
}

TEST_F(RecordHeap, SamplesOfTheRolloutTakeNothing) {
    m_master.setTargetRollout(s_samples / 2);
    m_slave.setTargetRollout(1920 * s_samples / 2);
    const kit::HeapTaken taken;
    addAll(0);
    EXPECT_EQ(taken.count(), 0u);
    EXPECT_EQ(m_master.getRollout(), s_samples / 2);
}

TEST_F(RecordHeap, LogTakesItsMemoryAtItsFirstLineAndNoMore) {
    mediaObjDbg.set(1u << MediaDbg::Record1);
    const kit::HeapTaken first;
    m_movie->log(m_sample);
    EXPECT_EQ(first.count(), 1u);
    const kit::HeapTaken taken;
    for (unsigned round = 0; round < 10; ++round)
        addAll(round * s_samples);
    EXPECT_EQ(taken.count(), 0u) << "not even when the ring comes round";
    EXPECT_TRUE(m_log.lines().empty()) << m_log.text();
}

TEST_F(RecordHeap, TrackerTakesNothingWhileTheWritesKeepUp) {
    EssenceTracker tracker(0, true);
    MediaSampleDesc desc;
    const kit::HeapTaken taken;
    for (U64 sample = 0; sample < s_samples; ++sample) {
        tracker.notifyAdd(MediaRecordReq(sample, 1, SampleInfo()));
        desc.set(1, sample, 0, 0u, 0, false);
        EXPECT_FALSE(tracker.isAvailable(desc));
        if (sample < 7) continue;  // the writes are seven samples behind
        desc.set(1, sample - 7, 0, 0u, 0, false);
        tracker.notifyWrite(desc);
        EXPECT_TRUE(tracker.isAvailable(desc));
    }
    EXPECT_EQ(taken.count(), 0u);
}

TEST_F(RecordHeap, TrackerTakesABlockForARunAboveItsEight) {
    EssenceTracker tracker(0, true);
    const kit::HeapTaken taken;
    for (U64 sample = 0; sample < 8; ++sample)
        tracker.notifyAdd(MediaRecordReq(sample, 1, SampleInfo()));
    EXPECT_EQ(taken.count(), 0u);
    tracker.notifyAdd(MediaRecordReq(8, 1, SampleInfo()));
    EXPECT_EQ(taken.count(), 1u);
    tracker.notifyAdd(MediaRecordReq(9, 1, SampleInfo()));
    EXPECT_EQ(taken.count(), 1u) << "the oldest run's item is free again";
}
