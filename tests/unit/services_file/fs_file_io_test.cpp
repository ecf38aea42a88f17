#include "services/file/fs_file_io.h"

#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/xattr.h>

#include <csignal>
#include <cstring>

#include "services/buffer/obuf.h"
#include "tests/unit/services_file/file_kit.h"

namespace {

using namespace FileKit;
using Advice = BasicIOTypes::SizeAdvice;

class FileHandle : public testing::Test {
protected:
    Tree m_tree;
};

using FileModes = FileHandle;
using FileRefusal = FileHandle;
using FileFaults = FileHandle;
using FileAdvice = FileHandle;

TEST_F(FileHandle, IsMadeWithoutLookingAtAnything) {
    const Fault fault(FileCall::Stat, EIO);
    const Fp fp = reader(m_tree / "none");
    EXPECT_EQ(m_tree / "none", fp->getPath());
    EXPECT_TRUE(fp->validate());
    EXPECT_FALSE(fp->writable());
    EXPECT_EQ(0, Fault::seen());
}

TEST_F(FileHandle, LooksTwiceAndOpensNothingForTheOpenOfAKnownFile) {
    const std::string a = m_tree.write("a.wav", "text");
    const Fp live = reader(a);
    live->getPathId();
    live->getSizeAdvice(true);
    const unsigned long long version = live->getVersion();
    const Fault fault(FileCall::Stat, 0);
    const Fp fp = reader(a);
    EXPECT_TRUE(fp->exists());
    if (fp->getSizeAdvice(true) == Advice::None) fp->advise(Advice::SmallStripe);
    EXPECT_EQ(live->getPathId(), fp->getPathId());
    const int own = Fault::seen();
    EXPECT_EQ(version, live->getVersion());
    EXPECT_EQ(2, own) << "one of the two belongs to the comparison";
    EXPECT_EQ(3, Fault::seen());
    const Fault attribute(FileCall::GetAttribute, 0);
    EXPECT_EQ(Advice::SmallStripe, fp->getSizeAdvice(true));
    EXPECT_EQ(0, Fault::seen());
    EXPECT_FALSE(fs(fp).isOpen());
}

TEST_F(FileHandle, ReadsOnInSequenceAndAtOffsets) {
    const Fp fp = reader(m_tree.write("a", "0123456789"));
    char text[16] = {};
    EXPECT_EQ(4, fp->read(text, 4));
    EXPECT_EQ(4, fp->read(text + 4, 4));
    EXPECT_EQ(2, fp->read(text + 8, 4));
    EXPECT_EQ(0, fp->read(text, 4));
    EXPECT_STREQ("0123456789", text);
    EXPECT_EQ(3, fp->readAt(7, text, 16));
    EXPECT_EQ(0, fp->readAt(10, text, 16));
    EXPECT_EQ(0, fp->readAt(1ull << 40, text, 16));
    EXPECT_EQ(0, fp->readAt(0, text, 0));
    EXPECT_TRUE(fp->close());
    EXPECT_EQ(4, fp->read(text, 4)) << "begins anew after a close";
    EXPECT_EQ('0', text[0]);
}

TEST_F(FileHandle, RefusesARangeThatNoCountCanTell) {
    const Fp fp = handle(m_tree.write("a", "x"), Mode::Update);
    char byte = 0;
    EXPECT_EQ(-1, fp->readAt(0, &byte, 0x80000000u));
    EXPECT_EQ(EINVAL, fp->getLastError());
    EXPECT_EQ(-1, fp->writeAt(0, &byte, 0xFFFFFFFFu));
    EXPECT_EQ(-1, fp->readAt(~0ull, &byte, 1));
    EXPECT_EQ(-1, fp->writeAt(~0ull - 5, &byte, 1));
    EXPECT_EQ("x", m_tree.read("a"));
}

TEST_F(FileHandle, DescribesItself) {
    const std::string a = m_tree.write("a", "x");
    const Fp fp = reader(a);
    EXPECT_EQ("test(" + a + ",read,fd=-1,id=0x0)", fp->describe().get());
    fp->getPathId();
    EXPECT_EQ(nullptr, std::strstr(fp->describe().get(), "id=0x0)"));
}

TEST_F(FileHandle, KnowsItsAbsolutePathWithoutALook) {
    const Fault fault(FileCall::Stat, EIO);
    const std::string here = std::filesystem::current_path().string();
    EXPECT_EQ(here + "/x/y", fs(reader("x/./y")).getAbsolutePath());
    EXPECT_EQ("/x/../y", fs(reader("/x/../y")).getAbsolutePath());
    EXPECT_EQ(0, Fault::seen());
}

TEST_F(FileHandle, TakesPathsOfAnyLength) {
    const std::string longPath = m_tree / std::string(250, 'x');
    const Fp fp = reader(longPath);
    EXPECT_EQ(longPath, fp->getPath());
    EXPECT_FALSE(fp->exists());
    m_tree.write(std::string(250, 'x'), "1");
    EXPECT_TRUE(fp->exists());
    EXPECT_FALSE(reader(std::string(5000, '/') + "x")->exists());
    EXPECT_FALSE(reader(m_tree / std::string(300, 'x'))->exists());
}

// The question is meant for handles that are gone, which the checker of types rightly doesn't like.
__attribute__((no_sanitize("vptr"))) bool isUsable(const BasicFileIO* file) { return file->validate(); }

TEST_F(FileHandle, IsUsableUntilItIsDestroyed) {
    const Fp fp = reader(m_tree / "a");
    EXPECT_TRUE(fp->validate());
    alignas(FsFileIO) unsigned char room[sizeof(FsFileIO)];
    FsFileIO* const file = ::new (static_cast<void*>(room)) FsFileIO("test", "x", Mode::ReadOnly);
    EXPECT_TRUE(file->validate());
    file->~FsFileIO();
    EXPECT_FALSE(isUsable(file));
}

TEST_F(FileHandle, TellsWhatIsInTheCache) {
    const std::string a = m_tree.write("a", std::string(100000, 'x'));
    const Fp fp = reader(a);
    std::string text(100000, '\0');
    ASSERT_EQ(100000, fp->readAt(0, text.data(), 100000));
    EXPECT_TRUE(fp->isCached(0, 100000));
    EXPECT_TRUE(fp->isCached(5000, 1));
    EXPECT_TRUE(fp->isCached(99999, 100));
    EXPECT_FALSE(fp->isCached(100000, 1));
    EXPECT_FALSE(reader(m_tree / "none")->isCached(0, 1));
    EXPECT_GE(fs(fp).getCachedBytes(), 100000u);
}

TEST_F(FileHandle, LooksAheadWithoutChangingWhatIsRead) {
    const std::string a = m_tree.write("a", std::string(300000, 'x') + "end");
    const Fp fp = reader(a);
    fp->resetLookAhead();
    fp->setLookAhead(65536);
    std::string text(300003, '\0');
    for (unsigned at = 0; at < 300003; at += 1000)
        fp->readAt(at, text.data() + at, std::min(1000u, 300003u - at));
    EXPECT_EQ(m_tree.read("a"), text);
    EXPECT_TRUE(fp->isCached(0, 300003));
}

TEST_F(FileHandle, SeesTheFileOfNowAfterARefresh) {
    const std::string a = m_tree.write("a", "1");
    const Fp fp = reader(a);
    ASSERT_TRUE(fp->exists());
    const unsigned long long version = fp->getVersion();
    move(m_tree.write("b", "22"), a);
    fs(fp).refresh();
    fp->adviseReparse(1);
    EXPECT_TRUE(fp->exists());
    EXPECT_NE(version, fp->getVersion());
    EXPECT_EQ("22", textOf(fp));
}

TEST_F(FileHandle, GoesOnReadingWhatItOpenedWhileItsFactsAreThoseOfNow) {
    const std::string a = m_tree.write("a", "old");
    const Fp fp = reader(a);
    ASSERT_TRUE(fp->exists());
    ASSERT_TRUE(fp->open());
    move(m_tree.write("b", "replaced"), a);
    EXPECT_EQ("old", textOf(fp));
    EXPECT_EQ(8ull, fp->getLength());
    ::unlink(a.c_str());
    EXPECT_EQ("old", textOf(fp));
    EXPECT_EQ(0ull, fp->getLength());
}

TEST_F(FileHandle, TellsOneStateOfTheFileWhileItsFactsAreSteady) {
    const std::string a = m_tree.write("a", "before");
    const Fp fp = reader(a);
    const unsigned long long before = fp->getVersion();
    {
        const FsFileIO::SteadyFacts steady(*fp);
        EXPECT_EQ(before, fp->getVersion());
        m_tree.write("a", "and afterwards");
        EXPECT_EQ(before, fp->getVersion());
        EXPECT_EQ(6u, fp->getLength());
        EXPECT_TRUE(fp->open());
        EXPECT_EQ("and afterwards", textOf(fp));
    }
    EXPECT_NE(before, fp->getVersion());
    EXPECT_EQ(14u, fp->getLength());
}

TEST_F(FileHandle, OpensTheFileOfNowThoughItsFactsWereSteadyBeforeItWasReplaced) {
    const std::string a = m_tree.write("a", "old");
    const Fp fp = reader(a);
    const FsFileIO::SteadyFacts steady(*fp);
    const unsigned long long before = fp->getVersion();
    move(m_tree.write("b", "newer"), a);
    EXPECT_TRUE(fp->open());
    EXPECT_EQ("newer", textOf(fp));
    // What was opened is another file than the one looked at, so it was looked at again.
    EXPECT_EQ(5u, fp->getLength());
    EXPECT_NE(before, fp->getVersion());
}

TEST_F(FileHandle, RemembersNothingOfAFileThatWasNotThere) {
    const Fp fp = reader(m_tree / "a");
    const FsFileIO::SteadyFacts steady(*fp);
    EXPECT_EQ(0u, fp->getVersion());
    m_tree.write("a", "there");
    EXPECT_NE(0u, fp->getVersion());
    EXPECT_EQ(5u, fp->getLength());
}

TEST_F(FileModes, CreateMakesAMissingFileAndNeverTruncates) {
    {
        const Fp fp = handle(m_tree / "new", Mode::Create);
        EXPECT_FALSE(fp->exists());
        EXPECT_TRUE(fp->open());
        EXPECT_TRUE(fp->exists());
        EXPECT_EQ(5, fp->write("hello", 5));
        EXPECT_EQ(3, fp->write("abc", 3));
        EXPECT_EQ(2, fp->writeAt(1, "EL", 2));
        EXPECT_TRUE(fp->flush());
        EXPECT_TRUE(fp->close());
    }
    EXPECT_EQ("hELloabc", m_tree.read("new"));
    const Fp again = handle(m_tree / "new", Mode::Create);
    EXPECT_EQ(1, again->write("H", 1));
    EXPECT_EQ("HELloabc", m_tree.read("new"));
}

TEST_F(FileModes, UpdateWritesAnExistingFileOnly) {
    const Fp missing = handle(m_tree / "none", Mode::Update);
    EXPECT_FALSE(missing->open());
    EXPECT_EQ(ENOENT, missing->getLastError());
    EXPECT_FALSE(FsFileIO::exists((m_tree / "none").c_str()));
    const Fp fp = handle(m_tree.write("a", "xyz"), Mode::Update);
    EXPECT_EQ(1, fp->writeAt(1, "Y", 1));
    EXPECT_EQ("xYz", textOf(fp));
}

TEST_F(FileModes, ReadOnlyWritesNothing) {
    const Fp fp = reader(m_tree.write("a", "xyz"));
    EXPECT_EQ(-1, fp->writeAt(0, "Y", 1));
    EXPECT_EQ(EBADF, fp->getLastError());
    EXPECT_EQ(-1, fp->write("Y", 1));
    EXPECT_FALSE(fp->writeAsync(0, obufAllocate(0, 10)));
    EXPECT_EQ("xyz", m_tree.read("a"));
}

TEST_F(FileModes, MayChangeOnAnOpenHandle) {
    const Fp fp = reader(m_tree.write("a", "xyz"));
    ASSERT_TRUE(fp->open());
    fp->setMode(Mode::Update);
    EXPECT_EQ(1, fp->writeAt(0, "X", 1));
    fp->setMode(Mode::ReadOnly);
    EXPECT_EQ(-1, fp->writeAt(0, "Q", 1));
    EXPECT_EQ("Xyz", textOf(fp));
    const Fp made = handle(m_tree / "new", Mode::Update);
    made->setMode(Mode::Create);
    made->advise(Advice::None);
    EXPECT_TRUE(made->open());
}

// None of these may wait for anybody, or touch what it names.
TEST_F(FileRefusal, OfPipesDevicesFoldersAndSockets) {
    ASSERT_EQ(0, ::mkfifo((m_tree / "pipe").c_str(), 0666));
    const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "%s", (m_tree / "socket").c_str());
    ASSERT_EQ(0, ::bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address));
    ASSERT_EQ(0, ::symlink("/dev/zero", (m_tree / "link").c_str()));
    ASSERT_EQ(0, ::symlink((m_tree / "loop").c_str(), (m_tree / "loop").c_str()));
    for (const std::string& path : {m_tree / "pipe", m_tree / "socket", m_tree / "link", m_tree / "loop", m_tree.root(),
                                    std::string("/dev/zero"), std::string("/dev/tty"), std::string("/")}) {
        for (const Mode mode : {Mode::Create, Mode::Update, Mode::ReadOnly}) {
            const Fp fp = handle(path, mode);
            char byte = 0;
            EXPECT_FALSE(fp->exists()) << path;
            EXPECT_FALSE(fp->open()) << path;
            EXPECT_EQ(-1, fp->readAt(0, &byte, 1)) << path;
            EXPECT_NE(0, fp->getLastError()) << path;
            EXPECT_EQ(0ull, fp->getVersion()) << path;
        }
    }
    ::close(socket);
}

