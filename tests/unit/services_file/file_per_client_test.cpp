#include "services/file/file_per_client.h"

#include <sys/xattr.h>

#include "tests/unit/services_file/file_kit.h"

namespace {

using namespace FileKit;
using Advice = BasicIOTypes::SizeAdvice;

FileIoClientRec* client(std::uintptr_t number) { return reinterpret_cast<FileIoClientRec*>(number * 16); }

class ClientFiles : public testing::Test {
protected:
    Tree m_tree;
    FilePerClient m_file;
};

TEST_F(ClientFiles, OfAnEmptyEntryAnswerNothing) {
    EXPECT_STREQ("", m_file.getPath());
    EXPECT_TRUE(m_file.getPathId() == 0ull);
    EXPECT_FALSE(m_file.exists());
    EXPECT_EQ(0ull, m_file.getFileSize());
    EXPECT_EQ(0ull, m_file.getVersion());
    EXPECT_FALSE(m_file.getReadFp(client(1)));
    EXPECT_FALSE(m_file.getReadFp(nullptr));
    EXPECT_FALSE(m_file.getWriteFp());
    EXPECT_TRUE(m_file.close(client(1), nullptr));
    EXPECT_FALSE(m_file.isOpen(nullptr, false));
    EXPECT_FALSE(m_file.hasClient());
    EXPECT_EQ(0u, m_file.getNumOpenFiles(nullptr));
    EXPECT_FALSE(m_file.remove());
    EXPECT_FALSE(m_file.rename((m_tree / "x").c_str()));
    bool flag = false;
    EXPECT_FALSE(m_file.getProtection(flag));
    m_file.setReadOnly();
    m_file.disableLowLevelMessages();
    m_file.purge();
    EXPECT_TRUE(m_file.flush());
    EXPECT_EQ(Advice::None, m_file.getSizeAdvice());
    EXPECT_EQ(0u, m_file.getDirtyOccupancy());
    EXPECT_EQ(0u, m_file.getTotalOccupancy(nullptr, false));
    EXPECT_EQ(0u, m_file.getMaxCacheSize(nullptr, false));
}

TEST_F(ClientFiles, SayWhatTheFileIs) {
    const std::string a = m_tree.write("a", "12345");
    m_file.setPath(a.c_str());
    EXPECT_EQ(a, m_file.getPath());
    EXPECT_EQ(idOf(a), m_file.getPathId());
    EXPECT_TRUE(m_file.exists());
    EXPECT_EQ(5ull, m_file.getFileSize());
    EXPECT_EQ(versionOf(a), m_file.getVersion());
    ::unlink(a.c_str());
    EXPECT_FALSE(m_file.exists());
    EXPECT_EQ(a, m_file.getPath()) << "the path stays";
    EXPECT_EQ(0ull, m_file.getVersion());
}

TEST_F(ClientFiles, GiveEachClientAReadHandleOfItsOwn) {
    m_file.setPath(m_tree.write("a", "text").c_str());
    const Fp one = m_file.getReadFp(client(1));
    const Fp two = m_file.getReadFp(client(2));
    ASSERT_TRUE(one && two);
    EXPECT_NE(one.get(), two.get());
    EXPECT_EQ(one.get(), m_file.getReadFp(client(1)).get());
    EXPECT_EQ("text", textOf(one));
    EXPECT_TRUE(m_file.isOpen(client(1), false));
    EXPECT_FALSE(m_file.isOpen(client(3), false));
    EXPECT_FALSE(m_file.isOpen(client(1), true));
    EXPECT_EQ(1u, m_file.getNumOpenFiles(client(1)));
    EXPECT_TRUE(m_file.hasClient());
    EXPECT_TRUE(m_file.close(client(1), nullptr));
    EXPECT_FALSE(m_file.isOpen(client(1), false));
    EXPECT_TRUE(m_file.hasClient());
    EXPECT_EQ("text", textOf(one)) << "whoever holds it still reads on";
    m_file.close(client(2), nullptr);
    EXPECT_FALSE(m_file.hasClient());
}

TEST_F(ClientFiles, OpenTheNullClientsHandleOnlyWhenItIsUsed) {
    m_file.setPath(m_tree.write("a", "text").c_str());
    const Fp fp = m_file.getReadFp(nullptr);
    ASSERT_TRUE(fp);
    EXPECT_FALSE(m_file.isOpen(nullptr, false));
    EXPECT_NE(0ull, fp->getVersion());
    EXPECT_FALSE(m_file.isOpen(nullptr, false));
    EXPECT_EQ("text", textOf(fp));
    EXPECT_TRUE(m_file.isOpen(nullptr, false));
    EXPECT_FALSE(m_file.hasClient());
}

TEST_F(ClientFiles, AnswerNullForAFileThatCantBeOpened) {
    m_file.setPath((m_tree / "none").c_str());
    EXPECT_TRUE(tells("none: No such file or directory", [&] { EXPECT_FALSE(m_file.getReadFp(client(1))); }));
    EXPECT_FALSE(m_file.hasClient());
    Log log;
    m_file.disableLowLevelMessages();
    EXPECT_FALSE(m_file.getReadFp(client(1)));
    EXPECT_EQ(0u, log.count("none: No such file or directory"));
    m_tree.write("none", "now");
    EXPECT_EQ("now", textOf(m_file.getReadFp(client(1))));
}

TEST_F(ClientFiles, HaveOneWriteHandleForAll) {
    m_file.setPath((m_tree / "new").c_str());
    const Fp fp = m_file.getWriteFp();
    ASSERT_TRUE(fp);
    EXPECT_EQ(fp.get(), m_file.getWriteFp().get());
    EXPECT_TRUE(m_file.isOpen(nullptr, true));
    EXPECT_TRUE(m_file.isOpen(client(1), true));
    EXPECT_FALSE(m_file.isOpen(nullptr, false));
    EXPECT_EQ(1u, m_file.getNumOpenFiles(nullptr));
    EXPECT_EQ(0u, m_file.getNumOpenFiles(client(1)));
    EXPECT_EQ(4, fp->write("text", 4));
    EXPECT_TRUE(m_file.flush());
    EXPECT_EQ("text", textOf(m_file.getReadFp(client(1))));
    m_file.close(client(1), nullptr);
    EXPECT_TRUE(m_file.isOpen(nullptr, true));
    m_file.close(nullptr, nullptr);
    EXPECT_FALSE(m_file.isOpen(nullptr, true));
}

TEST_F(ClientFiles, TakeTheOpenHandleOfTheNullClient) {
    const std::string a = m_tree.write("a", "text");
    const Fp fp = reader(a);
    ASSERT_TRUE(fp->open());
    m_file.setFp(fp, nullptr);
    EXPECT_EQ(a, m_file.getPath());
    EXPECT_EQ(fp.get(), m_file.getReadFp(nullptr).get());
    EXPECT_TRUE(m_file.isOpen(nullptr, false));
    EXPECT_FALSE(m_file.isOpen(nullptr, true));
    EXPECT_FALSE(m_file.hasClient());
    EXPECT_EQ(1u, m_file.getNumOpenFiles(nullptr));
    m_file.setFp(reader(a), client(1));
    EXPECT_TRUE(m_file.hasClient());
}

TEST_F(ClientFiles, TakeAWritableHandleForReadingAndWriting) {
    const std::string a = m_tree.write("a", "text");
    const Fp fp = handle(a, Mode::Update);
    ASSERT_TRUE(fp->open());
    m_file.setFp(fp, nullptr);
    EXPECT_EQ(fp.get(), m_file.getReadFp(nullptr).get());
    EXPECT_EQ(fp.get(), m_file.getWriteFp().get());
    EXPECT_TRUE(m_file.isOpen(nullptr, true));
    EXPECT_EQ(1u, m_file.getNumOpenFiles(nullptr));
    m_file.setReadOnly();
    EXPECT_FALSE(m_file.isOpen(nullptr, true));
    EXPECT_TRUE(m_file.isOpen(nullptr, false));
    EXPECT_FALSE(m_file.getWriteFp());
    EXPECT_EQ(-1, fp->writeAt(0, "T", 1));
    EXPECT_EQ("text", textOf(m_file.getReadFp(nullptr)));
}

TEST_F(ClientFiles, GoOnReadingTheOldContentAfterAReplacement) {
    const std::string a = m_tree.write("a", "old");
    const Fp fp = reader(a);
    ASSERT_TRUE(fp->open());
    m_file.setFp(fp, nullptr);
    const OsPathId id = m_file.getPathId();
    move(m_tree.write("b", "newer"), a);
    EXPECT_EQ("old", textOf(m_file.getReadFp(client(1))));
    EXPECT_EQ(5ull, m_file.getFileSize());
    EXPECT_EQ(id, m_file.getPathId());
    FilePerClient next;
    next.setPath(a.c_str());
    EXPECT_EQ("newer", textOf(next.getReadFp(client(1))));
    ::unlink(a.c_str());
    EXPECT_EQ("old", textOf(m_file.getReadFp(client(2))));
    EXPECT_EQ("newer", textOf(next.getReadFp(client(2))));
}

TEST_F(ClientFiles, FollowTheNullClientsFileNotTheName) {
    const std::string a = m_tree.write("a", "old");
    m_file.setPath(a.c_str());
    EXPECT_EQ("old", textOf(m_file.getReadFp(client(1))));
    ::unlink(a.c_str());
    EXPECT_EQ("old", textOf(m_file.getReadFp(client(2))));
}

TEST_F(ClientFiles, MoveToASuccessor) {
    const std::string a = m_tree.write("a", "text");
    m_file.setPath(a.c_str());
    const Fp one = m_file.getReadFp(client(1));
    const Fp two = m_file.getReadFp(client(2));
    const Fp writer = m_file.getWriteFp();
    FilePerClient next;
    next.setPath(a.c_str());
    const Fp own = next.getReadFp(client(2));
    EXPECT_TRUE(next.inheritFileHandles(m_file));
    EXPECT_EQ(one.get(), next.getReadFp(client(1)).get());
    EXPECT_EQ(own.get(), next.getReadFp(client(2)).get());
    EXPECT_EQ(writer.get(), next.getWriteFp().get());
    EXPECT_FALSE(m_file.hasClient());
    EXPECT_FALSE(m_file.isOpen(nullptr, true));
    FilePerClient stranger;
    stranger.setPath(m_tree.write("b", "x").c_str());
    EXPECT_FALSE(stranger.inheritFileHandles(next));
    EXPECT_TRUE(next.hasClient());
    EXPECT_FALSE(next.inheritFileHandles(next));
}

TEST_F(ClientFiles, MoveToASuccessorAtTheSamePathWhenTheFileHasLeftIt) {
    const std::string a = m_tree.write("a", "text");
    m_file.setPath(a.c_str());
    const Fp one = m_file.getReadFp(client(1));
    ASSERT_EQ(::rename(a.c_str(), (m_tree / "b").c_str()), 0);
    FilePerClient next, stranger;
    stranger.setPath((m_tree / "c").c_str());
    EXPECT_FALSE(stranger.inheritFileHandles(m_file));
    next.setPath(a.c_str());
    EXPECT_TRUE(next.inheritFileHandles(m_file));
    EXPECT_EQ(one.get(), next.getReadFp(client(1)).get());
    EXPECT_EQ("text", textOf(next.getReadFp(client(1))));
}

TEST_F(ClientFiles, AreRenamedWithTheirHandles) {
    const std::string a = m_tree.write("a", "text");
    m_file.setPath(a.c_str());
    const Fp one = m_file.getReadFp(client(1));
    const OsPathId id = m_file.getPathId();
    const char* const before = m_file.getPath();
    EXPECT_TRUE(m_file.rename((m_tree / "b").c_str()));
    EXPECT_EQ(m_tree / "b", m_file.getPath());
    EXPECT_EQ(m_tree / "b", one->getPath());
    EXPECT_EQ(a, before) << "a borrowed text stays readable";
    EXPECT_EQ(id, m_file.getPathId());
    EXPECT_EQ(id, idOf(m_tree / "b"));
    EXPECT_EQ("text", textOf(m_file.getReadFp(client(2))));
    m_tree.write("a", "other");
    EXPECT_NE(id, idOf(a));
    EXPECT_TRUE(m_file.rename((m_tree / "b").c_str())) << "it is there already";
}

TEST_F(ClientFiles, NeverReplaceAnotherFileByARename) {
    m_file.setPath(m_tree.write("a", "text").c_str());
    m_tree.write("b", "other");
    EXPECT_TRUE(tells("the new name is taken", [&] { EXPECT_FALSE(m_file.rename((m_tree / "b").c_str())); }));
    EXPECT_EQ(m_tree / "a", m_file.getPath());
    EXPECT_EQ("other", m_tree.read("b"));
    EXPECT_FALSE(m_file.rename((m_tree / "none/b").c_str()));
    EXPECT_FALSE(m_file.rename(""));
    EXPECT_FALSE(m_file.rename(nullptr));
    {
        const Fault fault(FileCall::Rename, EXDEV);
        EXPECT_TRUE(tells("the new name is on another file system",
                          [&] { EXPECT_FALSE(m_file.rename((m_tree / "c").c_str())); }));
    }
    EXPECT_EQ("text", m_tree.read("a"));
    EXPECT_EQ(m_tree / "a", m_file.getPath());
    Log log;
    m_file.disableLowLevelMessages();
    EXPECT_FALSE(m_file.rename((m_tree / "b").c_str()));
    EXPECT_EQ(0u, log.count("the new name is taken"));
}

// A file system that can't refuse a taken name is served by a link, which can.
TEST_F(ClientFiles, AreRenamedWhereTheSystemOnlyKnowsLinks) {
    const std::string a = m_tree.write("a", "text");
    m_tree.write("b", "other");
    m_file.setPath(a.c_str());
    const OsPathId id = m_file.getPathId();
    const Fault fault(FileCall::Rename, EINVAL);
    EXPECT_FALSE(m_file.rename((m_tree / "b").c_str()));
    EXPECT_EQ("other", m_tree.read("b"));
    EXPECT_TRUE(m_file.rename((m_tree / "c").c_str()));
    EXPECT_EQ("text", m_tree.read("c"));
    EXPECT_FALSE(FsFileIO::exists(a.c_str()));
    EXPECT_EQ(id, idOf(m_tree / "c"));
}

TEST_F(ClientFiles, SayThatTheyMayNotBeMoved) {
    const std::string a = m_tree.write("a", "text");
    EXPECT_TRUE(inChild(
        [&] {
            FilePerClient file;
            file.setPath(a.c_str());
            bool isProtected = false;
            return !file.rename((m_tree / "b").c_str()) && !file.remove() && file.getProtection(isProtected) &&
                   isProtected;
        },
        true));
    EXPECT_EQ("text", m_tree.read("a"));
}

TEST_F(ClientFiles, AreRemovedAndNobodyElses) {
    const std::string a = m_tree.write("a", "text");
    m_file.setPath(a.c_str());
    ASSERT_TRUE(m_file.exists());
    const Fp held = m_file.getReadFp(client(1));
    move(a, m_tree / "b");
    m_tree.write("a", "somebody else's");
    EXPECT_TRUE(m_file.remove());
    EXPECT_EQ("somebody else's", m_tree.read("a"));
    EXPECT_FALSE(FsFileIO::exists((m_tree / "b").c_str()));
    EXPECT_FALSE(m_file.remove());
}

TEST_F(ClientFiles, TellWhetherTheyAreProtected) {
    const std::string a = m_tree.write("a", "text");
    m_file.setPath(a.c_str());
    bool isProtected = true;
    EXPECT_TRUE(m_file.getProtection(isProtected));
    EXPECT_FALSE(isProtected);
    ::chmod(a.c_str(), 0444);
    EXPECT_TRUE(m_file.getProtection(isProtected));
    EXPECT_TRUE(isProtected);
    ::unlink(a.c_str());
    isProtected = false;
    EXPECT_FALSE(m_file.getProtection(isProtected));
    EXPECT_FALSE(isProtected);
}

TEST_F(ClientFiles, FollowAFileThatWasMovedOutside) {
    const std::string a = m_tree.write("a", "text");
    m_file.setPath(a.c_str());
    const Fp held = m_file.getReadFp(client(1));
    move(a, m_tree / "b");
    EXPECT_TRUE(m_file.exists());
    EXPECT_EQ(m_tree / "b", m_file.getPath());
}

TEST_F(ClientFiles, KeepTheAdviceTillTheFileIsWritten) {
    m_file.setPath((m_tree / "new").c_str());
    EXPECT_EQ(Advice::None, m_file.getSizeAdvice());
    m_file.advise(Advice::LargeStripe);
    m_file.advise(BasicIOTypes::CacheAdvice::Stream);
    EXPECT_EQ(Advice::LargeStripe, m_file.getSizeAdvice());
    const Fp fp = m_file.getWriteFp();
    ASSERT_TRUE(fp);
    EXPECT_EQ(Advice::LargeStripe, fp->getSizeAdvice(true));
    m_file.advise(Advice::SmallStripe);
    EXPECT_EQ(Advice::SmallStripe, fp->getSizeAdvice(true));
}

TEST_F(ClientFiles, CountWhatTheCacheHolds) {
    const std::string a = m_tree.write("a", std::string(100000, 'x'));
    m_file.setPath(a.c_str());
    const Fp fp = m_file.getReadFp(client(1));
    char text[16];
    ASSERT_EQ(16, fp->readAt(99000, text, 16));
    EXPECT_GE(m_file.getTotalOccupancy(client(1), false), 4096u);
    EXPECT_EQ(102400u, m_file.getMaxCacheSize(client(1), false));
    EXPECT_EQ(0u, m_file.getTotalOccupancy(client(2), false));
    EXPECT_EQ(0u, m_file.getTotalOccupancy(client(1), true));
    EXPECT_EQ(0u, m_file.getDirtyOccupancy());
    const Fp writer = m_file.getWriteFp();
    ASSERT_EQ(5, writer->write("dirty", 5));
    EXPECT_EQ(102400u, m_file.getMaxCacheSize(client(1), true));
    EXPECT_TRUE(m_file.flush());
    EXPECT_EQ(0u, m_file.getDirtyOccupancy());
    m_file.purge();
}

TEST_F(ClientFiles, GiveTheListsLockBackWhileWritesAreUnderWay) {
    m_file.setPath((m_tree / "new").c_str());
    const Fp fp = m_file.getWriteFp();
    ASSERT_TRUE(fp);
    ZarnexPosix::JMutex mutex;
    for (int i = 0; i < 50; ++i)
        ASSERT_TRUE(fp->writeAsync(static_cast<unsigned>(i) * 100000, obufAllocate(0, 100000)));
    mutex.lock();
    EXPECT_TRUE(m_file.close(nullptr, &mutex));
    EXPECT_EQ(0u, fs(fp).getPendingBytes());
    EXPECT_EQ(5000000ull, fp->getLength());
    mutex.unlock();
}

TEST_F(ClientFiles, ServeManyThreads) {
    const std::string a = m_tree.write("a", "text");
    m_file.setPath(a.c_str());
    FilePerClient other;
    other.setPath(a.c_str());
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (std::uintptr_t i = 1; i <= 4; ++i) {
        threads.emplace_back([&, i] {
            for (int n = 0; n < 300; ++n) {
                if (textOf(m_file.getReadFp(client(i))) != "text") ++wrong;
                if (n % 7 == 0) (i % 2 ? other : m_file).inheritFileHandles(i % 2 ? m_file : other);
                if (n % 3 == 0) m_file.close(client(i), nullptr);
                if (!m_file.exists()) ++wrong;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(0, wrong);
}

}  // namespace
