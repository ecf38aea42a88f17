#include <gmock/gmock.h>

#include "neighbours/tl_media_obj.h"
#include "shared/include/naming/media_rename_preview.h"
#include "tests/kit/agents.h"
#include "tests/kit/child_job.h"
#include "tests/unit/naming/rename_scene.h"

using kit::isError;
using kit::isWarning;
using naming::Held;
using naming::Listing;
using naming::RenamedMovie;
using naming::ToldNamer;
using testing::ElementsAre;
using testing::MatchesRegex;

// A movie with its media files goes to another name.

namespace {

class Rename : public naming::RenameScene {};

// The names that the tree is to hold, with their bytes.
Listing listed(std::initializer_list<std::pair<const std::string, std::string>> entries) { return Listing(entries); }

std::string takeName(unsigned i) { return "take" + std::to_string(i) + ".wav"; }

}  // namespace

// ---- checks

TEST_F(Rename, AMovieWithoutFilesIsAWarning) {
    const Held movie(new RenamedMovie(kit::MovieScript(), {}, true, MediaObj::CacheRefValue::None));
    EXPECT_TRUE(isWarning(movie->rename(at("new").c_str(), false, nullptr), 1));
    EXPECT_TRUE(tree().empty());
}

TEST_F(Rename, NoNewNameIsAWarning) {
    const Held movie(makeWith(1));
    const Listing before = tree();
    EXPECT_TRUE(isWarning(movie->rename(nullptr, true, nullptr), 1));
    EXPECT_TRUE(isWarning(movie->rename("", true, nullptr), 1));
    EXPECT_EQ(tree(), before);
}

TEST_F(Rename, TheSamePathIsAWarningHoweverItIsWritten) {
    const kit::SwitchGuard on(mediaObjDbg, MediaDbg::RenameActivity);
    const Held movie(makeWith(1));
    const Listing before = tree();
    const std::string same = at("m/old.hdcam");
    for (const std::string& path : {same, at("m//old.hdcam"), at("./m/./old.hdcam"), same + "/"}) {
        for (const bool renameMedia : {false, true}) {
            m_log.clear();
            EXPECT_TRUE(isWarning(movie->rename(path.c_str(), renameMedia, nullptr), 7)) << path;
            EXPECT_TRUE(logged(LogLevel::Debug, "MO::rename: srcMoviePath=" + same + " dstMoviePath=" + same));
            EXPECT_TRUE(logged(LogLevel::Debug, "MO::rename: rename aborted, src==dst")) << m_log.text();
        }
    }
    EXPECT_EQ(tree(), before);
    EXPECT_TRUE(movie->m_moves.empty());
}

TEST_F(Rename, ARelativeNewPathIsOfTheCurrentFolder) {
    const Held movie(makeWith(0));
    const std::string cwd = std::filesystem::current_path();
    std::filesystem::current_path(m_tree.path("m"));
    EXPECT_TRUE(isWarning(movie->rename("old.hdcam", false, nullptr), 7));
    EXPECT_TRUE(movie->rename("new.hdcam", false, nullptr));
    EXPECT_TRUE(movie->rename("deep/newer.hdcam", false, nullptr));
    std::filesystem::current_path(cwd);
    EXPECT_EQ(files(), listed({{"m/deep/newer.hdcam", "m/old.hdcam"}}));
    // The name goes on as it was given.
    EXPECT_THAT(movie->m_moves, ElementsAre(Move{1, "new.hdcam"}, Move{1, "deep/newer.hdcam"}));
}

TEST_F(Rename, AnotherTypesSuffixIsAnError) {
    const Held movie(makeWith(1));
    const Listing before = tree();
    for (const std::string& name : {at("m/new.ac3"), at("other/new.AC3")}) {
        OpResult result = movie->rename(name.c_str(), false, nullptr);
        EXPECT_TRUE(isError(result, 17));
        EXPECT_EQ(naming::textOf(result),
                  "Rename would change type from hdcam to ac3: " + at("m/old.hdcam") + " --> " + name);
    }
    EXPECT_EQ(tree(), before);
}

