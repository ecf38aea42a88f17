#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>

#include "tests/integration/mov_peers.h"
#include "tests/integration/ref_movies.h"
#include "tests/kit/cache_scene.h"

// Every step of a rename fails in turn, of movies with 1, 2 and 8 media files, on each kind of road, past names that
// are free and taken. Each failure has a tree of its own, and ffmpeg reads them all in the end.

namespace {

namespace fs = std::filesystem;
using refmovies::faultOfMove;
using refmovies::NthFault;
using refmovies::Tree;

struct Road {
    const char* m_name;
    const char* m_from;
    const char* m_to;
    bool m_withMedia;
};

constexpr unsigned s_moviesAtOnce = 32;  // for ffmpeg

class RenameSteps : public kit::CacheScene, public testing::WithParamInterface<Road> {
protected:
    struct Step {
        FileCall m_call;
        unsigned m_number;  // from 1
        unsigned m_files;
        bool m_isTaken;  // the names that the media would get
    };

    // Where the movie is in the end.
    enum class State : std::uint32_t { Back, Aside, Moved };

    struct Outcome {
        bool m_hasStruck = false;
        bool m_isDone = false;
    };

    void TearDown() override {
        expectReadByFfmpeg();
        CacheScene::TearDown();
    }

    static std::vector<std::string> pathsOf(const MediaObj& movie) {
        std::vector<std::string> paths;
        for (unsigned i = 0; i < movie.getMediaCount(); ++i)
            paths.push_back(fs::path(movie.getPath(movie.getMediaId(i))).lexically_normal());
        return paths;
    }

    static std::vector<std::string> namesIn(const std::string& folder, std::vector<std::string> paths) {
        for (std::string& path : paths)
            path = path.substr(folder.size() + 1);
        return paths;
    }

    // Renames a movie of its own with that step failing, and with `count` steps from there on.
    Outcome fail(const Step& step, unsigned count = 1) {
        const std::string folder = m_tree.path(std::to_string(m_trees++));
        SCOPED_TRACE(testing::Message() << folder << ": call " << static_cast<unsigned>(step.m_call) << " number "
                                        << step.m_number << " files " << step.m_files << " taken " << step.m_isTaken);
        const std::string from = folder + "/" + GetParam().m_from, to = folder + "/" + GetParam().m_to;
        refmovies::record(from, step.m_files);
        expireAll();
        if (step.m_isTaken) occupy(to, step.m_files);
        MediaObj* const movie = MediaObj::openReader(from.c_str(), MediaObj::ReadMode::ReadWrite, m_result);
        EXPECT_NE(movie, nullptr) << m_result.describe().get();
        if (movie == nullptr) return {};
        const Tree before = refmovies::treeOf(folder);
        const std::vector<std::string> paths = pathsOf(*movie);
        m_log.clear();
        bool hasStruck = false;
        {
            const NthFault fault(step.m_call, step.m_number, count);
            m_result = movie->rename(to.c_str(), GetParam().m_withMedia, nullptr);
            hasStruck = NthFault::hasStruck();
        }
        const bool isDone = m_result.success();
        m_result.discard();
        const std::string now = pathsOf(*movie)[0];
        const State state = now == from ? State::Back : now == to ? State::Moved : State::Aside;
        EXPECT_EQ(state == State::Moved, isDone);
        if (count == 1 && !isDone) {
            const bool isLast = step.m_call == FileCall::Rename && step.m_number == step.m_files + 2;
            EXPECT_EQ(state == State::Aside, isLast) << now;
            EXPECT_EQ(m_log.count("cannot restore*"), 0u) << m_log.text();
        }
        if (state == State::Back && count == 1) {
            EXPECT_EQ(refmovies::changeOf(before, refmovies::treeOf(folder)), "");
            EXPECT_EQ(pathsOf(*movie), paths);
        } else {
            EXPECT_TRUE(state != State::Aside || now == asideOf(to)) << now;
            const std::vector<std::string> names = namesIn(folder, pathsOf(*movie));
            EXPECT_EQ(faultOfMove(before, refmovies::treeOf(folder), namesIn(folder, paths), names), "");
            EXPECT_TRUE(count != 1 || std::none_of(paths.begin(), paths.end(), [](auto& p) { return fs::exists(p); }));
        }
        refmovies::expectSamples(*movie);
        movie->release(nullAgent(), true);
        expireAll();
        expectOpens(now);
        // One that was moved there and back may lead to its media by their whole paths alone, which ffmpeg doesn't go.
        if (state != State::Back || count == 1) m_ends[step.m_files].push_back(now);
        return {hasStruck, isDone};
    }

