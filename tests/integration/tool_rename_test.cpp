// Renaming by the tool: what moves, what it says and how it ends.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <filesystem>

#include "shared/include/object/media_obj.h"
#include "tests/integration/dv_peers.h"
#include "tests/integration/peers.h"
#include "tests/integration/ref_movies.h"
#include "tests/integration/tool_kit.h"
#include "tests/kit/wav_builder.h"

using nlohmann::json;
using testing::HasSubstr;

namespace {

using Names = std::vector<std::string>;

class ToolRename : public testing::Test {
protected:
    std::string wav(const std::string& name = "old.wav") {
        WavRecipe recipe;
        recipe.m_samples = 4800;
        std::filesystem::create_directories(std::filesystem::path(at(name)).parent_path());
        return writeWav(m_tree, name, recipe);
    }
    std::string aiff() {
        const std::string raw = m_tree.write("essence.raw", kit::WavBuilder::pattern(40000));
        peers::writeByFfmpeg(peers::s_aiffCodings[0], 2, 48000, raw, at("old.aiff"));
        m_tree.remove("essence.raw");
        return at("old.aiff");
    }
    std::string dv() {
        dvpeers::write(dvpeers::s_kinds[0], at("old.dv"));
        return at("old.dv");
    }
    std::string at(const std::string& name) const { return m_tree.path(name); }
    // Names of all files and folders, in order.
    std::vector<std::string> names() const {
        std::vector<std::string> found;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(m_tree.root()))
            found.push_back(entry.path().string().substr(m_tree.root().size() + 1));
        std::sort(found.begin(), found.end());
        return found;
    }
    // What the system knows of all files and folders, but for when they were read.
    std::vector<std::string> marks() const {
        Names all = names();
        all.push_back("");
        for (std::string& name : all) {
            struct stat stat {};
            EXPECT_EQ(::lstat(at(name).c_str(), &stat), 0);
            for (const auto mark :
                 {static_cast<long long>(stat.st_ino), static_cast<long long>(stat.st_size),
                  static_cast<long long>(stat.st_mode), static_cast<long long>(stat.st_nlink),
                  static_cast<long long>(stat.st_mtim.tv_sec), static_cast<long long>(stat.st_mtim.tv_nsec),
                  static_cast<long long>(stat.st_ctim.tv_sec), static_cast<long long>(stat.st_ctim.tv_nsec)})
                name += " " + std::to_string(mark);
        }
        return all;
    }
    // It fails and leaves everything as it was.
    void expectFailure(const std::vector<std::string>& arguments, int exit, const std::string& sentence) {
        const std::vector<std::string> before = marks();
        std::vector<std::string> all = {"rename"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        const kit::Outcome plain = runTool(all);
        EXPECT_EQ(plain.m_exit, exit);
        EXPECT_EQ(plain.m_out, "");
        EXPECT_THAT(plain.m_err, HasSubstr("mediacore: " + sentence));
        all.insert(all.begin() + 1, "--json");
        const kit::Outcome outcome = runTool(all);
        EXPECT_EQ(outcome.m_exit, exit);
        const json error = documentOf(outcome, "error")["error"];
        EXPECT_THAT(sentence, HasSubstr(error["code"].get<std::string>()));
        EXPECT_EQ(marks(), before);
    }

    kit::TempTree m_tree;
};

// Records a movie whose samples lie in files beside it; nothing of it stays with this process.
void recordMov(const std::string& path, const std::vector<unsigned>& clipsOfTracks) {
    refmovies::record(path, clipsOfTracks);
    MediaObj::flushAll(nullptr);
}

// The samples of each track, as the tool reads them.
std::vector<std::string> soundOf(const std::string& path, unsigned tracks) {
    std::vector<std::string> sound;
    for (unsigned i = 0; i < tracks; ++i)
        sound.push_back(runTool({"read", path, "--track", "audio" + std::to_string(i)}).m_out);
    return sound;
}

}  // namespace