TEST_F(Rename, NoSuffixAndAnUnknownOneAreLetThrough) {
    const Held movie(makeWith(0));
    EXPECT_TRUE(movie->rename(at("m/new").c_str(), false, nullptr));
    EXPECT_TRUE(movie->rename(at("m/new.nobodys").c_str(), false, nullptr));
    EXPECT_TRUE(movie->rename(at("m/new.HDCAM").c_str(), false, nullptr));
    EXPECT_EQ(files(), listed({{"m/new.HDCAM", "m/old.hdcam"}}));
}

// ---- the short road

TEST_F(Rename, InItsFolderAMovieGoesAloneAndAsksNobody) {
    const Held movie(make("m/old.hdcam", {"m/x.wav", "up/y.wav"}, false));
    ToldNamer namer;
    namer.m_answer = false;
    EXPECT_TRUE(movie->rename(at("m/new.hdcam").c_str(), false, &namer)) << "though it isn't writable";
    EXPECT_THAT(movie->m_moves, ElementsAre(Move{1, at("m/new.hdcam")}));
    EXPECT_TRUE(namer.m_asked.empty());
    EXPECT_EQ(files(), listed({{"m/new.hdcam", "m/old.hdcam"}, {"m/x.wav", "m/x.wav"}, {"up/y.wav", "up/y.wav"}}));
    EXPECT_THAT(pathsOf(*movie), ElementsAre(at("m/new.hdcam"), at("m/x.wav"), at("up/y.wav")));
}

TEST_F(Rename, ANameThatIsTakenIsNeverReplaced) {
    const Held movie(makeWith(1));
    m_tree.write("m/new.hdcam", "somebody's");
    const Listing before = tree();
    EXPECT_TRUE(isWarning(movie->rename(at("m/new.hdcam").c_str(), false, nullptr), 2));
    EXPECT_EQ(tree(), before);
}

// ---- the long road

TEST_F(Rename, AMovieWithoutMediaNeedsNoWriteAccessForAnotherFolder) {
    const Held movie(make("m/old.hdcam", {}, false));
    EXPECT_TRUE(movie->rename(at("a/b/c/new.hdcam").c_str(), true, nullptr));
    EXPECT_THAT(movie->m_moves, ElementsAre(Move{1, at("a/b/c/new.hdcam")}));
    EXPECT_EQ(files(), listed({{"a/b/c/new.hdcam", "m/old.hdcam"}}));
}

TEST_F(Rename, MediaThatHaveToMoveNeedAWritableMovie) {
    const Held movie(make("m/old.hdcam", {"m/x.wav"}, false));
    const Listing before = tree();
    OpResult result = movie->rename(at("new/new.hdcam").c_str(), false, nullptr);
    EXPECT_TRUE(isError(result, 5));
    EXPECT_EQ(naming::textOf(result), "can't get write access to rename and rewrite " + at("m/old.hdcam"));
    EXPECT_TRUE(isError(movie->rename(at("m/new.hdcam").c_str(), true, nullptr), 5)) << "the short road isn't taken";
    EXPECT_EQ(tree(), before);
}

// 1, 2 and 8 media files beside the movie, into each kind of folder.
TEST_F(Rename, MediaBesideTheMovieMoveWithItAndKeepTheirNames) {
    for (const unsigned count : {1u, 2u, 8u}) {
        for (const std::string folder : {"m/deep/er/", "n/", ""}) {
            const std::string from = "run/m/", to = "run/" + folder;
            const Held movie(makeWith(count, from));
            Listing wanted = {{to + "new.hdcam", from + "old.hdcam"}};
            std::vector<std::string> paths = {at(to + "new.hdcam")};
            for (unsigned i = 0; i < count; ++i) {
                wanted[to + takeName(i)] = from + takeName(i);
                paths.push_back(at(to + takeName(i)));
            }
            EXPECT_TRUE(movie->rename(at(to + "new.hdcam").c_str(), false, nullptr));
            EXPECT_EQ(files(), wanted) << count << " to " << folder;
            EXPECT_EQ(pathsOf(*movie), paths);
            std::filesystem::remove_all(at("run"));
        }
    }
    EXPECT_EQ(m_log.lines().size(), 0u) << m_log.text();
}

