#include "mediautil/naming/rename_plan.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using RenamePlan::Fault;

// The rules by which a rename finds places and names, without a file.

namespace {

// Where a media file goes, or the fault's name.
std::string placeOf(const char* media, const char* movie, const char* newMovie) {
    const RenamePlan::Place place = RenamePlan::placeOf(PathParser(media), PathParser(movie), PathParser(newMovie));
    switch (place.m_fault) {
        case Fault::NothingInCommon:
            return "nothing in common";
        case Fault::AboveTheRoot:
            return "above the root";
        default:
            return place.m_path.getPath(true);
    }
}

}  // namespace

TEST(RenamePlanOf, PlacesOfMediaFiles) {
    const struct {
        const char *m_media, *m_movie, *m_newMovie, *m_place;
    } cases[] = {
        // Beside the movie.
        {"/a/x.wav", "/a/old.mov", "/b/new.mov", "/b/x.wav"},
        {"/a/x.wav", "/a/old.mov", "/new.mov", "/x.wav"},
        {"/a/x.wav", "/a/old.mov", "/b/c/d/new.mov", "/b/c/d/x.wav"},
        {"/a/x.wav", "/a/old.mov", "/a/new.mov", "/a/x.wav"},
        // Below it.
        {"/a/m/s/x.wav", "/a/old.mov", "/b/c/new.mov", "/b/c/m/s/x.wav"},
        {"/a/m/s/x.wav", "/a/old.mov", "/new.mov", "/m/s/x.wav"},
        // Up and sideways.
        {"/a/m/x.wav", "/a/b/old.mov", "/c/d/new.mov", "/c/m/x.wav"},
        {"/a/m/x.wav", "/a/b/old.mov", "/c/d/e/f/new.mov", "/c/d/e/m/x.wav"},
        {"/a/m/x.wav", "/a/b/old.mov", "/d/new.mov", "/m/x.wav"},
        {"/a/x.wav", "/a/b/c/old.mov", "/d/e/f/new.mov", "/d/x.wav"},
        // Where the way up leads to the same place.
        {"/a/x.wav", "/a/b/old.mov", "/a/c/new.mov", "/a/x.wav"},
        // The way up from a movie of less depth.
        {"/a/m/x.wav", "/a/b/old.mov", "/new.mov", "above the root"},
        {"/a/x.wav", "/a/b/c/old.mov", "/d/new.mov", "above the root"},
        {"/a/x.wav", "/a/b/c/old.mov", "/d/e/new.mov", "/x.wav"},
        // Nothing but the root in common.
        {"/b/x.wav", "/a/old.mov", "/c/new.mov", "nothing in common"},
        {"/x.wav", "/a/old.mov", "/c/new.mov", "nothing in common"},
        {"/b/x.wav", "/old.mov", "/c/new.mov", "nothing in common"},
        {"x.wav", "/a/old.mov", "/c/new.mov", "nothing in common"},
        {"/x.wav", "/old.mov", "/new.mov", "/x.wav"},
        {"/x.wav", "/old.mov", "/c/new.mov", "/c/x.wav"},
        // The start of a name is no common element.
        {"/ab/x.wav", "/a/old.mov", "/c/new.mov", "nothing in common"},
        {"/t/ab/x.wav", "/t/a/old.mov", "/t/c/new.mov", "/t/ab/x.wav"},
    };
    for (const auto& one : cases) {
        EXPECT_EQ(placeOf(one.m_media, one.m_movie, one.m_newMovie), one.m_place)
            << one.m_media << " of " << one.m_movie << " to " << one.m_newMovie;
    }
}

TEST(RenamePlanOf, SpelledPathsGoUpFromTheNewFolderAndDownAgain) {
    const struct {
        const char *m_newMovie, *m_media, *m_path;
    } cases[] = {
        {"/b/.new.mov.rename", "/b/x.wav", "/b/x.wav"},
        {"/b/.new.mov.rename", "/b/m/s/x.wav", "/b/m/s/x.wav"},
        {"/c/d/.new.mov.rename", "/c/m/x.wav", "/c/d/../m/x.wav"},
        {"/c/d/e/.new.mov.rename", "/c/x.wav", "/c/d/e/../../x.wav"},
        {"/c/d/.new.mov.rename", "/x.wav", "/c/d/../../x.wav"},
        {"/.new.mov.rename", "/m/x.wav", "/m/x.wav"},
        {"/c/.new.mov.rename", "/c/new.mov", "/c/new.mov"},
    };
    for (const auto& one : cases) {
        EXPECT_STREQ(RenamePlan::spelledFrom(PathParser(one.m_newMovie), PathParser(one.m_media)).getPath(true),
                     one.m_path);
    }
}

