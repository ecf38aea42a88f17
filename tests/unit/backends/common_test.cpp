#include <gtest/gtest.h>

#include "backends/common/byte_cursor.h"
#include "backends/common/file_window.h"
#include "tests/kit/fake_file.h"
#include "tests/kit/wav_builder.h"

namespace {

const std::uint8_t s_bytes[] = {1, 2, 3, 4, 5, 6, 7, 8};

std::string textAt(FileWindow& window, std::uint64_t offset, unsigned count) {
    const std::uint8_t* at = window.at(offset, count);
    return at != nullptr ? std::string(reinterpret_cast<const char*>(at), count) : std::string("(none)");
}

}  // namespace

TEST(ByteCursor, ReadsBothByteOrders) {
    EXPECT_EQ(ByteCursor(s_bytes, 8).le16(), 0x0201u);
    EXPECT_EQ(ByteCursor(s_bytes, 8).le32(), 0x04030201u);
    EXPECT_EQ(ByteCursor(s_bytes, 8).le64(), 0x0807060504030201u);
    EXPECT_EQ(ByteCursor(s_bytes, 8).be16(), 0x0102u);
    EXPECT_EQ(ByteCursor(s_bytes, 8).be32(), 0x01020304u);
    EXPECT_EQ(ByteCursor(s_bytes, 8).be64(), 0x0102030405060708u);
}

TEST(ByteCursor, MovesOnWithEachRead) {
    ByteCursor cursor(s_bytes, 8);
    cursor.skip(1);
    EXPECT_EQ(cursor.le16(), 0x0302u);
    EXPECT_EQ(cursor.left(), 5u);
    std::uint8_t copy[5] = {};
    cursor.bytes(copy, 5);
    EXPECT_EQ(copy[4], 8);
    EXPECT_EQ(cursor.left(), 0u);
    EXPECT_TRUE(cursor.ok());
}

TEST(ByteCursor, ThatHasRunOutAnswersZerosForGood) {
    ByteCursor cursor(s_bytes, 5);
    cursor.skip(2);
    EXPECT_EQ(cursor.be32(), 0u);
    EXPECT_FALSE(cursor.ok());
    EXPECT_EQ(cursor.left(), 0u);
    std::uint8_t copy[2] = {9, 9};
    cursor.bytes(copy, 2);
    EXPECT_EQ(copy[0] | copy[1], 0);
    EXPECT_EQ(cursor.le16(), 0u);
    EXPECT_FALSE(cursor.ok());
}

TEST(FileWindow, GivesWhatIsInsideTheFileAndNothingElse) {
    kit::FakeFile file;
    file.m_content = kit::WavBuilder::pattern(10000);
    FileWindow window(file, file.m_content.size());
    for (const std::uint64_t offset : {0ull, 4000ull, 9000ull, 100ull, 9999ull}) {
        EXPECT_EQ(textAt(window, offset, 1), file.m_content.substr(offset, 1));
    }
    EXPECT_EQ(textAt(window, 9000, 1000), file.m_content.substr(9000));
    EXPECT_EQ(textAt(window, 9000, 1001), "(none)");
    EXPECT_EQ(textAt(window, 10000, 0), "");
    EXPECT_EQ(textAt(window, 10001, 0), "(none)");
    EXPECT_EQ(textAt(window, ~0ull, 8), "(none)");
    EXPECT_EQ(textAt(window, 0, FileWindow::s_size), file.m_content.substr(0, FileWindow::s_size));
    EXPECT_EQ(textAt(window, 0, FileWindow::s_size + 1), "(none)");
    EXPECT_FALSE(window.failed());
}

TEST(FileWindow, ReadsNeighboursOnce) {
    kit::FakeFile file;
    file.m_content = kit::WavBuilder::pattern(10000);
    FileWindow window(file, file.m_content.size());
    for (unsigned offset = 0; offset + 8 <= FileWindow::s_size; offset += 8)
        window.at(offset, 8);
    EXPECT_EQ(file.m_readCalls, 1);
}

TEST(FileWindow, KnowsAReadThatFailedAndGoesOn) {
    kit::FakeFile file;
    file.m_content = kit::WavBuilder::pattern(10000);
    file.m_readAnswer = -1;
    FileWindow window(file, file.m_content.size());
    EXPECT_EQ(textAt(window, 0, 8), "(none)");
    EXPECT_TRUE(window.failed());
    file.m_readAnswer = 0;
    EXPECT_EQ(textAt(window, 0, 8), file.m_content.substr(0, 8));
    EXPECT_TRUE(window.failed());
}

TEST(FileWindow, OnAFileThatHasShrunkFailsWithoutReadingPastIt) {
    kit::FakeFile file;
    file.m_content = kit::WavBuilder::pattern(100);
    FileWindow window(file, 10000);
    EXPECT_EQ(textAt(window, 96, 8), "(none)");
    EXPECT_TRUE(window.failed());
    EXPECT_EQ(textAt(window, 90, 8), file.m_content.substr(90, 8));
}
