#include "services/file/file_claim.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <cerrno>
#include <memory>

#include "tests/unit/services_file/file_kit.h"

// Which process may record a file.

namespace {

using FileKit::Mode;

class Claims : public testing::Test {
protected:
    static AutoRefPtr<BasicFileIO> openFile(const std::string& path, Mode mode = Mode::Create) {
        AutoRefPtr<BasicFileIO> file(new FsFileIO("test", path.c_str(), mode));
        EXPECT_TRUE(file->open());
        return file;
    }
    static FsFileIO& fs(const AutoRefPtr<BasicFileIO>& file) { return static_cast<FsFileIO&>(*file); }

    FileKit::Tree m_tree;
};

// A process that has claimed a file, until it is killed.
class OtherProcess {
public:
    explicit OtherProcess(const std::string& path) {
        int ends[2];
        EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
        m_pid = ::fork();
        if (m_pid == 0) {
            const AutoRefPtr<BasicFileIO> file(new FsFileIO("child", path.c_str(), Mode::Create));
            const char had = file->open() && static_cast<FsFileIO&>(*file).claim() ? 'y' : 'n';
            if (::write(ends[1], &had, 1) != 1) ::_exit(1);
            ::alarm(600);
            for (;;)
                ::pause();
        }
        ::close(ends[1]);
        char had = 0;
        EXPECT_EQ(::read(ends[0], &had, 1), 1);
        EXPECT_EQ(had, 'y');
        ::close(ends[0]);
    }
    ~OtherProcess() {
        ::kill(m_pid, SIGKILL);
        EXPECT_EQ(::waitpid(m_pid, nullptr, 0), m_pid);
    }
    OtherProcess(const OtherProcess&) = delete;
    OtherProcess& operator=(const OtherProcess&) = delete;

private:
    pid_t m_pid = -1;
};

}  // namespace

TEST_F(Claims, OfTwoProcessesOneHasTheFileUntilItDies) {
    const std::string path = m_tree / "a";
    FileClaim claim;
    {
        const OtherProcess other(path);
        const auto file = openFile(path);
        EXPECT_EQ(claim.take(fs(file)), EBUSY);
        EXPECT_FALSE(claim.isHeld());
        EXPECT_EQ(claim.count(), 0u);
        EXPECT_FALSE(fs(file).claim());
        EXPECT_EQ(file->getLastError(), EBUSY);
        EXPECT_EQ(file->writeAt(0, "x", 1), 1) << "only those who ask for a claim heed it";
    }
    EXPECT_EQ(claim.take(fs(openFile(path))), 0);
}

TEST_F(Claims, OfOneProcessAreOne) {
    const std::string path = m_tree / "a";
    FileClaim one, two;
    EXPECT_EQ(one.take(fs(openFile(path))), 0);
    EXPECT_EQ(two.take(fs(openFile(path))), 0);
    EXPECT_EQ(one.count(), 2u);
    one.release();
    EXPECT_EQ(two.count(), 1u);
}

TEST_F(Claims, EndWithTheLastOfThemThoughTheHandleStaysOpen) {
    const std::string path = m_tree / "a";
    const auto file = openFile(path);
    {
        FileClaim claim;
        ASSERT_TRUE(fs(file).claim());
        fs(file).handClaimTo(claim);
        EXPECT_FALSE(fs(file).hasClaim());
        EXPECT_EQ(claim.count(), 1u);
    }
    const OtherProcess other(path);
    FileClaim claim;
    EXPECT_EQ(claim.take(fs(file)), EBUSY);
}

TEST_F(Claims, StayWhenTheHandleOfTheClaimIsClosed) {
    const std::string path = m_tree / "a";
    FileClaim claim;
    EXPECT_EQ(claim.take(fs(openFile(path))), 0);
    const auto again = openFile(path);
    EXPECT_TRUE(again->close());
    EXPECT_EQ(claim.count(), 1u);
    EXPECT_TRUE(FileKit::inChild([&path] {
        // Past the claims of this process, which a fork copies: the system's own answer.
        const int fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
        struct flock range = {};
        range.l_type = F_WRLCK;
        return fd >= 0 && ::fcntl(fd, F_OFD_SETLK, &range) != 0 && errno == EAGAIN;
    }));
}

TEST_F(Claims, AreOfTheFileAndNotOfItsName) {
    const std::string path = m_tree / "a";
    FileClaim older, newer;
    const auto file = openFile(path);
    EXPECT_EQ(older.take(fs(file)), 0);
    EXPECT_TRUE(fs(file).isAtPath());
    ::unlink(path.c_str());
    EXPECT_FALSE(fs(file).isAtPath());
    EXPECT_EQ(newer.take(fs(openFile(path))), 0);
    EXPECT_EQ(older.count(), 1u);
    EXPECT_EQ(newer.count(), 1u);
    EXPECT_FALSE(fs(file).isAtPath()) << "another file has the name";
}

TEST_F(Claims, NeedAnOpenHandleThatMayWrite) {
    const std::string path = m_tree.write("a", "text");
    FileClaim claim;
    EXPECT_EQ(claim.take(fs(openFile(path, Mode::ReadOnly))), EBADF);
    const AutoRefPtr<BasicFileIO> closed(new FsFileIO("test", path.c_str(), Mode::Update));
    EXPECT_EQ(claim.take(fs(closed)), EBADF);
}

TEST_F(Claims, AreGivenWhereTheFileSystemKeepsNoLocks) {
    const std::string path = m_tree / "a";
    const auto file = openFile(path);
    FileCalls::setFault(
        +[](FileCall call, const char*, int, std::size_t&) { return call == FileCall::Lock ? ENOLCK : 0; });
    FileClaim claim;
    EXPECT_EQ(claim.take(fs(file)), 0);
    FileCalls::setFault(nullptr);
    EXPECT_EQ(claim.count(), 1u);
}

TEST_F(Claims, LeaveNoDescriptorBehind) {
    const std::string path = m_tree / "a";
    const auto file = openFile(path);
    const unsigned before = FileKit::openDescriptors();
    {
        FileClaim one, two;
        EXPECT_EQ(one.take(fs(file)), 0);
        EXPECT_EQ(two.take(fs(file)), 0);
        EXPECT_EQ(one.take(fs(file)), 0) << "in place of the one that it had";
        EXPECT_EQ(FileKit::openDescriptors(), before + 1);
    }
    EXPECT_EQ(FileKit::openDescriptors(), before);
}
