#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstdio>
#include <memory>
#include <thread>

#include "mediautil/io/chunk_handler.h"
#include "mediautil/object/media_obj_impl.h"
#include "shared/include/io/media_read_req.h"
#include "shared/include/object/switches.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/child_job.h"
#include "tests/kit/chunk_probe.h"
#include "tests/kit/hooks.h"
#include "tests/kit/late_file.h"
#include "tests/kit/leak_check.h"
#include "tests/kit/sample_recorder.h"
#include "tests/kit/switch_guard.h"

using kit::isWarning;
using kit::LateFile;
using kit::patternFrom;
using kit::ReadHook;
using kit::sampleOf;
using kit::waitFor;
using Chunk = MediaSampleDesc::Chunk;

// What becomes of reads and writes while samples are looked at, and the thread that looks.

namespace {

// Keeps how many looks there had been when each answer came, and on which thread it came.
class OrderHook : public ReadHook {
public:
    explicit OrderHook(const kit::SampleRecorder& recorder) : m_recorder(recorder) {}
    std::vector<unsigned> looksBefore() const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_looksBefore;
    }
    std::string thread() const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_thread;
    }

protected:
    bool vCallCb(const BasicIOTypes::ReadNotify& notify) const override {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_looksBefore.push_back(m_recorder.count());
            m_thread = kit::SampleRecorder::threadName();
        }
        return ReadHook::vCallCb(notify);
    }

private:
    const kit::SampleRecorder& m_recorder;
    mutable std::mutex m_mutex;
    mutable std::vector<unsigned> m_looksBefore;
    mutable std::string m_thread;
};

class ValidationRoad : public kit::CacheScene {
protected:
    ValidationRoad() {
        mediaValidate.set(1u << MediaVal::Pcm);
        m_req.m_cb = &m_hook;
        m_req.m_tag = &m_tag;
        m_list.getIndex(m_path.c_str());
    }
    void TearDown() override {
        m_recorder.m_gate.open();
        ChunkAlloc::getRef()->stopThreadsCb();
        CacheScene::TearDown();
    }
    OpResult read(std::initializer_list<Chunk> chunks) {
        m_req.m_sample = sampleOf(chunks);
        return m_list.read(m_req, AutoRefPtr<BasicFileIO>(m_file.get()), false);
    }
    // One without data, to be queued as it is.
    ChunkHandler* emptyHandler() {
        m_req.m_sample = sampleOf({Chunk(0, 4)});
        return new ChunkHandler(m_req);
    }

    const kit::SwitchGuard m_switch{mediaValidate};
    kit::SampleRecorder m_recorder;
    const AutoRefPtr<LateFile> m_file{new LateFile};
    const std::string m_path = m_tree.path("written.raw");
    MediaFileList m_list;
    OrderHook m_hook{m_recorder};
    MediaReadReq m_req;
    const int m_tag = 0;
};

}  // namespace

TEST(ValidationSwitch, BitsHaveTheirNames) {
    EXPECT_STREQ(mediaValidate.getName(), "mediaValidate");
    ASSERT_EQ(mediaValidate.getBitCount(), 6u);
    EXPECT_STREQ(mediaValidate.getBitName(MediaVal::Mpeg), "mpeg");
    EXPECT_STREQ(mediaValidate.getBitName(MediaVal::MpegStats), "mpeg stats");
    EXPECT_STREQ(mediaValidate.getBitName(MediaVal::MpegNoZeroPad), "mpeg no zero pad");
    EXPECT_STREQ(mediaValidate.getBitName(MediaVal::Pcm), "pcm");
    EXPECT_STREQ(mediaValidate.getBitName(MediaVal::PcmStats), "pcm stats");
    EXPECT_STREQ(mediaValidate.getBitName(MediaVal::S436), "s436");
    EXPECT_EQ(mediaValidate.getBitName(6), nullptr);
}

TEST_F(ValidationRoad, SingleChunkGoesStraightToTheFileOnlyWithAllBitsOff) {
    unsigned asked = 0;
    for (unsigned bit = 0; bit <= MediaVal::Count; ++bit) {
        const bool on = bit < MediaVal::Count;
        mediaValidate.set(on ? 1u << bit : 0u);
        EXPECT_TRUE(read({Chunk(40, 30)}));
        ASSERT_EQ(m_file->reads().size(), asked + 1);
        EXPECT_EQ(m_file->reads()[asked].m_hook == &m_hook, !on) << bit;
        EXPECT_TRUE(m_file->answer(asked++));
        ASSERT_TRUE(m_hook.waitForAnswers(asked));
        EXPECT_EQ(m_hook.answers().back().m_bytes, patternFrom(40, 30));
        EXPECT_EQ(m_hook.answers().back().m_tag, &m_tag);
    }
    EXPECT_EQ(m_recorder.count(), 6u);
}

