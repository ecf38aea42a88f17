#include "shared/include/index/essence_tracker.h"

#include <gtest/gtest.h>

#include "shared/include/object/switches.h"
#include "tests/kit/log_capture.h"

namespace {

using U64 = unsigned long long;
using Sample = EssenceTracker::Sample;

MediaRecordReq request(U64 sample, unsigned count = 1) { return {sample, count, SampleInfo()}; }

MediaSampleDesc described(U64 sample, unsigned count = 1) {
    MediaSampleDesc desc;
    desc.set(count, sample, 0, 0u, 0, false);
    return desc;
}

class Essence : public testing::Test {
protected:
    ~Essence() override { mediaObjDbg.set(0u); }

    void add(U64 first, U64 last) {
        for (U64 sample = first; sample <= last; ++sample)
            m_tracker.notifyAdd(request(sample));
    }
    void write(U64 sample, unsigned count = 1) { m_tracker.notifyWrite(described(sample, count)); }
    bool there(U64 sample, unsigned count = 1) const { return m_tracker.isAvailable(described(sample, count)); }
    std::string text() const { return m_tracker.toString().get(); }

    kit::LogCapture m_log;
    EssenceTracker m_tracker{3, true};
};

}  // namespace

TEST(EssenceRun, GrowsOnlyByARunThatBeginsAtItsEnd) {
    Sample run(10, 5);
    run.add(Sample(15, 2));
    EXPECT_STREQ(run.toString().get(), "7s@10");
    run.add(Sample(18, 1));
    EXPECT_STREQ(run.toString().get(), "1s@18");
    EXPECT_EQ(Sample().in(), ~0ull);
    EXPECT_EQ(Sample().out(), ~0ull);
}

TEST(EssenceRun, ContainsWhatLiesWithinItsEnds) {
    const Sample run(10, 5);
    EXPECT_TRUE(run.contains(Sample(10, 5)));
    EXPECT_TRUE(run.contains(Sample(15, 0)));
    EXPECT_FALSE(run.contains(Sample(9, 2)));
    EXPECT_FALSE(run.contains(Sample(14, 2)));
}

TEST(EssenceRun, ComesFromARequestAndFromADescription) {
    EXPECT_STREQ(Sample(request(7, 3)).toString().get(), "3s@7");
    EXPECT_STREQ(Sample(described(8, 2)).toString().get(), "2s@8");
}

TEST(EssenceRun, ItemTakesARunAsUnwrittenAndStaysWhoseItIs) {
    EssenceTracker::SampleItem pooled;
    EXPECT_FALSE(pooled.m_written);
    EXPECT_TRUE(pooled.m_pooled);
    EXPECT_STREQ(pooled.toString().get(), "0s@-1!w");
    pooled.m_written = true;
    EXPECT_STREQ(pooled.toString().get(), "0s@-1w");
    pooled = Sample(3, 2);
    EXPECT_STREQ(pooled.toString().get(), "2s@3!w");
    EXPECT_TRUE(pooled.m_pooled);
    EssenceTracker::SampleItem own(Sample(4, 1));
    EXPECT_FALSE(own.m_written);
    EXPECT_FALSE(own.m_pooled);
    own = Sample(5, 1);
    EXPECT_FALSE(own.m_pooled);
    DLinkedList<EssenceTracker::SampleItem> list("", 0);
    list.append(pooled.m_node);
    list.append(own.m_node);
    EXPECT_STREQ(pooled.toString().get(), "2s@3!w");
    EXPECT_STREQ(own.toString().get(), ",1s@5!w");
}

TEST_F(Essence, EmptyTrackerRefusesEverySampleAndCountsIt) {
    EXPECT_FALSE(there(0));
    EXPECT_FALSE(there(1000));
    EXPECT_EQ(text(), "trk 3: drop=2,hiw=0,list[0]={}, free[8]");
}