// A pipe that has taken the name between the look and the opening.
TEST_F(FileRefusal, OfAPipeThatStandsThereAllOfASudden) {
    const std::string a = m_tree.write("a", "x");
    const Fp fp = reader(a);
    ASSERT_TRUE(fp->exists());
    ::unlink(a.c_str());
    ASSERT_EQ(0, ::mkfifo(a.c_str(), 0666));
    EXPECT_FALSE(fp->open());
    EXPECT_FALSE(fp->exists());
    EXPECT_TRUE(fp->getPathId() == 0ull);
}

TEST_F(FileRefusal, SaysPathAndReasonOnceAndOnlyIfWanted) {
    const Fp folder = reader(m_tree.root());
    EXPECT_TRUE(tells("test: can't open " + m_tree.root() + ": it is a folder", [&] { EXPECT_FALSE(folder->open()); }));
    const Fp missing = reader(m_tree / "none");
    EXPECT_TRUE(tells("test: can't open " + (m_tree / "none") + ": No such file or directory",
                      [&] { EXPECT_FALSE(missing->open()); }));
    Log log;
    const Fp quiet = reader(m_tree / "quiet");
    fs(quiet).disableLowLevelMessages();
    EXPECT_FALSE(quiet->open());
    EXPECT_EQ(0u, log.count("quiet"));
}

