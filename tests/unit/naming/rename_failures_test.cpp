#include <gmock/gmock.h>

#include "tests/unit/naming/rename_scene.h"

using kit::isError;
using kit::isWarning;
using naming::Held;
using naming::Listing;
using naming::RenamedMovie;
using naming::RenameFault;
using naming::ToldNamer;
using testing::ElementsAre;

// What stands after a rename that fails, step by step.

namespace {

class RenameFails : public naming::RenameScene {
protected:
    // The lines of one level, in order.
    std::vector<std::string> errors() const {
        std::vector<std::string> texts;
        for (const kit::LogCapture::Line& line : m_log.lines()) {
            if (line.m_level == LogLevel::Error && !line.m_text.starts_with("FilePerClient"))
                texts.push_back(line.m_text);
        }
        return texts;
    }
};

}  // namespace

// ---- in the plan

TEST_F(RenameFails, ANameThatIsTooLongIsDeliveredAndAnswered) {
    const Held movie(make("m/old.hdcam", {"m/a.wav", "m/below/" + std::string(120, 'x') + ".wav"}));
    const Listing before = files();
    const std::string far = "n/" + std::string(120, 'y');
    OpResult result = movie->rename(at(far + "/new.hdcam").c_str(), false, nullptr);
    EXPECT_TRUE(isWarning(result, 1));
    EXPECT_EQ(naming::textOf(result), "new name too long");
    EXPECT_TRUE(m_log.has(LogLevel::Warning, "*new name too long*")) << m_log.text();
    EXPECT_EQ(files(), before);
    EXPECT_TRUE(m_tree.exists(far)) << "made for the file before it";
    EXPECT_TRUE(movie->m_moves.empty());
}

TEST_F(RenameFails, AFileThatNoClipUsesIsAnError) {
    kit::MovieScript script;
    script.audioIn(m_tree.write("m/a.wav", "a"), 1);
    script.m_files.push_back(m_tree.write("m/b.wav", "b"));
    const Held movie(
        new RenamedMovie(script, m_tree.write("m/old.hdcam", "movie"), true, MediaObj::CacheRefValue::None));
    const Listing before = files();
    EXPECT_TRUE(isError(movie->rename(at("n/new.hdcam").c_str(), false, nullptr), 1));
    EXPECT_EQ(files(), before);
    EXPECT_TRUE(movie->m_moves.empty());
}

TEST_F(RenameFails, ANamerThatRefusesIsAWarning) {
    const Held movie(makeWith(3));
    const Listing before = files();
    ToldNamer namer;
    namer.m_name = at("made%/x.wav");
    namer.m_refuse = 2;
    EXPECT_TRUE(isWarning(movie->rename(at("n/new.hdcam").c_str(), true, &namer), 1));
    EXPECT_EQ(namer.m_asked.size(), 2u);
    EXPECT_EQ(files(), before);
    EXPECT_TRUE(m_tree.exists("made1"));
    EXPECT_FALSE(m_tree.exists("made2") || m_tree.exists("n"));
    EXPECT_TRUE(movie->m_moves.empty());
}

TEST_F(RenameFails, ANameOfTheMoviesThatIsTooLongForItsMediaIsAWarning) {
    const Held movie(makeWith(1));
    const Listing before = files();
    // Below the folder the place that the file would keep is short enough, and the name after the movie isn't.
    const std::string name(255 - at("n").size(), 'x');
    EXPECT_TRUE(isWarning(movie->rename(at("n/" + name).c_str(), true, nullptr), 1));
    EXPECT_EQ(files(), before);
    EXPECT_TRUE(movie->m_moves.empty());
}

TEST_F(RenameFails, AFolderThatCannotBeMadeForMediaIsAWarning) {
    const Held movie(makeWith(2));
    m_tree.write("wall", "no folder");
    const Listing before = tree();
    ToldNamer namer;
    namer.m_name = at("wall/%.wav");
    EXPECT_TRUE(isWarning(movie->rename(at("n/new.hdcam").c_str(), true, &namer), 2));
    EXPECT_EQ(tree(), before);
    EXPECT_TRUE(movie->m_moves.empty());
}