    // Every call of that kind that there is in a rename, and one rename in which all is well. Answers how many failed.
    unsigned failEach(FileCall call, unsigned files, bool isTaken, unsigned count = 1) {
        unsigned failures = 0;
        Outcome outcome{true, false};
        for (unsigned number = 1; outcome.m_hasStruck && number < 200; ++number) {
            outcome = fail({call, number, files, isTaken}, count);
            failures += outcome.m_isDone ? 0 : 1;
        }
        EXPECT_TRUE(!outcome.m_hasStruck && outcome.m_isDone);
        return failures;
    }

private:
    // Somebody's files under the names that the media keep and under those that they would get.
    void occupy(const std::string& to, unsigned files) {
        const std::string folder = fs::path(to).parent_path().string().substr(m_tree.root().size() + 1) + "/";
        for (unsigned i = 1; i <= files; ++i) {
            const std::string number = std::to_string(i);
            for (const std::string& name : {"film_" + number, files > 1 ? "new_" + number : "new"}) {
                if (!m_tree.exists(folder + name + ".data")) m_tree.write(folder + name + ".data", "somebody's");
            }
        }
    }
    static std::string asideOf(const std::string& to) {
        const fs::path path(to);
        return path.parent_path() / ("." + path.filename().string() + ".rename");
    }
    void expectOpens(const std::string& path) {
        MediaObj* const movie = MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadOnly, m_result);
        ASSERT_NE(movie, nullptr) << path << m_result.describe().get();
        refmovies::expectSamples(*movie);
        movie->release();
        expireAll();
    }
    void expectReadByFfmpeg() {
        for (const auto& [files, paths] : m_ends) {
            EXPECT_TRUE(movpeers::raw(paths[0], files) == refmovies::allEssence(files));
            for (std::size_t at = 0; at < paths.size(); at += s_moviesAtOnce) {
                const std::size_t end = std::min(at + s_moviesAtOnce, paths.size());
                const std::vector<std::string> some(paths.begin() + static_cast<long>(at),
                                                    paths.begin() + static_cast<long>(end));
                const std::vector<std::string> hashes = movpeers::rawHashes(some, files);
                for (std::size_t i = 0; i < some.size(); ++i)
                    EXPECT_EQ(hashes[i], hashes[0]) << some[i];
            }
        }
    }

    std::map<unsigned, std::vector<std::string>> m_ends;  // where the movies of so many files are in the end
    unsigned m_trees = 0;
};

std::string nameOf(const testing::TestParamInfo<Road>& road) { return road.param.m_name; }

}  // namespace

TEST_P(RenameSteps, AMoveThatFails) {
    constexpr struct {
        unsigned m_files;
        bool m_isTaken;
    } movies[] = {{1, false}, {2, false}, {2, true}, {8, true}};
    for (const auto& movie : movies) {
        EXPECT_EQ(failEach(FileCall::Rename, movie.m_files, movie.m_isTaken), movie.m_files + 2)
            << "aside, each media file, and to its name";
    }
}

// Each move but that inside the new folder writes the references anew, and sees to it that they are on the disk.
TEST_P(RenameSteps, AReferenceThatCannotBeWritten) {
    const unsigned asides =
        fs::path(GetParam().m_to).parent_path() == fs::path(GetParam().m_from).parent_path() ? 0 : 1;
    for (const unsigned files : {1u, 2u, 8u}) {
        const bool isTaken = files != 8;
        EXPECT_GE(failEach(FileCall::Write, files, isTaken), files + asides);
        EXPECT_GE(failEach(FileCall::Sync, files, !isTaken), files + asides);
    }
}

TEST_P(RenameSteps, AFolderThatCannotBeMade) {
    const std::string from = fs::path(GetParam().m_from).parent_path(), to = fs::path(GetParam().m_to).parent_path();
    EXPECT_EQ(failEach(FileCall::MakeFolder, 2, false), from.starts_with(to) ? 0u : 2u) << "of the new path";
}

// Not even back: what has moved stays, and the movie knows where.
TEST_P(RenameSteps, NothingThatGoesFromAStepOn) {
    for (const FileCall call : {FileCall::Rename, FileCall::Write, FileCall::Sync})
        EXPECT_GE(failEach(call, 2, false, ~0u), 2u);
}

INSTANTIATE_TEST_SUITE_P(Roads, RenameSteps,
                         testing::Values(Road{"InItsFolder", "a/b/film.mov", "a/b/new.mov", true},
                                         Road{"Deeper", "a/b/film.mov", "a/b/c/d/new.mov", false},
                                         Road{"Shallower", "a/b/film.mov", "a/new.mov", false},
                                         Road{"AcrossFolders", "a/b/film.mov", "o/p/new.mov", true}),
                         nameOf);