TEST_F(FileRefusal, WithoutPermission) {
    const std::string secret = m_tree.write("secret", "x");
    ::chmod(secret.c_str(), 0600);
    const std::string shown = m_tree.write("shown", "x");
    ::chmod(shown.c_str(), 0644);
    EXPECT_TRUE(inChild(
        [&] {
            const Fp fp = reader(secret);
            if (!fp->exists() || fp->open() || fp->getLastError() != EACCES) return false;
            const Fp writer = handle(shown, Mode::Update);
            if (writer->open() || writer->getLastError() != EACCES) return false;
            const Fp made = handle(m_tree / "new", Mode::Create);
            return !made->open() && made->getLastError() == EACCES && textOf(reader(shown)) == "x";
        },
        true));
}

TEST_F(FileFaults, ADescriptorThatRunsOutFailsClearlyAndWorksAgain) {
    for (int i = 0; i < 40; ++i)
        m_tree.write("f" + std::to_string(i), "x");
    EXPECT_TRUE(inChild([&] {
        const rlimit limit{32, 32};
        if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) return false;
        std::vector<Fp> held;
        int failures = 0;
        for (int i = 0; i < 40; ++i) {
            held.push_back(reader(m_tree / ("f" + std::to_string(i))));
            if (held.back()->open()) continue;
            if (held.back()->getLastError() != EMFILE || !held.back()->exists()) return false;
            ++failures;
        }
        const Fp last = held.back();
        if (failures < 8 || last->open()) return false;
        held.clear();
        return textOf(last) == "x";
    }));
}

