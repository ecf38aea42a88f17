#include <gtest/gtest.h>

#include <signal.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <thread>

#include "services/file/file_calls.h"
#include "shared/include/description/media_clip_desc.h"
#include "shared/include/description/media_clip_param.h"
#include "shared/include/description/media_track_desc.h"
#include "shared/include/index/media_sample_req.h"
#include "shared/include/io/media_io_buf.h"
#include "tests/integration/mov_peers.h"
#include "tests/integration/ref_movies.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/child_job.h"
#include "tests/kit/samples.h"
#include "tests/kit/wait_for.h"

// Movies with their samples in other files are renamed and moved, and whatever step fails: ffmpeg finds all samples.

namespace {

using refmovies::allEssence;
using refmovies::essence;
using refmovies::expectSamples;
using refmovies::NthFault;
using refmovies::startRecording;

class RenamedMov : public kit::CacheScene {
protected:
    // A finished movie.
    std::string record(const std::string& name, unsigned files) {
        const std::string path = m_tree.path(name);
        refmovies::record(path, files);
        expireAll();
        return path;
    }

    bool rename(const std::string& from, const std::string& to, bool withMedia) {
        MediaObj* const movie = MediaObj::openReader(from.c_str(), MediaObj::ReadMode::ReadWrite, m_result);
        EXPECT_NE(movie, nullptr) << m_result.describe().get();
        if (movie == nullptr) return false;
        m_result = movie->rename(to.c_str(), withMedia, nullptr);
        const bool isDone = m_result.success();
        expectSamples(*movie);  // the object that was renamed reads on
        movie->release(nullAgent(), true);
        expireAll();
        return isDone;
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
    // What is lost of what a killed rename has left; empty when nothing is. Each media file is under its old name or
    // the new one, the movie under one of three, and leads to all samples but those of the file that was under way.
    std::string lossOf(unsigned files) {
        std::string loss;
        std::vector<std::string> movies;
        std::map<std::string, unsigned> essences;  // how often each is there
        for (const auto& [name, bytes] : refmovies::treeOf(m_tree.root())) {
            const std::string base = std::filesystem::path(name).filename();
            if (base == "film.mov" || base == "new.mov" || base == ".new.mov.rename") {
                movies.push_back(m_tree.path(name));
            } else {
                if (!base.starts_with("film_") && !base.starts_with("new_")) loss += "what is " + name + "? ";
                ++essences[bytes];
            }
        }
        for (unsigned i = 0; i < files; ++i) {
            const unsigned count = essences[essence(i)];
            if (count != 1)
                loss += "media file " + std::to_string(i) + " is there " + std::to_string(count) + " times. ";
        }
        if (essences.size() != files) loss += "a file has other bytes. ";
        if (movies.size() != 1) return loss + std::to_string(movies.size()) + " movies";
        return loss + lossOfMovie(movies[0], files);
    }
    std::string lossOfMovie(const std::string& path, unsigned files) {
        MediaObj* const movie = MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadOnly, m_result);
        if (movie == nullptr) return path + m_result.describe().get();
        std::string loss = movie->getTrackCount() == files ? "" : "a track is missing. ";
        unsigned found = 0;
        for (unsigned i = 0; i < movie->getTrackCount(); ++i) {
            MediaSampleInMovie where;
            MediaIoBuf buffer;
            OpResult result;
            const MediaClipDesc& clip = *movie->getTrackAt(i)->getClip(0);
            const bool isTold = clip.getMediaOffset(MediaPlayReq(0, refmovies::s_samples), where, result);
            if (isTold) result = movie->vsRead(where, buffer);
            const bool isRead = isTold && result;
            if (!isTold || (isRead && kit::bytesOf(buffer) != essence(i)))
                loss += "track " + std::to_string(i) + " has other samples. ";
            found += isRead ? 1 : 0;
            result.discard();
        }
        m_unseen += files - found;
        if (found + 1 < files) loss += path + " leads to " + std::to_string(found) + " files. ";
        movie->release();
        expireAll();
        return loss;
    }
    unsigned m_unseen = 0;  // tracks whose file the movie didn't lead to
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

// Reads a movie over and over in a thread of its own, as a client that goes on to the object of its newer version.
class Reader {
public:
    explicit Reader(const std::string& path) {
        OpResult result;
        m_holder = MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadOnly, result);
        m_isOpen = result.success();
        result.discard();
        if (m_isOpen) m_thread = std::thread([this] { read(); });
    }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;
    ~Reader() {
        m_isOver = true;
        if (m_thread.joinable()) m_thread.join();
        m_holder = nullptr;
    }
    // Twice from now on, without a fault so far.
    bool readsOn() const {
        const unsigned now = m_rounds;
        return m_isOpen && kit::waitFor([&] { return m_rounds > now + 1 || m_isOver; }) && !m_isOver;
    }

private:
    void read() {
        for (; !m_isOver; ++m_rounds) {
            MediaObj* const movie = m_holder.preserve();
            const std::string fault = refmovies::faultOf(*movie);
            MediaObj* const next = m_holder.preserve();
            // The files of one that has a successor are the successor's.
            if (!fault.empty() && next == movie) {
                std::printf("%s\n", fault.c_str());
                m_isOver = true;
            }
            movie->release();
            next->release();
        }
    }

