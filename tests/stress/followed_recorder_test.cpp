#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <thread>
#include <vector>

#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/io/media_io_buf.h"
#include "support/clock.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/child_job.h"
#include "tests/kit/samples.h"
#include "tests/stress/stress_recorder.h"

// One process records and others follow the file through all the objects that stand for it: none of them ever gets a
// byte that isn't the recorder's, and each has got all of them in the end.

namespace {

using stress::Kind;
using stress::Recording;
using stress::sizeOf;

constexpr unsigned s_rate = 48000;
// Five frames of 1001/30000 s each are the shortest time of whole samples.
constexpr unsigned s_framesPerRound = 5, s_samplesPerRound = 8008;

// What recorder and followers are told.
struct Orders {
    std::string m_path;
    Kind m_kind = Kind::Wav;
    bool m_async = false;
    bool m_paced = false;
    unsigned m_rounds = 0;

    std::string text() const {
        std::ostringstream out;
        out << static_cast<unsigned>(m_kind) << ' ' << m_async << ' ' << m_paced << ' ' << m_rounds << ' ' << m_path;
        return out.str();
    }
    static Orders of(const std::string& text) {
        Orders orders;
        unsigned kind = 0;
        std::istringstream(text) >> kind >> orders.m_async >> orders.m_paced >> orders.m_rounds >> orders.m_path;
        orders.m_kind = static_cast<Kind>(kind);
        return orders;
    }
    // Samples up to a video frame.
    unsigned long long samplesAt(unsigned long long frame) const {
        return m_kind == Kind::Dv ? frame : frame * s_samplesPerRound / s_framesPerRound;
    }
    // By far more than it takes, in seconds.
    unsigned limit() const { return 200 + 4 * frames() / 30; }
    unsigned frames() const { return m_rounds * s_framesPerRound; }
    unsigned long long samples() const { return samplesAt(frames()); }
};

// Reaches the test at once, whatever is buffered.
void say(const char* line) {
    std::fputs(line, stdout);
    std::fflush(stdout);
}

bool recordFrames(Recording& recording, const Orders& orders, unsigned from, unsigned to) {
    const auto start = std::chrono::steady_clock::now();
    for (unsigned frame = from; frame < to; ++frame) {
        const auto due = start + std::chrono::microseconds((frame - from) * 1001000ull / 30);
        if (orders.m_paced) std::this_thread::sleep_until(due);
        const auto count = static_cast<unsigned>(orders.samplesAt(frame + 1) - orders.samplesAt(frame));
        if (!recording.write(count, orders.m_async)) return false;
    }
    return true;
}

// Records a half, waits for the word to go on, and records the rest.
int recordInHalves(const std::string& text) {
    const Orders orders = Orders::of(text);
    ::alarm(orders.limit());  // should the parent go first
    Recording recording;
    const unsigned half = orders.frames() / 2;
    if (!recording.begin(orders.m_path, orders.m_kind, s_rate)) return 2;
    if (!recordFrames(recording, orders, 0, half)) return 3;
    recording.flush();
    say("half\n");
    if (std::getchar() == EOF) return 4;
    if (!recordFrames(recording, orders, half, orders.frames())) return 5;
    return recording.end() ? 0 : 6;
}

const kit::ChildJob s_recorder("followed recorder", &recordInHalves);

// A movie that is read as far as it is safe, again and again.
class Follower {
public:
    explicit Follower(const Orders& orders) : m_orders(orders) {}

    // Polls until there is a movie.
    void open() {
        MediaObj* movie = nullptr;
        while (movie == nullptr) {
            OpResult result;
            movie = MediaObj::openReader(m_orders.m_path.c_str(), MediaObj::ReadMode::ReadOnly, result);
            result.discard();
            if (movie == nullptr) waitMsec(2);
        }
        m_holder = movie;
    }
    // Reads what has become safe since. False when it isn't what was recorded.
    bool advance() {
        const AutoReleasePtr<MediaObj> movie(m_holder.preserve());
        if (movie->getSerialNum() != m_serial) ++m_objects;
        m_serial = movie->getSerialNum();
        const unsigned long long safe = safeSamples(*movie.get());
        if (safe > m_orders.samples()) return fail("more is safe than was recorded");
        if (safe > m_seen) ++m_steps;
        while (m_seen < safe) {
            const auto count = static_cast<unsigned>(std::min<unsigned long long>(safe - m_seen, mostAtOnce()));
            const unsigned read = compare(*movie.get(), count);
            if (read == 0) return false;
            m_seen += read;
        }
        return true;
    }
    unsigned long long seen() const { return m_seen; }
    unsigned steps() const { return m_steps; }
    unsigned objects() const { return m_objects; }

private:
    unsigned mostAtOnce() const { return m_orders.m_kind == Kind::Dv ? 1 : 1602; }

    // The last frame of sound may be a part.
    static unsigned long long safeSamples(const MediaObj& movie) {
        if (movie.getTrackCount() == 0 || movie.getTrackAt(0)->getClipCount() == 0) return 0;
        const MediaClipDesc& clip = *movie.getTrackAt(0)->getClip(0);
        const unsigned long long frames = movie.getReadSafeFrameLength();
        return frames != 0 ? std::min(clip.getSampleAndCount(frames).m_sample, clip.getLength()) : 0;
    }
    // Answers the samples that were read, fewer where they lie in several pieces of the file.
    unsigned compare(const MediaObj& movie, unsigned count) const {
        const MediaClipDesc& clip = *movie.getTrackAt(0)->getClip(0);
        MediaSampleInMovie where;
        OpResult result;
        if (!clip.getMediaOffset(MediaPlayReq(m_seen, count), where, result)) return fail(result.describe().get());
        MediaIoBuf buffer;
        result = movie.vsRead(where, buffer);
        if (!result) return fail(result.describe().get());
        if (where.m_count > count || kit::bytesOf(buffer) != stress::essence(m_orders.m_kind, m_seen, where.m_count))
            return fail("not what was recorded");
        return where.m_count;
    }
    bool fail(const char* what) const {
        std::fprintf(stderr, "sample %llu: %s\n", m_seen, what);
        return false;
    }

