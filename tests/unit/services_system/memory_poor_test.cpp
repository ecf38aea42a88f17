#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <new>
#include <string>

#include "collecting_sink.h"
#include "services/system/format_str.h"
#include "services/system/locks.h"
#include "services/system/text.h"
#include "support/op_result.h"

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

thread_local bool t_isPoor = false;

// While this stands, this thread's requests that can say no are answered so.
class Poor {
public:
    Poor() { t_isPoor = true; }
    ~Poor() { t_isPoor = false; }
    Poor(const Poor&) = delete;
    Poor& operator=(const Poor&) = delete;
};

void* allocate(std::size_t size) noexcept {
    if (t_isPoor) return nullptr;
    try {
        return ::operator new[](size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

}  // namespace

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return allocate(size); }

TEST(WithoutMemory, AMessageIsCutAndSaid) {
    CollectingSink sink;
    const std::string text(5000, 'x');
    {
        const Poor poor;
        errorMsg("%s\n", text.c_str());
        errorMsg("short %d\n", 1);
    }
    EXPECT_THAT(sink.getLines(), ElementsAre(std::string(1023, 'x'), "short 1"));
}

TEST(WithoutMemory, ATextIsCutAndDoesNoHarm) {
    FormatStr text("%s", "begun");
    FormatStr none(0u);
    const std::string more(1000, 'y');
    {
        const Poor poor;
        text.cat(more.c_str());
        text.format("%s", more.c_str());
        none.format("%s", more.c_str());
        EXPECT_EQ(none.releaseString(), nullptr);
        EXPECT_EQ(System::copy("x"), nullptr);
    }
    EXPECT_EQ(text.length(), std::string(text.get()).size());
    EXPECT_THAT(text.get(), testing::StartsWith("begun"));
    EXPECT_STREQ(none.get(), "");
    none.cat("again");
    EXPECT_STREQ(none.get(), "again");
}

TEST(WithoutMemory, MisuseOfALockIsReportedWithoutTheStack) {
    CollectingSink sink;
    {
        const Poor poor;
        ZarnexPosix::jlock_error(0, nullptr);
    }
    ASSERT_EQ(sink.getLines().size(), 1u);
    EXPECT_THAT(sink.getLines()[0], HasSubstr(", no stack"));
}

TEST(WithoutMemory, AFailureKeepsItsCodeAndIsTold) {
    CollectingSink sink;
    {
        const Poor poor;
        const OpResult result(OpResult::Error, 7, 0, OpCodeLocation("file", "function", 3), "why");
        EXPECT_FALSE(result.success());
        EXPECT_EQ(result.getCode(), 7);
        EXPECT_EQ(result.getMessage(), nullptr);
    }
    EXPECT_EQ(sink.getLines().size(), 1u);
    EXPECT_EQ(sink.getLevels()[0], LogLevel::Error);
}
