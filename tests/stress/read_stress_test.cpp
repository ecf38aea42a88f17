#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <random>
#include <thread>

#include "mediautil/io/chunk_alloc.h"
#include "services/file/async_engine.h"
#include "services/file/file_calls.h"
#include "shared/include/io/media_io_buf.h"
#include "shared/include/io/media_read_req.h"
#include "shared/include/object/switches.h"
#include "tests/kit/cache_probe.h"
#include "tests/kit/child_job.h"
#include "tests/kit/hooks.h"
#include "tests/kit/leak_check.h"
#include "tests/kit/log_capture.h"
#include "tests/kit/sample_recorder.h"
#include "tests/kit/samples.h"
#include "tests/kit/scripted_movie.h"
#include "tests/kit/watchdog.h"

using kit::idOf;
using kit::patternFrom;
using kit::sampleOf;
using kit::waitFor;
using Chunk = MediaSampleDesc::Chunk;

// Reads of one and of two chunks, from many threads at once, late, failed and refused, by each engine in a process of
// its own since a process has one engine.

namespace {

constexpr unsigned kThreads = 8;
constexpr unsigned kBytes = 1 << 20;  // of the file

// What went wrong, one below the other.
class Report {
public:
    void check(bool good, const char* what) {
        if (good) return;
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_problems++ < 20) std::printf("%s\n", what);
    }
    unsigned problems() const { return m_problems; }

private:
    std::mutex m_mutex;
    unsigned m_problems = 0;
};

// Stands in the way of reads of marked sizes; the sizes that the test uses elsewhere are others.
namespace Fault {
constexpr std::size_t kHeld = 1001;    // waits at the gate
constexpr std::size_t kLate = 1002;    // isn't at hand at first, and waits at the gate where somebody asks again
constexpr std::size_t kBroken = 1003;  // fails
kit::Gate s_gate;
std::atomic<unsigned> s_lateAsked{0};

int strike(FileCall call, const char*, int, std::size_t& size) {
    if (call != FileCall::Read) return 0;
    if (size == kBroken) return EIO;
    if (size == kHeld) s_gate.pass();
    if (size == kLate) {
        if (s_lateAsked++ == 0) return EAGAIN;
        s_gate.pass();
    }
    return 0;
}
}  // namespace Fault

// The answers to reads whose tags are the places of their records.
class Reads {
public:
    Reads(Report& report, const MediaObj& movie) : m_report(report), m_movie(movie) {}

    MediaReadReq request(std::initializer_list<Chunk> chunks) const {
        MediaReadReq req;
        req.m_cb = &m_hook;
        req.m_sample = sampleOf(chunks, idOf(2));
        return req;
    }
    // Asks for a chunk or two; the answers say by their tag where they are from.
    void ask(unsigned offset, unsigned size, bool two) const {
        MediaReadReq req =
            two ? request({Chunk(offset, size), Chunk(kBytes - offset - size, size)}) : request({Chunk(offset, size)});
        req.m_tag = reinterpret_cast<const void*>((std::uintptr_t{offset} << 1) | (two ? 1u : 0u));
        OpResult result = m_movie.vaRead(req);
        m_report.check(result.success(), "a read was refused");
        result.discard();
    }
    void expectAll(unsigned count) const {
        m_report.check(m_hook.waitForAnswers(count), "answers are missing");
        m_report.check(m_hook.count() == count, "answers that nobody asked for");
        for (const kit::ReadHook::Answer& answer : m_hook.answers())
            m_report.check(isRight(answer), "an answer isn't the file's bytes");
    }
    const kit::ReadHook& hook() const { return m_hook; }

private:
    static bool isRight(const kit::ReadHook::Answer& answer) {
        const auto tag = reinterpret_cast<std::uintptr_t>(answer.m_tag);
        const auto offset = static_cast<unsigned>(tag >> 1);
        const auto all = static_cast<unsigned>(answer.m_bytes.size());
        if (answer.m_null || answer.m_status != 0 || all == 0) return false;
        if ((tag & 1) == 0) return answer.m_bytes == patternFrom(offset, all);
        const unsigned half = all / 2;
        return answer.m_bytes == patternFrom(offset, half) + patternFrom(kBytes - offset - half, half);
    }