TEST_F(ValidationRoad, RequesterIsAnsweredBehindTheLookOnTheValidationThread) {
    EXPECT_TRUE(read({Chunk(40, 30)}));
    m_file->answer(0);
    ASSERT_TRUE(m_hook.waitForAnswers(1));
    EXPECT_EQ(m_hook.looksBefore(), std::vector<unsigned>{1});
    EXPECT_EQ(m_hook.thread(), "validate loop");
    const kit::SampleRecorder::Look look = m_recorder.looks()[0];
    EXPECT_FALSE(look.m_writing);
    EXPECT_EQ(look.m_bytes, patternFrom(40, 30));
    EXPECT_EQ(look.m_thread, "validate loop");
    EXPECT_EQ(look.m_sample.m_chunks[0].m_offset, 40u);
}

TEST_F(ValidationRoad, FileLayersThreadIsFreeWhileTheSampleIsLookedAt) {
    m_recorder.m_gate.close();
    EXPECT_TRUE(read({Chunk(40, 30)}));
    EXPECT_TRUE(m_file->answer(0));  // comes back although the look stands before its gate
    ASSERT_TRUE(waitFor([&] { return m_recorder.m_gate.waiting() == 1; }));
    EXPECT_EQ(m_hook.count(), 0u);
    m_recorder.m_gate.open();
    ASSERT_TRUE(m_hook.waitForAnswers(1));
}

TEST_F(ValidationRoad, TwoChunksAreLookedAtOnceAsAWhole) {
    EXPECT_TRUE(read({Chunk(400, 30), Chunk(100, 20)}));
    m_file->answer(1);
    m_file->answer(0);
    ASSERT_TRUE(m_hook.waitForAnswers(1));
    ASSERT_EQ(m_recorder.count(), 1u);
    EXPECT_EQ(m_recorder.looks()[0].m_bytes, patternFrom(400, 30) + patternFrom(100, 20));
    EXPECT_EQ(m_hook.answers()[0].m_bytes, patternFrom(400, 30) + patternFrom(100, 20));
}

TEST_F(ValidationRoad, ReadsAreLookedAtOneAtATimeInTheirOrder) {
    m_recorder.m_gate.close();
    for (unsigned i = 0; i < 20; ++i) {
        EXPECT_TRUE(read({Chunk(10 * i, 10)}));
        m_file->answer(i);
    }
    ASSERT_TRUE(waitFor([&] { return m_recorder.m_gate.waiting() == 1; }));
    EXPECT_EQ(m_recorder.count(), 1u);
    EXPECT_FALSE(ChunkAlloc::getRef()->checkFinishedCb(true));
    EXPECT_EQ(m_log.count(LogLevel::Error, "ChunkAlloc::checkFinishedCb: expected empty list, not size=19"), 1u);
    m_recorder.m_gate.open();
    ASSERT_TRUE(m_hook.waitForAnswers(20));
    for (unsigned i = 0; i < 20; ++i)
        EXPECT_EQ(m_hook.answers()[i].m_bytes, patternFrom(10 * i, 10));
    EXPECT_TRUE(ChunkAlloc::getRef()->checkFinishedCb(true));
}

TEST_F(ValidationRoad, SwitchedOffBetweenQueueAndAnswerSkipsTheLookAndNotTheData) {
    m_recorder.m_gate.close();
    EXPECT_TRUE(read({Chunk(0, 10)}));
    m_file->answer(0);
    ASSERT_TRUE(waitFor([&] { return m_recorder.m_gate.waiting() == 1; }));
    EXPECT_TRUE(read({Chunk(10, 10)}));
    m_file->answer(1);
    mediaValidate.set(0u);
    m_recorder.m_gate.open();
    ASSERT_TRUE(m_hook.waitForAnswers(2));
    EXPECT_EQ(m_hook.answers()[1].m_bytes, patternFrom(10, 10));
    EXPECT_EQ(m_recorder.count(), 1u);
    EXPECT_EQ(m_hook.thread(), "validate loop");
}

