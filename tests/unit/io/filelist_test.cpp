#include <gtest/gtest.h>

#include <sys/stat.h>

#include "mediautil/io/media_file_list.h"
#include "services/file/fs_file_io.h"
#include "shared/include/object/switches.h"
#include "tests/kit/agents.h"
#include "tests/kit/cache_scene.h"
#include "tests/kit/fake_file.h"
#include "tests/kit/switch_guard.h"

using kit::FakeFile;
using kit::formatted;
using kit::isError;
using kit::isWarning;
using kit::TempTree;

namespace {

MediaIdRec* idOf(std::uintptr_t value) { return reinterpret_cast<MediaIdRec*>(value); }

class FileList : public ::testing::Test {
protected:
    ~FileList() override { m_result.discard(); }

    // An open read handle on a file, as the open path has it.
    static AutoRefPtr<BasicFileIO> handleOn(const std::string& path,
                                            BasicIOTypes::Mode mode = BasicIOTypes::Mode::ReadOnly) {
        AutoRefPtr<BasicFileIO> file(new FsFileIO("test", path.c_str(), mode));
        EXPECT_TRUE(file->open());
        return file;
    }
    // A list of so many files of which the first came by a handle.
    void enterFiles(unsigned count) {
        for (unsigned i = 0; i < count; ++i) {
            m_paths.push_back(m_tree.writePattern("f" + std::to_string(i), 100 + i));
            if (i == 0) {
                m_list.getIndex(handleOn(m_paths[0]));
            } else {
                m_list.getIndex(m_paths[i].c_str());
            }
        }
    }
    AutoRefPtr<BasicFileIO> read(unsigned id, const MediaAgent& agent) {
        m_result.discard();
        return m_list.getFp(idOf(id), false, agent, m_result);
    }
    unsigned openFor(const MediaAgent& agent) { return m_list.getNumOpenFiles(agent); }
    unsigned openForNull() { return m_list.getNumOpenFiles(MediaAgent(nullptr)); }

    TempTree m_tree;
    kit::LogCapture m_log;
    kit::Client m_clientA, m_clientB;
    const MediaAgent m_a{&m_clientA}, m_b{&m_clientB};
    MediaFileList m_list;
    std::vector<std::string> m_paths;
    OpResult m_result;
};

}  // namespace

TEST_F(FileList, EmptyOneAnswersNothing) {
    EXPECT_EQ(m_list.size(), 0u);
    EXPECT_EQ(m_list.getVersion(), 0u);
    EXPECT_TRUE(m_list.allFilesOpen(m_a, false));
    EXPECT_TRUE(m_list.allFilesOpen(m_a, true));
    EXPECT_EQ(m_list.getDirtyOccupancy(), 0u);
    EXPECT_EQ(m_list.getTotalOccupancy(m_a, false), 0u);
    EXPECT_EQ(m_list.getCacheSize(m_a, true), 0u);
    EXPECT_EQ(m_list.getNumOpenFiles(m_a), 0u);
    EXPECT_TRUE(m_list.close(m_a));
    EXPECT_TRUE(m_list.remove());
    EXPECT_TRUE(m_log.lines().empty()) << m_log.text();
}

TEST_F(FileList, IndexOutOfRangeGivesEmptyAnswersAndCodeOne) {
    enterFiles(2);
    EXPECT_STREQ(m_list.getPath(2), "");
    EXPECT_EQ(m_list.getPathId(2), OsPathId(0));
    EXPECT_EQ(m_list.getMediaSize(0xFFFFFFFFu), 0u);
    EXPECT_EQ(m_list.getSizeAdvice(2), BasicIOTypes::SizeAdvice::None);
    m_list.purge(2);
    m_list.flush(2);
    m_list.advise(2, BasicIOTypes::SizeAdvice::LargeStripe);
    EXPECT_TRUE(m_log.lines().empty()) << m_log.text();
    EXPECT_TRUE(isWarning(m_list.close(2, m_a), 1));
    EXPECT_TRUE(isWarning(m_list.rename(2, "/x"), 1));
    MediaFileList other;
    EXPECT_FALSE(m_list.inheritFileHandles(0, other));
    EXPECT_FALSE(other.inheritFileHandles(0, m_list));
}

TEST_F(FileList, SamePathGivesTheSameIndexAndAnotherTextForTheFileAnotherEntry) {
    const std::string path = m_tree.write("a", "x");
    EXPECT_EQ(m_list.getIndex(path.c_str()), 0u);
    EXPECT_EQ(m_list.getIndex(path.c_str()), 0u);
    EXPECT_EQ(m_list.size(), 1u);
    const std::string otherText = m_tree.path("./a");
    EXPECT_EQ(m_list.getIndex(otherText.c_str()), 1u);
    EXPECT_EQ(m_list.getIndex(m_tree.path("A").c_str()), 2u);
    EXPECT_EQ(m_list.size(), 3u);
    EXPECT_EQ(m_list.getPathId(0), m_list.getPathId(1));
}