TEST_F(FileFaults, InterruptionsAndShortCountsAreGoneOverInSilence) {
    const Fp fp = handle(m_tree.write("a", "0123456789"), Mode::Update);
    {
        const Fault fault(FileCall::Read, EINTR, 1, false);
        EXPECT_EQ("0123456789", textOf(fp));
    }
    {
        const Fault fault(FileCall::Read, std::size_t{3});
        EXPECT_EQ("0123456789", textOf(fp));
        EXPECT_EQ(5, Fault::seen());
    }
    {
        const Fault fault(FileCall::Write, std::size_t{3});
        EXPECT_EQ(10, fp->writeAt(0, "abcdefghij", 10));
    }
    for (const FileCall call : {FileCall::Open, FileCall::Stat, FileCall::Write, FileCall::Sync}) {
        const Fault fault(call, EINTR, 1, false);
        const Fp again = handle(m_tree / "a", Mode::Update);
        EXPECT_EQ(1, again->writeAt(0, "A", 1));
        EXPECT_TRUE(again->flush());
    }
    EXPECT_EQ("Abcdefghij", m_tree.read("a"));
}

TEST_F(FileFaults, ACountBelowWhatWasAskedIsTheTrueCount) {
    const Fp fp = handle(m_tree.write("a", ""), Mode::Update);
    {
        FileCalls::setFault(+[](FileCall call, const char*, int, std::size_t& size) {
            static int times = 0;
            if (call != FileCall::Write) return 0;
            if (size > 4) size = 4;
            return ++times > 2 ? ENOSPC : 0;
        });
        EXPECT_EQ(8, fp->writeAt(0, "abcdefghijkl", 12));
        EXPECT_EQ(ENOSPC, fp->getLastError());
        EXPECT_TRUE(tells("can't write " + (m_tree / "a") + ": No space left on device",
                          [&] { EXPECT_EQ(-1, fp->writeAt(8, "ijkl", 4)); }));
        FileCalls::setFault(nullptr);
    }
    EXPECT_EQ("abcdefgh", m_tree.read("a"));
    EXPECT_EQ(4, fp->writeAt(8, "ijkl", 4));
    const Fault fault(FileCall::Read, EIO);
    EXPECT_EQ("", textOf(fp));
    EXPECT_EQ(EIO, fp->getLastError());
}

