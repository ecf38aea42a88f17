// The rules are shown to see: each planted fault is found at its place, and its sound neighbour isn't.

#include "tests/checks/source_rules/include_rules.h"
#include "tests/checks/source_rules/stand_in_rule.h"
#include "tests/checks/source_rules/word_rules.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace source_rules;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

using Tree = std::vector<SourceFile>;

std::vector<std::string> lines(const std::vector<Finding>& findings) {
    std::vector<std::string> out;
    for (const Finding& finding : findings) {
        out.push_back(finding.path + ":" + std::to_string(finding.line) + ": " + finding.what);
    }
    return out;
}

// A tree of one file beside the headers that it may want to include.
Tree treeWith(const std::string& path, const std::string& text) {
    Tree tree;
    for (const char* header :
         {"support/ref_count.h", "services/system/log.h", "shared/include/object/media_obj.h",
          "shared/include/mediaobj", "neighbours/wrapper.h", "mediautil/object/impl.h", "mediautil/naming/namer.h",
          "backends/wav/chunk.h", "backends/common/cursor.h", "tools/text.h"}) {
        tree.push_back(parseSource(header, "#pragma once\n"));
    }
    tree.push_back(parseSource(path, text));
    return tree;
}

std::vector<std::string> layers(const std::string& path, const std::string& include) {
    return lines(checkLayers(treeWith(path, "#pragma once\n\n#include " + include + "\n")));
}

}  // namespace

TEST(Stripping, LeavesCodeAndBlanksCommentsAndLiterals) {
    EXPECT_EQ(stripCommentsAndLiterals("a; // throw\nb"), "a;         \nb");
    EXPECT_EQ(stripCommentsAndLiterals("a/* x\ny */b"), "a    \n    b");
    EXPECT_EQ(stripCommentsAndLiterals("f(\"try {\\\" }\")"), "f(\"         \")");
    EXPECT_EQ(stripCommentsAndLiterals("x = '\"'; throw"), "x = ' '; throw");
    EXPECT_EQ(stripCommentsAndLiterals("n = 1'000; throw"), "n = 1'000; throw");
    EXPECT_EQ(stripCommentsAndLiterals("R\"(throw)\"; a").substr(10), "; a");
}

TEST(Stripping, AnIncludeInACommentIsNone) {
    EXPECT_THAT(parseSource("support/a.h", "// #include \"x.h\"\n/*\n#include \"y.h\"\n*/\n").includes, IsEmpty());
    const SourceFile file = parseSource("support/a.h", "#  include <vector>\n#include \"support/b.h\"  // why\n");
    ASSERT_THAT(file.includes, SizeIs(2));
    EXPECT_EQ(file.includes[1].target, "support/b.h");
    EXPECT_EQ(file.includes[1].line, 2);
}

TEST(Layers, ArrowsThatGoDownPass) {
    EXPECT_THAT(layers("services/system/text.h", "\"support/ref_count.h\""), IsEmpty());
    EXPECT_THAT(layers("mediautil/object/open.cpp", "\"neighbours/wrapper.h\""), IsEmpty());
    EXPECT_THAT(layers("backends/wav/reader.cpp", "\"backends/common/cursor.h\""), IsEmpty());
    EXPECT_THAT(layers("tests/unit/object/open_test.cpp", "\"mediautil/object/impl.h\""), IsEmpty());
    EXPECT_THAT(layers("examples/demo.cpp", "<mediaobj>"), IsEmpty());
}

TEST(Layers, AnArrowThatGoesUpIsNamedWithFileAndLine) {
    EXPECT_THAT(layers("support/a.h", "\"services/system/log.h\""),
                ElementsAre("support/a.h:3: support -> services: \"services/system/log.h\""));
    EXPECT_THAT(layers("services/system/a.h", "\"shared/include/object/media_obj.h\""),
                ElementsAre(HasSubstr("services/system/a.h:3: services -> shared/include")));
    EXPECT_THAT(layers("shared/include/object/a.h", "\"mediautil/object/impl.h\""),
                ElementsAre(HasSubstr("shared/include -> mediautil")));
    EXPECT_THAT(layers("mediautil/object/a.h", "\"backends/wav/chunk.h\""),
                ElementsAre(HasSubstr("mediautil -> backends")));
    EXPECT_THAT(layers("neighbours/a.h", "\"mediautil/object/impl.h\""),
                ElementsAre(HasSubstr("neighbours -> mediautil")));
}

