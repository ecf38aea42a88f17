#include "services/system/text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

TEST(Strlwr, LowersAsciiLettersOnlyAndInPlace) {
    char text[] = "ABC xyz 09 [\\]^_` \xc4\xd6 Z@";
    EXPECT_EQ(strlwr(text), text);
    EXPECT_STREQ(text, "abc xyz 09 [\\]^_` \xc4\xd6 z@");
    EXPECT_EQ(strlwr(nullptr), nullptr);
}

TEST(SystemCopy, GivesAnArrayOfItsOwn) {
    const char* const text = "some text";
    const AutoArrayPtr<char> copy(System::copy(text));
    EXPECT_STREQ(copy.get(), text);
    EXPECT_NE(copy.get(), text);
    const AutoArrayPtr<char> empty(System::copy(""));
    EXPECT_STREQ(empty.get(), "");
    EXPECT_EQ(System::copy(nullptr), nullptr);
}

TEST(StackTrace, IsOneLineOfTheCallers) {
    const AutoPtr<char> text = getStackTrace();
    ASSERT_NE(text.get(), nullptr);
    const std::string trace = text.get();
    EXPECT_THAT(trace, testing::HasSubstr(" < "));
    EXPECT_THAT(trace, testing::HasSubstr("+0x"));
    EXPECT_THAT(trace, testing::Not(testing::HasSubstr("\n")));
    EXPECT_THAT(trace, testing::HasSubstr("__libc_start_main"));
}

TEST(DebugBkpt, ReturnsWithoutADebugger) {
    debugBkpt();
    SUCCEED();
}
