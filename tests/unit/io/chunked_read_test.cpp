#include <gtest/gtest.h>

#include <thread>

#include "mediautil/io/chunk_handler.h"
#include "mediautil/object/media_obj_impl.h"
#include "shared/include/io/media_read_req.h"
#include "shared/include/object/switches.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/hooks.h"
#include "tests/kit/late_file.h"
#include "tests/kit/leak_check.h"
#include "tests/kit/samples.h"
#include "tests/kit/switch_guard.h"

using kit::formatted;
using kit::isError;
using kit::isWarning;
using kit::LateFile;
using kit::patternFrom;
using kit::ReadHook;
using kit::sampleOf;
using Chunk = MediaSampleDesc::Chunk;

// Reads of more than one chunk, whose parts come when and how the test says.

namespace {

class ChunkedRead : public kit::CacheScene {
protected:
    ChunkedRead() {
        mediaValidate.set(0u);
        m_req.m_cb = &m_hook;
        m_req.m_tag = &m_tag;
        m_req.m_allocId = 3;
        m_req.m_frag = true;
        m_req.m_cacheL2 = true;
    }
    // Two chunks that don't lie in the order of their places.
    OpResult readTwo() { return read({Chunk(400, 30), Chunk(100, 20)}); }
    OpResult read(std::initializer_list<Chunk> chunks) {
        m_req.m_sample = sampleOf(chunks);
        return m_list.read(m_req, AutoRefPtr<BasicFileIO>(m_file.get()), false);
    }
    void expectOneAnswer(const std::string& bytes) {
        ASSERT_EQ(m_hook.count(), 1u);
        EXPECT_FALSE(m_hook.answers()[0].m_null);
        EXPECT_EQ(m_hook.answers()[0].m_bytes, bytes);
        EXPECT_EQ(m_hook.answers()[0].m_tag, &m_tag);
        EXPECT_EQ(m_hook.answers()[0].m_status, 0);
    }
    void expectOneFailure(int status) {
        ASSERT_EQ(m_hook.count(), 1u);
        EXPECT_TRUE(m_hook.answers()[0].m_null);
        EXPECT_EQ(m_hook.answers()[0].m_tag, &m_tag);
        EXPECT_EQ(m_hook.answers()[0].m_status, status);
    }
    // The road is free afterwards: the next good read brings its bytes, and nothing was lost on the way.
    void expectNextReadIsGood() {
        const auto next = static_cast<unsigned>(m_file->reads().size());
        const unsigned before = m_hook.count();
        m_file->m_refuse = m_file->m_refuseToo = 0;
        EXPECT_TRUE(read({Chunk(7, 11), Chunk(70, 5)}));
        m_file->answer(next);
        m_file->answer(next + 1);
        ASSERT_EQ(m_hook.count(), before + 1);
        EXPECT_EQ(m_hook.answers().back().m_bytes, patternFrom(7, 11) + patternFrom(70, 5));
        EXPECT_EQ(m_leaks.difference(), "");
    }

    const kit::LeakCheck m_leaks;
    const AutoRefPtr<LateFile> m_file{new LateFile};
    MediaFileList m_list;
    ReadHook m_hook;
    MediaReadReq m_req;
    const int m_tag = 0;
};

const void* numberAsTag(std::uintptr_t number) { return reinterpret_cast<const void*>(number); }

}  // namespace

TEST_F(ChunkedRead, AsksTheFileForEachChunkWithTheMarksOfTheRequestAndTagsThatCount) {
    EXPECT_TRUE(readTwo());
    const auto& reads = m_file->reads();
    ASSERT_EQ(reads.size(), 2u);
    for (unsigned i = 0; i < 2; ++i) {
        EXPECT_EQ(reads[i].m_offset, i == 0 ? 400u : 100u);
        EXPECT_EQ(reads[i].m_size, i == 0 ? 30u : 20u);
        EXPECT_EQ(reads[i].m_tag, numberAsTag(i));
        EXPECT_EQ(reads[i].m_allocId, 3u);
        EXPECT_TRUE(reads[i].m_frag);
        EXPECT_TRUE(reads[i].m_cacheL2);
        EXPECT_NE(reads[i].m_hook, &m_hook);
    }
    m_file->answer(0);
    m_file->answer(1);
    expectOneAnswer(patternFrom(400, 30) + patternFrom(100, 20));
}