TEST(Layers, ABackEndReachesNoPrivateHeaderAndNoOtherFormat) {
    EXPECT_THAT(layers("backends/aiff/a.cpp", "\"mediautil/object/impl.h\""),
                ElementsAre(HasSubstr("backends -> mediautil")));
    EXPECT_THAT(layers("backends/aiff/a.cpp", "\"backends/wav/chunk.h\""),
                ElementsAre(HasSubstr("backends/aiff -> backends/wav")));
}

TEST(Layers, AToolReachesNoPrivateHeader) {
    EXPECT_THAT(layers("tools/a.cpp", "\"mediautil/object/impl.h\""), ElementsAre(HasSubstr("tools -> mediautil")));
}

TEST(Layers, NamingIsALeaf) {
    EXPECT_THAT(layers("mediautil/object/a.cpp", "\"mediautil/naming/namer.h\""),
                ElementsAre(HasSubstr("a leaf that nothing else includes")));
    EXPECT_THAT(layers("mediautil/naming/a.cpp", "\"mediautil/naming/namer.h\""), IsEmpty());
}

TEST(Layers, TheLibraryDoesNotIncludeItsChiefHeader) {
    EXPECT_THAT(layers("mediautil/object/a.cpp", "<mediaobj>"), ElementsAre(HasSubstr("not the chief header")));
    EXPECT_THAT(layers("backends/wav/a.cpp", "\"shared/include/mediaobj\""),
                ElementsAre(HasSubstr("not the chief header")));
}

TEST(Layers, TheCoreRoomsKnowTheStandardLibraryAlone) {
    EXPECT_THAT(layers("support/a.h", "<vector>"), IsEmpty());
    EXPECT_THAT(layers("support/a.h", "<pthread.h>"), ElementsAre(HasSubstr("support -> <pthread.h>")));
    EXPECT_THAT(layers("mediautil/object/a.cpp", "<sys/stat.h>"),
                ElementsAre(HasSubstr("beyond the standard library")));
    EXPECT_THAT(layers("services/file/a.cpp", "<sys/stat.h>"), IsEmpty());
}

TEST(Layers, AnIncludeThatIsNoFileFromTheRootIsNamed) {
    EXPECT_THAT(layers("support/a.h", "\"ref_count.h\""), ElementsAre(HasSubstr("is no file of the tree")));
}

TEST(Layers, ATestMayNameWhatStandsBesideIt) {
    const Tree tree = {parseSource("tests/unit/object/fixture.h", ""),
                       parseSource("tests/unit/object/open_test.cpp", "#include \"fixture.h\"\n#include \"no.h\"\n"),
                       parseSource("mediautil/object/impl.h", ""),
                       parseSource("mediautil/object/open.cpp", "#include \"impl.h\"\n")};
    EXPECT_THAT(lines(checkLayers(tree)), ElementsAre(HasSubstr("tests/unit/object/open_test.cpp:2: \"no.h\" is no"),
                                                      HasSubstr("mediautil/object/open.cpp:1: \"impl.h\" is no file")));
}

TEST(Layers, ACircleIsNamedOnceWithAllItsSteps) {
    const Tree tree = {parseSource("mediautil/io/a.h", "#include \"mediautil/io/b.h\"\n"),
                       parseSource("mediautil/io/b.h", "#include \"mediautil/io/c.h\"\n"),
                       parseSource("mediautil/io/c.h", "\n#include \"mediautil/io/a.h\"\n")};
    EXPECT_THAT(
        lines(checkLayers(tree)),
        ElementsAre("mediautil/io/c.h:2: includes go round in a circle: mediautil/io/a.h -> mediautil/io/b.h -> "
                    "mediautil/io/c.h -> mediautil/io/a.h"));
}

TEST(FileCalls, AreSeenEverywhereButInTheFileLayer) {
    const std::string text = "int fd = ::open(path, 0);\nFILE* f = fopen(path, \"r\");\nstd::ifstream s;\n";
    EXPECT_THAT(checkFileCalls({parseSource("mediautil/io/a.cpp", text)}), SizeIs(3));
    EXPECT_THAT(checkFileCalls({parseSource("services/system/a.cpp", text)}), SizeIs(3));
    EXPECT_THAT(checkFileCalls({parseSource("services/file/a.cpp", text)}), IsEmpty());
    EXPECT_THAT(checkFileCalls({parseSource("tests/unit/a.cpp", text)}), IsEmpty());
}