// Every call of the file layer fails once and for ever; the outcome is clear each time, and all is well again after.
TEST_F(FileFaults, EveryCallMayFailWithEveryReason) {
    const std::string a = m_tree.write("a", "0123456789");
    const unsigned descriptors = openDescriptors();
    const auto work = [&] {
        char text[16] = {};
        const Fp fp = handle(a, Mode::Update);
        if (!fp->exists() || fp->getPathId() == 0ull || fp->getVersion() == 0) return false;
        if (fp->getSizeAdvice(true) != Advice::SmallStripe) fp->advise(Advice::SmallStripe);
        return fp->open() && fp->readAt(0, text, 10) == 10 && fp->writeAt(0, "0123", 4) == 4 && fp->flush() &&
               fp->close();
    };
    ASSERT_TRUE(work());
    for (const FileCall call : {FileCall::Stat, FileCall::Open, FileCall::Read, FileCall::Write, FileCall::Sync}) {
        for (const int error : {EIO, ENOSPC, EDQUOT, EMFILE, ENFILE, EACCES, ENOENT, ENOMEM}) {
            for (int from = 1; from < 7; ++from) {
                for (const bool forEver : {false, true}) {
                    const Fault fault(call, error, from, forEver);
                    const bool done = work();
                    EXPECT_TRUE(done || Fault::seen() >= from);
                }
                EXPECT_TRUE(work());
            }
        }
    }
    for (const FileCall call : {FileCall::GetAttribute, FileCall::SetAttribute, FileCall::Reserve}) {
        const Fault fault(call, ENOTSUP);
        EXPECT_TRUE(work()) << "a hint that can't be kept harms nobody";
    }
    EXPECT_EQ("0123456789", m_tree.read("a"));
    EXPECT_EQ(descriptors, openDescriptors());
}

TEST_F(FileFaults, AFailedFlushIsTold) {
    const Fp fp = handle(m_tree.write("a", ""), Mode::Update);
    EXPECT_EQ(1, fp->write("x", 1));
    const Fault fault(FileCall::Sync, EIO, 1, false);
    EXPECT_FALSE(fp->flush());
    EXPECT_EQ(EIO, fp->getLastError());
    EXPECT_TRUE(fp->flush());
}

bool keepsAttributes(const std::string& path) {
    return ::setxattr(path.c_str(), "user.mediacore.probe", "x", 1, 0) == 0 &&
           ::removexattr(path.c_str(), "user.mediacore.probe") == 0;
}