    Report& m_report;
    const MediaObj& m_movie;
    const kit::ReadHook m_hook;
};

template <class Work>
void inThreads(Work work) {
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < kThreads; ++i)
        threads.emplace_back([&work, i] { work(i); });
    for (std::thread& thread : threads)
        thread.join();
}

// A thousand of them are under way at once: none is answered before the last has been asked for.
void readAThousandInFlight(Report& report, const MediaObj& movie) {
    const Reads reads(report, movie);
    FileCalls::setFault(Fault::strike);
    Fault::s_gate.close();
    inThreads([&](unsigned thread) {
        for (unsigned i = 0; i < 125; ++i)
            reads.ask((thread * 125 + i) * 400, Fault::kHeld, i % 2 == 0);
    });
    report.check(reads.hook().count() == 0, "a read that is held was answered");
    Fault::s_gate.open();
    reads.expectAll(1000);
    FileCalls::setFault(nullptr);
}

// The same on the validation thread: all are whole before the first has been looked at.
void readAThousandLookedAt(Report& report, const MediaObj& movie) {
    kit::SampleRecorder recorder;
    recorder.m_gate.close();
    mediaValidate.set(1u << MediaVal::Pcm);
    const Reads reads(report, movie);
    inThreads([&](unsigned thread) {
        for (unsigned i = 0; i < 125; ++i)
            reads.ask((thread * 125 + i) * 400, 300, i % 2 == 0);
    });
    report.check(waitFor([] { return AsyncEngine::get().idle(); }), "the engine waits for the validation thread");
    report.check(reads.hook().count() == 0, "a read was answered before it was looked at");
    recorder.m_gate.open();
    reads.expectAll(1000);
    report.check(recorder.count() == 1000, "not every read was looked at once");
    mediaValidate.set(0u);
    report.check(ChunkAlloc::getRef()->stopThreadsCb(), "the validation thread doesn't end");
}

void readAnywhere(Report& report, const MediaObj& movie) {
    const Reads reads(report, movie);
    inThreads([&](unsigned thread) {
        std::minstd_rand random(thread + 1);
        for (unsigned i = 0; i < 1000; ++i)
            reads.ask(random() % (kBytes / 2), 1 + random() % 900, random() % 2 == 0);
    });
    reads.expectAll(1000 * kThreads);
}

// One of two chunks comes long after the other.
void readLateChunks(Report& report, const MediaObj& movie) {
    FileCalls::setFault(Fault::strike);
    for (const bool first : {true, false}) {
        const Reads reads(report, movie);
        Fault::s_lateAsked = 0;
        Fault::s_gate.close();
        const MediaReadReq req = first ? reads.request({Chunk(10, Fault::kLate), Chunk(20, 30)})
                                       : reads.request({Chunk(20, 30), Chunk(10, Fault::kLate)});
        report.check(movie.vaRead(req).success(), "a read with a late chunk was refused");
        report.check(waitFor([] { return Fault::s_lateAsked != 0; }), "nobody asks for the late chunk");
        Fault::s_gate.open();
        report.check(reads.hook().waitForAnswers(1), "a read with a late chunk isn't answered");
        const std::string late = patternFrom(10, Fault::kLate), other = patternFrom(20, 30);
        report.check(reads.hook().answers()[0].m_bytes == (first ? late + other : other + late),
                     "chunks in the wrong order");
    }
    FileCalls::setFault(nullptr);
}

void readFailedChunks(Report& report, const MediaObj& movie) {
    FileCalls::setFault(Fault::strike);
    const auto answerTo = [&](std::initializer_list<Chunk> chunks) {
        const Reads reads(report, movie);
        report.check(movie.vaRead(reads.request(chunks)).success(), "a read with a bad chunk was refused");
        report.check(reads.hook().waitForAnswers(1), "a read with a bad chunk isn't answered");
        return reads.hook().answers()[0];
    };
    kit::ReadHook::Answer answer = answerTo({Chunk(10, Fault::kBroken), Chunk(20, 30)});
    report.check(answer.m_null && answer.m_status == EIO, "a first chunk that fails doesn't fail the read");
    answer = answerTo({Chunk(20, 30), Chunk(10, Fault::kBroken)});
    report.check(answer.m_status == 0 && answer.m_bytes == patternFrom(20, 30), "the good chunk isn't handed on");
    answer = answerTo({Chunk(10, Fault::kBroken)});
    report.check(answer.m_null && answer.m_status == EIO, "a chunk that fails doesn't fail the read");
    answer = answerTo({Chunk(kBytes - 1, 2), Chunk(20, 30)});
    report.check(answer.m_null && answer.m_status == ENODATA, "a chunk past the end doesn't fail the read");
    answer = answerTo({Chunk(5, 10), Chunk(20, 30)});
    report.check(answer.m_bytes == patternFrom(5, 10) + patternFrom(20, 30), "the next good read fails");
    FileCalls::setFault(nullptr);
}