TEST_F(ValidationRoad, SwitchedOffWhileTheFileReadsAnswersAtOnce) {
    EXPECT_TRUE(read({Chunk(0, 10)}));
    mediaValidate.set(0u);
    m_file->answer(0);
    ASSERT_EQ(m_hook.count(), 1u);
    EXPECT_EQ(m_hook.answers()[0].m_bytes, patternFrom(0, 10));
    EXPECT_EQ(m_recorder.count(), 0u);
}

TEST_F(ValidationRoad, ReadOfWhichNothingCameIsStillAnswered) {
    EXPECT_TRUE(read({Chunk(0, 10)}));
    m_file->fail(0, 5);
    ASSERT_TRUE(m_hook.waitForAnswers(1));
    EXPECT_TRUE(m_hook.answers()[0].m_null);
    EXPECT_EQ(m_hook.answers()[0].m_status, 0);
    ASSERT_EQ(m_recorder.count(), 1u);
    EXPECT_TRUE(m_recorder.looks()[0].m_null);
}

TEST_F(ValidationRoad, FailedReadIsAnsweredWithoutALook) {
    EXPECT_TRUE(read({Chunk(0, 10), Chunk(20, 10)}));
    m_file->fail(0, 5);
    m_file->answer(1);
    ASSERT_EQ(m_hook.count(), 1u);
    EXPECT_EQ(m_hook.answers()[0].m_status, 5);
    EXPECT_EQ(m_recorder.count(), 0u);
}

TEST_F(ValidationRoad, RefusedSingleChunkFailsTheCallAndTheHookStaysSilent) {
    m_file->m_refuse = 1;
    EXPECT_TRUE(isWarning(read({Chunk(0, 10)}), 13));
    EXPECT_EQ(m_hook.count(), 0u);
    EXPECT_EQ(m_recorder.count(), 0u);
}

TEST_F(ValidationRoad, SynchronousReadIsLookedAtAfterEachChunk) {
    m_file->m_content = patternFrom(0, 1000);
    MediaIoBuf buf;
    kit::fill(buf, std::string(50, 'x'));
    EXPECT_TRUE(m_list.read(sampleOf({Chunk(400, 30), Chunk(100, 20)}), buf, AutoRefPtr<BasicFileIO>(m_file.get())));
    ASSERT_EQ(m_recorder.count(), 2u);
    EXPECT_EQ(m_recorder.looks()[0].m_bytes, patternFrom(400, 30) + std::string(20, 'x'));
    EXPECT_EQ(m_recorder.looks()[1].m_bytes, patternFrom(400, 30) + patternFrom(100, 20));
    EXPECT_FALSE(m_recorder.looks()[0].m_writing);
    mediaValidate.set(0u);
    EXPECT_TRUE(m_list.read(sampleOf({Chunk(400, 30)}), buf, AutoRefPtr<BasicFileIO>(m_file.get())));
    EXPECT_EQ(m_recorder.count(), 2u);
}

TEST_F(ValidationRoad, SynchronousWriteIsLookedAtOnceBeforeTheFirstByte) {
    MediaIoBuf buf;
    kit::fill(buf, patternFrom(0, 50));
    m_recorder.m_gate.close();
    std::thread writer([&] {
        EXPECT_TRUE(m_list.write(sampleOf({Chunk(0, 30), Chunk(100, 20)}), static_cast<const MediaIoBuf&>(buf)));
    });
    EXPECT_TRUE(waitFor([&] { return m_recorder.m_gate.waiting() == 1; }));
    EXPECT_EQ(kit::bytesAt(m_path, 0, 1), "");
    m_recorder.m_gate.open();
    writer.join();
    ASSERT_EQ(m_recorder.count(), 1u);
    EXPECT_TRUE(m_recorder.looks()[0].m_writing);
    EXPECT_EQ(m_recorder.looks()[0].m_bytes, patternFrom(0, 50));
    EXPECT_EQ(kit::bytesAt(m_path, 0, 30), patternFrom(0, 30));
}

TEST_F(ValidationRoad, ObufIsLookedAtBeforeTheFileHasItAndNotWhenItIsRefused) {
    EXPECT_TRUE(m_list.write(sampleOf({Chunk(0, 30)}), kit::obufOf(patternFrom(0, 30))));
    ASSERT_EQ(m_recorder.count(), 1u);
    EXPECT_TRUE(m_recorder.looks()[0].m_writing);
    EXPECT_EQ(m_recorder.looks()[0].m_bytes, patternFrom(0, 30));
    EXPECT_TRUE(isWarning(m_list.write(sampleOf({Chunk(0, 30)}), kit::obufOf(patternFrom(0, 31))), 1));
    EXPECT_EQ(m_recorder.count(), 1u);
}