TEST_F(ChunkedRead, ChunksThatComeInReverseOrderAreJoinedInTheOrderOfTheSample) {
    EXPECT_TRUE(readTwo());
    EXPECT_TRUE(m_file->answer(1));
    EXPECT_EQ(m_hook.count(), 0u);
    EXPECT_TRUE(m_file->answer(0));
    expectOneAnswer(patternFrom(400, 30) + patternFrom(100, 20));
    expectNextReadIsGood();
}

TEST_F(ChunkedRead, RecordOfTheCallerMayGoBeforeItsDataCome) {
    EXPECT_TRUE(readTwo());
    m_req = MediaReadReq();
    m_file->answer(0);
    m_file->answer(1);
    expectOneAnswer(patternFrom(400, 30) + patternFrom(100, 20));
}

TEST_F(ChunkedRead, ChunksThatComeOnTwoThreadsAtOnceGiveOneAnswer) {
    for (unsigned round = 0; round < 200; ++round) {
        EXPECT_TRUE(readTwo());
        std::thread other([&] { m_file->answer(2 * round); });
        m_file->answer(2 * round + 1);
        other.join();
        ASSERT_EQ(m_hook.count(), round + 1);
        ASSERT_EQ(m_hook.answers().back().m_bytes, patternFrom(400, 30) + patternFrom(100, 20));
    }
    expectNextReadIsGood();
}

TEST_F(ChunkedRead, SecondChunkRefusedFailsTheCallAndTheFirstStillAnswersWithStatusZero) {
    m_file->m_refuse = 2;
    EXPECT_TRUE(isWarning(readTwo(), 13));
    EXPECT_EQ(m_log.count(LogLevel::Error, "ChunkHandler::read: can't read 20@100"), 1u) << m_log.text();
    EXPECT_EQ(m_hook.count(), 0u);
    m_file->answer(0);
    expectOneFailure(0);
    expectNextReadIsGood();
}

TEST_F(ChunkedRead, FirstChunkRefusedLeavesItsTagToTheSecond) {
    m_file->m_refuse = 1;
    EXPECT_TRUE(isWarning(readTwo(), 13));
    EXPECT_EQ(m_log.count(LogLevel::Error, "ChunkHandler::read: can't read 30@400"), 1u) << m_log.text();
    ASSERT_EQ(m_file->reads().size(), 1u);
    EXPECT_EQ(m_file->reads()[0].m_tag, numberAsTag(0));
    m_file->answer(0);
    expectOneFailure(0);
    expectNextReadIsGood();
}

TEST_F(ChunkedRead, RefusedChunkHandsOnTheStatusOfTheOneThatFails) {
    m_file->m_refuse = 1;
    EXPECT_TRUE(isWarning(readTwo(), 13));
    m_file->fail(0, 5);
    expectOneFailure(5);
    expectNextReadIsGood();
}

TEST_F(ChunkedRead, AllChunksRefusedFailTheCallAndTheHookStaysSilent) {
    m_file->m_refuse = 1;
    m_file->m_refuseToo = 2;
    EXPECT_TRUE(isWarning(readTwo(), 13));
    EXPECT_EQ(m_log.count(LogLevel::Error, "ChunkHandler::read: can't read *"), 2u) << m_log.text();
    EXPECT_EQ(m_hook.count(), 0u);
    expectNextReadIsGood();
}

TEST_F(ChunkedRead, SecondChunkFailedGivesTheFirstAloneAndStatusZero) {
    EXPECT_TRUE(readTwo());
    m_file->fail(1, 5);
    EXPECT_EQ(m_hook.count(), 0u);
    m_file->answer(0);
    expectOneAnswer(patternFrom(400, 30));
    expectNextReadIsGood();
}