TEST_F(RenameFails, AFolderThatCannotBeMadeForTheMovieIsAWarning) {
    m_tree.write("wall", "no folder");
    for (const unsigned count : {0u, 2u}) {
        const Held movie(makeWith(count));
        const Listing before = files();
        ToldNamer namer;
        namer.m_name = at("made/%.wav");
        EXPECT_TRUE(isWarning(movie->rename(at("wall/new.hdcam").c_str(), true, &namer), 2));
        EXPECT_EQ(files(), before);
        EXPECT_TRUE(movie->m_moves.empty());
    }
}

// ---- in the moves

// Call 1 sets the movie aside, calls 2 and on move media, the last one gives the movie its name.
TEST_F(RenameFails, EachMoveInTurn) {
    for (const unsigned count : {1u, 2u, 8u}) {
        for (unsigned call = 1; call <= count + 2; ++call) {
            const Held movie(makeWith(count, "run/m/"));
            const Listing before = files();
            const std::vector<std::string> paths = pathsOf(*movie);
            movie->m_refuse = {call};
            OpResult result = movie->rename(at("run/n/new.hdcam").c_str(), true, nullptr);
            EXPECT_TRUE(isError(result, MediaCode::WriteError));
            EXPECT_EQ(naming::textOf(result), "told to") << "the failing move's own result";
            if (call < count + 2) {
                EXPECT_EQ(files(), before) << "call " << call << " of " << count;
                EXPECT_EQ(pathsOf(*movie), paths);
            } else {
                Listing wanted = {{"run/n/.new.hdcam.rename", "run/m/old.hdcam"}};
                for (unsigned i = 0; i < count; ++i)
                    wanted["run/n/" + (count > 1 ? "new_" + std::to_string(i + 1) : "new") + ".wav"] =
                        "run/m/take" + std::to_string(i) + ".wav";
                EXPECT_EQ(files(), wanted);
            }
            EXPECT_EQ(movie->m_flushes, call > 1 && call < count + 2 ? 1 : 0);
            EXPECT_EQ(movie->m_movesAtClose.size(), call == count + 2 ? 1u : 0u);
            std::filesystem::remove_all(at("run"));
        }
    }
}

// The same where it is the system that refuses, once; the movie can be renamed afterwards.
TEST_F(RenameFails, EachMoveInTurnByTheSystem) {
    constexpr unsigned count = 3;
    for (unsigned call = 1; call <= count + 2; ++call) {
        const Held movie(makeWith(count, "run/m/"));
        const Listing before = files();
        {
            const RenameFault fault(FileCall::Rename, call, 1);
            EXPECT_TRUE(isWarning(movie->rename(at("run/n/new.hdcam").c_str(), false, nullptr), 2));
        }
        if (call < count + 2) {
            EXPECT_EQ(files(), before) << "call " << call;
        } else {
            EXPECT_TRUE(m_tree.exists("run/n/.new.hdcam.rename"));
        }
        // What is left can be renamed again.
        EXPECT_TRUE(movie->rename(at("run/o/new.hdcam").c_str(), false, nullptr)) << "call " << call;
        const Listing after = files();
        EXPECT_EQ(after.size(), count + 1);
        EXPECT_EQ(after.at("run/o/new.hdcam"), "run/m/old.hdcam");
        EXPECT_EQ(after.at("run/o/take2.wav"), "run/m/take2.wav");
        std::filesystem::remove_all(at("run"));
    }
}

TEST_F(RenameFails, OfFourMediaTheThirdFailsAndTheyGoBackThirdSecondFirstAndThenTheMovie) {
    const Held movie(makeWith(4));
    const Listing before = files();
    movie->m_refuse = {4};
    EXPECT_TRUE(isError(movie->rename(at("n/new.hdcam").c_str(), false, nullptr), MediaCode::WriteError));
    EXPECT_THAT(movie->m_moves,
                ElementsAre(Move{1, at("n/.new.hdcam.rename")}, Move{2, at("n/take0.wav")}, Move{3, at("n/take1.wav")},
                            Move{4, at("n/take2.wav")}, Move{4, at("m/take2.wav")}, Move{3, at("m/take1.wav")},
                            Move{2, at("m/take0.wav")}, Move{1, at("m/old.hdcam")}));
    EXPECT_EQ(files(), before);
    EXPECT_EQ(movie->m_flushes, 1);
    EXPECT_THAT(errors(), ElementsAre("can't rename: " + at("m/take2.wav") + " --> " + at("n/take2.wav"),
                                      "rename of movie failed: " + at("m/old.hdcam") + " --> " + at("n/new.hdcam")));
}