TEST_F(ValidationRoad, WithoutACheckTheRoadIsTheSame) {
    SampleCheck::enter(nullptr);
    EXPECT_TRUE(read({Chunk(0, 10)}));
    m_file->answer(0);
    ASSERT_TRUE(m_hook.waitForAnswers(1));
    EXPECT_EQ(m_hook.thread(), "validate loop");
    EXPECT_EQ(m_hook.answers()[0].m_bytes, patternFrom(0, 10));
}

TEST_F(ValidationRoad, HookMayReleaseTheMovieOnTheValidationThread) {
    class Releasing : public ReadHook {
    public:
        MediaObj* m_movie = nullptr;

    protected:
        bool vCallCb(const BasicIOTypes::ReadNotify& notify) const override {
            m_movie->release();
            return ReadHook::vCallCb(notify);
        }
    };
    std::atomic<int> deleted{0};
    AutoReleasePtr<kit::ScriptedMovie> movie(
        new kit::ScriptedMovie(kit::MovieScript(), {}, true, MediaObj::CacheRefValue::None));
    movie->m_deleted = &deleted;
    movie->allocMediaId(AutoRefPtr<BasicFileIO>(m_file.get()));
    Releasing hook;
    hook.m_movie = movie.get();
    m_req.m_cb = &hook;
    m_req.m_sample = sampleOf({Chunk(400, 30)});
    EXPECT_TRUE(movie->vaRead(m_req));
    movie->preserve();
    movie = nullptr;
    m_file->answer(0);
    ASSERT_TRUE(hook.waitForAnswers(1));
    EXPECT_EQ(deleted, 1);
}

TEST_F(ValidationRoad, ThreadComesWithTheFirstReadThatIsToBeLookedAt) {
    ChunkAlloc own;
    const ChunkProbe probe(own);
    EXPECT_FALSE(probe.hasThread());
    EXPECT_TRUE(own.checkFinishedCb(true));
    EXPECT_TRUE(own.stopThreadsCb());  // with no thread there is nothing to stop
    EXPECT_TRUE(own.asyncValidate(*emptyHandler()));
    EXPECT_TRUE(probe.hasThread());
    ASSERT_TRUE(m_hook.waitForAnswers(1));
    EXPECT_TRUE(own.stopThreadsCb());
    EXPECT_FALSE(probe.hasThread());
    EXPECT_TRUE(own.checkFinishedCb(true));
    EXPECT_TRUE(m_log.lines().empty()) << m_log.text();
}

TEST_F(ValidationRoad, HandlerQueuedAtAStopStaysInTheQueueAndIsReported) {
    ChunkAlloc own;
    const ChunkProbe probe(own);
    m_recorder.m_gate.close();
    EXPECT_TRUE(own.asyncValidate(*emptyHandler()));
    ASSERT_TRUE(waitFor([&] { return m_recorder.m_gate.waiting() == 1; }));
    EXPECT_TRUE(own.asyncValidate(*emptyHandler()));
    std::thread stopper([&] { EXPECT_TRUE(own.stopThreadsCb()); });
    EXPECT_TRUE(waitFor([&] { return probe.stopRequested(); }));
    m_recorder.m_gate.open();
    stopper.join();
    EXPECT_FALSE(probe.hasThread());
    EXPECT_EQ(m_hook.count(), 1u);
    EXPECT_FALSE(own.checkFinishedCb(false));
    EXPECT_TRUE(m_log.lines().empty()) << m_log.text();
    EXPECT_FALSE(own.checkFinishedCb(true));
    EXPECT_EQ(m_log.count(LogLevel::Error, "ChunkAlloc::checkFinishedCb: expected empty list, not size=1"), 1u);
    // The next one brings a new thread, and that one serves both.
    EXPECT_TRUE(own.asyncValidate(*emptyHandler()));
    EXPECT_TRUE(m_hook.waitForAnswers(3));
    EXPECT_TRUE(own.stopThreadsCb());
    EXPECT_TRUE(own.checkFinishedCb(true));
}

TEST_F(ValidationRoad, DestructionEndsTheThread) {
    const kit::LeakCheck leaks;
    auto own = std::make_unique<ChunkAlloc>();
    EXPECT_TRUE(own->asyncValidate(*emptyHandler()));
    ASSERT_TRUE(m_hook.waitForAnswers(1));
    own.reset();
    EXPECT_EQ(leaks.difference(), "");
}