TEST(FileCalls, AMemberOfTheSameNameIsNoSystemCall) {
    const std::string text =
        "file->open();\nMediaObj::open(id);\nstd::map<int, A>::rename(b);\nresult = rename(a, b);\n";
    EXPECT_THAT(checkFileCalls({parseSource("mediautil/io/a.cpp", text)}), IsEmpty());
}

TEST(FileCalls, TheControlSocketLooksAfterItsOwnFolder) {
    const std::string text = "int fd = ::open(directory, 0);\n";
    EXPECT_THAT(checkFileCalls({parseSource("services/system/control_listener.cpp", text)}), IsEmpty());
    EXPECT_THAT(checkFileCalls({parseSource("services/system/log.cpp", text)}), SizeIs(1));
}

TEST(FileCalls, WhatTheKernelTellsAboutTheProcessIsNoFile) {
    const std::string text = "int a = ::open(\"/proc/self/status\", 0);\nint b = ::open(\"/tmp/a\", 0);\n";
    EXPECT_THAT(lines(checkFileCalls({parseSource("services/system/a.cpp", text)})),
                ElementsAre(HasSubstr("services/system/a.cpp:2: ")));
}

TEST(Waits, AConditionVariableInTheCoreIsSeen) {
    const std::string text = "// no condition_variable here\nstd::condition_variable cv;\n";
    EXPECT_THAT(lines(checkWaits({parseSource("mediautil/cache/a.h", text)})),
                ElementsAre("mediautil/cache/a.h:2: condition_variable: waits are polls with waitMsec"));
    EXPECT_THAT(checkWaits({parseSource("services/file/a.cpp", text)}), IsEmpty());
}

TEST(Exceptions, ThrowTryAndCatchAreSeenInTheLibrary) {
    const std::string text = "// never throw\ntry {\n} catch (...) {\n    throw;\n}\nbool tryAgain = rethrown;\n";
    EXPECT_THAT(checkExceptions({parseSource("backends/wav/a.cpp", text)}), SizeIs(3));
    EXPECT_THAT(checkExceptions({parseSource("tests/unit/a.cpp", text)}), IsEmpty());
}

namespace {

constexpr const char* s_movieHeader = "shared/include/object/media_obj.h";
constexpr const char* s_standInHeader = "neighbours/tl_media_obj.h";
constexpr const char* s_movieText =
    "class MediaObj {\n    virtual ~MediaObj();\n    int preserve() override;\n    virtual bool ask() const = 0;\n"
    "    virtual std::list<A*> tell(const A& a,\n                              int b);\n    virtual void tell();\n"
    "    // virtual void comment();\n    void plain();\n};\n";

}  // namespace

TEST(StandIn, ThatPassesOnAllIsSound) {
    const std::string all =
        "bool ask() const override;\nstd::list<A*> tell(const A& a,\n int b) override;\n"
        "void tell() override;\n";
    EXPECT_THAT(checkStandIn({parseSource(s_movieHeader, s_movieText), parseSource(s_standInHeader, all)}), IsEmpty());
}

TEST(StandIn, ThatForgotAnOperationOrOneOfItsFormsIsSeen) {
    const std::string some = "void tell() override;\nbool ask() const;\n";
    EXPECT_THAT(lines(checkStandIn({parseSource(s_movieHeader, s_movieText), parseSource(s_standInHeader, some)})),
                ElementsAre("shared/include/object/media_obj.h:4: ask: declared 1 times, passed on 0 times in "
                            "neighbours/tl_media_obj.h",
                            "shared/include/object/media_obj.h:7: tell: declared 2 times, passed on 1 times in "
                            "neighbours/tl_media_obj.h"));
}

TEST(StandIn, ThatIsNotThereIsSeen) {
    EXPECT_THAT(lines(checkStandIn({parseSource(s_movieHeader, s_movieText)})),
                ElementsAre("neighbours/tl_media_obj.h:0: is not in the tree"));
}
