#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <random>

#include "services/file/async_engine.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/io/media_read_req.h"
#include "tests/integration/peers.h"
#include "tests/integration/wav_reading.h"
#include "tests/kit/cache_probe.h"
#include "tests/kit/child_job.h"
#include "tests/kit/hooks.h"
#include "tests/kit/leak_check.h"
#include "tests/kit/temp_tree.h"
#include "tests/kit/wav_builder.h"

// Asynchronous reads of a WAV's whole essence, by each engine, in a process of its own since a process has one engine.

namespace {

const char* engineName(AsyncEngine::Kind kind) { return kind == AsyncEngine::Kind::Uring ? "uring" : "pool"; }

std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

struct Reads {
    kit::ReadHook m_hook;
    unsigned m_asked = 0;
    unsigned m_refused = 0;

    // Waits: while so many reads are under way.
    void ask(const MediaObj& movie, const MediaSampleInMovie& where, unsigned long long place, unsigned inFlight) {
        if (m_asked >= inFlight) m_hook.waitForAnswers(m_asked - inFlight + 1);
        MediaReadReq request;
        request.m_cb = &m_hook;
        request.m_tag = reinterpret_cast<const void*>(place);
        request.m_sample = where;
        OpResult result = movie.vaRead(request);
        if (result.success())
            ++m_asked;
        else
            ++m_refused;
        result.discard();
    }
    // Answers that aren't the bytes which lie at their places.
    unsigned wrong(const std::string& essence) const {
        unsigned count = 0;
        for (const kit::ReadHook::Answer& answer : m_hook.answers()) {
            const auto place = reinterpret_cast<std::uintptr_t>(answer.m_tag);
            if (answer.m_null || essence.compare(place, answer.m_bytes.size(), answer.m_bytes) != 0) ++count;
        }
        return count;
    }
    unsigned long long bytes() const {
        unsigned long long sum = 0;
        for (const kit::ReadHook::Answer& answer : m_hook.answers())
            sum += answer.m_bytes.size();
        return sum;
    }
};

// The whole essence once, in blocks of differing sizes, then some blocks anywhere.
void readEverything(const MediaObj& movie, const std::string& essence, unsigned inFlight) {
    const MediaClipDesc& clip = wavread::clipOf(movie);
    const std::size_t size = essence.size() / clip.getLength();
    std::minstd_rand random(inFlight);
    Reads all;
    MediaSampleInMovie where;
    for (unsigned long long at = 0; wavread::locate(clip, at, 1 + random() % 9000, where); at += where.m_count) {
        all.ask(movie, where, at * size, inFlight);
    }
    const bool cameAll = all.m_hook.waitForAnswers(all.m_asked);
    std::printf("%u in flight: %s, %u refused, %u wrong, %llu bytes\n", inFlight,
                cameAll ? "all came" : "some are missing", all.m_refused, all.wrong(essence), all.bytes());
    Reads anywhere;
    for (int i = 0; i < 200; ++i) {
        const unsigned long long sample = random() % clip.getLength();
        if (wavread::locate(clip, sample, 1 + random() % 3000, where))
            anywhere.ask(movie, where, sample * size, inFlight);
    }
    anywhere.m_hook.waitForAnswers(anywhere.m_asked);
    std::printf("anywhere: %u came, %u wrong\n", anywhere.m_hook.count(), anywhere.wrong(essence));
}

// The argument is a folder with a.wav and essence.raw.
int readAsync(const std::string& folder) {
    const std::string essence = contentOf(folder + "/essence.raw");
    std::printf("%s\n", engineName(AsyncEngine::get().getKind()));
    CacheProbe cache;
    cache.setZombieTime(0);
    MediaObj* first = wavread::openMovie(folder + "/a.wav");
    if (first == nullptr) return 2;
    // What stays for good comes with the first read; the engine's threads and their rings come and go when they are
    // told.
    MediaSampleInMovie where;
    Reads warm;
    if (wavread::locate(wavread::clipOf(*first), 0, 10, where)) warm.ask(*first, where, 0, 1);
    warm.m_hook.waitForAnswers(1);
    first->release(MediaAgent(nullptr), false);
    MediaObj::flushAll(nullptr);
    AsyncEngine::get().stop();
    const kit::LeakCheck leaks;
    MediaObj* movie = wavread::openMovie(folder + "/a.wav");
    for (const unsigned inFlight : {1u, 8u, 32u})
        readEverything(*movie, essence, inFlight);
    movie->release(MediaAgent(nullptr), false);
    MediaObj::flushAll(nullptr);
    AsyncEngine::get().stop();
    std::printf("left: %s\n", leaks.difference().c_str());
    return 0;
}
const kit::ChildJob s_readAsync("read async", readAsync);

class AsyncWav : public testing::TestWithParam<AsyncEngine::Kind> {
protected:
    void expectEverything(const std::string& raw) {
        kit::Command command = s_readAsync.command(m_tree.root());
        command.m_environment.emplace_back("MEDIACORE_ASYNC", engineName(GetParam()));
        const kit::Outcome outcome = kit::ChildJob::run(command);
        EXPECT_EQ(outcome.m_exit, 0) << outcome.m_err;
        std::string expected = std::string(engineName(GetParam())) + "\n";
        for (const char* inFlight : {"1", "8", "32"}) {
            expected += std::string(inFlight) + " in flight: all came, 0 refused, 0 wrong, " +
                        std::to_string(raw.size()) + " bytes\nanywhere: 200 came, 0 wrong\n";
        }
        EXPECT_EQ(outcome.m_out, expected + "left: \n") << outcome.m_err;
    }
    void SetUp() override {
        if (AsyncEngine::forTests(GetParam()) == nullptr) GTEST_SKIP() << "the kernel gives no ring";
    }

    kit::TempTree m_tree;
};

std::string kindName(const testing::TestParamInfo<AsyncEngine::Kind>& info) {
    return info.param == AsyncEngine::Kind::Uring ? "Ring" : "Pool";
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Engines, AsyncWav, testing::Values(AsyncEngine::Kind::Uring, AsyncEngine::Kind::Pool),
                         kindName);

TEST_P(AsyncWav, OfAnyWidthGivesEveryByteOfItsEssence) {
    for (const unsigned channels : {1u, 2u, 8u}) {
        for (const peers::Coding* coding : {&peers::s_codings[0], &peers::s_codings[2], &peers::s_codings[4]}) {
            SCOPED_TRACE(testing::Message() << coding->m_name << ", " << channels << " channels");
            const std::string raw = kit::WavBuilder::pattern(std::size_t{coding->m_bytes} * channels * 100001);
            peers::writeByFfmpeg(*coding, channels, 48000, m_tree.write("essence.raw", raw), m_tree.path("a.wav"));
            expectEverything(raw);
        }
    }
}

TEST_P(AsyncWav, BySoxGivesEveryByteOfItsEssence) {
    const std::string raw = kit::WavBuilder::pattern(3 * 6 * 50003);
    peers::writeBySox(peers::s_codings[2], 6, 96000, m_tree.write("essence.raw", raw), m_tree.path("a.wav"));
    expectEverything(raw);
}
