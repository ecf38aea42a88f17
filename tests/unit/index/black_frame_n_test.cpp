#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>

#include "tests/kit/hooks.h"
#include "tests/kit/leak_check.h"
#include "tests/kit/wait_for.h"
#include "tests/unit/index/frame_n_movie.h"

// The black frame just past a clip's last: how it is made, who gets a copy of it, and how it is read.

using namespace frame_n;

namespace {

// The same with the switch on.
class BlackFrameN : public FrameN {
protected:
    BlackFrameN() { mediaObjDbg.setBit(MediaDbg::SynthFrameN); }
};

}  // namespace

TEST_F(BlackFrameN, LiesRightBehindTheLastPicture) {
    last() = {Coding::I, 2, 5000, 1000};
    m_desc.m_frameN = false;
    EXPECT_TRUE(ask());
    EXPECT_TRUE(m_result.success());
    expectPlace(5, 4, 6000, 777, true);
    EXPECT_EQ(m_desc.m_info.getEncoding(), Coding::I);
    EXPECT_EQ(m_desc.m_info.m_refType, 14u);
}

TEST_F(BlackFrameN, LastPictureIsItsAnchorUnlessThatIsNone) {
    last() = {Coding::P, 2, 4000, 300};
    EXPECT_TRUE(ask());
    expectPlace(5, 4, 4300, 777, true);
    EXPECT_EQ(m_desc.m_info.getEncoding(), Coding::I);
    last() = {Coding::B, 2, 4000, 300};
    EXPECT_TRUE(ask());
    expectPlace(5, 2, 4300, 777, true);
    EXPECT_EQ(m_desc.m_info.getEncoding(), Coding::I);
}

TEST_F(BlackFrameN, IsOneChunkEvenBehindTwo) {
    listed().m_chunks = 2;
    EXPECT_TRUE(ask());
    expectPlace(5, 4, 5000, 777, true);
}

TEST_F(BlackFrameN, LeavesTheSecondNumberOfTheRequestAlone) {
    MediaPlayReq req = request(5);
    req.m_sample2 = 99;
    req.m_count = 7;
    EXPECT_TRUE(ask(req));
    ASSERT_EQ(listed().m_asked.size(), 1u);
    EXPECT_EQ(listed().m_asked[0].m_sample, 4u);
    EXPECT_EQ(listed().m_asked[0].m_sample2, 99u);
    EXPECT_EQ(listed().m_asked[0].m_count, 7u);
}

TEST_F(BlackFrameN, IsOneSampleOfTheClipsOwnKindMadeInAScratchMovie) {
    EXPECT_TRUE(ask());
    EXPECT_EQ(m_studio.m_objects, 1);
    EXPECT_EQ(m_studio.m_alive, 1);  // the clip's own
    for (const MediaClipParam* param : {&m_studio.m_trackParam, &m_studio.m_clipParam}) {
        EXPECT_EQ(param->m_dataType, MediaDataType::Video);
        EXPECT_EQ(param->m_encoding, MediaEncodingType::Dnxhd);
        EXPECT_EQ(param->m_sampleRate, 30000u);
        EXPECT_EQ(param->m_ticksPerSample, 1001u);
    }
    EXPECT_EQ(m_studio.m_fills, 1);
    EXPECT_EQ(m_studio.m_from, 0);
    EXPECT_EQ(m_studio.m_to, 1001u);
    EXPECT_FALSE(m_studio.m_flag);
    EXPECT_EQ(copyOfBlack(), black());
}

TEST_F(BlackFrameN, IsMadeOnce) {
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(ask());
    const Player second(2u);
    EXPECT_TRUE(ask(MediaPlayReq(5, 1, MediaAgent(&second))));
    EXPECT_EQ(m_studio.m_objects, 1);
    EXPECT_EQ(m_studio.m_fills, 1);
}

TEST_F(BlackFrameN, IsNotMadeWhileTheSwitchIsOff) {
    mediaObjDbg.set(0u);
    EXPECT_TRUE(ask());
    EXPECT_EQ(m_studio.m_objects, 0);
    EXPECT_EQ(copyOfBlack(), "null");
}

TEST_F(BlackFrameN, OfALongGopNeedsNoAnchorAtAll) {
    last() = {Coding::B, 4, 4000, 300};
    EXPECT_TRUE(ask());
    expectPlace(5, 4, 4300, 777, true);
}