TEST_F(Rename, EveryMediaFileGetsANewNameWhenAskedFor) {
    for (const unsigned count : {1u, 2u, 8u}) {
        for (const std::string folder : {"m/", "m/deep/er/", "n/", ""}) {
            const std::string from = "run/m/", to = "run/" + folder;
            const Held movie(makeWith(count, from));
            Listing wanted = {{to + "new.hdcam", from + "old.hdcam"}};
            for (unsigned i = 0; i < count; ++i)
                wanted[to + (count > 1 ? "new_" + std::to_string(i + 1) : "new") + ".wav"] = from + takeName(i);
            EXPECT_TRUE(movie->rename(at(to + "new.hdcam").c_str(), true, nullptr));
            EXPECT_EQ(files(), wanted) << count << " to " << folder;
            std::filesystem::remove_all(at("run"));
        }
    }
}

TEST_F(Rename, ANewMovieOnItsOldPathsFolderKeepsMediaThatNeedNothing) {
    // The way up leads to the same file from the new place.
    const Held movie(make("a/b/old.hdcam", {"a/x.wav"}, false));
    EXPECT_TRUE(movie->rename(at("a/c/new.hdcam").c_str(), false, nullptr)) << "nothing that moves is written";
    // It is set aside all the same.
    EXPECT_THAT(movie->m_moves, ElementsAre(Move{1, at("a/c/.new.hdcam.rename")}, Move{1, at("a/c/new.hdcam")}));
    EXPECT_EQ(files(), listed({{"a/c/new.hdcam", "a/b/old.hdcam"}, {"a/x.wav", "a/x.wav"}}));
}

TEST_F(Rename, MediaUpAndSidewaysStayUpAndSideways) {
    for (const std::string folder : {"d/", "d/e/", "d/e/f/g/"}) {
        const Held movie(make("r/a/b/old.hdcam", {"r/a/side/x.wav", "r/a/b/below/y.wav"}));
        EXPECT_TRUE(movie->rename(at("r/" + folder + "new.hdcam").c_str(), false, nullptr));
        const std::string above = folder.substr(0, folder.rfind('/', folder.size() - 2) + 1);
        const std::string up = folder == "d/" ? "" : above;
        EXPECT_EQ(files(), listed({{"r/" + folder + "new.hdcam", "r/a/b/old.hdcam"},
                                   {"r/" + up + "side/x.wav", "r/a/side/x.wav"},
                                   {"r/" + folder + "below/y.wav", "r/a/b/below/y.wav"}}));
        // What a format is told goes from the movie's folder up and down again.
        ASSERT_EQ(movie->m_moves.size(), 4u);
        EXPECT_EQ(movie->m_moves[1].m_path, at("r/" + folder + "../side/x.wav"));
        EXPECT_EQ(movie->m_moves[2].m_path, at("r/" + folder + "below/y.wav"));
        std::filesystem::remove_all(at("r"));
    }
}

TEST_F(Rename, WithNothingButTheRootInCommonThereIsNoRelativePath) {
    kit::MovieScript script;
    script.audioIn("/nowhere/x.wav", 1);
    const std::string path = m_tree.write("m/old.hdcam", "movie");
    const Held movie(new RenamedMovie(script, path, true, MediaObj::CacheRefValue::None));
    const Listing before = tree();
    OpResult result = movie->rename(at("n/new.hdcam").c_str(), false, nullptr);
    EXPECT_TRUE(isError(result, 2));
    EXPECT_EQ(naming::textOf(result), "movie (" + path + ") and media (/nowhere/x.wav) have no common path components");
    EXPECT_EQ(tree(), before);
}