std::string attributeOf(const std::string& path) {
    char text[32];
    const ssize_t length = ::getxattr(path.c_str(), "user.mediacore.stripe", text, sizeof text);
    return length > 0 ? std::string(text, static_cast<std::size_t>(length)) : "";
}

TEST_F(FileAdvice, IsNoneForANewFile) {
    EXPECT_EQ(Advice::None, reader(m_tree / "none")->getSizeAdvice(true));
    EXPECT_EQ(Advice::None, reader(m_tree.write("a", "x"))->getSizeAdvice(true));
}

TEST_F(FileAdvice, OfAWriterIsKeptWithTheFile) {
    const std::string a = m_tree.write("a", "x");
    if (!keepsAttributes(a)) GTEST_SKIP() << "this file system has no extended attributes";
    const unsigned long long version = versionOf(a);
    handle(a, Mode::Update)->advise(Advice::LargeStripe);
    EXPECT_EQ("large", attributeOf(a));
    EXPECT_EQ(Advice::LargeStripe, reader(a)->getSizeAdvice(true));
    EXPECT_EQ(version, versionOf(a)) << "no change of the content";
    handle(a, Mode::Update)->advise(Advice::SmallStripe);
    EXPECT_EQ("small", attributeOf(a));
    handle(a, Mode::Update)->advise(Advice::None);
    EXPECT_EQ("small", attributeOf(a));
    const Fp made = handle(m_tree / "new", Mode::Create);
    made->advise(Advice::LargeStripe);
    EXPECT_EQ(Advice::LargeStripe, made->getSizeAdvice(false));
    ASSERT_TRUE(made->open());
    EXPECT_EQ("large", attributeOf(m_tree / "new"));
}

TEST_F(FileAdvice, OfAReaderTouchesNobodysFile) {
    const std::string a = m_tree.write("a", "x");
    const Fp fp = reader(a);
    fp->advise(Advice::SmallStripe);
    EXPECT_EQ("", attributeOf(a));
    EXPECT_EQ(Advice::SmallStripe, fp->getSizeAdvice(true));
    EXPECT_EQ(Advice::SmallStripe, reader(a)->getSizeAdvice(true)) << "as long as the file is in use";
}

TEST_F(FileAdvice, LargeStripesReserveSpaceThatTheLengthDoesntShow) {
    const Fp fp = handle(m_tree / "big", Mode::Create);
    fp->advise(Advice::LargeStripe);
    const std::string block(1 << 20, 'x');
    for (int i = 0; i < 6; ++i)
        ASSERT_EQ(1 << 20, fp->write(block.data(), 1 << 20));
    EXPECT_EQ(6ull << 20, fp->getLength());
    struct stat stat {};
    ASSERT_EQ(0, ::stat((m_tree / "big").c_str(), &stat));
    EXPECT_EQ(6 << 20, stat.st_size);
}

TEST_F(FileHandle, StaticQuestionsNeedNoHandle) {
    const std::string a = m_tree.write("a", "x");
    EXPECT_TRUE(FsFileIO::exists(a.c_str()));
    EXPECT_TRUE(FsFileIO::exists(m_tree.root().c_str()));
    EXPECT_FALSE(FsFileIO::exists(nullptr));
    EXPECT_FALSE(FsFileIO::exists(""));
    EXPECT_STREQ("a", FsFileIO::filePart(a.c_str()));
    EXPECT_STREQ("a", FsFileIO::filePart("a"));
    EXPECT_STREQ("", FsFileIO::filePart("a/"));
    EXPECT_STREQ("", FsFileIO::filePart(nullptr));
    EXPECT_TRUE(FsFileIO::remove(a.c_str()));
    EXPECT_FALSE(FsFileIO::exists(a.c_str()));
    Log log;
    EXPECT_FALSE(FsFileIO::remove(a.c_str()));
    EXPECT_EQ(0u, log.count("remove"));
    EXPECT_TRUE(tells("can't remove " + m_tree.root(), [&] { EXPECT_FALSE(FsFileIO::remove(m_tree.root().c_str())); }));
    EXPECT_FALSE(FsFileIO::remove(nullptr));
}

// --- asynchronous ---