TEST_F(BlackFrameN, ThatCannotBeMadeIsAnErrorAndItsReasonIsDelivered) {
    const struct {
        bool Studio::*m_refuses;
        const char* m_reason;
    } s_refusals[] = {{&Studio::m_refusesObject, "no such object"},
                      {&Studio::m_refusesTrack, "no such track"},
                      {&Studio::m_refusesClip, "no such clip"}};
    for (const auto& refusal : s_refusals) {
        m_studio.*refusal.m_refuses = true;
        m_log.clear();
        EXPECT_FALSE(ask());
        expectSilentError();
        m_result.discard();
        EXPECT_EQ(m_log.count(std::string("*") + refusal.m_reason + "*"), 1u) << m_log.text();
        EXPECT_TRUE(listed().m_asked.empty());
        EXPECT_EQ(copyOfBlack(), "null");
        EXPECT_EQ(m_studio.m_alive, 1);
        m_studio.*refusal.m_refuses = false;
    }
    EXPECT_EQ(m_studio.m_fills, 0);
}

TEST_F(BlackFrameN, ThatCouldNotBeMadeIsTriedAgain) {
    m_studio.m_refusesObject = true;
    EXPECT_FALSE(ask());
    m_result.discard();
    m_studio.m_refusesObject = false;
    EXPECT_TRUE(ask());
    EXPECT_TRUE(m_result.success());
    EXPECT_EQ(copyOfBlack(), black());
}

TEST_F(BlackFrameN, ThatIsFilledInVainIsLoggedAndUsedAllTheSame) {
    m_studio.m_fillFails = true;
    EXPECT_TRUE(ask());
    EXPECT_TRUE(m_result.success());
    expectPlace(5, 4, 5000, 777, true);
    EXPECT_TRUE(m_log.has("*FrameNData*")) << m_log.text();
    EXPECT_EQ(copyOfBlack(), black());
    EXPECT_TRUE(ask());
    EXPECT_EQ(m_studio.m_fills, 1);
}

TEST_F(BlackFrameN, BehindASampleThatIsQuietlyMissingIsAnErrorWithoutWords) {
    listed().m_entries.pop_back();
    EXPECT_FALSE(ask());
    expectSilentError();
}

TEST_F(BlackFrameN, BehindASampleThatFailsKeepsItsReason) {
    listed().m_failsAt = 4;
    EXPECT_FALSE(ask());
    EXPECT_TRUE(isWarning(m_result, 13));
    EXPECT_EQ(message(), "the index can't be read");
}

TEST_F(BlackFrameN, EachReaderGetsABufferOfHisOwnOverTheSameBytes) {
    EXPECT_TRUE(ask());
    phantom_OBUF* const first = listed().getFrameNObufCopy(m_readReq);
    phantom_OBUF* const second = listed().getFrameNObufCopy(m_readReq);
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(first, second);
    iovec one{};
    iovec other{};
    EXPECT_EQ(obufNTranslateHost(first, &one, 1), 1);
    EXPECT_EQ(obufNTranslateHost(second, &other, 1), 1);
    EXPECT_EQ(one.iov_base, other.iov_base);
    obufFree(first);
    EXPECT_EQ(kit::bytesOf(second), black());
    obufFree(second);
    EXPECT_EQ(copyOfBlack(), black());
}

TEST_F(BlackFrameN, BufferOfAReaderOutlivesTheLookup) {
    EXPECT_TRUE(ask());
    phantom_OBUF* const copy = listed().getFrameNObufCopy(m_readReq);
    m_clip->dropLookup();
    EXPECT_EQ(kit::bytesOf(copy), black());
    obufFree(copy);
}

TEST_F(BlackFrameN, LargerThanAPoolsBlockComesWhole) {
    m_studio.m_size = 1000001;
    EXPECT_TRUE(ask());
    expectPlace(5, 4, 5000, 1000001, true);
    EXPECT_EQ(copyOfBlack(), black());
}

TEST_F(BlackFrameN, OfNoBytesIsAnEmptyBuffer) {
    m_studio.m_size = 0;
    EXPECT_TRUE(ask());
    phantom_OBUF* const copy = listed().getFrameNObufCopy(m_readReq);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(obufSize(copy), 0u);
    obufFree(copy);
}

TEST_F(BlackFrameN, IsLetGoOfWithItsLookup) {
    EXPECT_TRUE(ask());
    EXPECT_EQ(copyOfBlack(), black());
    m_clip->dropLookup();
    const kit::LeakCheck leaks;
    for (int i = 0; i < 3; ++i) {
        FrameClip& clip = m_movie->track().addClip();
        clip.hold(2);
        EXPECT_TRUE(clip.listed().getMediaOffsetFrameN(clip, request(2), m_desc, m_result));
        phantom_OBUF* const copy = clip.listed().getFrameNObufCopy(m_readReq);
        EXPECT_NE(copy, nullptr);
        obufFree(copy);
        clip.dropLookup();
    }
    EXPECT_EQ(leaks.difference(), "");
}

