#include <gtest/gtest.h>

#include <sys/resource.h>

#include <csignal>
#include <filesystem>
#include <string>

#include "services/metadata/xml_buffer.h"
#include "tests/kit/samples.h"
#include "tests/kit/temp_tree.h"
#include "tests/unit/description/description_fixture.h"

// A text of a movie on its way to a file.

namespace {

class PathMovie : public TestMovie {
public:
    const char* getPath(MediaIdRec* id) const override { return id == nullptr ? "/movies/one.mxf" : "wrong"; }
};

// Files of this process grow no further while it stands.
class FileSizeLimit {
public:
    explicit FileSizeLimit(unsigned long long bytes) : m_handler(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &m_before);
        rlimit limit = m_before;
        limit.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &m_before);
        std::signal(SIGXFSZ, m_handler);
    }

private:
    rlimit m_before{};
    void (*m_handler)(int);
};

class MovieXml : public testing::Test {
protected:
    ~MovieXml() override { m_result.discard(); }

    void write(const char* data, int size, const char* path) {
        XmlBuffer buffer{data, size};
        m_result = m_movie.writeXmlToFile(buffer, path);
    }
    void write(const std::string& text, const std::string& path) {
        write(text.data(), static_cast<int>(text.size()), path.c_str());
    }
    void expectError(int code, const std::string& message) {
        EXPECT_EQ(m_result.getType(), OpResult::Type::Error);
        EXPECT_EQ(m_result.getCode(), code);
        EXPECT_EQ(m_result.getSubsystem(), mediaCoreOpSubsystem.getId());
        EXPECT_EQ(m_result.getMessage() != nullptr ? m_result.getMessage() : "", message);
        m_result.discard();
    }
    std::string content(const std::string& path) {
        return kit::bytesAt(path, 0, static_cast<std::size_t>(std::filesystem::file_size(path)) + 1);
    }

    CapturedLog m_log;
    kit::TempTree m_tree;
    const std::string m_path = m_tree.path("out.xml");
    PathMovie m_movie;
    OpResult m_result;
};

}  // namespace

TEST_F(MovieXml, IsWrittenToANewFile) {
    const std::string text("<movie>\0caf\xC3\xA9</movie>\n", 22);
    write(text, m_path);
    EXPECT_TRUE(m_result.success());
    EXPECT_EQ(content(m_path), text);
}

TEST_F(MovieXml, OfAMegabyteIsWrittenWhole) {
    const std::string text(1000003, 'x');
    write(text, m_path);
    EXPECT_TRUE(m_result.success());
    EXPECT_EQ(content(m_path), text);
}

TEST_F(MovieXml, NeedsAName) {
    write("<a/>", 4, nullptr);
    expectError(1, "missing output filename");
    write(nullptr, 0, nullptr);
    expectError(1, "missing output filename");
}

TEST_F(MovieXml, WithoutTextFailsBeforeTheFileIsMade) {
    write("<a/>", 0, m_path.c_str());
    expectError(1, "");
    write(nullptr, 4, m_path.c_str());
    expectError(1, "");
    write("<a/>", -1, m_path.c_str());
    expectError(1, "");
    EXPECT_FALSE(m_tree.exists("out.xml"));
}

TEST_F(MovieXml, WithoutTextIsNoQuestionOfTheFile) {
    m_tree.write("out.xml", "old");
    write("<a/>", 0, m_path.c_str());
    expectError(1, "");
}

TEST_F(MovieXml, ExistingFileIsRefusedAndNotTouched) {
    for (const char* old : {"old text that is longer than the new one", ""}) {
        m_tree.write("out.xml", old);
        const auto before = std::filesystem::last_write_time(m_path);
        write("<a/>", m_path);
        expectError(7, "/movies/one.mxf: output file " + m_path + " exists");
        EXPECT_EQ(content(m_path), old);
        EXPECT_EQ(std::filesystem::last_write_time(m_path), before);
    }
}

TEST_F(MovieXml, ExistingFolderIsRefused) {
    std::filesystem::create_directory(m_path);
    write("<a/>", m_path);
    expectError(7, "/movies/one.mxf: output file " + m_path + " exists");
}

TEST_F(MovieXml, FileThatCannotBeMadeIsTold) {
    const std::string path = m_tree.path("missing/out.xml");
    write("<a/>", path);
    expectError(2, "/movies/one.mxf: failed to open " + path);
    EXPECT_FALSE(m_tree.exists("missing"));
}

TEST_F(MovieXml, EmptyNameCannotBeOpened) {
    write("<a/>", "");
    expectError(2, "/movies/one.mxf: failed to open ");
}

TEST_F(MovieXml, ShortWriteIsToldWithItsCounts) {
    {
        const FileSizeLimit limit(10);
        write(std::string(100, 'x'), m_path);
    }
    expectError(12, "/movies/one.mxf XML write error: tried to write 100b, actually wrote 10b");
}

TEST_F(MovieXml, SecondTextOfAMovieGoesToAnotherFile) {
    write("<a/>", m_path);
    EXPECT_TRUE(m_result.success());
    write("<b/>", m_path);
    expectError(7, "/movies/one.mxf: output file " + m_path + " exists");
    write("<b/>", m_tree.path("other.xml"));
    EXPECT_TRUE(m_result.success());
    EXPECT_EQ(content(m_path), "<a/>");
}