TEST_F(Essence, AddedSampleIsThereOnceItIsWritten) {
    add(0, 0);
    EXPECT_FALSE(there(0));
    write(0);
    EXPECT_TRUE(there(0));
    EXPECT_FALSE(there(1)) << "beyond the newest";
    EXPECT_EQ(text(), "trk 3: drop=2,hiw=1,list[1]={1s@0w}, free[7]") << "the last run stays behind";
}

TEST_F(Essence, WrittenRunsAtTheHeadGoAndCountAsOlder) {
    add(0, 2);
    write(0);
    write(1);
    EXPECT_EQ(text(), "trk 3: drop=0,hiw=3,list[1]={1s@2!w}, free[7]");
    EXPECT_TRUE(there(0));
    EXPECT_TRUE(there(1));
    EXPECT_FALSE(there(2));
}

TEST_F(Essence, RunThatIsWrittenOutOfOrderIsThereAndItsNeighboursAreNot) {
    add(0, 2);
    write(1);
    EXPECT_EQ(text(), "trk 3: drop=0,hiw=3,list[3]={1s@0!w,1s@1w,1s@2!w}, free[5]");
    EXPECT_TRUE(there(1));
    EXPECT_FALSE(there(0));
    EXPECT_FALSE(there(2));
}

TEST_F(Essence, WrittenRunBehindAnUnwrittenOneGoesWhenThatIsWritten) {
    add(0, 2);
    write(1);
    write(0);
    EXPECT_EQ(text(), "trk 3: drop=0,hiw=3,list[1]={1s@2!w}, free[7]");
}

TEST_F(Essence, NeighbouringWrittenRunsAnswerTogetherAndAHoleBreaksThem) {
    add(0, 3);
    write(1);
    write(2);
    EXPECT_TRUE(there(1, 2));
    EXPECT_FALSE(there(0, 2));
    EXPECT_FALSE(there(2, 2));
}

TEST_F(Essence, OnlyTheNewestEightRunsAreKeptAndOlderOnesCountAsWritten) {
    add(0, 9);
    EXPECT_EQ(text(), "trk 3: drop=0,hiw=8,list[8]={1s@2!w,1s@3!w,1s@4!w,1s@5!w,1s@6!w,1s@7!w,1s@8!w,1s@9!w}, free[1]");
    EXPECT_TRUE(there(0));
    EXPECT_TRUE(there(1));
    EXPECT_FALSE(there(2));
}

TEST_F(Essence, RewriteTakesThePlaceOfTheOlderRunAndIsNotWritten) {
    add(5, 5);
    write(5);
    EXPECT_TRUE(there(5));
    m_tracker.notifyAdd(request(5, 4));
    EXPECT_EQ(text(), "trk 3: drop=0,hiw=1,list[1]={4s@5!w}, free[7]");
    EXPECT_FALSE(there(5));
}

TEST_F(Essence, RewriteInAFullListPushesNothingOut) {
    add(0, 7);
    m_tracker.notifyAdd(request(3, 1));
    EXPECT_EQ(text(), "trk 3: drop=0,hiw=8,list[8]={1s@0!w,1s@1!w,1s@2!w,1s@3!w,1s@4!w,1s@5!w,1s@6!w,1s@7!w}, free[1]")
        << "the new run came from the heap, and the old one's item is free";
    EXPECT_FALSE(there(0));
}

TEST_F(Essence, RunThatIsOlderThanAFullListIsPushedOutAtOnce) {
    add(10, 17);
    m_tracker.notifyAdd(request(5));
    EXPECT_EQ(text().substr(0, 38), "trk 3: drop=0,hiw=8,list[8]={1s@10!w,1");
    EXPECT_TRUE(there(5));
}

