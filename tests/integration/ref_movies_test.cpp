#include "tests/integration/ref_movies.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "tests/integration/mov_peers.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/samples.h"

// What the tests of renames judge by finds what is planted.

namespace {

namespace fs = std::filesystem;

class JudgeOfRenames : public kit::CacheScene {
protected:
    void put(const std::string& name, std::uint64_t offset, const std::string& bytes) {
        std::fstream file(m_tree.path(name), std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(static_cast<std::streamoff>(offset)) << bytes;
    }
    std::string faultOf(const std::string& name) {
        MediaObj* const movie = MediaObj::openReader(m_tree.path(name).c_str(), MediaObj::ReadMode::ReadOnly, m_result);
        if (movie == nullptr) return "it doesn't open";
        const std::string fault = refmovies::faultOf(*movie);
        movie->release();
        expireAll();
        return fault;
    }
};

}  // namespace

TEST_F(JudgeOfRenames, SeesWhatIsNotAsItWasInATree) {
    refmovies::record(m_tree.path("a/film.mov"), 2);
    expireAll();
    const refmovies::Tree before = refmovies::treeOf(m_tree.path("a"));
    const auto change = [&] { return refmovies::changeOf(before, refmovies::treeOf(m_tree.path("a"))); };
    EXPECT_EQ(before.size(), 3u);
    EXPECT_EQ(change(), "");
    put("a/film_2.data", 700, "?");
    EXPECT_EQ(change(), "film_2.data is another. ");
    put("a/film_2.data", 700, refmovies::essence(1).substr(700, 1));
    EXPECT_EQ(change(), "");
    fs::rename(m_tree.path("a/film_2.data"), m_tree.path("a/new.data"));
    EXPECT_EQ(change(), "film_2.data is missing. new.data is new. ");
    fs::rename(m_tree.path("a/new.data"), m_tree.path("a/film_2.data"));
    const std::uint64_t size = fs::file_size(m_tree.path("a/film.mov"));
    m_tree.append("a/film.mov", "?");
    EXPECT_EQ(change(), "film.mov is another. ");
    fs::resize_file(m_tree.path("a/film.mov"), size);
    EXPECT_EQ(change(), "");
    fs::resize_file(m_tree.path("a/film_1.data"), 1199);
    EXPECT_EQ(change(), "film_1.data is another. ");
}

TEST_F(JudgeOfRenames, SeesWhatAMoveHasLeftOrTaken) {
    const std::string first = refmovies::essence(0), second = refmovies::essence(1);
    const std::vector<std::string> old{"film.mov", "1", "2"}, now{"new.mov", "3", "2"};
    const refmovies::Tree before{{"film.mov", "m"}, {"1", first}, {"2", second}, {"other", "o"}};
    const refmovies::Tree good{{"new.mov", "n"}, {"3", first}, {"2", second}, {"other", "o"}};
    EXPECT_EQ(refmovies::faultOfMove(before, good, old, now), "");
    const auto faultWith = [&](const std::string& name, const char* bytes) {
        refmovies::Tree tree = good;
        tree[name] = bytes;
        return refmovies::faultOfMove(before, tree, old, now);
    };
    EXPECT_EQ(faultWith("3", ""), "3 isn't what was recorded. ");
    EXPECT_EQ(faultWith("1", "x"), "1 is left. 5 files. ");
    EXPECT_EQ(faultWith("other", "x"), "other isn't as it was. ");
    EXPECT_EQ(faultWith("another", "x"), "5 files. ");
    refmovies::Tree less = good;
    less.erase("2");
    EXPECT_EQ(refmovies::faultOfMove(before, less, old, now), "2 isn't what was recorded. 3 files. ");
    less = good;
    less.erase("other");
    EXPECT_EQ(refmovies::faultOfMove(before, less, old, now), "other isn't as it was. 3 files. ");
}

// The index stands twice in a recorded movie: that which nobody is led to may differ.
TEST_F(JudgeOfRenames, SeesAReferenceThatWasNotTakenBack) {
    const std::string path = m_tree.path("a/film.mov"), other = m_tree.path("b/film.mov");
    refmovies::record(path, 2);
    expireAll();
    const refmovies::Tree before = refmovies::treeOf(m_tree.path("a"));
    const std::string bytes = kit::bytesAt(path, 0, fs::file_size(path));
    for (const std::string& next : {other, path}) {
        MediaObj* const movie =
            MediaObj::openReader((next == other ? path : other).c_str(), MediaObj::ReadMode::ReadWrite, m_result);
        ASSERT_NE(movie, nullptr) << m_result.describe().get();
        m_result = movie->rename(next.c_str(), true, nullptr);
        EXPECT_TRUE(m_result.success()) << m_result.describe().get();
        movie->release(nullAgent(), true);
        expireAll();
        // Where they lie by now, the movie as it says so.
        if (next == other) {
            fs::create_directories(m_tree.path("c"));
            fs::copy_file(other, m_tree.path("c/film.mov"));
        }
    }
    EXPECT_EQ(refmovies::changeOf(before, refmovies::treeOf(m_tree.path("a"))), "");
    EXPECT_NE(kit::bytesAt(path, 0, fs::file_size(path)), bytes) << "the place that isn't in use";
    fs::copy_file(m_tree.path("c/film.mov"), path, fs::copy_options::overwrite_existing);
    EXPECT_EQ(refmovies::changeOf(before, refmovies::treeOf(m_tree.path("a"))), "film.mov is another. ");
}

TEST_F(JudgeOfRenames, SeesMediaThatTheMovieDoesNotLeadTo) {
    const std::string path = m_tree.path("a/film.mov"), sound = m_tree.path("b/film.mov");
    refmovies::record(path, 2);
    refmovies::record(sound, 2);
    expireAll();
    EXPECT_EQ(faultOf("a/film.mov"), "");
    const std::vector<std::string> hashes = movpeers::rawHashes({path, sound}, 2);
    EXPECT_EQ(hashes[0], hashes[1]);
    put("b/film_2.data", 700, "?");
    EXPECT_EQ(faultOf("b/film.mov"), "clip 0 of track 1: other samples");
    EXPECT_NE(movpeers::rawHashes({path, sound}, 2)[1], hashes[0]);
    fs::rename(m_tree.path("a/film_1.data"), m_tree.path("a/new.data"));
    EXPECT_TRUE(faultOf("a/film.mov").starts_with("clip 0 of track 0: ")) << faultOf("a/film.mov");
}