TEST_F(ToolRename, WavAiffAndDvGoToAnotherNameAndFolderUnchanged) {
    for (const int kind : {0, 1, 2}) {
        const std::string path = kind == 0 ? wav() : kind == 1 ? aiff() : dv();
        const std::string suffix = std::filesystem::path(path).extension();
        const std::string bytes = readFile(path);
        const kit::Outcome beside = runTool({"rename", path, at("new" + suffix)});
        EXPECT_EQ(beside.m_exit, 0) << beside.m_err;
        EXPECT_EQ(beside.m_out, path + " -> " + at("new" + suffix) + "\n");
        const json moved =
            documentOf(runTool({"rename", "--json", at("new" + suffix), at("a/b/newer" + suffix)}), "rename")["rename"];
        EXPECT_EQ(moved, (json{{"path", at("a/b/newer" + suffix)},
                               {"dryRun", false},
                               {"renameMedia", false},
                               {"files", {{{"from", at("new" + suffix)}, {"to", at("a/b/newer" + suffix)}}}}}));
        EXPECT_EQ(names(), (Names{"a", "a/b", "a/b/newer" + suffix}));
        EXPECT_TRUE(readFile(at("a/b/newer" + suffix)) == bytes);
        EXPECT_EQ(runTool({"info", at("a/b/newer" + suffix)}).m_exit, 0);
        std::filesystem::remove_all(at("a"));
    }
}

TEST_F(ToolRename, ADryRunSaysTheSameAndTouchesNothing) {
    const std::string path = wav();
    for (const char* media : {"--media", "--dry-run"}) {
        const kit::Outcome outcome = runTool({"rename", "--dry-run", media, path, at("deep/new.wav")});
        EXPECT_EQ(outcome.m_exit, 0);
        EXPECT_EQ(outcome.m_out, path + " -> " + at("deep/new.wav") + "\n");
    }
    const json planned =
        documentOf(runTool({"rename", path, at("new.wav"), "--dry-run", "--media", "--json"}), "rename")["rename"];
    EXPECT_EQ(planned["dryRun"], true);
    EXPECT_EQ(planned["renameMedia"], true);
    EXPECT_EQ(names(), Names{"old.wav"});
    EXPECT_EQ(runTool({"rename", path, at("new.wav"), "--dry-run", "--field", "rename.files.0.to"}).m_out,
              at("new.wav") + "\n");
}

TEST_F(ToolRename, AFolderTakesTheMovieUnderItsName) {
    const std::string path = wav();
    std::filesystem::create_directory(at("there"));
    EXPECT_EQ(runTool({"rename", path, at("there")}).m_exit, 0);
    EXPECT_EQ(runTool({"rename", at("there/old.wav"), at("made") + "/"}).m_exit, 0);
    EXPECT_EQ(names(), (Names{"made", "made/old.wav", "there"}));
}

TEST_F(ToolRename, PathsAreOfTheCurrentFolderAndGoUp) {
    wav("a/old.wav");
    kit::Command command = toolCommand({"rename", "./old.wav", "../b/c/../new.wav"});
    command.m_folder = at("a");
    const kit::Outcome outcome = kit::run(command);
    EXPECT_EQ(outcome.m_exit, 0) << outcome.m_err;
    const std::string root = std::filesystem::canonical(m_tree.root());
    EXPECT_EQ(outcome.m_out, root + "/a/old.wav -> " + root + "/b/new.wav\n");
    EXPECT_EQ(names(), (Names{"a", "b", "b/new.wav"}));
}

TEST_F(ToolRename, NamesMayLookLikeOptionsAndAreBytes) {
    wav();
    const std::string odd = "-odd \xff.wav";
    kit::Command command = toolCommand({"rename", "--", "old.wav", odd});
    command.m_folder = m_tree.root();
    EXPECT_EQ(kit::run(command).m_exit, 0);
    EXPECT_EQ(names(), Names{odd});
    const kit::Outcome back = runTool({"rename", "--json", at(odd), at("old.wav")});
    EXPECT_THAT(documentOf(back, "rename")["rename"]["files"][0]["from"].get<std::string>(), HasSubstr("\xEF\xBF\xBD"));
    EXPECT_EQ(names(), Names{"old.wav"});
}

TEST_F(ToolRename, WhatCannotBeRenamedStaysAndSaysWhy) {
    const std::string path = wav();
    m_tree.write("taken.wav", "somebody's");
    m_tree.write("wall", "no folder");
    expectFailure({at("none.wav"), at("new.wav")}, 3,
                  at("none.wav") + ": file non-existant: No such file or directory");
    expectFailure({path, path}, 4, path + ": file exists");
    expectFailure({path, at("./") + "./old.wav"}, 4, path + ": file exists");
    expectFailure({path, at("taken.wav")}, 4,
                  at("taken.wav") + ": file exists: it is there already and is not overwritten");
    expectFailure({path, at("new.aiff")}, 4,
                  path + ": operation unsupported: Rename would change type from wav to aiff: " + path + " --> " +
                      at("new.aiff"));
    expectFailure({path, at("wall/new.wav")}, 3, at("wall") + ": file not writable: Not a directory");
    expectFailure({path, ""}, 2, "wrong usage: the new name is empty");
    expectFailure({path, "-"}, 2, "wrong usage: a file of the name - is ./-");
    expectFailure({"-", at("new.wav")}, 2, "-: wrong usage: a movie can't be read from standard input");
    expectFailure({path}, 2, "wrong usage: NEW is required");
    expectFailure({at("taken.wav"), at("new.wav")}, 4, at("taken.wav") + ": unsupported media type");
    EXPECT_EQ(readFile(at("taken.wav")), "somebody's");
}