bool isReadError(OpResult result) {
    result.discard();
    return result.getType() == OpResult::Type::Warning && result.getCode() == 13;
}

void readRefusedChunks(Report& report, const MediaObj& movie) {
    const Chunk nowhere(1ull << 63, 4);
    for (unsigned i = 0; i < 200; ++i) {
        const Reads first(report, movie);
        report.check(isReadError(movie.vaRead(first.request({nowhere, Chunk(20, 30)}))), "a bad chunk isn't refused");
        report.check(first.hook().waitForAnswers(1), "the accepted chunk doesn't end in a failure");
        report.check(first.hook().answers()[0].m_null && first.hook().answers()[0].m_status == 0, "a wrong failure");
        // Here the failure comes only if the first chunk is still under way when the second is refused.
        const Reads second(report, movie);
        report.check(isReadError(movie.vaRead(second.request({Chunk(20, 30), nowhere}))), "a bad chunk isn't refused");
        report.check(waitFor([] { return AsyncEngine::get().idle(); }), "the engine doesn't come to rest");
        report.check(second.hook().count() <= 1, "two failures of one read");
        for (const kit::ReadHook::Answer& answer : second.hook().answers())
            report.check(answer.m_null && answer.m_status == 0, "a wrong failure");
        const Reads none(report, movie);
        report.check(isReadError(movie.vaRead(none.request({nowhere, nowhere}))), "bad chunks aren't refused");
        report.check(isReadError(movie.vaRead(none.request({nowhere}))), "a bad chunk isn't refused");
        report.check(none.hook().count() == 0, "an answer to what was refused whole");
    }
    const Reads good(report, movie);
    good.ask(100, 200, true);
    good.expectAll(1);
}

// Gives up the last reference to the movie from inside the answer.
class ReleasingHook : public kit::ReadHook {
public:
    MediaObj* m_movie = nullptr;

protected:
    bool vCallCb(const BasicIOTypes::ReadNotify& notify) const override {
        m_movie->release();
        return ReadHook::vCallCb(notify);
    }
};

void releaseInTheHook(Report& report, const kit::MovieScript& script, const std::string& path) {
    inThreads([&](unsigned thread) {
        for (unsigned i = 0; i < 50; ++i) {
            std::atomic<int> deleted{0};
            auto* const movie = new kit::ScriptedMovie(script, path, false, MediaObj::CacheRefValue::None);
            movie->m_deleted = &deleted;
            ReleasingHook hook;
            hook.m_movie = movie;
            MediaReadReq req;
            req.m_cb = &hook;
            req.m_sample = i % 2 == 0 ? sampleOf({Chunk(thread, 50)}, idOf(2))
                                      : sampleOf({Chunk(thread, 50), Chunk(9 * i, 60)}, idOf(2));
            movie->preserve();
            OpResult result = movie->vaRead(req);
            report.check(result.success(), "a read was refused");
            if (!result) movie->release();
            result.discard();
            movie->release();
            report.check(hook.waitForAnswers(1), "no answer from a movie that goes");
            report.check(waitFor([&] { return deleted == 1; }), "the movie doesn't go");
            const std::string expected =
                patternFrom(thread, 50) + (i % 2 == 0 ? std::string() : patternFrom(9 * i, 60));
            report.check(hook.answers()[0].m_bytes == expected, "wrong bytes from a movie that goes");
        }
    });
}