TEST_F(Rename, AWayUpThatIsDeeperThanTheNewPlaceCannotBePreserved) {
    const Held movie(make("a/b/c/old.hdcam", {"a/b/c/beside.wav", "x.wav"}));
    const Listing before = tree();
    OpResult result = movie->rename("/new.hdcam", false, nullptr);
    EXPECT_TRUE(isError(result, 2));
    EXPECT_EQ(naming::textOf(result), "relative path from movie (" + at("a/b/c/old.hdcam") + ") to media (" +
                                          at("x.wav") + ") cannot be preserved.");
    EXPECT_EQ(tree(), before);
    EXPECT_TRUE(movie->m_moves.empty());
}

TEST_F(Rename, MediaMoveInOrderWhileTheMovieIsHidden) {
    const Held movie(makeWith(3));
    std::vector<Listing> seen;
    movie->m_onMove = [&](const Move&) { seen.push_back(files()); };
    EXPECT_TRUE(movie->rename(at("n/new.hdcam").c_str(), false, nullptr));
    const std::string aside = at("n/.new.hdcam.rename");
    EXPECT_THAT(movie->m_moves, ElementsAre(Move{1, aside}, Move{2, at("n/take0.wav")}, Move{3, at("n/take1.wav")},
                                            Move{4, at("n/take2.wav")}, Move{1, at("n/new.hdcam")}));
    for (std::size_t i = 1; i < seen.size(); ++i) {
        EXPECT_TRUE(seen[i].contains("n/.new.hdcam.rename"));
        EXPECT_FALSE(seen[i].contains("m/old.hdcam") || seen[i].contains("n/new.hdcam"));
    }
    // Closed behind the media and ahead of the movie's last move.
    EXPECT_THAT(movie->m_movesAtClose, ElementsAre(4u));
    EXPECT_EQ(movie->m_flushes, 0);
}

TEST_F(Rename, HandlesOfTheNullAgentAreClosedAndOfClientsReadOn) {
    const Held movie(makeWith(2));
    OpResult result;
    kit::Client client;
    const MediaAgent agent(&client), null(nullptr);
    ASSERT_TRUE(movie->getFp(result, movie->getMediaId(0), null)->open());
    const AutoRefPtr<BasicFileIO> held = movie->getFp(result, movie->getMediaId(2), agent);
    ASSERT_TRUE(held);
    const unsigned open = movie->getNumOpenFiles(agent);
    EXPECT_EQ(movie->getNumOpenFiles(null), 1u);
    EXPECT_TRUE(movie->rename(at("n/new.hdcam").c_str(), true, nullptr));
    EXPECT_EQ(movie->getNumOpenFiles(null), 0u);
    EXPECT_EQ(movie->getNumOpenFiles(agent), open);
    char bytes[12] = {};
    EXPECT_EQ(held->readAt(0, bytes, 11), 11);
    EXPECT_STREQ(bytes, "m/take1.wav");
    EXPECT_EQ(std::filesystem::path(held->getPath()), at("n/new_2.wav"));
}

TEST_F(Rename, TheObjectKeepsItsIdsAndIsRenamedAgain) {
    const Held movie(makeWith(2));
    const OsPathId id = movie->getPathId(movie->getMediaId(0)), media = movie->getPathId(movie->getMediaId(1));
    EXPECT_TRUE(movie->rename(at("n/new.hdcam").c_str(), true, nullptr));
    EXPECT_EQ(movie->getPathId(movie->getMediaId(0)), id);
    EXPECT_EQ(movie->getPathId(movie->getMediaId(1)), media);
    EXPECT_TRUE(movie->rename(at("m/old.hdcam").c_str(), false, nullptr));
    EXPECT_EQ(files(),
              listed({{"m/old.hdcam", "m/old.hdcam"}, {"m/new_1.wav", "m/take0.wav"}, {"m/new_2.wav", "m/take1.wav"}}));
}

