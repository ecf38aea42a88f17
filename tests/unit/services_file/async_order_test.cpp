#include <cerrno>
#include <cstring>

#include "services/buffer/obuf.h"
#include "tests/unit/services_file/file_kit.h"

// The order of a handle's asynchronous writes, and what it says of those that have ended.

namespace {

using namespace FileKit;

phantom_OBUF* obufOfText(const std::string& text) {
    phantom_OBUF* const obuf = obufAllocate(0, static_cast<unsigned>(text.size()));
    iovec piece{};
    if (obufNTranslateHost(obuf, &piece, 1) == 1) std::memcpy(piece.iov_base, text.data(), text.size());
    return obuf;
}

// The first write waits until it is let go and then fails; those behind it would go well.
std::atomic<bool> s_go{false};
std::atomic<int> s_calls{0};
int firstFails(FileCall call, const char*, int, std::size_t&) {
    if (call != FileCall::Write || s_calls++ != 0) return 0;
    while (!s_go)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return ENOSPC;
}

class WriteOrder : public testing::Test {
protected:
    Tree m_tree;
    Log m_log;
};

}  // namespace

TEST_F(WriteOrder, HandleCountsTheWritesThatWentWell) {
    const Fp fp = handle(m_tree / "a", Mode::Create);
    EXPECT_EQ(fs(fp).getWritesDone(), 0u);
    for (unsigned i = 0; i < 100; ++i)
        ASSERT_TRUE(fp->writeAsync(i * 4ull, obufOfText("abcd")));
    EXPECT_TRUE(waitFor([&] { return fs(fp).getWritesDone() == 100; }));
    EXPECT_EQ(4, fp->writeAt(0, "abcd", 4));
    EXPECT_EQ(fs(fp).getWritesDone(), 100u);
    EXPECT_EQ(m_tree.read("a").size(), 400u);
}

TEST_F(WriteOrder, NothingOvertakesAWriteThatFails) {
    const Fp fp = handle(m_tree / "a", Mode::Create);
    ASSERT_TRUE(fp->open());
    s_go = false;
    s_calls = 0;
    FileCalls::setFault(&firstFails);
    ASSERT_TRUE(fp->writeAsync(10, obufOfText("essence")));
    ASSERT_TRUE(waitFor([] { return s_calls.load() == 1; }));
    ASSERT_TRUE(fp->writeAsync(0, obufOfText("header")));
    ASSERT_TRUE(fp->writeAsync(20, obufOfText("more")));
    s_go = true;
    EXPECT_FALSE(fs(fp).drain());
    FileCalls::setFault(nullptr);
    EXPECT_EQ(s_calls, 1);
    EXPECT_EQ(fs(fp).getWritesDone(), 0u);
    EXPECT_EQ(m_tree.read("a"), "");
    // Once that has been told, it goes on.
    ASSERT_TRUE(fp->writeAsync(0, obufOfText("header")));
    EXPECT_TRUE(fp->flush());
    EXPECT_EQ(fs(fp).getWritesDone(), 1u);
    EXPECT_EQ(m_tree.read("a"), "header");
}

TEST_F(WriteOrder, FailureIsToldUntilNothingIsLeftBehindIt) {
    const Fp fp = handle(m_tree / "a", Mode::Create);
    ASSERT_TRUE(fp->open());
    s_go = false;
    s_calls = 0;
    FileCalls::setFault(&firstFails);
    ASSERT_TRUE(fp->writeAsync(10, obufOfText("essence")));
    for (unsigned i = 0; i < 200; ++i)
        ASSERT_TRUE(fp->writeAsync(i % 7, obufOfText("x")));
    s_go = true;
    EXPECT_TRUE(waitFor([&] { return !fp->writeAsync(0, obufOfText("x")); }));
    fs(fp).drain();
    FileCalls::setFault(nullptr);
    EXPECT_EQ(m_tree.read("a"), "");
    EXPECT_EQ(fs(fp).getWritesDone(), 0u);
    EXPECT_TRUE(fp->close());
}
