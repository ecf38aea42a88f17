#include <gtest/gtest.h>

#include <string>

#include "tests/unit/index/frame_n_movie.h"

// The frame just past a clip's last: who gets one, and which picture is shown again.

using namespace frame_n;

TEST_F(FrameN, NullAgentGetsNone) { expectNone(MediaPlayReq(5, 1)); }

TEST_F(FrameN, EmptyClipHasNone) {
    m_clip->setLength(0);
    expectNone(request(0));
}

TEST_F(FrameN, OneSampleBeforeTheEndIsNone) { expectNone(request(4)); }

TEST_F(FrameN, OneSampleFurtherIsNone) { expectNone(request(6)); }

TEST_F(FrameN, ClientWithoutThePropertyGetsNone) {
    const Player plain;
    expectNone(MediaPlayReq(5, 1, MediaAgent(&plain)));
}

TEST_F(FrameN, ClientWhosePropertyIsZeroGetsNone) {
    const Player zero(0u);
    expectNone(MediaPlayReq(5, 1, MediaAgent(&zero)));
}

TEST_F(FrameN, PropertyOfAnotherIdIsNotTheOneAskedFor) {
    const Player other(AgentProperty(static_cast<MediaAgentPropId>(0x10000003), 1));
    expectNone(MediaPlayReq(5, 1, MediaAgent(&other)));
}

TEST_F(FrameN, PropertyHasTheNumberThatClientsKnow) {
    EXPECT_EQ(static_cast<std::uint32_t>(MediaAgentPropId::FrameN), 0x10000002u);
    const Player many(4711);
    EXPECT_TRUE(ask(MediaPlayReq(5, 1, MediaAgent(&many))));
}

TEST_F(FrameN, NoneIsNoneWithTheSwitchOnAsWell) {
    mediaObjDbg.setBit(MediaDbg::SynthFrameN);
    EXPECT_FALSE(ask(4));
    EXPECT_TRUE(m_result.success());
    EXPECT_EQ(m_studio.m_objects, 0);
}

TEST_F(FrameN, CountsFromTheInPoint) {
    listed().m_entries.clear();
    m_clip->hold(5, 10);
    expectNone(request(5));
    EXPECT_TRUE(ask(15));
    expectPlace(15, 14, 4000, 1000, false);
}

TEST_F(FrameN, ClipWithoutEditsCountsFromItsFirstSample) {
    m_clip->m_hasEdit = false;
    expectNone(request(4));
    EXPECT_TRUE(ask());
    expectPlace(5, 4, 4000, 1000, false);
}

TEST_F(FrameN, LastPictureIsShownAgain) {
    for (const Coding coding : {Coding::I, Coding::P, Coding::Unknown}) {
        last() = {coding, 3, 4000, 1000};
        EXPECT_TRUE(ask());
        EXPECT_TRUE(m_result.success());
        expectPlace(5, 4, 4000, 1000, false);
        EXPECT_EQ(m_desc.m_info.getEncoding(), coding);
    }
    EXPECT_EQ(copyOfBlack(), "null");
}

TEST_F(FrameN, AsksForTheLastSampleByBothItsNumbers) {
    MediaPlayReq req = request(5);
    req.m_count = 7;
    req.m_sample2 = 99;
    req.m_flag = true;
    req.m_extra = true;
    EXPECT_TRUE(ask(req));
    ASSERT_EQ(listed().m_asked.size(), 1u);
    const MediaPlayReq& asked = listed().m_asked[0];
    EXPECT_EQ(asked.m_sample, 4u);
    EXPECT_EQ(asked.m_sample2, 4u);
    EXPECT_EQ(asked.m_count, 7u);
    EXPECT_TRUE(asked.m_flag);
    EXPECT_TRUE(asked.m_extra);
    EXPECT_TRUE(asked.m_agent == &m_client);
    EXPECT_EQ(m_desc.m_count, 7u);
}

TEST_F(FrameN, RepeatedPictureIsReadFromTheFile) {
    listed().m_marks = true;
    EXPECT_TRUE(ask());
    EXPECT_FALSE(m_desc.m_frameN);
}

TEST_F(FrameN, RepeatedPictureKeepsItsTwoChunks) {
    listed().m_chunks = 2;
    EXPECT_TRUE(ask());
    EXPECT_EQ(m_desc.m_numChunks, 2u);
}

TEST_F(FrameN, AnchorOfTheLastPictureIsShownWhenThatIsNoAnchor) {
    listed().m_entries[2] = {Coding::P, 0, 2500, 600};
    last() = {Coding::B, 2, 4000, 100};
    EXPECT_TRUE(ask());
    EXPECT_TRUE(m_result.success());
    expectPlace(5, 2, 2500, 600, false);
    ASSERT_EQ(listed().m_asked.size(), 2u);
    EXPECT_EQ(listed().m_asked[1].m_sample, 2u);
    EXPECT_EQ(listed().m_asked[1].m_sample2, 2u);
    EXPECT_EQ(listed().m_asked[1].m_count, 1u);
}

TEST_F(FrameN, PictureThatIsNoAnchorNeedsAnEarlierOne) {
    for (const U64 anchor : {U64{4}, U64{5}, U64{1000}}) {
        last() = {Coding::B, anchor, 4000, 100};
        listed().m_asked.clear();
        EXPECT_FALSE(ask());
        expectSilentError();
        EXPECT_EQ(listed().m_asked.size(), 1u);
        m_result.discard();
    }
}

TEST_F(FrameN, AnchorThatIsNoAnchorEitherIsTold) {
    listed().m_entries[2].m_coding = Coding::B;
    last() = {Coding::B, 2, 4000, 100};
    EXPECT_FALSE(ask());
    EXPECT_TRUE(isError(m_result, 1));
    EXPECT_STREQ(m_result.getMessage(), "expected I or P frame");
    EXPECT_EQ(listed().m_asked.size(), 2u);
}

TEST_F(FrameN, LastSampleThatIsQuietlyMissingIsToldWithTheRequest) {
    listed().m_entries.pop_back();
    MediaPlayReq req = request(5);
    req.m_count = 3;
    req.m_sample2 = 8;
    const std::string clip = m_clip->toString().get();
    for (const bool flag : {false, true}) {
        req.m_flag = flag;
        EXPECT_FALSE(ask(req));
        EXPECT_TRUE(isError(m_result, 1));
        EXPECT_EQ(message(), "Unexpected getMediaOffset() failure while looking for last anchor frame: clip=[" + clip +
                                 "],req=[5,3,8," + (flag ? "1" : "0") + "]");
        m_result.discard();
    }
}

TEST_F(FrameN, LastSampleThatFailsKeepsItsReason) {
    listed().m_failsAt = 4;
    EXPECT_FALSE(ask());
    EXPECT_TRUE(isWarning(m_result, 13));
    EXPECT_EQ(message(), "the index can't be read");
}

TEST_F(FrameN, AnchorThatIsQuietlyMissingIsAnErrorWithoutWords) {
    listed().m_first = 4;
    listed().m_entries = {{Coding::B, 2, 4000, 100}};
    EXPECT_FALSE(ask());
    expectSilentError();
}

TEST_F(FrameN, AnchorThatFailsKeepsItsReason) {
    last() = {Coding::B, 2, 4000, 100};
    listed().m_failsAt = 2;
    EXPECT_FALSE(ask());
    EXPECT_TRUE(isWarning(m_result, 13));
    EXPECT_EQ(message(), "the index can't be read");
}

TEST_F(FrameN, LookupThatMadeNoneHasNoCopyToGive) { EXPECT_EQ(listed().getFrameNObufCopy(m_readReq), nullptr); }