TEST_F(Rename, MediaUpAndSidewaysThatStayKeepTheirNamesInASecondRename) {
    const Held movie(make("r/a/b/old.hdcam", {"r/a/side/x.wav"}));
    EXPECT_TRUE(movie->rename(at("r/c/d/new.hdcam").c_str(), false, nullptr));
    EXPECT_EQ(std::filesystem::path(pathsOf(*movie)[1]).lexically_normal(), at("r/c/side/x.wav"));
    // Its place comes out as the one that it has, however the last rename spelled it.
    EXPECT_TRUE(movie->rename(at("r/c/e/new.hdcam").c_str(), false, nullptr));
    EXPECT_EQ(files(), listed({{"r/c/e/new.hdcam", "r/a/b/old.hdcam"}, {"r/c/side/x.wav", "r/a/side/x.wav"}}));
    // And it goes along once more.
    EXPECT_TRUE(movie->rename(at("r/f/new.hdcam").c_str(), false, nullptr));
    EXPECT_EQ(files(), listed({{"r/f/new.hdcam", "r/a/b/old.hdcam"}, {"r/side/x.wav", "r/a/side/x.wav"}}));
}

TEST_F(Rename, AWayUpBehindALinkIsLeftAsItIs) {
    m_tree.write("r/far/side/x.wav", "x");
    m_tree.write("r/far/in/old.hdcam", "movie");
    std::filesystem::create_symlink(at("r/far/in"), at("r/link"));
    kit::MovieScript script;
    script.audioIn(at("r/link/../side/x.wav"), 1);
    const Held movie(new RenamedMovie(script, at("r/link/old.hdcam"), true, MediaObj::CacheRefValue::None));
    ToldNamer namer;
    namer.m_refuse = 1;
    EXPECT_TRUE(isWarning(movie->rename(at("r/n/new.hdcam").c_str(), true, &namer), 1));
    ASSERT_EQ(namer.m_asked.size(), 1u);
    EXPECT_EQ(namer.m_asked[0].m_proposal, at("r/n/../side/x.wav"));
}

// ---- names

TEST_F(Rename, ATakenNameSendsTheFileThroughTheNamer) {
    const Held movie(makeWith(2));
    m_tree.write("n/take1.wav", "somebody's");
    EXPECT_TRUE(movie->rename(at("n/new.hdcam").c_str(), false, nullptr));
    EXPECT_EQ(files(), listed({{"n/new.hdcam", "m/old.hdcam"},
                               {"n/take0.wav", "m/take0.wav"},
                               {"n/take1.wav", "somebody's"},
                               {"n/new_2.wav", "m/take1.wav"}}));
}

TEST_F(Rename, WhenTheNewNameIsTakenTooItGetsATag) {
    const Held movie(makeWith(2));
    for (const char* name : {"n/take0.wav", "n/take1.wav", "n/new_1.wav", "n/new_2.wav"})
        m_tree.write(name, "somebody's");
    EXPECT_TRUE(movie->rename(at("n/new.hdcam").c_str(), false, nullptr));
    const std::vector<std::string> paths = pathsOf(*movie);
    EXPECT_THAT(paths[1], MatchesRegex(at("n/new_1-[0-9a-z][0-9a-z][0-9a-z][0-9a-z][.]wav")));
    EXPECT_THAT(paths[2], MatchesRegex(at("n/new_2-[0-9a-z][0-9a-z][0-9a-z][0-9a-z][.]wav")));
    EXPECT_EQ(files()[paths[2].substr(m_tree.root().size() + 1)], "m/take1.wav");
    EXPECT_EQ(files()["n/new_2.wav"], "somebody's");
}

TEST_F(Rename, TheNamerIsAskedWithThePlaceAndTheNumberAndItsAnswerStands) {
    const Held movie(makeWith(2));
    ToldNamer namer;
    namer.m_name = at("else/where/%.snd");
    EXPECT_TRUE(movie->rename(at("n/new.hdcam").c_str(), true, &namer));
    ASSERT_EQ(namer.m_asked.size(), 2u);
    for (unsigned i = 0; i < 2; ++i) {
        EXPECT_EQ(namer.m_asked[i].m_path, at("n/new.hdcam"));
        EXPECT_EQ(namer.m_asked[i].m_index, static_cast<int>(i));
        EXPECT_EQ(namer.m_asked[i].m_type, MediaFileType::Wav);
        EXPECT_EQ(namer.m_asked[i].m_proposal, at("n/" + takeName(i)));
    }
    EXPECT_EQ(files(), listed({{"n/new.hdcam", "m/old.hdcam"},
                               {"else/where/1.snd", "m/take0.wav"},
                               {"else/where/2.snd", "m/take1.wav"}}));
    EXPECT_EQ(movie->m_moves[1].m_path, at("n/../else/where/1.snd"));
}

