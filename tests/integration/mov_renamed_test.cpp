#include <gtest/gtest.h>

#include <signal.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>

#include "services/file/file_calls.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_clip_param.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/io/media_io_buf.h"
#include "tests/integration/mov_peers.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/child_job.h"
#include "tests/kit/samples.h"

// Movies with their samples in other files are renamed and moved, and whatever step fails: ffmpeg finds all samples.

namespace {

constexpr unsigned s_samples = 300, s_size = 4;

// Lets one call of a kind fail: that of this number, from 1.
class NthFault {
public:
    NthFault(FileCall call, unsigned number) {
        s_call = call;
        s_left = static_cast<int>(number);
        FileCalls::setFault(&strike);
    }
    ~NthFault() { FileCalls::setFault(nullptr); }
    NthFault(const NthFault&) = delete;
    NthFault& operator=(const NthFault&) = delete;
    static bool hasStruck() { return s_left <= 0; }

private:
    static int strike(FileCall call, const char*, int, std::size_t&) {
        return call == s_call && --s_left == 0 ? EIO : 0;
    }
    static inline std::atomic<FileCall> s_call{FileCall::Stat};
    static inline std::atomic<int> s_left{0};
};

class RenamedMov : public kit::CacheScene {
protected:
    // A movie with a sound track for each file, with all samples and still open. Null is a failure of the test.
    MediaObj* startRecording(const std::string& path, unsigned files) {
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        MediaObj* const movie = MediaObj::openWriter(path.c_str(), false, m_result, MediaContainment::ByRef,
                                                     MediaFileType::QuickTime, nullptr, BasicIOTypes::SizeAdvice::None);
        EXPECT_NE(movie, nullptr) << m_result.describe().get();
        MediaClipParam param;
        EXPECT_TRUE(
            param.initAudio(MediaFileType::QuickTime, MediaEncodingType::Pcm, MediaVideoRate::Unknown, 48000, 2, 16));
        for (unsigned i = 0; movie != nullptr && i < files; ++i) {
            MediaTrackDesc* const track = movie->createTrack(param, m_result);
            EXPECT_TRUE(track != nullptr && track->createClip(param, m_result) != nullptr) << m_result.describe().get();
            SampleInfo info;
            info.reset(s_samples * s_size);
            MediaSampleInMovie where;
            EXPECT_TRUE(track->addSamples(MediaRecordReq(0, s_samples, info), where, m_result));
            MediaIoBuf buffer;
            kit::fill(buffer, essence(i));
            EXPECT_TRUE(movie->vsWrite(where, buffer));
        }
        return movie;
    }
    // The same, finished.
    std::string record(const std::string& name, unsigned files) {
        const std::string path = m_tree.path(name);
        MediaObj* const movie = startRecording(path, files);
        if (movie == nullptr) return path;
        EXPECT_TRUE(movie->setRecording(false));
        movie->release(nullAgent(), true);
        expireAll();
        return path;
    }
    static std::string essence(unsigned track) { return kit::patternFrom(track * 13 + 5, s_samples * s_size); }