TEST_F(FileList, EntryByPathOpensNothing) {
    enterFiles(2);
    EXPECT_EQ(openForNull(), 1u);
    EXPECT_FALSE(m_list.allFilesOpen(MediaAgent(nullptr), false));
    EXPECT_STREQ(m_list.getPath(1), m_paths[1].c_str());
    EXPECT_EQ(m_list.getMediaSize(1), 101u);
    EXPECT_NE(m_list.getVersion(), 0u);
}

TEST_F(FileList, EntryByHandleLeavesTheHandleToTheNullAgent) {
    const std::string path = m_tree.write("a", "x");
    AutoRefPtr<BasicFileIO> file = handleOn(path);
    EXPECT_EQ(m_list.getIndex(file), 0u);
    EXPECT_EQ(read(1, MediaAgent(nullptr)).get(), file.get());
    EXPECT_TRUE(m_result);
    EXPECT_NE(read(1, m_a).get(), file.get());
}

TEST_F(FileList, HandleOnAFileThatIsThereAlreadyLosesOneReferenceMoreThanItsCopies) {
    m_list.getIndex("/nowhere/fake");
    FakeFile* fake = new FakeFile;
    bool destroyed = false;
    fake->m_destroyed = &destroyed;
    fake->preserve();  // the creator's own, which the call takes
    {
        AutoRefPtr<BasicFileIO> file(fake);
        EXPECT_EQ(m_list.getIndex(file), 0u);
        EXPECT_FALSE(destroyed);
    }
    EXPECT_TRUE(destroyed);
    EXPECT_EQ(m_list.size(), 1u);
    EXPECT_EQ(m_log.count(LogLevel::Debug, "MO: discard /nowhere/fake"), 1u) << m_log.text();
}

TEST_F(FileList, PathOfThePrimaryIsEmptyOnceItHasGoneAndOfASecondaryStays) {
    enterFiles(2);
    EXPECT_STREQ(m_list.getPath(0), m_paths[0].c_str());
    m_tree.remove("f0");
    m_tree.remove("f1");
    EXPECT_STREQ(m_list.getPath(0), "");
    EXPECT_STREQ(m_list.getPath(1), m_paths[1].c_str());
}

TEST_F(FileList, IdOutOfRangeIsAnErrorThatIsToldWithItsKindAndClient) {
    enterFiles(1);
    EXPECT_EQ(m_list.getFp(idOf(5), false, m_a, m_result).get(), nullptr);
    EXPECT_TRUE(isError(m_result, 1));
    EXPECT_EQ(
        m_log.count(LogLevel::Error, formatted("MediaFileList::getFp(id=5,not writable,a=%p)-->oob", m_a.client())), 1u)
        << m_log.text();
    EXPECT_EQ(m_list.getFp(idOf(2), true, m_a, m_result).get(), nullptr);
    EXPECT_EQ(m_log.count(LogLevel::Error, formatted("MediaFileList::getFp(id=2, writable,a=%p)-->oob", m_a.client())),
              1u)
        << m_log.text();
    m_result.discard();
    EXPECT_EQ(m_list.getFp(nullptr, true, MediaAgent(nullptr), m_result).get(), nullptr);
    EXPECT_EQ(m_log.count(LogLevel::Error, formatted("MediaFileList::getFp(id=0, writable,a=%p)-->oob", nullptr)), 1u)
        << m_log.text();
    EXPECT_TRUE(isError(m_result, 1));
}

TEST_F(FileList, HandleThatCannotBeHadIsCode16) {
    m_list.getIndex(m_tree.path("missing").c_str());
    EXPECT_EQ(read(1, m_a).get(), nullptr);
    EXPECT_TRUE(isWarning(m_result, 16));
}

TEST_F(FileList, EachClientReadsThroughAHandleOfItsOwnAndAllWriteThroughOne) {
    enterFiles(1);
    AutoRefPtr<BasicFileIO> a = read(1, m_a), again = read(1, m_a), b = read(1, m_b);
    EXPECT_EQ(a.get(), again.get());
    EXPECT_NE(a.get(), b.get());
    AutoRefPtr<BasicFileIO> writeA = m_list.getFp(idOf(1), true, m_a, m_result);
    AutoRefPtr<BasicFileIO> writeB = m_list.getFp(idOf(1), true, m_b, m_result);
    ASSERT_NE(writeA.get(), nullptr);
    EXPECT_EQ(writeA.get(), writeB.get());
    EXPECT_TRUE(writeA->writable());
}

