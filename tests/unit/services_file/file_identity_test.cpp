#include <sys/resource.h>

#include <algorithm>
#include <set>

#include "tests/unit/services_file/file_kit.h"

namespace {

using namespace FileKit;

// Each test starts with nothing known.
class FileId : public testing::Test {
protected:
    void SetUp() override { m_known = FileTable::size(); }
    void TearDown() override { EXPECT_EQ(m_known, FileTable::size()) << "an identity was left behind"; }

    Tree m_tree;
    unsigned m_known = 0;
};

using FileVersion = FileId;

TEST_F(FileId, IsZeroForWhatIsNoFile) {
    EXPECT_TRUE(idOf(m_tree / "none") == 0ull);
    EXPECT_TRUE(idOf(m_tree.root()) == 0ull);
    EXPECT_TRUE(idOf("") == 0ull);
    EXPECT_TRUE(Fp(new FsFileIO("test", static_cast<const char*>(nullptr), Mode::ReadOnly))->getPathId() == 0ull);
    EXPECT_TRUE(idOf("/dev/null") == 0ull);
}

TEST_F(FileId, IsTheSameAsLongAsTheFileStays) {
    const std::string a = m_tree.write("a", "1");
    const OsPathId first = idOf(a);
    EXPECT_FALSE(first == 0ull);
    m_tree.write("a", "other content");
    EXPECT_EQ(first, idOf(a));
    EXPECT_NE(first, idOf(m_tree.write("b", "1")));
}

TEST_F(FileId, IsOneForAllSpellingsOfAPath) {
    const std::string a = m_tree.write("a.wav", "1");
    const Fp held = reader(a);
    const OsPathId id = held->getPathId();
    EXPECT_EQ(id, idOf(m_tree.root() + "//a.wav"));
    EXPECT_EQ(id, idOf(m_tree.root() + "/./a.wav"));
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(m_tree.root());
    EXPECT_EQ(id, idOf("a.wav"));
    EXPECT_EQ(id, idOf("./a.wav"));
    EXPECT_EQ(id, idOf("./a.wav"));
    std::filesystem::current_path(before);
    ASSERT_EQ(0, ::symlink(a.c_str(), (m_tree / "link").c_str()));
    EXPECT_EQ(id, idOf(m_tree / "link"));
}

TEST_F(FileId, IsSharedByHardLinks) {
    const std::string a = m_tree.write("a", "1");
    ASSERT_EQ(0, ::link(a.c_str(), (m_tree / "b").c_str()));
    const Fp held = reader(a);
    EXPECT_EQ(held->getPathId(), idOf(m_tree / "b"));
}

TEST_F(FileId, OfOneHardLinkGoesOnWhenTheOtherIsReplaced) {
    const std::string a = m_tree.write("a", "1");
    ASSERT_EQ(0, ::link(a.c_str(), (m_tree / "b").c_str()));
    const Fp held = reader(a);
    const OsPathId id = held->getPathId();
    ASSERT_EQ(id, idOf(m_tree / "b"));
    move(m_tree.write("new", "22"), m_tree / "b");
    const Fp other = reader(m_tree / "b");
    EXPECT_NE(id, other->getPathId());
    EXPECT_EQ(id, idOf(a));
    EXPECT_NE(id, idOf(m_tree / "b"));
    EXPECT_EQ(id, held->getPathId());
}

TEST_F(FileId, StaysThroughARenameOutsideSeenByItsNewName) {
    const std::string a = m_tree.write("a", "1");
    const Fp held = reader(a);
    const OsPathId id = held->getPathId();
    move(a, m_tree / "b");
    EXPECT_EQ(id, idOf(m_tree / "b"));
    EXPECT_TRUE(held->exists());
    EXPECT_EQ(m_tree / "b", held->getPath());
    // The name that it had is free for another file.
    m_tree.write("a", "2");
    EXPECT_NE(id, idOf(a));
    EXPECT_EQ(id, held->getPathId());
}

TEST_F(FileId, StaysThroughARenameOutsideSeenThroughAnOpenDescriptor) {
    const std::string a = m_tree.write("a", "1");
    const Fp held = reader(a);
    const OsPathId id = held->getPathId();
    ASSERT_TRUE(held->open());
    move(a, m_tree / "b");
    EXPECT_TRUE(held->exists());
    EXPECT_EQ(m_tree / "b", held->getPath());
    EXPECT_EQ(id, held->getPathId());
    const Fp again(new FsFileIO("test", id, Mode::ReadOnly));
    EXPECT_TRUE(again->exists());
    EXPECT_EQ(m_tree / "b", again->getPath());
}

TEST_F(FileId, OfAFileMovedAwayIsNotGivenToTheNextOneAtItsPath) {
    const std::string a = m_tree.write("a", "1");
    const Fp held = reader(a);
    const OsPathId id = held->getPathId();
    ASSERT_TRUE(held->open());
    move(a, m_tree / "b");
    m_tree.write("a", "2");
    EXPECT_NE(id, idOf(a));
    EXPECT_EQ(id, idOf(m_tree / "b"));
}

TEST_F(FileId, StaysWithThePathWhenTheFileIsReplacedByRename) {
    const std::string a = m_tree.write("a", "1");
    const Fp held = reader(a);
    const OsPathId id = held->getPathId();
    const unsigned long long version = held->getVersion();
    move(m_tree.write("new", "22"), a);
    EXPECT_EQ(id, idOf(a));
    EXPECT_NE(version, held->getVersion());
    EXPECT_NE(0ull, held->getVersion());
    EXPECT_EQ(2ull, held->getLength());
}

TEST_F(FileId, StaysWithThePathAlsoWhenTheNewcomerWasKnown) {
    const std::string a = m_tree.write("a", "1");
    const std::string b = m_tree.write("b", "22");
    const Fp heldA = reader(a);
    const Fp heldB = reader(b);
    const OsPathId idA = heldA->getPathId();
    const OsPathId idB = heldB->getPathId();
    move(b, a);
    EXPECT_EQ(idA, idOf(a));
    EXPECT_EQ(idA, heldA->getPathId());
    EXPECT_EQ(2ull, heldA->getLength());
    EXPECT_FALSE(heldB->exists());
    EXPECT_TRUE(heldB->getPathId() == 0ull);
    m_tree.write("b", "333");
    EXPECT_EQ(idB, heldB->getPathId());
    EXPECT_EQ(3ull, heldB->getLength());
}

TEST_F(FileId, StaysWithThePathWhenARemovedFileIsPutBack) {
    const std::string a = m_tree.write("a", "1");
    const Fp held = reader(a);
    const OsPathId id = held->getPathId();
    ::unlink(a.c_str());
    EXPECT_TRUE(held->getPathId() == 0ull);
    EXPECT_EQ(0ull, held->getVersion());
    EXPECT_EQ(0ull, held->getLength());
    EXPECT_FALSE(held->exists());
    m_tree.write("keepsTheInodeBusy", "x");
    m_tree.write("a", "22");
    EXPECT_EQ(id, idOf(a));
    EXPECT_EQ(id, held->getPathId());
    EXPECT_TRUE(held->exists());
}

TEST_F(FileId, StaysWithBothPathsWhenTwoFilesAreExchanged) {
    const std::string a = m_tree.write("a", "1");
    const std::string b = m_tree.write("b", "22");
    const Fp heldA = reader(a);
    const Fp heldB = reader(b);
    const OsPathId idA = heldA->getPathId();
    const OsPathId idB = heldB->getPathId();
    ASSERT_EQ(0, ::renameat2(AT_FDCWD, a.c_str(), AT_FDCWD, b.c_str(), RENAME_EXCHANGE));
    EXPECT_EQ(idA, idOf(a));
    EXPECT_EQ(idB, idOf(b));
    EXPECT_EQ(2ull, heldA->getLength());
    EXPECT_EQ(1ull, heldB->getLength());
}

// The system hands the inode number of a removed file out again; the birth time tells the two apart.
TEST_F(FileId, OfARecycledInodeIsAnotherOne) {
    const std::string a = m_tree.write("a", "1");
    FileStat before;
    ASSERT_EQ(0, statPath(a.c_str(), before));
    const Fp held = reader(a);
    const OsPathId id = held->getPathId();
    ::unlink(a.c_str());
    bool recycled = false;
    for (int i = 0; i < 100000 && !recycled; ++i) {
        const std::string next = m_tree.write("next", "1");
        FileStat after;
        ASSERT_EQ(0, statPath(next.c_str(), after));
        recycled = after.m_key.m_inode == before.m_key.m_inode && after.m_key.m_birth != before.m_key.m_birth;
        if (recycled) {
            EXPECT_NE(id, idOf(next));
        }
        ::unlink(next.c_str());
    }
    if (!recycled) GTEST_SKIP() << "this file system hands out no inode again";
}

TEST_F(FileId, LeadsToTheFileWhileItIsKnown) {
    const std::string a = m_tree.write("a", "text");
    OsPathId id;
    {
        const Fp held = reader(a);
        id = held->getPathId();
        const Fp byId(new FsFileIO("test", static_cast<const char*>(nullptr), Mode::ReadOnly));
        EXPECT_FALSE(byId->exists());
        EXPECT_TRUE(byId->openById(id));
        EXPECT_EQ(a, byId->getPath());
        EXPECT_EQ("text", textOf(byId));
        EXPECT_FALSE(byId->openById(OsPathId(id.getId() + 1)));
        ::unlink(a.c_str());
        EXPECT_FALSE(byId->openById(id));
    }
    const Fp late(new FsFileIO("test", id, Mode::ReadOnly));
    EXPECT_FALSE(late->exists());
    EXPECT_TRUE(late->getPathId() == 0ull);
}

TEST_F(FileId, OfManyFilesAreAllDifferent) {
    std::set<unsigned long long> ids;
    std::vector<Fp> held;
    for (int i = 0; i < 2000; ++i) {
        held.push_back(reader(m_tree.write("f" + std::to_string(i), "x")));
        ids.insert(held.back()->getPathId().getId());
    }
    EXPECT_EQ(2000u, ids.size());
    EXPECT_EQ(m_known + 2000, FileTable::size());
}

TEST_F(FileId, OfAFileWithManyNamesIsFoundByEachOfThem) {
    const std::string a = m_tree.write("a", "1");
    const Fp held = reader(a);
    const OsPathId id = held->getPathId();
    for (int i = 0; i < 20; ++i) {
        const std::string name = m_tree / ("l" + std::to_string(i));
        ASSERT_EQ(0, ::link(a.c_str(), name.c_str()));
        EXPECT_EQ(id, idOf(name));
        EXPECT_EQ(id, idOf(m_tree.root() + "//l" + std::to_string(i)));
    }
    EXPECT_EQ(id, idOf(a));
}

// Only root may open a file by the system's handle.
TEST_F(FileId, LeadsToAFileThatWasMovedOutsideAndIsOpenNowhere) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs the right to open by handle";
    const std::string a = m_tree.write("a", "1");
    const Fp held = reader(a);
    const OsPathId id = held->getPathId();
    FileTable::keepHandle(*fs(held).getRef().identity());
    ASSERT_EQ(0, ::mkdir((m_tree / "sub").c_str(), 0777));
    move(a, m_tree / "sub/b");
    const Fp byId(new FsFileIO("test", static_cast<const char*>(nullptr), Mode::ReadOnly));
    if (!byId->openById(id)) GTEST_SKIP() << "this system has no such handles";
    EXPECT_EQ(m_tree / "sub/b", byId->getPath());
}

