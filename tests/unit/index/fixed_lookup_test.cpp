#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "tests/unit/index/fixture.h"

namespace {

using U64 = unsigned long long;

// Samples of 4 bytes behind a header of 1000.
class FixedIndex : public testing::Test {
protected:
    static constexpr U64 s_base = 1000;
    static constexpr unsigned s_size = 4;

    bool ask(const FixedMediaLookup& lookup, U64 sample, unsigned count) {
        m_desc.reset();
        m_desc.m_count = 777;
        m_result = MO_WARNING(1, "stale");
        m_result.discard();
        return lookup.getMediaOffset(MediaPlayReq(sample, count), m_desc, m_result);
    }
    bool add(FixedMediaLookup& lookup, const MediaRecordReq& req) {
        m_result = MO_WARNING(1, "stale");
        m_result.discard();
        return lookup.addSamples(req, m_desc, m_result);
    }
    static MediaRecordReq block(U64 sample, unsigned count) { return MediaRecordReq(sample, count, SampleInfo()); }

    void expectPlace(U64 sample, unsigned count, U64 offset, unsigned bytes) const {
        EXPECT_EQ(m_desc.m_sample, sample);
        EXPECT_EQ(m_desc.m_anchor, sample);
        EXPECT_EQ(m_desc.m_count, count);
        EXPECT_EQ(m_desc.m_numChunks, 1U);
        EXPECT_EQ(m_desc.m_chunks[0].m_offset, offset);
        EXPECT_EQ(m_desc.m_chunks[0].m_size, bytes);
        EXPECT_EQ(m_desc.m_info.getSize(), bytes);
    }
    void expectSummary(const FixedMediaLookup& lookup, U64 samples, U64 end) const {
        EXPECT_EQ(lookup.m_numSamples, samples);
        EXPECT_EQ(lookup.m_endOffset, end);
    }
    void makeDv() { m_scene.m_clip.setEncoding(MediaEncodingType::Dv); }