TEST_F(Rename, ANamerThatKeepsTheProposalMovesAFileToWhereItIs) {
    const Held movie(makeWith(1));
    ToldNamer namer;
    EXPECT_TRUE(movie->rename(at("m/new.hdcam").c_str(), true, &namer));
    EXPECT_EQ(movie->m_moves.size(), 3u) << "it is told to move all the same";
    EXPECT_EQ(files(), listed({{"m/new.hdcam", "m/old.hdcam"}, {"m/take0.wav", "m/take0.wav"}}));
}

TEST_F(Rename, ATimelineStandInRenamesTheMovieBehind) {
    const Held movie(makeWith(1));
    movie->preserve();
    const AutoRefPtr<MediaObj> standIn = Timeline::TlMediaObj::wrap(AutoRefPtr<MediaObj>(&*movie, PreReferenced()));
    EXPECT_TRUE(standIn->rename(at("n/new.hdcam").c_str(), false, nullptr));
    EXPECT_EQ(movie->m_moves.size(), 3u);
    EXPECT_EQ(files(), listed({{"n/new.hdcam", "m/old.hdcam"}, {"n/take0.wav", "m/take0.wav"}}));
}

// ---- one file

TEST_F(Rename, TheBaseMovesOneFileAndTellsItUnderRenameActivity) {
    const kit::SwitchGuard on(mediaObjDbg, MediaDbg::RenameActivity);
    const Held movie(makeWith(1));
    MediaObj& base = *movie;
    EXPECT_TRUE(base.MediaObj::renameMediaId(movie->getMediaId(1), at("m/x.wav").c_str()));
    EXPECT_EQ(m_log.find("MO::rename: " + at("m/take0.wav") + "(id=2) to " + at("m/x.wav") + " --> "), 0)
        << m_log.text();
    EXPECT_EQ(m_log.find("true"), 1);
    m_log.clear();
    EXPECT_TRUE(isWarning(base.MediaObj::renameMediaId(reinterpret_cast<MediaIdRec*>(9), "/x"), 1));
    EXPECT_EQ(m_log.find("MO::rename: (id=9) to /x --> "), 0) << m_log.text();
    EXPECT_EQ(m_log.find("false"), 1);
    m_tree.write("m/taken.wav", "somebody's");
    EXPECT_TRUE(isWarning(base.MediaObj::renameMediaId(movie->getMediaId(1), at("m/taken.wav").c_str()), 2));
    EXPECT_EQ(files()["m/x.wav"], "m/take0.wav");
}

TEST_F(Rename, ReviewingANameIsOkAndChangesNothing) {
    const Held movie(makeWith(0));
    DefaultMediaNamer namer(nullptr, nullptr, 1);
    MediaObj::NameReq req("/m/new.mov", 0, MediaFileType::Wav);
    std::string name = "mine";
    EXPECT_TRUE(movie->reviewMediaName(namer, req, name));
    EXPECT_EQ(name, "mine");
    EXPECT_STREQ(req.m_name, "");
}

// ---- limits

