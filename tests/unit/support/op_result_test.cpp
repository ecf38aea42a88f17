#include "support/op_result.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/unit/support/captured_log.h"

namespace {

const char* testErrorName(int code) {
    if (code == 1) return "first trouble";
    if (code == 2) return nullptr;
    return OpSubsystemDecl::getUnknownErrorName(code);
}

const OpSubsystemDecl s_subsystem("Testing", &testErrorName);
const OpSubsystemDecl s_instance("Testing", "second", &testErrorName);

OpResult raiseWarning(int code, const char* message) {
    return OpResult(OpResult::Warning, code, s_subsystem.getId(), OpCodeLocation("label", "raiseWarning", 17), message);
}

OpResult raiseError(int code, const char* message) {
    return OpResult(OpResult::Error, code, s_subsystem.getId(), OpCodeLocation("label", "raiseError", 23), message);
}

// The one line that was written.
CapturedLog::Line onlyLine(const CapturedLog& log) {
    const auto lines = log.lines();
    EXPECT_EQ(lines.size(), 1u);
    return lines.empty() ? CapturedLog::Line{LogLevel::Debug, ""} : lines.front();
}

}  // namespace

TEST(OpResult, IsOnePointerWide) { static_assert(sizeof(OpResult) == sizeof(void*)); }

TEST(OpResult, SuccessHasNoNote) {
    for (const OpResult& result : {OpResult(), OpResult(OpResult::Ok)}) {
        EXPECT_TRUE(result.success());
        EXPECT_TRUE(static_cast<bool>(result));
        EXPECT_FALSE(!result);
        EXPECT_EQ(static_cast<unsigned>(result.getType()), 2u);
        EXPECT_EQ(result.getCode(), 0);
        EXPECT_EQ(result.getSubsystem(), 0u);
        EXPECT_EQ(result.getMessage(), nullptr);
        EXPECT_STREQ(result.describe().get(), "ok");
    }
}

TEST(OpResult, DeliverDiscardAndDowngradeOfSuccessDoNothing) {
    const CapturedLog log;
    OpResult result(OpResult::Ok);
    result.deliverNote(true);
    result.discard();
    result.downgradeTo(OpResult::Type::Quiet);
    EXPECT_EQ(result.getType(), OpResult::Type::Ok);
    EXPECT_TRUE(log.lines().empty());
}

TEST(OpResult, SeveritiesHaveTheirNumbers) {
    EXPECT_EQ(static_cast<unsigned>(OpResult::Type::Quiet), 0u);
    EXPECT_EQ(static_cast<unsigned>(OpResult::Type::Ok), 2u);
    EXPECT_EQ(static_cast<unsigned>(OpResult::Type::Warning), 3u);
    EXPECT_EQ(static_cast<unsigned>(OpResult::Type::Error), 4u);
    EXPECT_EQ(static_cast<unsigned>(OpResult::Ok), 2u);
    EXPECT_EQ(static_cast<unsigned>(OpResult::Warning), 3u);
    EXPECT_EQ(static_cast<unsigned>(OpResult::Error), 4u);
}

TEST(OpResult, WarningIsAFailureAsAnErrorIs) {
    OpResult warning = raiseWarning(1, nullptr);
    OpResult error = raiseError(1, nullptr);
    EXPECT_FALSE(warning.success());
    EXPECT_TRUE(!warning);
    EXPECT_EQ(warning.getType(), OpResult::Type::Warning);
    EXPECT_FALSE(static_cast<bool>(error));
    EXPECT_EQ(error.getType(), OpResult::Type::Error);
    EXPECT_EQ(error.getCode(), 1);
    EXPECT_EQ(error.getSubsystem(), s_subsystem.getId());
    warning.discard();
    error.discard();
}

TEST(OpResult, MessageAndPlaceAreCopied) {
    const CapturedLog log;
    {
        std::string message = "a message from a temporary";
        std::string function = "someFunction";
        OpResult result(OpResult::Error, 1, s_subsystem.getId(), OpCodeLocation("file", function.c_str(), 5),
                        message.c_str());
        message.assign(message.size(), 'x');
        function.assign(function.size(), 'x');
        EXPECT_STREQ(result.getMessage(), "a message from a temporary");
        EXPECT_STREQ(result.describe().get(), "first trouble: a message from a temporary");
    }
    EXPECT_EQ(onlyLine(log).m_text,
              "Testing: first trouble: a message from a temporary, code 1, at someFunction (file:5)");
}

TEST(OpResult, DroppedWarningReportsItselfOnceAsAWarning) {
    const CapturedLog log;
    {
        const OpResult result = raiseWarning(1, nullptr);
        const OpResult copy = result;
        EXPECT_TRUE(log.lines().empty());
    }
    const CapturedLog::Line line = onlyLine(log);
    EXPECT_EQ(line.m_level, LogLevel::Warning);
    EXPECT_EQ(line.m_text, "Testing: first trouble, code 1, at raiseWarning (label:17)");
}

TEST(OpResult, DroppedErrorReportsItselfAsAnError) {
    const CapturedLog log;
    static_cast<void>(raiseError(1, "why"));
    const CapturedLog::Line line = onlyLine(log);
    EXPECT_EQ(line.m_level, LogLevel::Error);
    EXPECT_EQ(line.m_text, "Testing: first trouble: why, code 1, at raiseError (label:23)");
}

TEST(OpResult, AssignmentReleasesTheOldNote) {
    const CapturedLog log;
    OpResult result = raiseWarning(1, nullptr);
    result = OpResult::Ok;
    EXPECT_TRUE(result.success());
    EXPECT_EQ(log.lines().size(), 1u);
}

