#include <gtest/gtest.h>

#include "mediautil/object/media_obj_impl.h"
#include "services/file/fs_file_io.h"
#include "tests/kit/agents.h"
#include "tests/kit/cache_scene.h"

using kit::isWarning;
using kit::MovieScript;
using kit::ScriptedMovie;
using kit::TempTree;

// A movie's way to its files.

namespace {

MediaIdRec* idOf(std::uintptr_t value) { return reinterpret_cast<MediaIdRec*>(value); }

using Advice = BasicIOTypes::SizeAdvice;

class MovieFiles : public kit::CacheScene {
protected:
    ScriptedMovie* lonely(const MovieScript& script = MovieScript(), const std::string& path = {},
                          bool writable = false) {
        return new ScriptedMovie(script, path, writable, MediaObj::CacheRefValue::None);
    }
    AutoRefPtr<BasicFileIO> handleOn(const std::string& path) {
        return AutoRefPtr<BasicFileIO>(new FsFileIO("test", path.c_str(), BasicIOTypes::Mode::ReadOnly));
    }
    Advice adviceOf(const ScriptedMovie& movie, unsigned index) { return movie.impl().m_fileList.getSizeAdvice(index); }

    kit::Client m_client;
    const MediaAgent m_agent{&m_client};
    const std::string m_first = m_tree.writePattern("first.hdcam", 10);
    const std::string m_second = m_tree.writePattern("second.raw", 20);
};

}  // namespace

TEST(MediaAgentValue, IsTheNullAgentByDefaultAndComparesTheClientAlone) {
    kit::Client client, other;
    const MediaAgent null(nullptr), agent(&client), same(&client), different(&other);
    EXPECT_TRUE(null == nullptr);
    EXPECT_FALSE(null != nullptr);
    EXPECT_TRUE(null == MediaAgent());
    EXPECT_TRUE(agent == same);
    EXPECT_FALSE(agent == different);
    EXPECT_TRUE(agent == static_cast<const void*>(&client));
    EXPECT_TRUE(agent != static_cast<const void*>(&other));
    EXPECT_EQ(static_cast<FileIoClientRec*>(null), nullptr);
    EXPECT_EQ(static_cast<const void*>(static_cast<FileIoClientRec*>(agent)), static_cast<const void*>(&client));
    EXPECT_EQ(null->get(static_cast<MediaAgentPropId>(0x10000002)), nullptr);
}

TEST_F(MovieFiles, IdsAreOneBasedPositionsAndNullIsNoIndex) {
    AutoReleasePtr<ScriptedMovie> movie(lonely());
    EXPECT_EQ(movie->getMediaId(0), nullptr);
    EXPECT_EQ(movie->allocMediaId(m_first.c_str()), idOf(1));
    EXPECT_EQ(movie->allocMediaId(m_second.c_str()), idOf(2));
    EXPECT_EQ(movie->allocMediaId(m_first.c_str()), idOf(1));
    EXPECT_EQ(movie->getMediaCount(), 2u);
    EXPECT_EQ(movie->getMovieDesc()->getNumMedia(), 2u);
    EXPECT_EQ(movie->getMediaId(0), idOf(1));
    EXPECT_EQ(movie->getMediaId(1), idOf(2));
    EXPECT_EQ(movie->getMediaId(2), nullptr);
    EXPECT_EQ(movie->getMediaIndex(idOf(2)), 1u);
    EXPECT_EQ(movie->getMediaIndex(idOf(3)), 0xFFFFFFFFu);
    EXPECT_EQ(movie->getMediaIndex(nullptr), 0xFFFFFFFFu);
}

TEST_F(MovieFiles, NullIdIsThePrimaryForPathAndSizeAndOutOfRangeForTheIdAndTheFlush) {
    AutoReleasePtr<ScriptedMovie> movie(lonely(MovieScript(), m_first));
    EXPECT_STREQ(movie->getPath(nullptr), m_first.c_str());
    EXPECT_EQ(movie->getMediaSize(nullptr), 10u);
    EXPECT_EQ(static_cast<MediaObj*>(movie.get())->getPathId(static_cast<MediaIdRec*>(nullptr)), OsPathId(0));
    EXPECT_EQ(static_cast<MediaObj*>(movie.get())->getPathId(idOf(1)), TempTree::idOf(m_first));
    static_cast<MediaObj*>(movie.get())->flush(static_cast<MediaIdRec*>(nullptr));
    EXPECT_STREQ(movie->getPath(idOf(9)), "");
    EXPECT_EQ(movie->getMediaSize(idOf(9)), 0u);
}

TEST_F(MovieFiles, AdviceOfANewEntryDependsOnItsPlaceAndOnHowItCame) {
    AutoReleasePtr<ScriptedMovie> byPath(lonely()), byHandle(lonely());
    byPath->allocMediaId(m_first.c_str());
    byPath->allocMediaId(m_second.c_str());
    EXPECT_EQ(adviceOf(*byPath.get(), 0), Advice::None);
    EXPECT_EQ(adviceOf(*byPath.get(), 1), Advice::SmallStripe);
    const std::string third = m_tree.write("third.hdcam", "x"), fourth = m_tree.write("fourth.raw", "x");
    byHandle->allocMediaId(handleOn(third));
    byHandle->allocMediaId(handleOn(fourth));
    EXPECT_EQ(adviceOf(*byHandle.get(), 0), Advice::SmallStripe);
    EXPECT_EQ(adviceOf(*byHandle.get(), 1), Advice::LargeStripe);
}