    bool rename(const std::string& from, const std::string& to, bool withMedia) {
        MediaObj* const movie = MediaObj::openReader(from.c_str(), MediaObj::ReadMode::ReadWrite, m_result);
        EXPECT_NE(movie, nullptr) << m_result.describe().get();
        if (movie == nullptr) return false;
        m_result = movie->rename(to.c_str(), withMedia, nullptr);
        const bool isDone = m_result.success();
        expectSamples(*movie);
        movie->release(nullAgent(), true);
        expireAll();
        return isDone;
    }
    // The object that was renamed reads on.
    void expectSamples(const MediaObj& movie) {
        OpResult result;
        for (unsigned i = 0; i < movie.getTrackCount(); ++i) {
            MediaSampleInMovie where;
            MediaIoBuf buffer;
            const MediaClipDesc& clip = *movie.getTrackAt(i)->getClip(0);
            EXPECT_TRUE(clip.getMediaOffset(MediaPlayReq(0, s_samples), where, result)) << result.describe().get();
            result = movie.vsRead(where, buffer);
            EXPECT_TRUE(result.success() && kit::bytesOf(buffer) == essence(i)) << i << result.describe().get();
        }
    }
    // A fresh look, ours and ffmpeg's.
    void expectWhole(const std::string& path, unsigned files) {
        SCOPED_TRACE(path);
        MediaObj* const movie = MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadOnly, m_result);
        ASSERT_NE(movie, nullptr) << m_result.describe().get();
        EXPECT_EQ(movie->getMediaCount(), files + 1);
        expectSamples(*movie);
        movie->release();
        expireAll();
        EXPECT_TRUE(movpeers::raw(path, files) == allEssence(files));
    }
    // What is left of a rename that was killed: each media file under its old name or the new one, the movie under one
    // of three, and all samples but those of the file that was under way.
    void expectNothingLost(unsigned files) {
        std::vector<std::string> movies;
        std::map<std::string, unsigned> essences;  // how often each is there
        for (const auto& entry : std::filesystem::recursive_directory_iterator(m_tree.root())) {
            const std::string name = entry.path().filename();
            if (entry.is_directory()) continue;
            if (name == "film.mov" || name == "new.mov" || name == ".new.mov.rename") {
                movies.push_back(entry.path());
            } else {
                EXPECT_TRUE(name.starts_with("film_") || name.starts_with("new_")) << name;
                std::ifstream in(entry.path(), std::ios::binary);
                ++essences[std::string(std::istreambuf_iterator<char>(in), {})];
            }
        }
        EXPECT_EQ(essences.size(), files);
        for (unsigned i = 0; i < files; ++i)
            EXPECT_EQ(essences[essence(i)], 1u);
        ASSERT_EQ(movies.size(), 1u);
        MediaObj* const movie = MediaObj::openReader(movies[0].c_str(), MediaObj::ReadMode::ReadOnly, m_result);
        ASSERT_NE(movie, nullptr) << movies[0] << m_result.describe().get();
        unsigned found = 0;
        for (unsigned i = 0; i < movie->getTrackCount(); ++i) {
            MediaSampleInMovie where;
            MediaIoBuf buffer;
            OpResult result;
            const MediaClipDesc& clip = *movie->getTrackAt(i)->getClip(0);
            EXPECT_TRUE(clip.getMediaOffset(MediaPlayReq(0, s_samples), where, result)) << result.describe().get();
            result = movie->vsRead(where, buffer);
            EXPECT_TRUE(!result.success() || kit::bytesOf(buffer) == essence(i)) << i;
            found += result ? 1 : 0;
            result.discard();
        }
        EXPECT_EQ(movie->getTrackCount(), files);
        m_unseen += files - found;
        EXPECT_GE(found + 1, files) << movies[0];
        movie->release();
        expireAll();
    }
    unsigned m_unseen = 0;  // tracks whose file the movie didn't lead to

    static std::string allEssence(unsigned files) {
        std::string all;
        for (unsigned i = 0; i < files; ++i)
            all += essence(i);
        return all;
    }
};

// Ends the process in front of one file call: "<call> <number from 1> <folder>". Then there is no way back.
FileCall s_killCall = FileCall::Rename;
std::atomic<int> s_killLeft{0};

int killAtCall(FileCall call, const char*, int, std::size_t&) {
    if (call == s_killCall && --s_killLeft == 0) ::raise(SIGKILL);
    return 0;
}

int renameUntilKilled(const std::string& argument) {
    char* rest = nullptr;
    s_killCall = static_cast<FileCall>(std::strtoul(argument.c_str(), &rest, 10));
    s_killLeft = static_cast<int>(std::strtol(rest, &rest, 10));
    const std::string folder = rest + 1;
    OpResult result;
    MediaObj* const movie =
        MediaObj::openReader((folder + "/from/film.mov").c_str(), MediaObj::ReadMode::ReadWrite, result);
    if (movie == nullptr) return 2;
    FileCalls::setFault(&killAtCall);
    result = movie->rename((folder + "/to/new.mov").c_str(), true, nullptr);
    FileCalls::setFault(nullptr);
    const bool isDone = result.success();
    result.discard();
    movie->release(MediaAgent(nullptr), true);
    return isDone ? 0 : 1;
}

const kit::ChildJob s_renameUntilKilled("rename until killed", &renameUntilKilled);

}  // namespace

TEST_F(RenamedMov, KeepsItsSamplesWhenItMovesWithThem) {
    for (const unsigned files : {1u, 2u, 8u}) {
        SCOPED_TRACE(files);
        const std::string name = "from" + std::to_string(files);
        const std::string path = record(name + "/film.mov", files);
        expectWhole(path, files);
        const std::string near = m_tree.path(name + "/other.mov");
        EXPECT_TRUE(rename(path, near, false)) << m_result.describe().get();
        expectWhole(near, files);
        const std::string moved = m_tree.path("to/deep" + std::to_string(files) + "/other.mov");
        EXPECT_TRUE(rename(near, moved, false)) << m_result.describe().get();
        expectWhole(moved, files);
        const std::string renamed = m_tree.path("to/deep" + std::to_string(files) + "/a longer name than it had.mov");
        EXPECT_TRUE(rename(moved, renamed, true)) << m_result.describe().get();
        expectWhole(renamed, files);
        EXPECT_TRUE(std::filesystem::is_empty(m_tree.path(name)));
    }
}