TEST_F(ChunkedRead, FirstChunkFailedFailsTheReadWithItsStatus) {
    EXPECT_TRUE(readTwo());
    m_file->fail(0, 5);
    m_file->answer(1);
    expectOneFailure(5);
    EXPECT_EQ(m_log.count(LogLevel::Error, "ChunkHandler::readCb: obufInsert failed"), 1u) << m_log.text();
    expectNextReadIsGood();
}

TEST_F(ChunkedRead, BothChunksFailedGiveNoDataAndStatusZero) {
    EXPECT_TRUE(readTwo());
    m_file->fail(1, 5);
    m_file->fail(0, 6);
    expectOneFailure(0);
    EXPECT_TRUE(m_log.lines().empty()) << m_log.text();
    expectNextReadIsGood();
}

TEST_F(ChunkedRead, TagAtTheChunkCountIsRefusedAndItsBufferFreed) {
    EXPECT_TRUE(readTwo());
    m_file->answer(0);
    m_file->answerAs(1, numberAsTag(2));
    EXPECT_EQ(m_log.count(LogLevel::Error, "ChunkHandler::readCb: tag=2 vs 2"), 1u) << m_log.text();
    expectOneFailure(0);
    expectNextReadIsGood();
}

TEST_F(ChunkedRead, TagFarAboveTheChunkCountIsRefusedAndItsBufferFreed) {
    EXPECT_TRUE(readTwo());
    m_file->answerAs(0, numberAsTag(0x7fffffff));
    m_file->answer(1);
    EXPECT_EQ(m_log.count(LogLevel::Error, "ChunkHandler::readCb: tag=2147483647 vs 2"), 1u) << m_log.text();
    expectOneFailure(0);
    expectNextReadIsGood();
}

TEST_F(ChunkedRead, TagThatIsSmallOnlyInItsLowHalfIsRefused) {
    EXPECT_TRUE(readTwo());
    m_file->answerAs(0, numberAsTag(0x100000000));
    m_file->answer(1);
    EXPECT_EQ(m_log.count(LogLevel::Error, "ChunkHandler::readCb: tag=* vs 2"), 1u) << m_log.text();
    expectOneFailure(0);
    expectNextReadIsGood();
}

namespace {

// A file so fast that a read has ended when the next is asked for: before it takes or refuses that one.
class FastFile : public LateFile {
public:
    bool readAsync(const BasicIOTypes::ReadReq& request) override {
        if (!reads().empty() && m_answered == 0) answer(m_answered++);
        if (!LateFile::readAsync(request)) return false;
        if (m_endsLast && m_asyncCalls == 2) answer(static_cast<unsigned>(reads().size()) - 1);
        return true;
    }

    bool m_endsLast = false;  // the second chunk has ended when it has been taken

private:
    unsigned m_answered = 0;
};

}  // namespace

TEST_F(ChunkedRead, ChunksThatEndBeforeTheCallDoesComeWhole) {
    const AutoRefPtr<FastFile> fast(new FastFile);
    fast->m_endsLast = true;
    m_req.m_sample = sampleOf({Chunk(400, 30), Chunk(100, 20)});
    EXPECT_TRUE(m_list.read(m_req, AutoRefPtr<BasicFileIO>(fast.get()), false));
    expectOneAnswer(patternFrom(400, 30) + patternFrom(100, 20));
    expectNextReadIsGood();
}

TEST_F(ChunkedRead, SecondChunkRefusedBehindTheEndOfTheFirstFailsTheCallAlone) {
    const AutoRefPtr<FastFile> fast(new FastFile);
    fast->m_refuse = 2;
    m_req.m_sample = sampleOf({Chunk(400, 30), Chunk(100, 20)});
    EXPECT_TRUE(isWarning(m_list.read(m_req, AutoRefPtr<BasicFileIO>(fast.get()), false), 13));
    EXPECT_EQ(fast->reads().size(), 1u);
    EXPECT_EQ(m_hook.count(), 0u);
    // The bytes of the first are freed with the read.
    expectNextReadIsGood();
}