TEST_F(MovieFiles, EntryThatTheDescriptorCountsAlreadyIsLeftAlone) {
    AutoReleasePtr<ScriptedMovie> movie(lonely());
    movie->getMovieDesc()->setNumMedia(2);
    EXPECT_EQ(movie->allocMediaId(m_first.c_str()), idOf(1));
    EXPECT_EQ(movie->allocMediaId(m_second.c_str()), idOf(2));
    EXPECT_EQ(movie->getMovieDesc()->getNumMedia(), 2u);
    EXPECT_EQ(adviceOf(*movie.get(), 1), Advice::None);
}

TEST_F(MovieFiles, OpenOfNoFileIsAnEmptyHandleAndOfAFileOneForTheMode) {
    AutoReleasePtr<ScriptedMovie> movie(lonely(MovieScript(), m_first));
    EXPECT_EQ(movie->open(nullptr, m_agent, MediaObj::ReadMode::ReadOnly, m_result).get(), nullptr);
    EXPECT_TRUE(m_result);
    AutoRefPtr<BasicFileIO> reader = movie->open(idOf(1), m_agent, MediaObj::ReadMode::ReadOnly, m_result);
    ASSERT_NE(reader.get(), nullptr);
    EXPECT_FALSE(reader->writable());
    AutoRefPtr<BasicFileIO> writer = movie->open(idOf(1), m_agent, MediaObj::ReadMode::ReadWrite, m_result);
    ASSERT_NE(writer.get(), nullptr);
    EXPECT_TRUE(writer->writable());
}

TEST_F(MovieFiles, CloseOfOneFileOrOfAll) {
    AutoReleasePtr<ScriptedMovie> movie(lonely(MovieScript().audioIn(m_second, 5), m_first));
    movie->getFp(m_result, idOf(2), m_agent);
    EXPECT_EQ(movie->getNumOpenFiles(m_agent), 2u);
    EXPECT_TRUE(movie->allFilesOpen(m_agent, false));
    EXPECT_TRUE(movie->close(idOf(2), m_agent));
    EXPECT_EQ(movie->getNumOpenFiles(m_agent), 1u);
    EXPECT_TRUE(movie->close(nullptr, m_agent));
    EXPECT_EQ(movie->getNumOpenFiles(m_agent), 0u);
    EXPECT_TRUE(isWarning(movie->close(idOf(9), m_agent), 1));
}

TEST_F(MovieFiles, ReleaseOfAClientClosesItsFilesAndOfTheNullAgentNone) {
    const std::string path = scripted("c.hdcam", MovieScript());
    ScriptedMovie* movie = open(path);
    movie->getFp(m_result, idOf(1), m_agent);
    EXPECT_EQ(movie->getNumOpenFiles(m_agent), 1u);
    movie->preserve();
    EXPECT_EQ(movie->release(m_agent, false), 2);
    EXPECT_EQ(movie->m_closes, 1);
    EXPECT_EQ(movie->getNumOpenFiles(m_agent), 0u);
    EXPECT_EQ(movie->release(nullAgent(), false), 1);
    EXPECT_EQ(movie->m_closes, 1);
}

TEST_F(MovieFiles, RemoveTurnsTheMovieReadOnlyAndDeletesItsFiles) {
    AutoReleasePtr<ScriptedMovie> movie(lonely(MovieScript().audioIn(m_second, 5), m_first, true));
    EXPECT_TRUE(movie->remove());
    EXPECT_FALSE(movie->getMovieDesc()->isWritable());
    EXPECT_FALSE(m_tree.exists("first.hdcam"));
    EXPECT_FALSE(m_tree.exists("second.raw"));
}

TEST_F(MovieFiles, FlushOfTracksOrAllDoesNothingUnlessNow) {
    AutoReleasePtr<ScriptedMovie> movie(lonely(MovieScript().audioIn(m_second, 5), m_first, true));
    AutoRefPtr<BasicFileIO> writer = movie->getFp(m_result, idOf(2), true, nullAgent());
    ASSERT_NE(writer.get(), nullptr);
    EXPECT_EQ(writer->writeAt(0, "new", 3), 3);
    movie->flush(static_cast<const MediaTrackDesc*>(nullptr), false);
    movie->flush(&movie->track(0), true);
    EXPECT_EQ(movie->getDirtyOccupancy(), 0u);
    EXPECT_EQ(writer->writeAt(0, "old", 3), 3);
    movie->flush(static_cast<const MediaTrackDesc*>(nullptr), true);
    EXPECT_EQ(movie->getDirtyOccupancy(), 0u);
    movie->purge();
    EXPECT_TRUE(m_log.lines().empty()) << m_log.text();
}