TEST_F(ToolRename, WithoutPermissionItIsThree) {
    const std::string path = wav();
    ASSERT_EQ(::chmod(path.c_str(), 0644), 0);
    ASSERT_EQ(::chmod(m_tree.root().c_str(), 0755), 0);
    kit::Command command = toolCommand({"rename", path, at("new.wav")});
    command.m_privileged = false;
    ASSERT_EQ(::chmod(m_tree.root().c_str(), 0555), 0);
    const kit::Outcome outcome = kit::run(command);
    ASSERT_EQ(::chmod(m_tree.root().c_str(), 0755), 0);
    EXPECT_EQ(outcome.m_exit, 3) << outcome.m_err;
    EXPECT_EQ(outcome.m_err, "mediacore: " + m_tree.root() + ": file not writable: Permission denied\n");
    EXPECT_EQ(names(), Names{"old.wav"});
}

TEST_F(ToolRename, AMovieOfSeveralFilesTakesThemAlongOrNamesThemAfterIt) {
    recordMov(at("m/old.mov"), {1, 1, 1});
    const std::vector<std::string> sound = soundOf(at("m/old.mov"), 3);
    ASSERT_EQ(sound[2], refmovies::essence(2));
    const Names before = names();
    ASSERT_EQ(before.size(), 5u);
    const auto rename = [](std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"rename", "--json"});
        const kit::Outcome outcome = runTool(arguments);
        EXPECT_EQ(outcome.m_exit, 0) << outcome.m_err;
        return documentOf(outcome, "rename")["rename"]["files"];
    };
    // In its folder it goes alone; the plan and the deed say the same.
    EXPECT_EQ(rename({at("m/old.mov"), at("m/new.mov")}).size(), 1u);
    const json planned = rename({at("m/new.mov"), at("n/deep/new.mov"), "--dry-run"});
    EXPECT_EQ(names().size(), before.size());
    EXPECT_EQ(rename({at("m/new.mov"), at("n/deep/new.mov")}), planned);
    ASSERT_EQ(planned.size(), 4u);
    EXPECT_EQ(soundOf(at("n/deep/new.mov"), 3), sound);
    const json named = rename({at("n/deep/new.mov"), at("n/deep/monday.mov"), "--media"});
    for (unsigned i = 1; i < 4; ++i) {
        EXPECT_EQ(named[i]["from"], planned[i]["to"]);
        const std::string start = at("n/deep/monday_" + std::to_string(i) + ".");
        EXPECT_EQ(named[i]["to"].get<std::string>().substr(0, start.size()), start);
        EXPECT_TRUE(std::filesystem::exists(named[i]["to"].get<std::string>()));
    }
    EXPECT_EQ(soundOf(at("n/deep/monday.mov"), 3), sound);
}

TEST_F(ToolRename, ADryRunOfAMovieOfSeveralFilesLeavesEachAsItIs) {
    recordMov(at("m/old.mov"), {1, 1});
    m_tree.write("n/film.txt", "somebody's");
    m_tree.write("n/old_1.data", "somebody's");
    const Names before = marks();
    const kit::Outcome planned = runTool({"rename", "--dry-run", at("m/old.mov"), at("n/new.mov")});
    EXPECT_EQ(planned.m_exit, 0) << planned.m_err;
    EXPECT_EQ(planned.m_out, at("m/old.mov") + " -> " + at("n/new.mov") + "\n" + at("m/old_1.data") + " -> " +
                                 at("n/new_1.data") + "\n" + at("m/old_2.data") + " -> " + at("n/old_2.data") + "\n");
    EXPECT_EQ(runTool({"rename", "--dry-run", "--media", "--json", at("m/old.mov"), at("deep/er/new.mov")}).m_exit, 0);
    EXPECT_EQ(runTool({"rename", "--dry-run", at("m/old.mov"), at("n/old_1.data")}).m_exit, 4);
    EXPECT_EQ(runTool({"rename", "--dry-run", at("m/old.mov"), at("new.wav")}).m_exit, 4);
    EXPECT_EQ(marks(), before);
}