    GrowingFile m_file;
    IndexScene m_scene;
    MediaSampleDesc m_desc;
    OpResult m_result;
};

TEST_F(FixedIndex, AnswersItsSummary) {
    FixedLookup lookup(m_scene.m_clip, summaryOf(s_size, s_base, 10));
    EXPECT_EQ(lookup.getBaseOffset(), s_base);
    EXPECT_EQ(lookup.getFixedSize(), s_size);
    EXPECT_EQ(lookup.getNumSamples(), 10U);
    EXPECT_TRUE(lookup.update(MediaOffsetSummary(8, 50, 3, 74)).success());
    EXPECT_EQ(lookup.getFixedSize(), 8U);
    EXPECT_EQ(lookup.getBaseOffset(), 50U);
    expectSummary(lookup, 3, 74);
}

TEST_F(FixedIndex, UpdatedNumberOfSamplesMovesTheEndIn64Bits) {
    FixedLookup lookup(m_scene.m_clip, summaryOf(120000, s_base, 10));
    EXPECT_TRUE(lookup.updateNumSamples(100000).success());
    expectSummary(lookup, 100000, 12000001000ULL);
}

TEST_F(FixedIndex, OneSampleLiesAtItsMultiple) {
    FixedLookup lookup(m_scene.m_clip, summaryOf(s_size, s_base, 10));
    EXPECT_TRUE(ask(lookup, 3, 1));
    EXPECT_TRUE(m_result.success());
    expectPlace(3, 1, 1012, 4);
    EXPECT_EQ(m_desc.m_gap, 0);
    EXPECT_FALSE(m_desc.m_internal);
    EXPECT_EQ(m_scene.m_movie->m_opens, 0);
}

TEST_F(FixedIndex, TheLastSampleMayBeShort) {
    FixedLookup lookup(m_scene.m_clip, MediaOffsetSummary(s_size, s_base, 10, 1038));
    EXPECT_TRUE(ask(lookup, 9, 1));
    expectPlace(9, 1, 1036, 2);
}

TEST_F(FixedIndex, PastTheEndOfAFileThatHasNotGrownIsAQuietNo) {
    m_file.setLength(1040);
    m_scene.m_movie->m_path = m_file.path();
    FixedLookup lookup(m_scene.m_clip, summaryOf(s_size, s_base, 10));
    EXPECT_FALSE(ask(lookup, 12, 1));
    EXPECT_TRUE(m_result.success());
    expectPlace(12, 1, 1048, 4);
    EXPECT_FALSE(ask(lookup, 10, 5));
    EXPECT_TRUE(m_result.success());
    expectPlace(10, 5, 1040, 4);
    EXPECT_EQ(m_scene.m_movie->m_opens, 2);
    EXPECT_EQ(m_scene.m_movie->m_idAsked, m_scene.m_clip.getMediaId());
}

TEST_F(FixedIndex, PastTheEndOfAFileThatHasGrownIsServed) {
    m_file.setLength(1000 + 4 * 25 + 3);
    m_scene.m_movie->m_path = m_file.path();
    FixedLookup lookup(m_scene.m_clip, summaryOf(s_size, s_base, 10));
    EXPECT_TRUE(ask(lookup, 12, 1));
    expectPlace(12, 1, 1048, 4);
    expectSummary(lookup, 25, 1100);
    EXPECT_TRUE(ask(lookup, 24, 1));
    EXPECT_EQ(m_scene.m_movie->m_opens, 1);
    EXPECT_FALSE(ask(lookup, 25, 1));
    EXPECT_TRUE(m_result.success());
}

TEST_F(FixedIndex, ARefusedOpenLeavesItsOwnResult) {
    FixedLookup lookup(m_scene.m_clip, summaryOf(s_size, s_base, 10));
    EXPECT_FALSE(ask(lookup, 12, 1));
    EXPECT_EQ(m_result.getCode(), 4);
    EXPECT_STREQ(m_result.getMessage(), "refused");
    EXPECT_EQ(m_desc.m_count, 777U);
    m_result.discard();
    expectSummary(lookup, 10, 1040);
}

TEST_F(FixedIndex, AFileShorterThanItsHeaderHasNoSamples) {
    m_file.setLength(999);
    m_scene.m_movie->m_path = m_file.path();
    FixedLookup lookup(m_scene.m_clip, summaryOf(s_size, s_base, 0));
    EXPECT_FALSE(ask(lookup, 0, 1));
    EXPECT_TRUE(m_result.success());
    expectSummary(lookup, 0, 1000);
}

TEST_F(FixedIndex, SamplesWithoutSizeAreNowhere) {
    m_file.setLength(5000);
    m_scene.m_movie->m_path = m_file.path();
    FixedLookup lookup(m_scene.m_clip, MediaOffsetSummary(0, s_base, 0, s_base));
    EXPECT_FALSE(ask(lookup, 0, 1));
    EXPECT_FALSE(ask(lookup, 0, 10));
    EXPECT_TRUE(m_result.success());
}

TEST_F(FixedIndex, ABlockWithinTheFileIsServedWhole) {
    FixedLookup lookup(m_scene.m_clip, summaryOf(s_size, s_base, 200));
    EXPECT_TRUE(ask(lookup, 20, 100));
    expectPlace(20, 100, 1080, 400);
    EXPECT_TRUE(ask(lookup, 100, 100));
    expectPlace(100, 100, 1400, 400);
}

TEST_F(FixedIndex, ABlockAcrossTheEndIsCutToWhatRemains) {
    FixedLookup lookup(m_scene.m_clip, summaryOf(s_size, s_base, 150));
    EXPECT_TRUE(ask(lookup, 100, 100));
    expectPlace(100, 50, 1400, 200);
    EXPECT_TRUE(ask(lookup, 147, 100));
    expectPlace(147, 3, 1588, 12);
}

TEST_F(FixedIndex, ABlockOfWhichLessThanThreeSamplesRemainIsRefused) {
    FixedLookup lookup(m_scene.m_clip, summaryOf(s_size, s_base, 150));
    for (const U64 sample : {148ULL, 149ULL}) {
        EXPECT_FALSE(ask(lookup, sample, 100));
        EXPECT_TRUE(m_result.success());
        EXPECT_EQ(m_desc.m_count, 777U);
        EXPECT_EQ(m_desc.m_numChunks, 0U);
    }
    EXPECT_TRUE(ask(lookup, 148, 2));
    expectPlace(148, 2, 1592, 8);
}

TEST_F(FixedIndex, ABlockOfMoreThanFourGibibytesWraps) {
    FixedLookup lookup(m_scene.m_clip, summaryOf(0x10000, 0, 0x40000));
    EXPECT_TRUE(ask(lookup, 1, 0x10002));
    expectPlace(1, 0x10002, 0x10000, 0x20000);
}

TEST_F(FixedIndex, OneDvSampleLiesAtItsMultiple) {
    makeDv();
    FixedLookup lookup(m_scene.m_clip, summaryOf(120000, 0, 100));
    EXPECT_TRUE(ask(lookup, 3, 1));
    expectPlace(3, 1, 360000, 120000);
}

TEST_F(FixedIndex, ADvRequestForAFramesSamplesFindsTheNearestFrame) {
    makeDv();
    FixedLookup lookup(m_scene.m_clip, summaryOf(120000, 0, 10000));
    EXPECT_TRUE(ask(lookup, 1600, 1602));
    expectPlace(1600, 1602, 120000, 120000);
    EXPECT_TRUE(ask(lookup, 8008, 1600));
    expectPlace(8008, 1600, 5 * 120000, 120000);
    EXPECT_TRUE(ask(lookup, 0, 1600));
    expectPlace(0, 1600, 0, 120000);
}

TEST_F(FixedIndex, ADvFramesPlaceWrapsAtFourGibibytesBeyondTheBase) {
    makeDv();
    FixedLookup lookup(m_scene.m_clip, summaryOf(0x20000, 64, 0x10000));
    EXPECT_TRUE(ask(lookup, 0x8001ULL * 10, 10));
    expectPlace(0x8001ULL * 10, 10, 64 + 0x20000, 0x20000);
}

TEST_F(FixedIndex, ADvRequestForNoSamplesIsAQuietNo) {
    makeDv();
    FixedLookup lookup(m_scene.m_clip, summaryOf(120000, 0, 10));
    EXPECT_FALSE(ask(lookup, 3, 0));
    EXPECT_TRUE(m_result.success());
    EXPECT_EQ(m_desc.m_numChunks, 0U);
}

TEST_F(FixedIndex, ASingleSampleIsAddedWithItsOwnSizeWhereItBelongs) {
    FixedLookup lookup(m_scene.m_clip, summaryOf(s_size, s_base, 10));
    SampleInfo info;
    info.setSize(9);
    EXPECT_TRUE(add(lookup, MediaRecordReq(12, 1, info)));
    EXPECT_TRUE(m_result.success());
    expectPlace(12, 1, 1048, 9);
    EXPECT_EQ(m_desc.m_gap, 0);
    expectSummary(lookup, 13, 1057);
}

TEST_F(FixedIndex, ABlockIsAddedAtTheEnd) {
    FixedLookup lookup(m_scene.m_clip, summaryOf(s_size, s_base, 10));
    EXPECT_TRUE(add(lookup, block(10, 20)));
    expectPlace(10, 20, 1040, 80);
    EXPECT_EQ(m_desc.m_gap, 0);
    expectSummary(lookup, 30, 1120);
}

TEST_F(FixedIndex, SixSamplesOfDriftAreAbsorbed) {
    FixedLookup lookup(m_scene.m_clip, summaryOf(s_size, s_base, 10));
    EXPECT_TRUE(add(lookup, block(16, 20)));
    expectPlace(16, 20, 1040, 80 + 24);
    EXPECT_EQ(m_desc.m_gap, 6);
    expectSummary(lookup, 36, 1144);
}

TEST_F(FixedIndex, SevenSamplesOfDriftBecomeAHole) {
    FixedLookup lookup(m_scene.m_clip, summaryOf(s_size, s_base, 10));
    EXPECT_TRUE(add(lookup, block(17, 20)));
    expectPlace(17, 20, 1068, 80);
    EXPECT_EQ(m_desc.m_gap, 7);
    expectSummary(lookup, 37, 1148);
}

TEST_F(FixedIndex, AnOverlapOfTwoSamplesIsMovedToTheEndAndTold) {
    FixedLookup lookup(m_scene.m_clip, summaryOf(s_size, s_base, 10));
    const LogCapture log;
    EXPECT_TRUE(add(lookup, block(8, 20)));
    expectPlace(8, 20, 1040, 80 - 8);
    EXPECT_EQ(m_desc.m_gap, -2);
    EXPECT_EQ(log.lines(), std::vector<std::string>{"20 samples @8 rewritten! (end @10)"});
    expectSummary(lookup, 28, 1112);
}

TEST_F(FixedIndex, AnOverlapOfSevenSamplesOverwritesAndIsTold) {
    FixedLookup lookup(m_scene.m_clip, summaryOf(s_size, s_base, 10));
    const LogCapture log;
    EXPECT_TRUE(add(lookup, block(3, 20)));
    expectPlace(3, 20, 1012, 80);
    EXPECT_EQ(m_desc.m_gap, -7);
    EXPECT_EQ(log.lines(), std::vector<std::string>{"20 samples @3 rewritten! (end @10)"});
    expectSummary(lookup, 23, 1092);
}

TEST_F(FixedIndex, ABlockThatTheMovePushesPastItsOwnEndHasNoBytes) {
    FixedLookup lookup(m_scene.m_clip, summaryOf(s_size, s_base, 10));
    const LogCapture log;
    EXPECT_TRUE(add(lookup, block(5, 2)));
    expectPlace(5, 2, 1040, 0);
    EXPECT_EQ(m_desc.m_gap, -5);
    expectSummary(lookup, 10, 1040);
}

TEST_F(FixedIndex, TheCallersOffsetMustBeTheComputedOne) {
    FixedLookup lookup(m_scene.m_clip, summaryOf(s_size, s_base, 10));
    EXPECT_FALSE(add(lookup, MediaRecordReq(10, 20, SampleInfo(), 1044)));
    EXPECT_EQ(m_result.getType(), OpResult::Type::Error);
    EXPECT_EQ(m_result.getCode(), 1);
    EXPECT_STREQ(m_result.getMessage(), "FixedMediaLookup: req off=1044 calc off=1040");
    m_result.discard();
    expectPlace(10, 20, 1040, 80);
    expectSummary(lookup, 10, 1040);

    EXPECT_TRUE(add(lookup, MediaRecordReq(10, 20, SampleInfo(), 1040)));
    EXPECT_TRUE(m_result.success());
    expectSummary(lookup, 30, 1120);
}

TEST_F(FixedIndex, RewritingUpToTheLastSampleLeavesTheSummary) {
    FixedLookup lookup(m_scene.m_clip, summaryOf(s_size, s_base, 100));
    const LogCapture log;
    EXPECT_TRUE(add(lookup, block(80, 20)));
    expectSummary(lookup, 100, 1400);
    EXPECT_EQ(m_desc.m_gap, -20);
}

TEST_F(FixedIndex, AFixedIndexIsNotChained) {
    FixedLookup lookup(m_scene.m_clip, summaryOf(s_size, s_base, 100));
    FixedLookup next(m_scene.m_clip, summaryOf(s_size, s_base, 100));
    EXPECT_FALSE(lookup.appendChainedLookup(&next));
    EXPECT_EQ(next.preserve(), 2);
    EXPECT_EQ(next.release(), 1);
}

TEST_F(FixedIndex, ReadersFollowAGrowingFileFromSeveralThreads) {
    m_scene.m_movie->m_path = m_file.path();
    m_file.setLength(s_base + s_size * 1000);
    FixedLookup lookup(m_scene.m_clip, summaryOf(s_size, s_base, 0));
    std::atomic<int> misplaced{0};
    const auto reader = [&] {
        MediaSampleDesc desc;
        OpResult result;
        for (U64 sample = 0; sample < 1000; ++sample) {
            if (!lookup.getMediaOffset(MediaPlayReq(sample, 1), desc, result) ||
                desc.m_chunks[0].m_offset != s_base + s_size * sample || desc.m_chunks[0].m_size != s_size) {
                ++misplaced;
            }
        }
    };
    const auto follower = [&] {
        for (int i = 0; i < 1000; ++i) {
            if (!lookup.updateNumSamples(1000)) ++misplaced;
        }
    };
    std::thread first(reader);
    std::thread second(reader);
    std::thread third(follower);
    first.join();
    second.join();
    third.join();
    EXPECT_EQ(misplaced, 0);
    expectSummary(lookup, 1000, s_base + s_size * 1000);
}

}  // namespace