namespace {

// The whole process is shut down while a read stands before the look of another.
int shutDownWhileValidating(const std::string&) {
    kit::LogCapture log;
    mediaValidate.set(1u << MediaVal::Pcm);
    kit::SampleRecorder recorder;
    recorder.m_gate.close();
    const ReadHook hook;
    MediaReadReq req;
    req.m_cb = &hook;
    req.m_sample = sampleOf({Chunk(0, 4)});
    ChunkAlloc& alloc = *ChunkAlloc::getRef();
    for (int i = 0; i < 2; ++i)
        alloc.asyncValidate(*new ChunkHandler(req));
    if (!waitFor([&] { return recorder.m_gate.waiting() == 1; })) return 2;
    std::thread opener([&] {
        waitFor([&] { return ChunkProbe(alloc).stopRequested(); });
        recorder.m_gate.open();
    });
    // Too little time for what is queued: that is reported, and the thread ends behind the look under way.
    const bool finished = Subsystem::Registry::shutdownSubsystems(0);
    opener.join();
    if (!log.has("ChunkAlloc::checkFinishedCb: expected empty list, not size=1")) return 3;
    const unsigned queued = alloc.checkFinishedCb(false) ? 0 : 1;
    std::printf("%s, %u answered, %u queued, thread %s\n", finished ? "finished" : "not finished", hook.count(), queued,
                ChunkProbe(alloc).hasThread() ? "runs" : "gone");
    // Whoever comes later is served, with what was left.
    alloc.asyncValidate(*new ChunkHandler(req));
    hook.waitForAnswers(3);
    std::printf("%u answered\n", hook.count());
    return 0;
}
const kit::ChildJob s_shutDown("shut down while validating", shutDownWhileValidating);

// The system gives no memory for a thread's stack.
int validateWithoutAThread(const std::string&) {
    kit::LogCapture log;
    kit::SampleRecorder recorder;
    const ReadHook hook;
    MediaReadReq req;
    req.m_cb = &hook;
    req.m_sample = sampleOf({Chunk(40, 30)});
    MediaFileList list;
    const AutoRefPtr<LateFile> file(new LateFile);
    // The memory of this one is the next one's.
    list.read(req, AutoRefPtr<BasicFileIO>(file.get()), false).discard();
    file->answer(0);
    mediaValidate.set(1u << MediaVal::Pcm);
    list.read(req, AutoRefPtr<BasicFileIO>(file.get()), false).discard();
    rlimit before{};
    ::getrlimit(RLIMIT_AS, &before);
    const rlimit none{0, before.rlim_max};
    ::setrlimit(RLIMIT_AS, &none);
    const bool handedOver = file->answer(1);
    ::setrlimit(RLIMIT_AS, &before);
    std::printf("%s, %u answers, %s, %u looks, %u lines\n", handedOver ? "handed over" : "not handed over",
                hook.count(), hook.answers().back().m_bytes == patternFrom(40, 30) ? "whole" : "not whole",
                recorder.count(), log.count("BaseThread: can't start \"validate loop\": error *"));
    list.read(req, AutoRefPtr<BasicFileIO>(file.get()), false).discard();
    file->answer(2);
    hook.waitForAnswers(3);
    std::printf("then %u answers, %u looks\n", hook.count(), recorder.count());
    return 0;
}
const kit::ChildJob s_noThread("validate without a thread", validateWithoutAThread);

}  // namespace

TEST(ValidationThread, ShutdownReportsWhatIsQueuedAndEndsTheThread) {
    const kit::Outcome outcome = s_shutDown.run("-");
    EXPECT_EQ(outcome.m_exit, 0) << outcome.m_err;
    EXPECT_EQ(outcome.m_out, "not finished, 1 answered, 1 queued, thread gone\n3 answered\n") << outcome.m_err;
}

TEST(ValidationThread, ThatCannotBeHadCostsTheLookAndNotTheData) {
    if (!kit::addressSpace(1)) GTEST_SKIP() << "memory can't be limited here";
    const kit::Outcome outcome = s_noThread.run("-");
    EXPECT_EQ(outcome.m_exit, 0) << outcome.m_err;
    EXPECT_EQ(outcome.m_out, "not handed over, 2 answers, whole, 0 looks, 1 lines\nthen 3 answers, 1 looks\n")
        << outcome.m_err;
}