TEST_F(FileList, FirstReadOfASecondaryOpensThePrimaryForThatClientAndNoLaterOneDoes) {
    enterFiles(3);
    ASSERT_NE(read(2, m_a).get(), nullptr);
    EXPECT_EQ(openFor(m_a), 2u);
    ASSERT_NE(read(3, m_a).get(), nullptr);
    EXPECT_EQ(openFor(m_a), 3u);
    ASSERT_NE(read(2, m_b).get(), nullptr);
    EXPECT_EQ(openFor(m_b), 1u);
}

TEST_F(FileList, ReadOfThePrimaryOrAWriteNeverCountsAsHoldingIt) {
    enterFiles(2);
    ASSERT_NE(read(1, m_a).get(), nullptr);
    ASSERT_NE(m_list.getFp(idOf(2), true, m_a, m_result).get(), nullptr);
    ASSERT_NE(read(2, m_b).get(), nullptr);
    EXPECT_EQ(openFor(m_b), 2u);
}

TEST_F(FileList, PrimaryThatCannotBeOpenedDoesNotKeepASecondaryFromBeingRead) {
    m_list.getIndex(m_tree.path("missing").c_str());
    const std::string media = m_tree.write("media", "x");
    m_list.getIndex(media.c_str());
    EXPECT_NE(read(2, m_a).get(), nullptr);
    EXPECT_TRUE(m_result);
}

TEST_F(FileList, CloseOfTheLastClientClosesTheNullAgentsHandlesWhenThePrimaryIsHeld) {
    enterFiles(2);
    EXPECT_EQ(openForNull(), 1u);
    ASSERT_NE(read(2, m_a).get(), nullptr);
    ASSERT_NE(read(2, m_b).get(), nullptr);
    EXPECT_TRUE(m_list.close(m_a));
    EXPECT_EQ(openFor(m_a), 0u);
    EXPECT_EQ(openForNull(), 1u) << "another client is still there";
    EXPECT_TRUE(m_list.close(m_b));
    EXPECT_EQ(openForNull(), 0u);
}

TEST_F(FileList, NullAgentsHandlesSurviveWhenThePrimaryWasNeverHeld) {
    enterFiles(1);
    ASSERT_NE(read(1, m_a).get(), nullptr);
    EXPECT_TRUE(m_list.close(m_a));
    EXPECT_EQ(openFor(m_a), 0u);
    EXPECT_EQ(openForNull(), 1u);
}

TEST_F(FileList, WriteHandleOfTheNullAgentKeepsItsHandlesOpen) {
    enterFiles(2);
    ASSERT_NE(read(2, m_a).get(), nullptr);
    ASSERT_NE(m_list.getFp(idOf(2), true, MediaAgent(nullptr), m_result).get(), nullptr);
    const unsigned before = openForNull();
    EXPECT_TRUE(m_list.close(m_a));
    EXPECT_EQ(openForNull(), before);
}

TEST_F(FileList, PrimaryIsHeldAgainAfterItWasGivenUp) {
    enterFiles(2);
    ASSERT_NE(read(2, m_a).get(), nullptr);
    EXPECT_TRUE(m_list.close(m_a));
    ASSERT_NE(read(2, m_b).get(), nullptr);
    EXPECT_EQ(openFor(m_b), 2u);
}

TEST_F(FileList, CloseOfOneFileLeavesTheClientsOthersOpen) {
    enterFiles(3);
    read(2, m_a);
    read(3, m_a);
    EXPECT_EQ(openFor(m_a), 3u);
    EXPECT_TRUE(m_list.close(1, m_a));
    EXPECT_EQ(openFor(m_a), 2u);
    EXPECT_TRUE(m_list.close(0, MediaAgent(nullptr)));
    EXPECT_EQ(openForNull(), 0u);
}

TEST_F(FileList, ClosesAreLoggedUnderOpenTraceAlsoOutOfRange) {
    enterFiles(2);
    const kit::SwitchGuard on(mediaObjDbg, MediaDbg::OpenTrace);
    EXPECT_TRUE(m_list.close(1, m_a));
    EXPECT_EQ(m_log.count(LogLevel::Debug,
                          formatted("MediaFileList: close %s for agent %p", m_paths[1].c_str(), m_a.client())),
              1u)
        << m_log.text();
    EXPECT_TRUE(isWarning(m_list.close(7, m_a), 1));
    EXPECT_EQ(m_log.count(LogLevel::Debug, formatted("MediaFileList: close  for agent %p", m_a.client())), 1u)
        << m_log.text();
    EXPECT_TRUE(m_list.close(m_a));
    EXPECT_EQ(m_log.count(LogLevel::Debug,
                          formatted("MediaFileList: close all %s for agent %p", m_paths[0].c_str(), m_a.client())),
              1u)
        << m_log.text();
}