TEST_F(ChunkedRead, FirstChunkRefusedAndTheSecondEndedWithinTheCallFailTwice) {
    const AutoRefPtr<FastFile> fast(new FastFile);
    fast->m_refuse = 1;
    fast->m_endsLast = true;
    m_req.m_sample = sampleOf({Chunk(400, 30), Chunk(100, 20)});
    EXPECT_TRUE(isWarning(m_list.read(m_req, AutoRefPtr<BasicFileIO>(fast.get()), false), 13));
    expectOneFailure(0);
    expectNextReadIsGood();
}

TEST_F(ChunkedRead, SampleOfMoreChunksThanThereArePlacesIsNobodysSample) {
    m_req.m_sample = sampleOf({Chunk(0, 4), Chunk(8, 4)});
    m_req.m_sample.m_numChunks = 3;
    EXPECT_TRUE(isWarning(m_list.read(m_req, AutoRefPtr<BasicFileIO>(m_file.get()), false), 1));
    EXPECT_EQ(m_log.count(LogLevel::Error, "MediaFileList::read(8b,3chk) fails, srcfp valid"), 1u) << m_log.text();
    MediaIoBuf buf;
    EXPECT_TRUE(isWarning(m_list.read(m_req.m_sample, buf, AutoRefPtr<BasicFileIO>(m_file.get())), 1));
    EXPECT_EQ(m_file->m_asyncCalls + m_file->m_readCalls, 0);
    expectNextReadIsGood();
}

namespace {

// Gives up a movie from inside the answer, as a client does that has waited for nothing else.
class ReleasingHook : public ReadHook {
public:
    MediaObj* m_movie = nullptr;

protected:
    bool vCallCb(const BasicIOTypes::ReadNotify& notify) const override {
        m_movie->release();
        return ReadHook::vCallCb(notify);
    }
};

}  // namespace

TEST_F(ChunkedRead, HookMayReleaseTheMovieFromInsideItsAnswer) {
    for (const bool two : {false, true}) {
        AutoReleasePtr<kit::ScriptedMovie> movie(
            new kit::ScriptedMovie(kit::MovieScript(), {}, true, MediaObj::CacheRefValue::None));
        std::atomic<int> deleted{0};
        movie->m_deleted = &deleted;
        movie->allocMediaId(AutoRefPtr<BasicFileIO>(m_file.get()));
        ReleasingHook hook;
        hook.m_movie = movie.get();
        m_req.m_cb = &hook;
        m_req.m_sample = two ? sampleOf({Chunk(400, 30), Chunk(100, 20)}) : sampleOf({Chunk(400, 30)});
        const auto first = static_cast<unsigned>(m_file->reads().size());
        EXPECT_TRUE(movie->vaRead(m_req));
        movie->preserve();
        movie = nullptr;
        EXPECT_EQ(deleted, 0);
        m_file->answer(first);
        if (two) m_file->answer(first + 1);
        EXPECT_EQ(deleted, 1);
        ASSERT_EQ(hook.count(), 1u);
        EXPECT_EQ(hook.answers()[0].m_bytes, patternFrom(400, 30) + (two ? patternFrom(100, 20) : std::string()));
    }
}

TEST_F(ChunkedRead, FrameBehindTheLastIsInNoFile) {
    kit::ScriptedMovie movie(kit::MovieScript(), {}, true, MediaObj::CacheRefValue::None);
    movie.allocMediaId(AutoRefPtr<BasicFileIO>(m_file.get()));
    m_req.m_sample = sampleOf({Chunk(400, 30)});
    m_req.m_sample.m_frameN = true;
    EXPECT_TRUE(isError(movie.vaRead(m_req), 1));
    EXPECT_EQ(m_file->m_asyncCalls, 0);
    EXPECT_EQ(m_hook.count(), 0u);
}

TEST(ReadReqOrigin, IsSetThroughAMovieAsWell) {
    MediaReadReq req;
    MediaObj::setReadReqOrigin(req, MediaReadReq::Origin::Redirected);
    EXPECT_TRUE(req.isRedirectedReq());
    MediaObj::setReadReqOrigin(req, MediaReadReq::Origin::Internal);
    EXPECT_TRUE(req.isInternalReq());
}