class Answers {
public:
    Answers() : m_anchor(*this, &Answers::answer) {}
    ~Answers() {
        for (phantom_OBUF* const buf : m_bufs)
            obufFree(buf);
    }
    bool answer(const BasicIOTypes::ReadNotify& notify) {
        {
            const std::lock_guard lock(m_mutex);
            m_bufs.push_back(notify.m_obuf);
            m_failed += notify.m_obuf == nullptr ? 1 : 0;
        }
        ++m_count;
        return true;
    }
    BasicIOTypes::ReadReq request(unsigned long long offset, unsigned size) const {
        return {m_anchor, offset, size, 0, nullptr, false, false};
    }
    std::atomic<int> m_count{0};
    int m_failed = 0;
    std::vector<phantom_OBUF*> m_bufs;

private:
    std::mutex m_mutex;
    BridgeAnchor<Answers, const BasicIOTypes::ReadNotify&, bool> m_anchor;
};

phantom_OBUF* bufferOf(const std::string& text) {
    phantom_OBUF* const buf = obufAllocate(0, static_cast<unsigned>(text.size()));
    std::vector<iovec> pieces(obufSegmentCount(buf));
    const int count = obufNTranslateHost(buf, pieces.data(), static_cast<int>(pieces.size()));
    std::size_t at = 0;
    for (int i = 0; i < count; ++i) {
        std::memcpy(pieces[i].iov_base, text.data() + at, pieces[i].iov_len);
        at += pieces[i].iov_len;
    }
    return buf;
}

TEST_F(FileHandle, AnswersEachAsynchronousReadOnceAndKeepsItselfAlive) {
    const std::string a = m_tree.write("a", std::string(100000, 'x'));
    Answers answers;
    {
        const Fp fp = reader(a);
        for (unsigned i = 0; i < 50; ++i)
            EXPECT_TRUE(fp->readAsync(answers.request(i * 1000, 1000)));
    }
    EXPECT_TRUE(waitFor([&] { return answers.m_count == 50; }));
    EXPECT_EQ(0, answers.m_failed);
    EXPECT_EQ(1000u, obufSize(answers.m_bufs.front()));
    EXPECT_FALSE(reader(m_tree / "none")->readAsync(answers.request(0, 10)));
    EXPECT_EQ(50, answers.m_count);
}

TEST_F(FileHandle, WritesAsynchronouslyAndFlushWaitsForIt) {
    const Fp fp = handle(m_tree / "new", Mode::Create);
    for (unsigned i = 0; i < 20; ++i)
        EXPECT_TRUE(fp->writeAsync(i * 5000, bufferOf(std::string(5000, static_cast<char>('a' + i)))));
    EXPECT_TRUE(fp->flush());
    EXPECT_EQ(0u, fs(fp).getPendingBytes());
    const std::string text = m_tree.read("new");
    ASSERT_EQ(100000u, text.size());
    for (unsigned i = 0; i < 20; ++i)
        EXPECT_EQ(static_cast<char>('a' + i), text[i * 5000 + 2500]);
    EXPECT_TRUE(fp->close());
}

TEST_F(FileAdvice, SpaceForWhatIsHandedOverIsReservedByTheWriter) {
    static std::atomic<unsigned> s_byWriter{0}, s_byCaller{0};
    s_byWriter = s_byCaller = 0;
    FileCalls::setFault([](FileCall call, const char*, int, std::size_t&) {
        if (call == FileCall::Reserve) ++(AsyncEngine::onEngineThread() ? s_byWriter : s_byCaller);
        return 0;
    });
    const Fp fp = handle(m_tree / "big", Mode::Create);
    fp->advise(Advice::LargeStripe);
    EXPECT_TRUE(fp->writeAsync(5 << 20, bufferOf(std::string(5000, 'x'))));
    EXPECT_TRUE(fs(fp).drain());
    FileCalls::setFault(nullptr);
    EXPECT_EQ(1u, s_byWriter);
    EXPECT_EQ(0u, s_byCaller);
}