TEST_F(Essence, RunsAreKeptInOrderWhateverOrderTheyCameIn) {
    m_tracker.notifyAdd(request(20));
    m_tracker.notifyAdd(request(10));
    m_tracker.notifyAdd(request(15));
    EXPECT_EQ(text(), "trk 3: drop=0,hiw=3,list[3]={1s@10!w,1s@15!w,1s@20!w}, free[5]");
}

TEST_F(Essence, RunWhosePlaceWasGivenMarksTheTailAsWritten) {
    m_tracker.notifyAdd(request(20));
    m_tracker.notifyAdd({10, 1, SampleInfo(), 4096});
    EXPECT_EQ(text(), "trk 3: drop=0,hiw=2,list[2]={1s@10!w,1s@20w}, free[6]");
}

TEST_F(Essence, WriteOfAPartOfARunCountsForAllOfIt) {
    m_tracker.notifyAdd(request(0, 10));
    m_tracker.notifyAdd(request(10, 10));
    write(3, 2);
    EXPECT_EQ(text(), "trk 3: drop=0,hiw=2,list[1]={10s@10!w}, free[7]");
}

TEST_F(Essence, WriteAcrossTwoRunsCountsForNeither) {
    add(0, 1);
    write(0, 2);
    EXPECT_EQ(text(), "trk 3: drop=0,hiw=2,list[2]={1s@0!w,1s@1!w}, free[6]");
}

TEST_F(Essence, RequestThatBeginsBeforeAllRunsCountsAsOlderWhateverItsLength) {
    add(10, 11);
    EXPECT_TRUE(there(9, 100));
    EXPECT_FALSE(there(10, 100));
}

TEST_F(Essence, NinthRunComesFromTheHeapAndGoesBackThere) {
    add(0, 7);
    EXPECT_EQ(text().substr(text().find("free")), "free[0]");
    add(8, 30);
    for (U64 sample = 0; sample <= 30; ++sample)
        write(sample);
    EXPECT_EQ(text(), "trk 3: drop=0,hiw=8,list[1]={1s@30w}, free[7]");
}

TEST_F(Essence, DisabledTrackerTakesNothingAndHasEverything) {
    EssenceTracker off(1, false);
    off.notifyAdd(request(5));
    off.notifyWrite(described(5));
    EXPECT_TRUE(off.isAvailable(described(1000)));
    EXPECT_STREQ(off.toString().get(), "trk 1: drop=0,hiw=0,list[0]={}, free[8]");
}

TEST_F(Essence, NumbersInTheTextAreSigned) {
    EXPECT_STREQ(EssenceTracker(~0u, true).toString().get(), "trk -1: drop=0,hiw=0,list[0]={}, free[8]");
}

TEST_F(Essence, EverythingIsThereUnderTheSwitchAndNothingIsCounted) {
    mediaObjDbg.setBit(MediaDbg::IgnoreMissingMedia);
    EXPECT_TRUE(there(7));
    EXPECT_EQ(text(), "trk 3: drop=0,hiw=0,list[0]={}, free[8]");
}

TEST_F(Essence, RefusalIsToldUnderItsSwitch) {
    add(0, 0);
    EXPECT_FALSE(there(0, 2));
    EXPECT_TRUE(m_log.lines().empty());
    mediaObjDbg.setBit(MediaDbg::EssenceStats);
    EXPECT_FALSE(there(0, 2));
    EXPECT_EQ(m_log.count(LogLevel::Debug, "get(2s@0) fail: trk 3: drop=1,hiw=1,list[1]={1s@0!w}, free[7]"), 1u)
        << m_log.text();
}

// Each description holds the sample of the round, so every number below it is told and none at or above it.
TEST_F(Essence, SelfTestTellsWhatItsRuleSaysAndNothingElse) {
    testEssenceTrack();
    EXPECT_EQ(m_log.count("pwr(j)=*=false: wrong"), 31u * 32 / 2 + 224 * 32);
    EXPECT_EQ(m_log.lines().size(), 31u * 32 / 2 + 224 * 32) << "no other line";
}