TEST_F(FileId, IsNotLostToAThreadThatLetsGoMeanwhile) {
    const std::string a = m_tree.write("a", "1");
    std::atomic<bool> stop{false};
    std::atomic<int> zero{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            while (!stop) {
                if (idOf(a) == 0ull) ++zero;
            }
        });
    }
    for (int i = 0; i < 200; ++i) {
        const std::string next = m_tree.write("next", std::to_string(i));
        move(next, a);
        idOf(a);
    }
    stop = true;
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(0, zero);
}

TEST_F(FileVersion, IsZeroOnlyForWhatIsntThere) {
    EXPECT_EQ(0ull, versionOf(m_tree / "none"));
    EXPECT_EQ(0ull, versionOf(m_tree.root()));
    EXPECT_NE(0ull, versionOf(m_tree.write("empty", "")));
}

TEST_F(FileVersion, ChangesWithTheContentAndNotWithAttributes) {
    const std::string a = m_tree.write("a", "1");
    const unsigned long long first = versionOf(a);
    EXPECT_EQ(first, versionOf(a));
    ::chmod(a.c_str(), 0600);
    EXPECT_EQ(first, versionOf(a));
    move(a, m_tree / "b");
    EXPECT_EQ(first, versionOf(m_tree / "b"));
    ASSERT_EQ(0, ::link((m_tree / "b").c_str(), (m_tree / "c").c_str()));
    EXPECT_EQ(first, versionOf(m_tree / "c"));
    EXPECT_TRUE(waitFor([&] {
        m_tree.write("b", "2");
        return versionOf(m_tree / "b") != first;
    }));
    const unsigned long long second = versionOf(m_tree / "b");
    ASSERT_EQ(0, ::truncate((m_tree / "b").c_str(), 10));
    EXPECT_NE(second, versionOf(m_tree / "b"));
}

TEST_F(FileVersion, DiffersForACopyWithTheSameTimesAndSize) {
    const std::string a = m_tree.write("a", "1");
    const std::string b = m_tree.write("b", "2");
    struct stat stat {};
    ASSERT_EQ(0, ::stat(a.c_str(), &stat));
    const timespec times[2] = {stat.st_atim, stat.st_mtim};
    ASSERT_EQ(0, ::utimensat(AT_FDCWD, b.c_str(), times, 0));
    const unsigned long long before = versionOf(a);
    move(b, a);
    EXPECT_NE(before, versionOf(a));
}

}  // namespace