TEST_F(RenameFails, MediaThatStayedAreNotMovedBack) {
    // The first and the third keep their places, up and sideways.
    const Held movie(make("a/b/old.hdcam", {"a/x.wav", "a/b/y.wav", "a/s/z.wav", "a/b/w.wav"}));
    const Listing before = files();
    movie->m_refuse = {3};
    EXPECT_TRUE(isError(movie->rename(at("a/c/new.hdcam").c_str(), false, nullptr), MediaCode::WriteError));
    EXPECT_THAT(movie->m_moves,
                ElementsAre(Move{1, at("a/c/.new.hdcam.rename")}, Move{3, at("a/c/y.wav")}, Move{5, at("a/c/w.wav")},
                            Move{5, at("a/b/w.wav")}, Move{3, at("a/b/y.wav")}, Move{1, at("a/b/old.hdcam")}));
    EXPECT_EQ(files(), before);
}

TEST_F(RenameFails, ARestoreThatFailsIsToldAndTheOthersGoOn) {
    const Held movie(makeWith(4));
    // The third media file's move; the second one's way back, and the movie's.
    movie->m_refuse = {4, 6, 8};
    OpResult result = movie->rename(at("n/new.hdcam").c_str(), false, nullptr);
    EXPECT_TRUE(isError(result, MediaCode::WriteError));
    EXPECT_EQ(movie->m_moves.size(), 8u);
    EXPECT_EQ(files(), (Listing{{"n/.new.hdcam.rename", "m/old.hdcam"},
                                {"m/take0.wav", "m/take0.wav"},
                                {"n/take1.wav", "m/take1.wav"},
                                {"m/take2.wav", "m/take2.wav"},
                                {"m/take3.wav", "m/take3.wav"}}));
    EXPECT_THAT(errors(), ElementsAre("can't rename: " + at("m/take2.wav") + " --> " + at("n/take2.wav"),
                                      "rename of movie failed: " + at("m/old.hdcam") + " --> " + at("n/new.hdcam"),
                                      "cannot restore " + at("n/take1.wav") + " to " + at("m/take1.wav"),
                                      "cannot restore " + at("n/new.hdcam") + " to " + at("m/old.hdcam")));
    EXPECT_EQ(movie->m_flushes, 1);
    // The list knows where each file is.
    EXPECT_THAT(pathsOf(*movie), ElementsAre(at("n/.new.hdcam.rename"), at("m/take0.wav"), at("n/take1.wav"),
                                             at("m/take2.wav"), at("m/take3.wav")));
}

TEST_F(RenameFails, WithEveryMoveRefusedForEverNothingIsLost) {
    for (unsigned call = 1; call <= 4; ++call) {
        const Held movie(makeWith(2, "run/m/"));
        const RenameFault fault(FileCall::Rename, call);
        EXPECT_TRUE(isWarning(movie->rename(at("run/n/new.hdcam").c_str(), false, nullptr), 2));
        Listing wanted = {{"run/m/old.hdcam", "run/m/old.hdcam"},
                          {"run/m/take0.wav", "run/m/take0.wav"},
                          {"run/m/take1.wav", "run/m/take1.wav"}};
        if (call > 1) wanted.erase("run/m/old.hdcam"), wanted["run/n/.new.hdcam.rename"] = "run/m/old.hdcam";
        for (unsigned i = 0; i + 2 < call; ++i) {
            const std::string name = "take" + std::to_string(i) + ".wav";
            wanted.erase("run/m/" + name), wanted["run/n/" + name] = "run/m/" + name;
        }
        EXPECT_EQ(files(), wanted) << "call " << call;
        std::filesystem::remove_all(at("run"));
    }
}