    const Orders m_orders;
    MediaObj::Persist m_holder;
    std::uint64_t m_serial = 0;
    unsigned long long m_seen = 0;
    unsigned m_steps = 0;
    unsigned m_objects = 0;
};

int follow(const std::string& text) {
    const Orders orders = Orders::of(text);
    ::alarm(orders.limit());  // should the parent go first
    Follower follower(orders);
    follower.open();
    bool hasSaid = false;
    while (follower.seen() < orders.samples()) {
        if (!follower.advance()) return 2;
        if (!hasSaid && follower.seen() > 0) say("first samples\n");
        hasSaid = follower.seen() > 0;
        waitMsec(5);
    }
    std::printf("%u steps, %u objects\n", follower.steps(), follower.objects());
    return 0;
}

const kit::ChildJob s_follower("follower", &follow);

struct Way {
    const char* m_name;
    Kind m_kind;
    bool m_async;
    bool m_paced;
    const char* m_engine;
};

constexpr Way s_ways[] = {
    {"WavPaced", Kind::Wav, true, true, "uring"},
    {"WavFastSync", Kind::Wav, false, false, "pool"},
    {"WavFastAsync", Kind::Wav, true, false, "uring"},
    {"DvPaced", Kind::Dv, true, true, "uring"},
    {"DvFastSync", Kind::Dv, false, false, "pool"},
    {"DvFastAsync", Kind::Dv, true, false, "uring"},
    {"MovPaced", Kind::Mov, true, true, "uring"},
    {"MovFastSync", Kind::Mov, false, false, "pool"},
    {"MovFastAsync", Kind::Mov, true, false, "uring"},
    {"MovByRefFastSync", Kind::MovByRef, false, false, "pool"},
    {"MovByRefFastAsync", Kind::MovByRef, true, false, "uring"},
};

class FollowedRecorder : public kit::CacheScene, public testing::WithParamInterface<Way> {
protected:
    Orders orders() const {
        const Way& way = GetParam();
        const unsigned seconds = stress::lengthFrom("MEDIACORE_SOAK_SECONDS", 3);
        const unsigned rounds = seconds * 30 / s_framesPerRound;
        return {m_tree.path(std::string("live") + stress::suffixOf(way.m_kind)), way.m_kind, way.m_async, way.m_paced,
                rounds};
    }
    std::unique_ptr<kit::Process> start(const kit::ChildJob& job, const Orders& orders) const {
        kit::Command command = job.command(orders.text());
        command.m_environment.emplace_back("MEDIACORE_ASYNC", GetParam().m_engine);
        command.m_limit = std::chrono::seconds(orders.limit());
        return std::make_unique<kit::Process>(command);
    }
};

using FollowerOfAFile = kit::CacheScene;

}  // namespace

INSTANTIATE_TEST_SUITE_P(Ways, FollowedRecorder, testing::ValuesIn(s_ways),
                         [](const auto& way) { return std::string(way.param.m_name); });

TEST_P(FollowedRecorder, GivesItsFollowersAllItsBytesAndNoOthers) {
    const Orders orders = this->orders();
    std::vector<std::unique_ptr<kit::Process>> followers;
    followers.push_back(start(s_follower, orders));
    followers.push_back(start(s_follower, orders));
    const std::unique_ptr<kit::Process> recorder = start(s_recorder, orders);
    ASSERT_TRUE(recorder->waitForOutput("half\n")) << recorder->err();
    followers.push_back(start(s_follower, orders));  // one that comes late
    // So that all of them have the movie in hand when it grows again.
    for (const auto& follower : followers)
        ASSERT_TRUE(follower->waitForOutput("first samples\n")) << follower->err();
    ASSERT_TRUE(recorder->feed("\n"));
    const kit::Outcome recorded = recorder->wait();
    EXPECT_EQ(recorded.m_exit, 0) << recorded.m_err;
    for (const auto& follower : followers) {
        const kit::Outcome outcome = follower->wait();
        EXPECT_EQ(outcome.m_exit, 0) << outcome.m_signal << outcome.m_err;
        std::printf("%s", outcome.m_out.c_str());
    }
    std::uintmax_t bytes = 0;  // of the movie and the files beside it
    for (const auto& file : std::filesystem::directory_iterator(m_tree.root()))
        bytes += file.file_size();
    EXPECT_GE(bytes, orders.samples() * sizeOf(orders.m_kind) * stress::tracksOf(orders.m_kind));
}

TEST_F(FollowerOfAFile, TellsAByteThatIsNotTheRecorders) {
    const Orders orders{m_tree.path("a.dv"), Kind::Dv, false, false, 1};
    Recording recording;
    ASSERT_TRUE(recording.begin(orders.m_path, orders.m_kind, s_rate));
    ASSERT_TRUE(recordFrames(recording, orders, 0, orders.frames()));
    ASSERT_TRUE(recording.end());
    EXPECT_EQ(s_follower.run(orders.text()).m_exit, 0);
    std::fstream file(orders.m_path, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(-1, std::ios::end).put('?');
    file.close();
    const kit::Outcome outcome = s_follower.run(orders.text());
    EXPECT_EQ(outcome.m_exit, 2);
    EXPECT_NE(outcome.m_err.find("sample 4: not what was recorded"), std::string::npos) << outcome.m_err;
}