TEST_F(BlackFrameN, TwoClientsAtOnceHaveOneMade) {
    listed().m_keeps = false;
    m_studio.m_gate = std::make_shared<kit::Gate>();
    m_studio.m_gate->close();
    std::atomic<int> asking{0};
    std::atomic<int> good{0};
    const std::string wanted = black();
    const auto client = [&] {
        const Player player(1u);
        MediaSampleDesc desc;
        OpResult result;
        ++asking;
        for (int i = 0; i < 50; ++i) {
            const bool found =
                listed().getMediaOffsetFrameN(*m_clip, MediaPlayReq(5, 1, MediaAgent(&player)), desc, result);
            phantom_OBUF* const copy = listed().getFrameNObufCopy(MediaReadReq());
            if (found && result && copy != nullptr && kit::bytesOf(copy) == wanted) ++good;
            obufFree(copy);
        }
    };
    std::thread first(client);
    std::thread second(client);
    EXPECT_TRUE(kit::waitFor([&] { return asking == 2 && m_studio.m_gate->waiting() == 1; }));
    m_studio.m_gate->open();
    first.join();
    second.join();
    EXPECT_EQ(good, 100);
    EXPECT_EQ(m_studio.m_objects, 1);
    EXPECT_EQ(m_studio.m_fills, 1);
}

namespace {

// Notes the thread on which it is called.
class ThreadHook : public kit::ReadHook {
public:
    mutable std::thread::id m_thread;

protected:
    bool vCallCb(const BasicIOTypes::ReadNotify& notify) const override {
        m_thread = std::this_thread::get_id();
        return kit::ReadHook::vCallCb(notify);
    }
};

// A read of frame N through its movie, which has no file at all.
class FrameNRead : public BlackFrameN {
protected:
    FrameNRead() {
        m_readReq.m_cb = &m_hook;
        m_readReq.m_tag = this;
    }
    OpResult read() {
        static_cast<MediaSampleDesc&>(m_readReq.m_sample) = m_desc;
        m_readReq.m_sample.m_trackIndex = 0;
        return m_movie->vaRead(m_readReq);
    }
    void expectRefused() {
        m_result = m_movie->vaRead(m_readReq);
        expectSilentError();
        EXPECT_EQ(m_hook.count(), 0u);
    }

    ThreadHook m_hook;
};

}  // namespace

TEST_F(FrameNRead, IsAnsweredAtOnceOnTheCallersThread) {
    ASSERT_TRUE(ask());
    EXPECT_TRUE(read().success());
    ASSERT_EQ(m_hook.count(), 1u);
    const kit::ReadHook::Answer answer = m_hook.answers()[0];
    EXPECT_EQ(answer.m_bytes, black());
    EXPECT_EQ(answer.m_tag, this);
    EXPECT_EQ(answer.m_status, 0);
    EXPECT_FALSE(answer.m_null);
    EXPECT_EQ(m_hook.m_thread, std::this_thread::get_id());
}

TEST_F(FrameNRead, TakesTheLastClipOfTheTrack) {
    ASSERT_TRUE(ask());
    m_movie->track().addClip().hold(2);
    EXPECT_TRUE(isError(read(), 1));  // that clip has made none
    EXPECT_EQ(m_hook.count(), 0u);
}

TEST_F(FrameNRead, OfATrackThatIsNotThereFails) {
    ASSERT_TRUE(ask());
    static_cast<MediaSampleDesc&>(m_readReq.m_sample) = m_desc;
    for (const unsigned index : {1u, 0xFFFFu}) {
        m_readReq.m_sample.m_trackIndex = static_cast<std::uint16_t>(index);
        expectRefused();
    }
}

TEST_F(FrameNRead, OfATrackWithoutClipsFails) {
    ASSERT_TRUE(ask());
    const AutoReleasePtr<FrameMovie> empty(new FrameMovie(MediaObj::CacheRefValue::None));
    empty->addTrack();
    static_cast<MediaSampleDesc&>(m_readReq.m_sample) = m_desc;
    m_readReq.m_sample.m_trackIndex = 0;
    m_result = empty->vaRead(m_readReq);
    expectSilentError();
    EXPECT_EQ(m_hook.count(), 0u);
}

TEST_F(FrameNRead, OfAClipWithoutAnIndexFails) {
    ASSERT_TRUE(ask());
    m_clip->dropLookup();
    m_result = read();
    expectSilentError();
    EXPECT_EQ(m_hook.count(), 0u);
}

TEST_F(FrameNRead, WithoutAFrameMadeFails) {
    ASSERT_TRUE(listed().getMediaOffset(request(4), m_desc, m_result));
    m_desc.m_frameN = true;
    m_result = read();
    expectSilentError();
    EXPECT_EQ(m_hook.count(), 0u);
}

TEST_F(FrameNRead, WithoutAPlaceFailsAheadOfAllElse) {
    ASSERT_TRUE(ask());
    m_desc.m_numChunks = 0;
    m_result = read();
    expectSilentError();
    m_desc.m_numChunks = 1;
    m_desc.m_chunks[0].m_offset = MediaSampleDesc::s_unknownOffset;
    m_result = read();
    expectSilentError();
    EXPECT_EQ(m_hook.count(), 0u);
}