TEST(RenamePlanOf, AMovieStaysInItsFolderWhenTheNameAloneDiffers) {
    const auto stays = [](const char* movie, const char* newMovie) {
        return RenamePlan::staysInFolder(PathParser(movie), PathParser(newMovie));
    };
    EXPECT_TRUE(stays("/a/old.mov", "/a/new.mov"));
    EXPECT_TRUE(stays("/old.mov", "/new.mov"));
    EXPECT_FALSE(stays("/a/old.mov", "/b/old.mov"));
    EXPECT_FALSE(stays("/a/old.mov", "/a/b/old.mov"));
    EXPECT_FALSE(stays("/a/b/old.mov", "/a/old.mov"));
    EXPECT_FALSE(stays("/a/b/old.mov", "/b/b/old.mov"));
}

TEST(RenamePlanOf, OnlyAKnownSuffixOfAnotherTypeChangesTheType) {
    const auto changed = [](MediaFileType type, const char* path) {
        return RenamePlan::changedType(type, PathParser(path));
    };
    EXPECT_EQ(changed(MediaFileType::Wav, "/a/new.aiff"), MediaFileType::Aiff);
    EXPECT_EQ(changed(MediaFileType::Wav, "/a/new.AIFF"), MediaFileType::Aiff);
    EXPECT_EQ(changed(MediaFileType::Wav, "/a/new.wav"), MediaFileType::Unknown);
    EXPECT_EQ(changed(MediaFileType::Aiff, "/a/new.aif"), MediaFileType::Unknown) << "another suffix of the type";
    EXPECT_EQ(changed(MediaFileType::Wav, "/a/new"), MediaFileType::Unknown);
    EXPECT_EQ(changed(MediaFileType::Wav, "/a/wav"), MediaFileType::Unknown);
    EXPECT_EQ(changed(MediaFileType::Wav, "/a/new."), MediaFileType::Unknown);
    EXPECT_EQ(changed(MediaFileType::Wav, "/a/new.nobodys"), MediaFileType::Unknown);
    EXPECT_EQ(changed(MediaFileType::Wav, "/a.aiff/new"), MediaFileType::Unknown);
    EXPECT_EQ(changed(MediaFileType::Unknown, "/a/new.wav"), MediaFileType::Wav);
}

TEST(RenamePlanOf, TheTemporaryNameIsHiddenInTheNewFolder) {
    EXPECT_STREQ(RenamePlan::temporaryName(PathParser("/b/c/new.mov")).getPath(true), "/b/c/.new.mov.rename");
    EXPECT_STREQ(RenamePlan::temporaryName(PathParser("/new")).getPath(true), "/.new.rename");
}

TEST(RenamePlanOf, TheTemporaryNameFitsANewPathOf4087Bytes) {
    EXPECT_TRUE(RenamePlan::temporaryNameFits(std::string(4087, 'n').c_str()));
    EXPECT_FALSE(RenamePlan::temporaryNameFits(std::string(4088, 'n').c_str()));
}

TEST(RenamePlanOf, AStraightPathHasNoWaysUp) {
    const auto straight = [](const char* path) {
        return std::string(RenamePlan::straight(PathParser(path)).getPath(true));
    };
    EXPECT_EQ(straight("/a/b/x.wav"), "/a/b/x.wav");
    EXPECT_EQ(straight("/a/b/../m/x.wav"), "/a/m/x.wav");
    EXPECT_EQ(straight("/a/b/c/../../x.wav"), "/a/x.wav");
    EXPECT_EQ(straight("/a/../../x.wav"), "/x.wav") << "above the root there is the root";
    EXPECT_EQ(straight("/a/..b/...x"), "/a/..b/...x");
}
