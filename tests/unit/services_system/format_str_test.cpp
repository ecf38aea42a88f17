#include "services/system/format_str.h"

#include <gtest/gtest.h>

#include <string>

#include "services/system/text.h"

TEST(FormatStr, ConstructsFromAFormatAndFromACapacity) {
    EXPECT_STREQ(FormatStr("%d-%s", 7, "x").get(), "7-x");
    EXPECT_STREQ(FormatStr("plain").get(), "plain");
    EXPECT_STREQ(FormatStr(128).get(), "");
    EXPECT_STREQ(FormatStr(0).get(), "");
    EXPECT_STREQ(FormatStr(1u).get(), "");
    EXPECT_STREQ(FormatStr(std::size_t{64}).get(), "");
    EXPECT_STREQ(FormatStr(-5).get(), "");
}

TEST(FormatStr, FormatAppendsAndGrows) {
    FormatStr text(4);
    std::string expected;
    for (int i = 0; i < 500; ++i) {
        text.format("%d,", i);
        expected += std::to_string(i) + ",";
    }
    EXPECT_EQ(text.get(), expected);
    EXPECT_EQ(text.length(), expected.size());
}

TEST(FormatStr, ALongFormattedTextIsWhole) {
    const std::string part(3000, 'q');
    FormatStr text("%s", "head:");
    text.format("%s|%s", part.c_str(), part.c_str());
    EXPECT_EQ(text.get(), "head:" + part + "|" + part);
}

TEST(FormatStr, CatTakesTheTextAsItIs) {
    FormatStr text(8);
    text.cat("100%d").cat(nullptr).cat("").cat("abcdef", 3);
    EXPECT_STREQ(text.get(), "100%dabc");
}

TEST(FormatStr, EmptyUntilSomethingIsPutIn) {
    FormatStr text(16);
    EXPECT_TRUE(text.empty());
    text.cat("x");
    EXPECT_FALSE(text.empty());
}

TEST(FormatStr, ItsOwnTextMayBeAnArgument) {
    FormatStr text("ab");
    text.format("[%s]", text.get());
    text.cat(text.get());
    EXPECT_STREQ(text.get(), "ab[ab]ab[ab]");
    std::string expected = text.get();
    for (int i = 0; i < 8; ++i) {
        text.format("<%s>", text.get());
        expected += "<" + expected + ">";
        text.cat(text.get());
        expected += expected;
    }
    EXPECT_EQ(text.get(), expected);
}

TEST(FormatStr, ReleasedTextIsTheCallersAndTheBufferBeginsAgain) {
    FormatStr text("one");
    const AutoPtr<char> first(text.releaseString());
    EXPECT_STREQ(first.get(), "one");
    EXPECT_TRUE(text.empty());
    EXPECT_STREQ(text.get(), "");
    text.format("%s", "two");
    const AutoPtr<char> second = text;
    EXPECT_STREQ(second.get(), "two");
    EXPECT_STREQ(first.get(), "one");
}

TEST(FormatStr, AnEmptyTextIsReleasedAsATextAndNotAsNull) {
    FormatStr text(0);
    const AutoPtr<char> released = text;
    ASSERT_NE(released.get(), nullptr);
    EXPECT_STREQ(released.get(), "");
}

TEST(FormatStr, AppendsAnOwnedText) {
    FormatStr text("a");
    text += AutoPtr<char>(System::copy("bc"));
    text += AutoPtr<char>(nullptr);
    EXPECT_STREQ(text.get(), "abc");
}

TEST(FormatStr, AFunctionMayReturnItAsAnOwnedText) {
    const auto make = []() -> AutoPtr<char> {
        FormatStr text(16);
        text.format("%s", "made");
        return text;
    };
    EXPECT_STREQ(make().get(), "made");
}

TEST(FormatStr, ANullFormatIsNoText) {
    const char* const none = nullptr;
    FormatStr text(none);
    EXPECT_STREQ(text.get(), "");
}