TEST_F(Rename, ANewPathOf4087BytesPassesAndOneOf4088DoesNot) {
    const Held movie(makeWith(1));
    const auto ofLength = [this](std::size_t length) {
        const std::string end = "new.hdcam";
        const std::string start = at("m");
        return start + std::string(length - start.size() - end.size(), '/') + end;
    };
    const Listing before = tree();
    OpResult result = movie->rename(ofLength(4088).c_str(), true, nullptr);
    EXPECT_TRUE(isWarning(result, 1));
    EXPECT_EQ(naming::textOf(result), "temporary name too long");
    EXPECT_EQ(tree(), before);
    EXPECT_TRUE(movie->rename(ofLength(4087).c_str(), true, nullptr));
    EXPECT_EQ(files(), listed({{"m/new.hdcam", "m/old.hdcam"}, {"m/new.wav", "m/take0.wav"}}));
    // A movie that isn't set aside has no such limit.
    const Held alone(make("s/old.hdcam", {}));
    EXPECT_TRUE(alone->rename((at("s") + std::string(4088 - at("s").size() - 1, '/') + "n").c_str(), true, nullptr));
}

// ---- the preview

TEST_F(Rename, APreviewSaysWhatMovesAndTouchesNothing) {
    const Held movie(make("m/old.hdcam", {"m/x.wav", "side/y.wav", "z.wav"}, false));
    m_tree.write("n/x.wav", "somebody's");
    const Listing before = tree();
    std::vector<MediaRenameStep> steps;
    const auto told = [&](const std::string& path, bool renameMedia) {
        OpResult result = previewMediaRename(*movie, path.c_str(), renameMedia, nullptr, steps);
        EXPECT_TRUE(result);
        std::vector<std::string> lines;
        for (const MediaRenameStep& step : steps) {
            const auto id = reinterpret_cast<std::uintptr_t>(step.m_id);
            lines.push_back(std::to_string(id) + " " + step.m_from + " " + step.m_to);
        }
        return lines;
    };
    const std::string movieStep = "1 " + at("m/old.hdcam") + " ";
    EXPECT_THAT(told(at("m/new.hdcam"), false), ElementsAre(movieStep + at("m/new.hdcam")));
    EXPECT_THAT(told(at("n/new.hdcam"), false),
                ElementsAre(movieStep + at("n/new.hdcam"), "2 " + at("m/x.wav") + " " + at("n/new_1.wav")));
    EXPECT_THAT(
        told(at("d/e/new.hdcam"), false),
        ElementsAre(movieStep + at("d/e/new.hdcam"), "2 " + at("m/x.wav") + " " + at("d/e/x.wav"),
                    "3 " + at("side/y.wav") + " " + at("d/side/y.wav"), "4 " + at("z.wav") + " " + at("d/z.wav")));
    EXPECT_EQ(tree(), before);
    EXPECT_TRUE(movie->m_moves.empty());
}

TEST_F(Rename, APreviewFailsAsTheRenameDoes) {
    const Held movie(makeWith(1));
    std::vector<MediaRenameStep> steps(3);
    const auto previewed = [&](const std::string& path, MediaObj::Namer* namer = nullptr) {
        return previewMediaRename(*movie, path.c_str(), true, namer, steps);
    };
    EXPECT_TRUE(isWarning(previewed(at("m/old.hdcam")), 7));
    EXPECT_TRUE(steps.empty());
    EXPECT_TRUE(isError(previewed(at("m/new.ac3")), 17));
    EXPECT_TRUE(isWarning(previewed(at("m") + std::string(4088, '/') + "new.hdcam"), 1));
    ToldNamer namer;
    namer.m_answer = false;
    EXPECT_TRUE(isWarning(previewed(at("m/new.hdcam"), &namer), 1));
    EXPECT_TRUE(steps.empty());
}

// ---- in the cache

namespace {

class RenameInCache : public kit::CacheScene {};

}  // namespace