TEST_F(RenameFails, ComparableLogsTellPathsFromTheCurrentFolderOn) {
    const kit::SwitchGuard on(mediaObjDbg, MediaDbg::Validation);
    const Held movie(makeWith(4));
    movie->m_refuse = {4, 5, 6, 8};
    const std::string cwd = std::filesystem::current_path();
    std::filesystem::current_path(m_tree.root());
    EXPECT_TRUE(isError(movie->rename(at("n/new.hdcam").c_str(), false, nullptr), MediaCode::WriteError));
    std::filesystem::current_path(cwd);
    // Each way back is told as the third file's, which failed first, and the movie's the other way round.
    EXPECT_THAT(
        errors(),
        ElementsAre("can't rename: m/take2.wav --> n/take2.wav", "rename of movie failed: m/old.hdcam --> n/new.hdcam",
                    "cannot restore n/take2.wav to m/take2.wav", "cannot restore n/take2.wav to m/take2.wav",
                    "cannot restore m/old.hdcam to n/new.hdcam"));
}

TEST_F(RenameFails, ComparableLogsTellPathsElsewhereWithoutTheirCommonStart) {
    const kit::SwitchGuard on(mediaObjDbg, MediaDbg::Validation);
    const Held movie(makeWith(1));
    m_tree.write("x/y/z", "");
    movie->m_refuse = {2};
    const std::string cwd = std::filesystem::current_path();
    std::filesystem::current_path(at("x/y"));
    EXPECT_TRUE(isError(movie->rename("../../n/new.hdcam", false, nullptr), MediaCode::WriteError));
    std::filesystem::current_path(cwd);
    ASSERT_EQ(errors().size(), 2u) << m_log.text();
    EXPECT_EQ(errors()[1], "rename of movie failed: m/old.hdcam --> ../../n/new.hdcam") << "a relative one as it is";
}

// ---- names that turn out to be taken

TEST_F(RenameFails, WhenTheNamesRunOutTheTakenProposalIsRefusedAndAllGoesBack) {
    const Held movie(makeWith(1));
    m_tree.write("n/take0.wav", "somebody's");
    m_tree.write("n/new.wav", "somebody's");
    const Listing before = files();
    DefaultMediaNamer once(nullptr, nullptr, 1);
    EXPECT_TRUE(isWarning(movie->rename(at("n/new.hdcam").c_str(), false, once.getCbInfo()), 2));
    EXPECT_EQ(files(), before);
    EXPECT_TRUE(m_log.has(LogLevel::Error, "no available name after 1 passes*")) << m_log.text();
}

TEST_F(RenameFails, TwoMediaOfOneNewNameGoBack) {
    const Held movie(makeWith(2));
    const Listing before = files();
    ToldNamer namer;
    namer.m_name = at("n/same.wav");
    EXPECT_TRUE(isWarning(movie->rename(at("n/new.hdcam").c_str(), true, &namer), 2));
    EXPECT_EQ(files(), before);
}

TEST_F(RenameFails, ATakenNameOfTheMovieLeavesItAsideAndTheMediaMoved) {
    const Held movie(makeWith(2));
    m_tree.write("n/new.hdcam", "somebody's");
    EXPECT_TRUE(isWarning(movie->rename(at("n/new.hdcam").c_str(), false, nullptr), 2));
    EXPECT_EQ(files(), (Listing{{"n/.new.hdcam.rename", "m/old.hdcam"},
                                {"n/new.hdcam", "somebody's"},
                                {"n/take0.wav", "m/take0.wav"},
                                {"n/take1.wav", "m/take1.wav"}}));
    EXPECT_TRUE(errors().empty()) << m_log.text();
    EXPECT_THAT(pathsOf(*movie), ElementsAre(at("n/.new.hdcam.rename"), at("n/take0.wav"), at("n/take1.wav")));
}

TEST_F(RenameFails, AMovieThatHasGoneIsTold) {
    const Held movie(makeWith(1));
    m_tree.remove("m/old.hdcam");
    const Listing before = files();
    OpResult result = movie->rename(at("n/new.hdcam").c_str(), false, nullptr);
    EXPECT_FALSE(result);
    result.discard();
    EXPECT_EQ(files(), before);
}

TEST_F(RenameFails, AMediaFileThatHasGoneSendsTheOthersBack) {
    const Held movie(makeWith(3));
    m_tree.remove("m/take2.wav");
    const Listing before = files();
    EXPECT_TRUE(isWarning(movie->rename(at("n/new.hdcam").c_str(), false, nullptr), 2));
    EXPECT_EQ(files(), before);
    EXPECT_EQ(errors().back(), "cannot restore " + at("n/take2.wav") + " to " + at("m/take2.wav"));
}
