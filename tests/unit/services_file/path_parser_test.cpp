#include "services/file/path_parser.h"

#include <sys/resource.h>

#include "tests/unit/services_file/file_kit.h"

namespace {

using FileKit::Tree;

struct Row {
    const char* m_given;
    const char* m_text;      // getPath(true)
    const char* m_unrooted;  // getPath(false)
    int m_count;
    const char* m_prefix;
    const char* m_suffix;
};

class Parsing : public testing::TestWithParam<Row> {};

TEST_P(Parsing, GivesElementsPrefixAndSuffix) {
    const Row& row = GetParam();
    const PathParser path(row.m_given);
    EXPECT_STREQ(row.m_text, path.getPath(true));
    EXPECT_STREQ(row.m_unrooted, path.getPath(false));
    EXPECT_EQ(row.m_count, path.getNumElem());
    EXPECT_EQ(row.m_prefix, path.getPrefix());
    EXPECT_STREQ(row.m_suffix, path.getSuffix());
    EXPECT_EQ(std::string(row.m_text).size(), path.getLength());
}

INSTANTIATE_TEST_SUITE_P(PathParser, Parsing,
                         testing::Values(Row{nullptr, "", "", 0, "", ""}, Row{"", "", "", 0, "", ""},
                                         Row{"/", "/", "", 0, "", ""}, Row{"a", "a", "a", 1, "a", ""},
                                         Row{"/a/b.wav", "/a/b.wav", "a/b.wav", 2, "b", "wav"},
                                         Row{"a//b///c.tar.gz/", "a/b/c.tar.gz", "a/b/c.tar.gz", 3, "c.tar", "gz"},
                                         Row{"./a/./b", "a/b", "a/b", 2, "b", ""}, Row{".", ".", ".", 1, "", ""},
                                         Row{"/.", "/", "", 0, "", ""}, Row{"../x", "../x", "../x", 2, "x", ""},
                                         Row{"/d.x/name", "/d.x/name", "d.x/name", 2, "name", ""},
                                         Row{"/a/.hidden", "/a/.hidden", "a/.hidden", 2, "", "hidden"},
                                         Row{"a/b.", "a/b.", "a/b.", 2, "b", ""}));

TEST(PathParser, IsComparedByElementsAndRoot) {
    EXPECT_TRUE(PathParser("/a//b/") == PathParser("/a/b"));
    EXPECT_TRUE(PathParser("./a/b") == PathParser("a/b"));
    EXPECT_TRUE(PathParser("/a/b") != PathParser("a/b"));
    EXPECT_TRUE(PathParser("/a/b") != PathParser("/a/B"));
    EXPECT_FALSE(PathParser("/a/b") != PathParser("/a/b"));
}

TEST(PathParser, CountsCommonLeadingElements) {
    const auto common = [](const char* a, const char* b) { return PathParser(a).compareHead(PathParser(b)); };
    EXPECT_EQ(2, common("/a/b/c", "/a/b/d"));
    EXPECT_EQ(3, common("/a/b/c", "/a/b/c"));
    EXPECT_EQ(2, common("/a/b", "/a/b/c"));
    EXPECT_EQ(2, common("/a/b/c", "/a/b"));
    EXPECT_EQ(1, common("/a/bc", "/a/b"));
    EXPECT_EQ(1, common("/a/b", "/a/bc"));
    EXPECT_EQ(0, common("/x", "/y"));
    EXPECT_EQ(0, common("/a", "a"));
    EXPECT_EQ(0, common("", "a"));
    EXPECT_EQ(0, common("/", "/a"));
    EXPECT_EQ(1, common("a/x", "a/y"));
}

TEST(PathParser, CutsHeadAndTail) {
    const PathParser path("/a/b/c");
    EXPECT_STREQ("b/c", path.tail(2).getPath(true));
    EXPECT_STREQ("a/b/c", path.tail(3).getPath(true));
    EXPECT_STREQ("a/b/c", path.tail(9).getPath(true));
    EXPECT_STREQ("", path.tail(0).getPath(true));
    EXPECT_STREQ("", path.tail(-1).getPath(true));
    EXPECT_EQ(2, path.tail(2).getNumElem());
    EXPECT_STREQ("/a/b", (path - 1).getPath(true));
    EXPECT_STREQ("/a", (path - 2).getPath(true));
    EXPECT_STREQ("/", (path - 3).getPath(true));
    EXPECT_STREQ("/", (path - 9).getPath(true));
    EXPECT_STREQ("/a/b/c", (path - 0).getPath(true));
    EXPECT_STREQ("", (PathParser("a") - 1).getPath(true));

    PathParser cut("/a/b/c/d");
    cut.trimHead(1);
    EXPECT_STREQ("b/c/d", cut.getPath(true));
    cut.trimTail(1);
    EXPECT_STREQ("b/c", cut.getPath(true));
    cut.trimHead(0);
    cut.trimTail(-3);
    EXPECT_STREQ("b/c", cut.getPath(true));
    cut.trimHead(5);
    EXPECT_EQ(0, cut.getNumElem());
    EXPECT_STREQ("", cut.getPath(true));
}

TEST(PathParser, StepsBackAndAnswersWhatItWas) {
    PathParser path("/a/b");
    EXPECT_STREQ("/a/b", (path--).getPath(true));
    EXPECT_STREQ("/a", path.getPath(true));
    path--;
    path--;
    EXPECT_STREQ("/", path.getPath(true));
}

TEST(PathParser, Joins) {
    PathParser path("/a");
    path.append("..");
    path.append("b/c").append(nullptr).append("");
    EXPECT_STREQ("/a/../b/c", path.getPath(true));
    EXPECT_EQ(4, path.getNumElem());
    EXPECT_STREQ("/a/x/y", (PathParser("/a") + PathParser("/x/y")).getPath(true));
    EXPECT_STREQ("/a/x", (PathParser("/a") + "x").getPath(true));
    EXPECT_STREQ("/x", (PathParser() + "/x").getPath(true));
    EXPECT_STREQ("x", (PathParser() + "x").getPath(true));
    EXPECT_STREQ("x", (PathParser(".") + "x").getPath(true));
    PathParser twice("a/b");
    twice += twice;
    EXPECT_STREQ("a/b/a/b", twice.getPath(true));
    EXPECT_EQ(4, twice.getNumElem());
    twice = "c";
    EXPECT_STREQ("c", twice.getPath(true));
    const PathParser copy(twice);
    twice = PathParser("d");
    EXPECT_STREQ("c", copy.getPath(true));
}

TEST(PathParser, JoinsAPartOfItsOwnText) {
    PathParser path("/a/b.c");
    path.append(path.getPath(false));
    EXPECT_STREQ("/a/b.c/a/b.c", path.getPath(true));
    EXPECT_EQ(4, path.getNumElem());
    path += path.getSuffix();
    EXPECT_STREQ("/a/b.c/a/b.c/c", path.getPath(true));
    path.append(path.getPath(true) + path.getLength());
    EXPECT_STREQ("/a/b.c/a/b.c/c", path.getPath(true));
}

TEST(PathParser, MakesTheFoldersOfAPath) {
    const Tree tree;
    const PathParser path((tree / "x/y/z.wav").c_str());
    EXPECT_FALSE(path.exists());
    EXPECT_TRUE(path.mkdirs(true));
    EXPECT_FALSE(path.exists());
    EXPECT_TRUE((path - 1).exists());
    EXPECT_TRUE(path.mkdirs(true));
    EXPECT_TRUE(path.mkdirs(false));
    EXPECT_TRUE(path.exists());
    EXPECT_TRUE(PathParser("name").mkdirs(true));
    EXPECT_TRUE(PathParser().mkdirs(false));
}

TEST(PathParser, SaysWhichFolderCantBeMade) {
    const Tree tree;
    tree.write("file", "x");
    EXPECT_TRUE(FileKit::tells((tree / "file") + ": Not a directory",
                               [&] { EXPECT_FALSE(PathParser((tree / "file/y/z").c_str()).mkdirs(true)); }));
    const FileKit::Fault fault(FileCall::MakeFolder, ENOSPC);
    EXPECT_TRUE(FileKit::tells((tree / "new") + ": No space left on device",
                               [&] { EXPECT_FALSE(PathParser((tree / "new/z").c_str()).mkdirs(true)); }));
}

TEST(PathParser, KnowsTheCurrentDirectory) {
    EXPECT_EQ(std::filesystem::current_path().string(), PathParser::getcwd().getPath(true));
}

}  // namespace