    MediaObj::Persist m_holder;
    bool m_isOpen = false;
    std::atomic<unsigned> m_rounds{0};
    std::atomic<bool> m_isOver{false};
    std::thread m_thread;
};

// A line of input is the path of the movie that is to be read from now on; an empty one asks how it goes.
int readThroughRenames(const std::string&) {
    std::unique_ptr<Reader> reader;
    unsigned questions = 0;
    for (std::string line; std::getline(std::cin, line);) {
        if (!line.empty()) reader = std::make_unique<Reader>(line);
        const bool isGood = reader->readsOn();
        std::printf("%u %s\n", ++questions, isGood ? "reads" : "doesn't");
        std::fflush(stdout);
        if (!isGood) return 1;
    }
    return 0;
}

const kit::ChildJob s_readThroughRenames("read through renames", &readThroughRenames);

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

// Beside a process that has it open and reads on.
TEST_F(RenamedMov, LosesNothingWhenItsProcessIsKilledOnTheWay) {
    constexpr unsigned files = 3;
    unsigned kills = 0, questions = 0;
    kit::Process reader(s_readThroughRenames.command(""));
    const auto reads = [&](const std::string& line) {
        const std::string answer = "\n" + std::to_string(++questions) + " ";
        return reader.feed(line + "\n") && reader.waitForOutput(answer) && reader.waitForOutput(answer + "reads\n");
    };
    for (const FileCall call : {FileCall::Rename, FileCall::Write}) {
        bool isKilled = true;
        for (unsigned number = 1; isKilled && number < 60; ++number) {
            SCOPED_TRACE(testing::Message() << static_cast<unsigned>(call) << " " << number);
            const std::string path = record("from/film.mov", files);
            ASSERT_TRUE(reads(path)) << reader.out() << reader.err();
            const kit::Outcome outcome = s_renameUntilKilled.run(std::to_string(static_cast<unsigned>(call)) + " " +
                                                                 std::to_string(number) + " " + m_tree.root());
            isKilled = outcome.m_signal == SIGKILL;
            kills += isKilled ? 1 : 0;
            EXPECT_TRUE(isKilled || outcome.m_exit == 0) << outcome.m_exit << outcome.m_err;
            EXPECT_EQ(lossOf(files), "");
            ASSERT_TRUE(reads("")) << reader.out() << reader.err();
            std::filesystem::remove_all(m_tree.path("from"));
            std::filesystem::remove_all(m_tree.path("to"));
        }
    }
    EXPECT_GT(kills, 5u + files) << "in front of each move, and of the writes between them";
    EXPECT_GT(m_unseen, 0u) << "killed between a move and what the movie says of it";
    reader.endInput();
    EXPECT_EQ(reader.wait().m_exit, 0);
}

TEST_F(RenamedMov, IsSeenToHaveLostWhatIsTakenAway) {
    namespace fs = std::filesystem;
    struct Row {
        const char* m_loss;
        void (*m_plant)(const std::string& folder);
    };
    const Row rows[] = {
        {"", [](const std::string& folder) { fs::rename(folder + "film_2.data", folder + "new_2.data"); }},
        {"media file 1 is there 0 times. ", [](const std::string& folder) { fs::remove(folder + "film_2.data"); }},
        {"media file 1 is there 2 times. ",
         [](const std::string& folder) { fs::copy_file(folder + "film_2.data", folder + "new_2.data"); }},
        {"a file has other bytes. ",
         [](const std::string& folder) { std::ofstream(folder + "film_2.data", std::ios::app) << '?'; }},
        {"track 1 has other samples. ",
         [](const std::string& folder) {
             fs::rename(folder + "film_2.data", folder + "film_4.data");
             fs::rename(folder + "film_3.data", folder + "film_2.data");
         }},
        {"film.mov leads to 1 files. ",
         [](const std::string& folder) {
             fs::rename(folder + "film_1.data", folder + "new_1.data");
             fs::rename(folder + "film_2.data", folder + "new_2.data");
         }},
        {"0 movies", [](const std::string& folder) { fs::remove(folder + "film.mov"); }},
        {"2 movies", [](const std::string& folder) { fs::copy_file(folder + "film.mov", folder + "new.mov"); }},
        {"what is from/other? ", [](const std::string& folder) { std::ofstream(folder + "other") << "other"; }},
    };
    for (const Row& row : rows) {
        record("from/film.mov", 3);
        row.m_plant(m_tree.path("from/"));
        const std::string loss = lossOf(3);
        EXPECT_TRUE(loss.find(row.m_loss) != std::string::npos && loss.empty() == (*row.m_loss == '\0'))
            << row.m_loss << "| " << loss;
        m_result.discard();
        fs::remove_all(m_tree.path("from"));
    }
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
            const refmovies::Tree before = refmovies::treeOf(m_tree.path("from"));
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
            if (now == path) {
                EXPECT_EQ(refmovies::changeOf(before, refmovies::treeOf(m_tree.path("from"))), "");
            }
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

TEST_F(RenamedMov, TakesNoNameOfAnotherTypeAndOneWithoutASuffix) {
    const std::string path = record("from/film.mov", 2);
    for (const std::string& name : {m_tree.path("from/film.mxf"), m_tree.path("to/film.mxf")}) {
        EXPECT_FALSE(rename(path, name, false));
        EXPECT_TRUE(kit::isError(m_result, 17));
        EXPECT_EQ(std::string(m_result.getMessage()),
                  "Rename would change type from mov to mxf: " + path + " --> " + name);
        m_result.discard();
    }
    EXPECT_TRUE(rename(path, m_tree.path("to/film"), true)) << m_result.describe().get();
    EXPECT_TRUE(movpeers::raw(m_tree.path("to/film"), 2) == allEssence(2));
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
        const refmovies::Tree before = refmovies::treeOf(m_tree.path("from"));
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
            EXPECT_EQ(refmovies::changeOf(before, refmovies::treeOf(m_tree.path("from"))), "");
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