TEST_F(RenamedMov, IsAsItWasWhateverMoveFails) {
    constexpr unsigned files = 2;
    const std::string path = record("from/film.mov", files), moved = m_tree.path("to/film.mov");
    unsigned failures = 0;
    for (const FileCall call : {FileCall::Rename, FileCall::Write, FileCall::Sync}) {
        bool hasStruck = true;
        for (unsigned number = 1; hasStruck && number < 60; ++number) {
            SCOPED_TRACE(testing::Message() << static_cast<unsigned>(call) << " " << number);
            bool isDone = false;
            {
                const NthFault fault(call, number);
                isDone = rename(path, moved, false);
                hasStruck = NthFault::hasStruck();
            }
            failures += isDone ? 0 : 1;
            const bool isThere = std::filesystem::exists(path);
            const std::string parked = m_tree.path("to/.film.mov.rename");
            const std::string now = isThere ? path : std::filesystem::exists(moved) ? moved : parked;
            EXPECT_TRUE(isThere || isDone || now == parked) << "only the last step leaves it under another name";
            const std::string seen = now == parked ? m_tree.path("to/seen.mov") : now;
            if (now == parked) std::filesystem::rename(parked, seen);
            expectWhole(seen, files);
            if (seen != path) {
                ASSERT_TRUE(rename(seen, path, false)) << m_result.describe().get();
            }
        }
    }
    EXPECT_GT(failures, 5u);
}

TEST_F(RenamedMov, LosesNothingWhenItsProcessIsKilledOnTheWay) {
    constexpr unsigned files = 3;
    unsigned kills = 0;
    for (const FileCall call : {FileCall::Rename, FileCall::Write}) {
        bool isKilled = true;
        for (unsigned number = 1; isKilled && number < 60; ++number) {
            SCOPED_TRACE(testing::Message() << static_cast<unsigned>(call) << " " << number);
            const std::string path = record("from/film.mov", files);
            const kit::Outcome outcome = s_renameUntilKilled.run(std::to_string(static_cast<unsigned>(call)) + " " +
                                                                 std::to_string(number) + " " + m_tree.root());
            isKilled = outcome.m_signal == SIGKILL;
            kills += isKilled ? 1 : 0;
            EXPECT_TRUE(isKilled || outcome.m_exit == 0) << outcome.m_exit << outcome.m_err;
            expectNothingLost(files);
            std::filesystem::remove_all(m_tree.path("from"));
            std::filesystem::remove_all(m_tree.path("to"));
        }
    }
    EXPECT_GT(kills, 5u + files) << "in front of each move, and of the writes between them";
    EXPECT_GT(m_unseen, 0u) << "killed between a move and what the movie says of it";
}

// What fails besides the moves and writes themselves: then nothing moves, or the movie knows where to.
TEST_F(RenamedMov, IsNeverSilentlyCutOffFromItsMedia) {
    constexpr unsigned files = 1;
    const std::string path = record("from/film.mov", files), moved = m_tree.path("to/new.mov");
    for (const FileCall call : {FileCall::Read, FileCall::Open, FileCall::Stat, FileCall::MakeFolder}) {
        bool hasStruck = true;
        for (unsigned number = 1; hasStruck && number < 80; ++number) {
            SCOPED_TRACE(testing::Message() << static_cast<unsigned>(call) << " " << number);
            MediaObj* const movie = MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadWrite, m_result);
            ASSERT_NE(movie, nullptr) << m_result.describe().get();
            {
                const NthFault fault(call, number);
                m_result = movie->rename(moved.c_str(), true, nullptr);
                hasStruck = NthFault::hasStruck();
            }
            m_result.discard();
            expectSamples(*movie);
            movie->release(nullAgent(), true);
            expireAll();
            const std::string parked = m_tree.path("to/.new.mov.rename");
            const std::string now = std::filesystem::exists(path)    ? path
                                    : std::filesystem::exists(moved) ? moved
                                                                     : parked;
            MediaObj* const fresh = MediaObj::openReader(now.c_str(), MediaObj::ReadMode::ReadOnly, m_result);
            ASSERT_NE(fresh, nullptr) << now << m_result.describe().get();
            expectSamples(*fresh);
            fresh->release();
            expireAll();
            std::filesystem::remove_all(m_tree.path("from"));
            std::filesystem::remove_all(m_tree.path("to"));
            record("from/film.mov", files);
        }
    }
}