TEST_F(RenameInCache, TheObjectKeepsItsPlaceAndIsFoundByItsNewPath) {
    const std::string path = scripted("m/old.hdcam", kit::MovieScript().audio(10));
    kit::ScriptedMovie* const movie = open(path);
    ASSERT_NE(movie, nullptr);
    m_cache.stopNews();
    MediaObj::Persist holder;
    movie->preserve();
    holder = movie;
    const OsPathId id = movie->getFileId();
    EXPECT_TRUE(movie->rename(m_tree.path("n/new.hdcam").c_str(), false, nullptr));
    EXPECT_EQ(movie->getFileId(), id);
    EXPECT_EQ(m_cache.entry(id), movie);
    EXPECT_EQ(kit::TempTree::idOf(m_tree.path("n/new.hdcam")), id);
    // By its new path it is found without a parse, by the old one there is nothing.
    MediaObj* const again = open(m_tree.path("n/new.hdcam"));
    EXPECT_EQ(again, movie);
    EXPECT_EQ(kit::Scripts::opens(path), 1u);
    OpResult result;
    EXPECT_EQ(MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadOnly, result), nullptr);
    EXPECT_TRUE(isWarning(result, 6));
    MediaObj* const held = holder.preserve();
    EXPECT_EQ(held, movie);
    for (MediaObj* object : {held, again, static_cast<MediaObj*>(movie)})
        object->release();
    holder = nullptr;
}

TEST_F(RenameInCache, ANewFileAtTheOldPathIsAnotherMovie) {
    const std::string path = scripted("old.hdcam", kit::MovieScript().audio(10));
    kit::ScriptedMovie* const movie = open(path);
    ASSERT_NE(movie, nullptr);
    m_cache.stopNews();
    EXPECT_TRUE(movie->rename(m_tree.path("new.hdcam").c_str(), false, nullptr));
    scripted("old.hdcam", kit::MovieScript().audio(20), "second");
    kit::ScriptedMovie* const second = open(path);
    ASSERT_NE(second, nullptr);
    m_cache.stopNews();
    EXPECT_NE(second, movie);
    EXPECT_STREQ(movie->getPath(movie->getMediaId(0)), m_tree.path("new.hdcam").c_str());
    EXPECT_EQ(m_cache.mapSize(), 2u);
    movie->release();
    second->release();
}

// ---- beside another process

namespace {

std::string bytesBy(const AutoRefPtr<BasicFileIO>& file) {
    char bytes[8] = {};
    const int count = file->readAt(0, bytes, sizeof bytes);
    return std::string(bytes, count > 0 ? static_cast<std::size_t>(count) : 0);
}

// Holds old.hdcam of the folder, waits for a line, and says what it then finds by the old path and the new one.
int holdThroughRename(const std::string& folder) {
    const std::string path = folder + "/old.hdcam";
    kit::Scripts::set(path, kit::MovieScript().audio(10));
    OpResult result;
    MediaObj* const movie = MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadOnly, result);
    if (movie == nullptr) return 1;
    const kit::Client client;
    const AutoRefPtr<BasicFileIO> file = movie->getFp(result, movie->getMediaId(0), MediaAgent(&client));
    std::printf("holds %s\n", bytesBy(file).c_str());
    std::fflush(stdout);
    std::getchar();
    MediaObj* const again =
        MediaObj::openReader((folder + "/n/new.hdcam").c_str(), MediaObj::ReadMode::ReadOnly, result);
    MediaObj* const old = MediaObj::openReader(path.c_str(), MediaObj::ReadMode::ReadOnly, result);
    std::printf("reads %s, new path %s, old path %d\n", bytesBy(file).c_str(), again == movie ? "the same" : "another",
                old == nullptr ? result.getCode() : 0);
    result.discard();
    return 0;
}

const kit::ChildJob s_hold("hold through rename", &holdThroughRename);

}  // namespace

TEST_F(Rename, AnotherProcessKeepsItsObjectAndFindsItByTheNewPath) {
    const Held movie(make("old.hdcam", {}));
    kit::Process holder(s_hold.command(m_tree.root()));
    ASSERT_TRUE(holder.waitForOutput("holds old.hdca\n")) << holder.out() << holder.err();
    EXPECT_TRUE(movie->rename(at("n/new.hdcam").c_str(), false, nullptr));
    EXPECT_TRUE(holder.feed("\n"));
    EXPECT_TRUE(holder.waitForOutput("reads old.hdca, new path the same, old path 6\n")) << holder.out();
    EXPECT_EQ(holder.wait().m_exit, 0);
}