// Writers and readers of one movie at once, each at places of its own.
void readAndWrite(Report& report, MediaObj& movie) {
    inThreads([&](unsigned thread) {
        MediaIoBuf buf;
        for (unsigned i = 0; i < 200; ++i) {
            const unsigned place = (thread * 200 + i) * 64;
            const MediaSampleInMovie sample = sampleOf({Chunk(place, 40), Chunk(place + 44, 20)}, idOf(2));
            kit::fill(buf, patternFrom(place + thread + i, 60));
            report.check(movie.vsWrite(sample, buf).success(), "a write fails");
            kit::fill(buf, "");
            report.check(movie.vsRead(sample, buf).success(), "what was written can't be read");
            report.check(kit::bytesOf(buf) == patternFrom(place + thread + i, 60), "other bytes than were written");
            OpResult result = movie.vaWrite(sampleOf({Chunk(place, 60)}, idOf(2)), kit::obufOf(patternFrom(place, 60)));
            report.check(result.success(), "an asynchronous write is refused");
            result.discard();
        }
    });
    movie.flush(idOf(2));
}

const char* engineName(AsyncEngine::Kind kind) { return kind == AsyncEngine::Kind::Uring ? "uring" : "pool"; }

// The argument is a folder with media.raw.
int readHard(const std::string& folder) {
    const kit::Watchdog watchdog{std::chrono::seconds(280)};
    kit::LogCapture log;
    CacheProbe cache;
    cache.stopThread();
    std::printf("%s\n", engineName(AsyncEngine::get().getKind()));
    kit::MovieScript script;
    script.audioIn(folder + "/media.raw", 100);
    Report report;
    auto* const movie = new kit::ScriptedMovie(script, folder + "/movie.hdcam", false, MediaObj::CacheRefValue::None);
    {
        // What stays for good comes with the first read and the first write.
        const Reads warm(report, *movie);
        warm.ask(0, 10, true);
        warm.expectAll(1);
        report.check(movie->vaWrite(sampleOf({Chunk(0, 4)}, idOf(2)), kit::obufOf(patternFrom(0, 4))).success(),
                     "the first write is refused");
        movie->flush(idOf(2));
        AsyncEngine::get().stop();
    }
    const kit::LeakCheck leaks;
    readAThousandInFlight(report, *movie);
    readAThousandLookedAt(report, *movie);
    readAnywhere(report, *movie);
    readLateChunks(report, *movie);
    readFailedChunks(report, *movie);
    readRefusedChunks(report, *movie);
    releaseInTheHook(report, script, folder + "/movie.hdcam");
    readAndWrite(report, *movie);
    AsyncEngine::get().stop();
    std::printf("%u problems, left: %s\n", report.problems(), leaks.difference().c_str());
    movie->release();
    return 0;
}
const kit::ChildJob s_readHard("read hard", readHard);

class ReadStress : public testing::TestWithParam<AsyncEngine::Kind> {
protected:
    void SetUp() override {
        if (AsyncEngine::forTests(GetParam()) == nullptr) GTEST_SKIP() << "the kernel gives no ring";
    }

    kit::TempTree m_tree;
};

std::string kindName(const testing::TestParamInfo<AsyncEngine::Kind>& info) {
    return info.param == AsyncEngine::Kind::Uring ? "Ring" : "Pool";
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Engines, ReadStress, testing::Values(AsyncEngine::Kind::Uring, AsyncEngine::Kind::Pool),
                         kindName);

TEST_P(ReadStress, ManyReadsOfOneMovieComeWholeOrFailAsTheyShouldAndLeaveNothingBehind) {
    const std::string media = m_tree.writePattern("media.raw", kBytes);
    m_tree.write("movie.hdcam", "movie");
    kit::Command command = s_readHard.command(m_tree.root());
    command.m_environment.emplace_back("MEDIACORE_ASYNC", engineName(GetParam()));
    command.m_limit = std::chrono::seconds(290);
    const kit::Outcome outcome = kit::ChildJob::run(command);
    EXPECT_EQ(outcome.m_exit, 0) << outcome.m_err;
    EXPECT_EQ(outcome.m_out, std::string(engineName(GetParam())) + "\n0 problems, left: \n") << outcome.m_err;
    // The last writes put back what was there.
    std::string expected = patternFrom(0, kBytes);
    for (unsigned place = 0; place < kThreads * 200 * 64; place += 64)
        expected.replace(place + 60, 4, kit::bytesAt(media, place + 60, 4));
    EXPECT_TRUE(kit::bytesAt(media, 0, kBytes + 1) == expected);
}