TEST_F(RenamedMov, GoesShallowerAndPastNamesThatAreTaken) {
    for (const unsigned files : {1u, 2u, 8u}) {
        SCOPED_TRACE(files);
        const std::string deep = record("a/b/c/film.mov", files);
        const std::string raw = movpeers::decode(deep, "a");
        const std::string shallow = m_tree.path("film.mov");
        EXPECT_TRUE(rename(deep, shallow, false)) << m_result.describe().get();
        EXPECT_EQ(movpeers::decode(shallow, "a"), raw);
        // The names that all its files would get.
        for (const bool withMedia : {false, true}) {
            const std::string folder = withMedia ? "named" : "taken";
            for (unsigned i = 1; i <= files; ++i) {
                const std::string number = std::to_string(i);
                m_tree.write(folder + "/film_" + number + ".data", "somebody's");
                m_tree.write(folder + "/new_" + number + ".data", "somebody's");
            }
            m_tree.write(folder + "/new.data", "somebody's");
            const std::string moved = m_tree.path(folder + "/new.mov");
            EXPECT_TRUE(rename(shallow, moved, withMedia)) << m_result.describe().get();
            EXPECT_EQ(movpeers::decode(moved, "a"), raw);
            for (unsigned i = 1; i <= files; ++i) {
                EXPECT_EQ(kit::bytesAt(m_tree.path(folder + "/film_" + std::to_string(i) + ".data"), 0, 10),
                          "somebody's");
            }
            EXPECT_TRUE(rename(moved, shallow, false)) << m_result.describe().get();
            EXPECT_EQ(movpeers::decode(shallow, "a"), raw);
        }
        for (const auto& entry : std::filesystem::directory_iterator(m_tree.root()))
            std::filesystem::remove_all(entry.path());
    }
}

TEST_F(RenamedMov, LeavesItsFolderAgainAndAgainAsOneObject) {
    const std::string path = record("a/b/film.mov", 2);
    MediaObj* const movie = MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadWrite, m_result);
    ASSERT_NE(movie, nullptr) << m_result.describe().get();
    const std::string raw = movpeers::decode(path, "a");
    for (const char* const name : {"a/c/film.mov", "d/film.mov", "d/e/f/film.mov", "a/b/film.mov"}) {
        for (const bool withMedia : {true, false}) {
            const std::string next = m_tree.path(std::string(name) + (withMedia ? "" : ".2.mov"));
            m_result = movie->rename(next.c_str(), withMedia, nullptr);
            EXPECT_TRUE(m_result.success()) << name << m_result.describe().get();
            expectSamples(*movie);
            EXPECT_EQ(movpeers::decode(next, "a"), raw);
        }
    }
    movie->release(nullAgent(), true);
    expireAll();
}

// While it is being recorded the movie's own index tells where its media are.
TEST_F(RenamedMov, IsAsItWasWhenItsIndexCannotBeWrittenWhileItIsRecorded) {
    constexpr unsigned files = 2;
    bool hasStruck = true;
    unsigned failures = 0;
    for (unsigned number = 1; hasStruck && number < 40; ++number) {
        SCOPED_TRACE(number);
        const std::string path = m_tree.path("from/film.mov"), moved = m_tree.path("to/new.mov");
        MediaObj* const movie = startRecording(path, files);
        ASSERT_NE(movie, nullptr);
        movie->flush(nullptr, false);
        bool isDone = false;
        {
            const NthFault fault(FileCall::Write, number);
            m_result = movie->rename(moved.c_str(), true, nullptr);
            hasStruck = NthFault::hasStruck();
            isDone = m_result.success();
            m_result.discard();
        }
        failures += isDone ? 0 : 1;
        EXPECT_TRUE(isDone || hasStruck);
        const std::string parked = m_tree.path("to/.new.mov.rename");
        const bool isBack = std::filesystem::exists(path);
        const std::string now = isBack ? path : std::filesystem::exists(moved) ? moved : parked;
        EXPECT_EQ(now == moved, isDone) << now;
        if (now == parked) {
            EXPECT_TRUE(std::filesystem::is_empty(m_tree.path("from"))) << "only the last step leaves it aside";
        }
        if (isBack) {
            EXPECT_TRUE(!std::filesystem::exists(m_tree.path("to")) || std::filesystem::is_empty(m_tree.path("to")));
        }
        EXPECT_EQ(std::string(movie->getPath(movie->getMediaId(0))), now);
        expectSamples(*movie);
        m_result = movie->setRecording(false);
        EXPECT_TRUE(m_result.success()) << m_result.describe().get();
        movie->release(nullAgent(), true);
        expireAll();
        MediaObj* const fresh = MediaObj::openReader(now.c_str(), MediaObj::ReadMode::ReadOnly, m_result);
        ASSERT_NE(fresh, nullptr) << now << m_result.describe().get();
        expectSamples(*fresh);
        fresh->release();
        expireAll();
        std::filesystem::remove_all(m_tree.path("from"));
        std::filesystem::remove_all(m_tree.path("to"));
    }
    EXPECT_GT(failures, 0u);
}