TEST_F(ToolRename, APlanThatGivesTwoFilesOneNameIsRefused) {
    // A run of clips counts once, so the second one's number is that of the next track.
    recordMov(at("m/old.mov"), {2, 1});
    const std::string sentence = at("n/new_2.data") + ": file exists: " + at("m/old_2.data") + " and " +
                                 at("m/old_3.data") + " would both get this name";
    for (const std::vector<std::string>& more : {Names{"--media"}, Names{"--media", "--dry-run"}}) {
        std::vector<std::string> arguments = more;
        arguments.insert(arguments.end(), {at("m/old.mov"), at("n/new.mov")});
        expectFailure(arguments, 4, sentence);
    }
    EXPECT_EQ(runTool({"rename", at("m/old.mov"), at("n/new.mov")}).m_exit, 0) << "under the names that they have";
    EXPECT_EQ(names(), (Names{"m", "n", "n/new.mov", "n/old_1.data", "n/old_2.data", "n/old_3.data"}));
}

TEST_F(ToolRename, APlanThatGivesAMediaFileTheMoviesNameIsRefused) {
    recordMov(at("m/old.mov"), {1, 1});
    OpResult result;
    MediaObj* const movie = MediaObj::openReader(at("m/old.mov").c_str(), MediaObj::ReadMode::ReadWrite, result);
    ASSERT_NE(movie, nullptr) << result.describe().get();
    result = movie->renameMediaId(movie->getMediaId(1), at("m/new.mov").c_str());
    EXPECT_TRUE(result.success()) << result.describe().get();
    movie->release(MediaAgent(nullptr), true);
    MediaObj::flushAll(nullptr);
    const std::string sentence =
        at("n/new.mov") + ": file exists: " + at("m/old.mov") + " and " + at("m/new.mov") + " would both get this name";
    expectFailure({at("m/old.mov"), at("n/new.mov")}, 4, sentence);
    expectFailure({"--media", at("m/old.mov"), at("n/new.mov")}, 4, sentence);
    expectFailure({at("m/old.mov"), at("m/new.mov")}, 4,
                  at("m/new.mov") + ": file exists: it is there already and is not overwritten");
    EXPECT_EQ(runTool({"rename", at("m/old.mov"), at("n/newer.mov")}).m_exit, 0);
    EXPECT_EQ(names(), (Names{"m", "n", "n/new.mov", "n/newer.mov", "n/old_2.data"}));
    EXPECT_TRUE(soundOf(at("n/newer.mov"), 2) == (Names{refmovies::essence(0), refmovies::essence(1)}));
}

TEST_F(ToolRename, AMovieThatCannotGoAsideStaysAndSaysSo) {
    recordMov(at("m/old.mov"), {1});
    m_tree.write("n/.new.mov.rename", "somebody's");
    expectFailure({at("m/old.mov"), at("n/new.mov")}, 4,
                  at("n/.new.mov.rename") + ": file exists: the movie can't go aside to this name");
    EXPECT_EQ(readFile(at("n/.new.mov.rename")), "somebody's");
}

TEST_F(ToolRename, AMediaFileThatIsGoneIsNamedAndNothingMoves) {
    recordMov(at("m/old.mov"), {1, 1});
    m_tree.remove("m/old_2.data");
    const std::string sentence =
        at("m/old_2.data") + ": file non-existant: the movie refers to it, and it can't go along";
    expectFailure({at("m/old.mov"), at("n/new.mov")}, 3, sentence);
    expectFailure({"--dry-run", at("m/old.mov"), at("n/new.mov")}, 3, sentence);
    EXPECT_EQ(runTool({"rename", at("m/old.mov"), at("m/new.mov")}).m_exit, 0) << "its media needn't move";
    EXPECT_EQ(names(), (Names{"m", "m/new.mov", "m/old_1.data"}));
}

TEST_F(ToolRename, AProcessThatWatchesTheMovieGoesOn) {
    const std::string path = wav();
    kit::Process watcher(toolCommand({"watch", "--jsonl", path}));
    ASSERT_TRUE(watcher.waitForOutput("\"opened\"")) << watcher.err();
    EXPECT_EQ(runTool({"rename", path, at("n/new.wav")}).m_exit, 0);
    EXPECT_TRUE(watcher.waitForOutput("\"event\":\"gone\"")) << watcher.out();
    EXPECT_EQ(runTool({"rename", at("n/new.wav"), path}).m_exit, 0);
    EXPECT_TRUE(watcher.waitForOutput("\"event\":\"returned\"")) << watcher.out();
    watcher.signal(SIGTERM);
    EXPECT_EQ(watcher.wait().m_exit, 0);
}