TEST_F(FileList, RemoveWithAProtectedThirdFileDeletesNothing) {
    enterFiles(3);
    ASSERT_EQ(::chmod(m_paths[2].c_str(), 0444), 0);
    EXPECT_TRUE(isWarning(m_list.remove(), 5));
    for (const char* name : {"f0", "f1", "f2"})
        EXPECT_TRUE(m_tree.exists(name));
}

TEST_F(FileList, RemoveGoesOnBehindAFileThatCannotBeDeletedAndReportsCode2) {
    const std::string first = m_tree.write("f0", "x"), third = m_tree.write("f2", "x");
    m_tree.write("folder/inside", "x");
    m_list.getIndex(first.c_str());
    m_list.getIndex(m_tree.path("folder").c_str());
    m_list.getIndex(third.c_str());
    EXPECT_TRUE(isWarning(m_list.remove(), 2));
    EXPECT_FALSE(m_tree.exists("f0"));
    EXPECT_TRUE(m_tree.exists("folder/inside"));
    EXPECT_FALSE(m_tree.exists("f2"));
}

TEST_F(FileList, RenameMovesTheFileAndNeverReplacesAnother) {
    enterFiles(2);
    EXPECT_TRUE(isWarning(m_list.rename(0, m_paths[1].c_str()), 2));
    EXPECT_TRUE(m_tree.exists("f0"));
    const OsPathId id = m_list.getPathId(0);
    EXPECT_TRUE(m_list.rename(0, m_tree.path("renamed").c_str()));
    EXPECT_FALSE(m_tree.exists("f0"));
    EXPECT_STREQ(m_list.getPath(0), m_tree.path("renamed").c_str());
    EXPECT_EQ(m_list.getPathId(0), id);
}

TEST_F(FileList, HandlesOfAnEntryThatStandsForTheSameFileAreTakenOver) {
    enterFiles(2);
    AutoRefPtr<BasicFileIO> before = read(2, m_a);
    MediaFileList successor;
    for (const std::string& path : m_paths)
        successor.getIndex(path.c_str());
    EXPECT_TRUE(successor.inheritFileHandles(1, m_list));
    OpResult result;
    EXPECT_EQ(successor.getFp(idOf(2), false, m_a, result).get(), before.get());
    MediaFileList stranger;
    stranger.getIndex(m_paths[0].c_str());
    stranger.getIndex(m_tree.write("other", "x").c_str());
    EXPECT_FALSE(stranger.inheritFileHandles(1, successor));
}

TEST_F(FileList, InheritedPrimaryCountsAsHeldWhenTheNullAgentReadsIt) {
    enterFiles(2);
    MediaFileList successor;
    for (const std::string& path : m_paths)
        successor.getIndex(path.c_str());
    EXPECT_TRUE(successor.inheritFileHandles(0, m_list));
    OpResult result;
    ASSERT_NE(successor.getFp(idOf(2), false, m_a, result).get(), nullptr);
    EXPECT_EQ(successor.getNumOpenFiles(m_a), 1u) << "the primary is held already";
}

TEST_F(FileList, ReadOnlyListGivesNoWriteHandle) {
    enterFiles(1);
    m_list.setReadOnly();
    EXPECT_EQ(m_list.getFp(idOf(1), true, m_a, m_result).get(), nullptr);
    EXPECT_TRUE(isWarning(m_result, 16));
}

TEST_F(FileList, AdviceStaysWithItsEntry) {
    enterFiles(2);
    EXPECT_EQ(m_list.getSizeAdvice(1), BasicIOTypes::SizeAdvice::None);
    m_list.advise(1, BasicIOTypes::SizeAdvice::LargeStripe);
    EXPECT_EQ(m_list.getSizeAdvice(1), BasicIOTypes::SizeAdvice::LargeStripe);
    EXPECT_EQ(m_list.getSizeAdvice(0), BasicIOTypes::SizeAdvice::None);
    EXPECT_EQ(static_cast<unsigned>(BasicIOTypes::SizeAdvice::LargeStripe), 0u);
    EXPECT_EQ(static_cast<unsigned>(BasicIOTypes::SizeAdvice::SmallStripe), 1u);
    EXPECT_EQ(static_cast<unsigned>(BasicIOTypes::SizeAdvice::None), 2u);
}

TEST_F(FileList, ItsEndClosesWhatIsLeft) {
    const std::string path = m_tree.write("a", "x");
    FakeFile* fake = new FakeFile;
    bool destroyed = false;
    fake->m_destroyed = &destroyed;
    {
        MediaFileList list;
        list.getIndex(AutoRefPtr<BasicFileIO>(fake));
        EXPECT_FALSE(destroyed);
    }
    EXPECT_TRUE(destroyed);
}