TEST_F(FileHandle, TellsALateWriteFailureOnceByTheNextWriteFlushOrClose) {
    // No file may grow beyond this; a write behind it fails in the engine.
    constexpr unsigned long long limit = 1ull << 40;
    const auto before = ::signal(SIGXFSZ, SIG_IGN);
    rlimit old{};
    ASSERT_EQ(0, ::getrlimit(RLIMIT_FSIZE, &old));
    const rlimit lower{limit, old.rlim_max};
    ASSERT_EQ(0, ::setrlimit(RLIMIT_FSIZE, &lower));
    const Fp fp = handle(m_tree / "new", Mode::Create);
    const auto failLate = [&] {
        EXPECT_TRUE(fp->writeAsync(limit * 2, bufferOf("too far")));
        EXPECT_TRUE(waitFor([&] { return fs(fp).getPendingBytes() == 0 && fs(fp).getInFlight() == 0; }));
    };
    failLate();
    EXPECT_EQ(-1, fp->writeAt(0, "x", 1));
    EXPECT_EQ(EFBIG, fp->getLastError());
    EXPECT_EQ(1, fp->writeAt(0, "x", 1));
    failLate();
    EXPECT_FALSE(fp->flush());
    EXPECT_TRUE(fp->flush());
    failLate();
    EXPECT_FALSE(fp->close());
    EXPECT_TRUE(fp->close());
    EXPECT_FALSE(fs(fp).isOpen());
    failLate();
    EXPECT_FALSE(fp->writeAsync(0, bufferOf("y")));
    EXPECT_EQ("x", m_tree.read("new"));
    ::setrlimit(RLIMIT_FSIZE, &old);
    ::signal(SIGXFSZ, before);
}

TEST_F(FileHandle, CloseMeetsReadsOfOtherThreads) {
    const std::string a = m_tree.write("a", std::string(65536, 'x'));
    const std::string b = m_tree.write("b", std::string(65536, 'y'));
    const Fp fp = reader(a);
    const Fp other = reader(b);
    std::atomic<bool> stop{false};
    std::atomic<int> wrong{0};
    Answers answers;
    std::atomic<int> asked{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&, i] {
            char text[512];
            while (!stop) {
                if (fp->readAt(1000, text, sizeof text) != sizeof text || text[0] != 'x') ++wrong;
                if (i == 0 && asked < 300 && fp->readAsync(answers.request(0, 100))) ++asked;
            }
        });
    }
    for (int i = 0; i < 500; ++i) {
        EXPECT_TRUE(fp->close());
        EXPECT_TRUE(other->close());
        EXPECT_TRUE(other->open());
    }
    stop = true;
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_TRUE(waitFor([&] { return answers.m_count == asked; }));
    EXPECT_EQ(0, wrong);
    EXPECT_EQ(0, answers.m_failed);
}

// Frees what a read brings and then does what it was told to do.
class Doing {
public:
    explicit Doing(std::function<void()> work) : m_work(std::move(work)), m_anchor(*this, &Doing::answer) {}
    BasicIOTypes::ReadReq request(unsigned size) const { return {m_anchor, 0, size, 0, nullptr, false, false}; }
    std::atomic<int> m_count{0};

private:
    bool answer(const BasicIOTypes::ReadNotify& notify) {
        obufFree(notify.m_obuf);
        m_work();
        ++m_count;
        return true;
    }
    const std::function<void()> m_work;
    BridgeAnchor<Doing, const BasicIOTypes::ReadNotify&, bool> m_anchor;
};

TEST_F(FileHandle, ClosesInAHookWhoseThreadStillHoldsReadsOfIt) {
    const Fp first = reader(m_tree.write("a", std::string(65536, 'x')));
    const Fp closed = reader(m_tree.write("b", std::string(65536, 'y')));
    constexpr int rounds = 20, held = 16, behind = 100;
    for (int round = 1; round <= rounds; ++round) {
        // While these stand, what is asked for behind them waits together and is then taken by one thread.
        std::atomic<bool> go{false};
        Doing stand([&] { EXPECT_TRUE(waitFor([&] { return go.load(); })); });
        for (int i = 0; i < held; ++i)
            EXPECT_TRUE(first->readAsync(stand.request(10)));
        Doing close([&] { EXPECT_TRUE(closed->close()); });
        Answers answers;
        EXPECT_TRUE(first->readAsync(close.request(10)));
        for (int i = 0; i < behind; ++i)
            EXPECT_TRUE(closed->readAsync(answers.request(0, 1000)));
        go = true;
        ASSERT_TRUE(waitFor([&] { return close.m_count == 1 && stand.m_count == held && answers.m_count == behind; }));
        EXPECT_EQ(0, answers.m_failed);
    }
}

TEST_F(FileHandle, LeavesNoDescriptorBehind) {
    const std::string a = m_tree.write("a", "x");
    const unsigned before = openDescriptors();
    for (int i = 0; i < 2000; ++i)
        EXPECT_EQ("x", textOf(reader(a)));
    EXPECT_EQ(before, openDescriptors());
}

}  // namespace
