#include "backends/common/recorded_essence.h"

#include "tests/kit/samples.h"
#include "tests/kit/temp_tree.h"
#include "tests/kit/wait_for.h"

#include <gtest/gtest.h>

// What is known of a recorded file's bytes.

namespace {

MediaSampleDesc descOf(unsigned long long sample, unsigned count = 10) {
    MediaSampleDesc desc;
    desc.set(count, sample, 100 + sample, count, 0, false);  // a byte each
    return desc;
}

MediaRecordReq reqOf(unsigned long long sample, unsigned count = 10) {
    SampleInfo info;
    info.reset(count);
    return MediaRecordReq(sample, count, info);
}

}  // namespace

TEST(WrittenBytes, GrowInOrder) {
    WrittenRuns runs(100);
    EXPECT_FALSE(runs.contains(100, 101));
    EXPECT_TRUE(runs.contains(100, 100));
    runs.add(100, 110);
    runs.add(110, 120);
    runs.add(120, 120);
    EXPECT_EQ(runs.end(), 120u);
    EXPECT_TRUE(runs.contains(100, 120));
    EXPECT_FALSE(runs.contains(110, 121));
}

TEST(WrittenBytes, OutOfOrderWaitForWhatIsBeforeThem) {
    WrittenRuns runs(0);
    runs.add(30, 40);
    runs.add(10, 20);
    EXPECT_EQ(runs.end(), 0u);
    EXPECT_TRUE(runs.contains(32, 40));
    EXPECT_FALSE(runs.contains(15, 35));
    runs.add(20, 30);
    EXPECT_TRUE(runs.contains(15, 35));
    EXPECT_FALSE(runs.contains(9, 12));
    runs.add(0, 12);
    EXPECT_EQ(runs.end(), 40u);
}

TEST(WrittenBytes, RunsThatOverlapAreOne) {
    WrittenRuns runs(0);
    runs.add(10, 20);
    runs.add(50, 60);
    runs.add(30, 40);
    runs.add(15, 55);
    EXPECT_TRUE(runs.contains(10, 60));
    EXPECT_FALSE(runs.contains(10, 61));
    runs.add(0, 11);
    EXPECT_EQ(runs.end(), 60u);
    runs.add(5, 8);
    EXPECT_EQ(runs.end(), 60u);
}

TEST(RecordedBytes, AreAvailableOnceWritten) {
    RecordedEssence essence(0, 100);
    essence.noteAdded(reqOf(0), descOf(0), 100);
    EXPECT_FALSE(essence.isAvailable(descOf(0)));
    essence.noteWritten(descOf(0));
    EXPECT_TRUE(essence.isAvailable(descOf(0)));
    EXPECT_TRUE(essence.isWritten(descOf(0)));
    EXPECT_EQ(essence.getWrittenEnd(), 110u);
    EXPECT_EQ(essence.getHandedEnd(), 110u);
}

TEST(RecordedBytes, ThatTheCallerHasPutInPlaceAreThereAtOnce) {
    RecordedEssence essence(0, 100);
    SampleInfo info;
    info.reset(10);
    essence.noteAdded(MediaRecordReq(0, 10, info, 100), descOf(0), 100);
    EXPECT_TRUE(essence.isAvailable(descOf(0)));
    EXPECT_EQ(essence.getWrittenEnd(), 110u);
}

TEST(RecordedBytes, HoleComesWithTheBlockBehindIt) {
    RecordedEssence essence(0, 100);
    essence.noteAdded(reqOf(50), descOf(50), 100);
    EXPECT_FALSE(essence.isWritten(descOf(0)));
    EXPECT_EQ(essence.getWrittenEnd(), 100u);
    essence.noteWritten(descOf(50));
    EXPECT_TRUE(essence.isWritten(descOf(0)));
    EXPECT_EQ(essence.getWrittenEnd(), 160u);
}

TEST(RecordedBytes, HandedOverAreThereWhenTheHandleHasWrittenThem) {
    const kit::TempTree tree;
    const AutoRefPtr<BasicFileIO> file(new FsFileIO("test", tree.path("a").c_str(), BasicIOTypes::Mode::Create));
    ASSERT_TRUE(file->open());
    RecordedEssence essence(0, 100);
    essence.useHandle(file);
    for (unsigned i = 0; i < 20; ++i) {
        essence.noteAdded(reqOf(i * 10), descOf(i * 10), 100 + i * 10);
        ASSERT_TRUE(file->writeAsync(100 + i * 10, kit::obufOf("0123456789")));
        essence.noteHanded(descOf(i * 10), 10);
        if (i % 5 == 0) {
            ASSERT_TRUE(file->writeAsync(0, kit::obufOf("header")));
            essence.noteHandedHeader();
        }
    }
    EXPECT_EQ(essence.getHandedEnd(), 300u);
    EXPECT_TRUE(kit::waitFor([&] { return !essence.isWriting(); }));
    EXPECT_EQ(essence.getWrittenEnd(), 300u);
    EXPECT_TRUE(essence.isAvailable(descOf(0, 200)));
}

TEST(RecordedBytes, LostOnesAreNotHandedOverEither) {
    RecordedEssence essence(0, 100);
    essence.noteAdded(reqOf(0), descOf(0), 100);
    essence.noteHanded(descOf(0), 10);
    EXPECT_EQ(essence.getHandedEnd(), 110u);
    EXPECT_TRUE(essence.isWriting());
    essence.noteFailure();
    EXPECT_EQ(essence.getHandedEnd(), 100u);
    EXPECT_FALSE(essence.isWriting());
    EXPECT_FALSE(essence.isAvailable(descOf(0)));
}