TEST(OpResult, DeliveredNoteIsNotToldAgain) {
    const CapturedLog log;
    {
        OpResult result = raiseWarning(1, nullptr);
        OpResult copy = result;
        result.deliverNote(true);
        EXPECT_EQ(log.lines().size(), 1u);
        copy.deliverNote(true);
        EXPECT_FALSE(copy.success());
    }
    EXPECT_EQ(log.lines().size(), 1u);
}

TEST(OpResult, DeliveryWithoutPlaceLeavesThePlaceOut) {
    const CapturedLog log;
    OpResult result = raiseWarning(1, "why");
    result.deliverNote(false);
    EXPECT_EQ(onlyLine(log).m_text, "Testing: first trouble: why, code 1");
}

TEST(OpResult, DiscardedNoteIsNeverTold) {
    const CapturedLog log;
    {
        OpResult result = raiseError(1, nullptr);
        OpResult copy = result;
        copy.discard();
        result.deliverNote(true);
        EXPECT_FALSE(result.success());
        EXPECT_EQ(result.getType(), OpResult::Type::Error);
    }
    EXPECT_TRUE(log.lines().empty());
}

TEST(OpResult, NoteDowngradedToASuccessAnswersSuccessAndIsNotTold) {
    for (const unsigned level : {0u, 1u, 2u}) {
        const CapturedLog log;
        {
            OpResult result = raiseError(1, nullptr);
            const OpResult copy = result;
            result.downgradeTo(static_cast<OpResult::Type>(level));
            EXPECT_TRUE(result.success());
            EXPECT_TRUE(copy.success());
            EXPECT_EQ(static_cast<unsigned>(copy.getType()), level);
            EXPECT_EQ(copy.getCode(), 1);
        }
        EXPECT_TRUE(log.lines().empty());
    }
}

TEST(OpResult, ErrorDowngradedToAWarningIsToldAsAWarning) {
    const CapturedLog log;
    {
        OpResult result = raiseError(1, nullptr);
        result.downgradeTo(OpResult::Type::Warning);
        EXPECT_FALSE(result.success());
    }
    EXPECT_EQ(onlyLine(log).m_level, LogLevel::Warning);
}

TEST(OpResult, DowngradingNeverRaisesTheSeverity) {
    OpResult result = raiseWarning(1, nullptr);
    result.downgradeTo(OpResult::Type::Error);
    EXPECT_EQ(result.getType(), OpResult::Type::Warning);
    result.discard();
}

TEST(OpResult, CopiesInManyThreadsAreToldOnce) {
    const CapturedLog log;
    {
        const OpResult result = raiseWarning(1, nullptr);
        std::vector<std::thread> threads;
        for (int i = 0; i < 8; ++i) {
            threads.emplace_back([copy = result]() mutable {
                for (int k = 0; k < 1000; ++k) {
                    OpResult another = copy;
                    EXPECT_FALSE(another.success());
                    if (k == 500) another.deliverNote(true);
                }
            });
        }
        for (std::thread& thread : threads)
            thread.join();
    }
    EXPECT_EQ(log.lines().size(), 1u);
}

TEST(OpSubsystemDecl, IdsAreDistinctAndNamed) {
    EXPECT_NE(s_subsystem.getId(), 0u);
    EXPECT_NE(s_subsystem.getId(), s_instance.getId());
    EXPECT_STREQ(OpSubsystemDecl::getName(s_subsystem.getId()), "Testing");
    EXPECT_STREQ(OpSubsystemDecl::getName(s_instance.getId()), "Testing/second");
    EXPECT_STREQ(OpSubsystemDecl::getErrorName(s_subsystem.getId(), 1), "first trouble");
}

TEST(OpSubsystemDecl, CodeWithoutATextIsUnrecognized) {
    EXPECT_STREQ(OpSubsystemDecl::getUnknownErrorName(99), "unrecognized error code");
    EXPECT_STREQ(OpSubsystemDecl::getErrorName(s_subsystem.getId(), 2), "unrecognized error code");
    EXPECT_STREQ(OpSubsystemDecl::getErrorName(s_subsystem.getId(), 99), "unrecognized error code");
}

TEST(OpSubsystemDecl, UndeclaredIdHasAName) {
    EXPECT_STREQ(OpSubsystemDecl::getName(0), "unknown subsystem");
    EXPECT_STREQ(OpSubsystemDecl::getErrorName(0, 1), "unrecognized error code");
}

TEST(OpSubsystemDecl, ReportAfterItsEndStillHasItsName) {
    const CapturedLog log;
    OpSubsystem id = 0;
    {
        const OpSubsystemDecl shortLived("Gone", &testErrorName);
        id = shortLived.getId();
    }
    static_cast<void>(OpResult(OpResult::Warning, 1, id, OpCodeLocation("f", "g", 1), nullptr));
    EXPECT_EQ(onlyLine(log).m_text, "Gone: first trouble, code 1, at g (f:1)");
}

TEST(OpSubsystemDecl, DeclarationsInManyThreadsGetDistinctIds) {
    std::vector<OpSubsystem> ids(8);
    std::vector<std::thread> threads;
    for (OpSubsystem& id : ids) {
        threads.emplace_back([&id] { id = OpSubsystemDecl("Many", &testErrorName).getId(); });
    }
    for (std::thread& thread : threads)
        thread.join();
    for (std::size_t i = 0; i < ids.size(); ++i) {
        EXPECT_STREQ(OpSubsystemDecl::getName(ids[i]), "Many");
        for (std::size_t k = 0; k < i; ++k)
            EXPECT_NE(ids[i], ids[k]);
    }
}
