#include "services/system/log_ring.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "collecting_sink.h"

namespace {

struct Taken {
    LogLevel m_level;
    std::int64_t m_time;
    std::uint32_t m_threadId;
    std::string m_threadName;
    std::string m_text;
};

std::vector<Taken> takeAll(const LogRing& ring) {
    std::vector<Taken> all;
    ring.visit(
        [](const LogMessage& message, void* context) {
            static_cast<std::vector<Taken>*>(context)->push_back({message.m_level, message.m_time, message.m_threadId,
                                                                  message.m_threadName,
                                                                  std::string(message.m_text, message.m_length)});
            return true;
        },
        &all);
    return all;
}

void add(LogRing& ring, const std::string& text, std::int64_t time = 0) {
    LogMessage message;
    message.m_time = time;
    message.m_text = text.c_str();
    message.m_length = text.size();
    ring.add(message);
}

}  // namespace

TEST(LogRingTest, AMessageComesBackAsItWas) {
    const auto ring = std::make_unique<LogRing>();
    LogMessage message;
    message.m_level = LogLevel::Warning;
    message.m_time = 1234567890123456;
    message.m_threadId = 77;
    message.m_threadName = "fifteen-letters";
    message.m_text = "text";
    message.m_length = 4;
    ring->add(message);
    const std::vector<Taken> all = takeAll(*ring);
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(all[0].m_level, LogLevel::Warning);
    EXPECT_EQ(all[0].m_time, 1234567890123456);
    EXPECT_EQ(all[0].m_threadId, 77u);
    EXPECT_EQ(all[0].m_threadName, "fifteen-letters");
    EXPECT_EQ(all[0].m_text, "text");
}

TEST(LogRingTest, TextsOfEveryLengthComeBackWholeUpToTheLimit) {
    const auto ring = std::make_unique<LogRing>();
    for (std::size_t length = 0; length <= LogRing::s_maxText + 3; length += length < 420 ? 1 : 397) {
        std::string text;
        for (std::size_t i = 0; i < length; ++i) {
            text.push_back(static_cast<char>('a' + i % 26));
        }
        add(*ring, text);
        const std::vector<Taken> all = takeAll(*ring);
        ASSERT_FALSE(all.empty());
        EXPECT_EQ(all.back().m_text, text.substr(0, LogRing::s_maxText));
    }
}

TEST(LogRingTest, ItKeepsTheLastThousandsInOrder) {
    const auto ring = std::make_unique<LogRing>();
    const int count = 20000;
    for (int i = 0; i < count; ++i) {
        add(*ring, "message " + std::to_string(i), i);
    }
    const std::vector<Taken> all = takeAll(*ring);
    ASSERT_EQ(all.size(), LogRing::s_slots);
    for (std::size_t i = 0; i < all.size(); ++i) {
        EXPECT_EQ(all[i].m_time, count - static_cast<std::int64_t>(all.size()) + static_cast<std::int64_t>(i));
    }
}

TEST(LogRingTest, AMessageWhoseBeginningIsOverwrittenIsLeftOut) {
    const auto ring = std::make_unique<LogRing>();
    add(*ring, std::string(1000, 'l'));
    for (unsigned i = 0; i < LogRing::s_slots - 1; ++i) {
        add(*ring, "s");
    }
    const std::vector<Taken> all = takeAll(*ring);
    ASSERT_EQ(all.size(), LogRing::s_slots - 1);
    EXPECT_EQ(all.front().m_text, "s");
}

TEST(LogRingTest, TheVisitorEndsTheVisit) {
    const auto ring = std::make_unique<LogRing>();
    add(*ring, "a");
    add(*ring, "b");
    int calls = 0;
    ring->visit(
        [](const LogMessage&, void* context) {
            ++*static_cast<int*>(context);
            return false;
        },
        &calls);
    EXPECT_EQ(calls, 1);
}

TEST(LogRingTest, WritersAndReadersAtOnceNeverMixTwoMessages) {
    const auto ring = std::make_unique<LogRing>();
    std::vector<std::thread> writers;
    for (int t = 0; t < 4; ++t) {
        writers.emplace_back([&ring, t] {
            for (int i = 0; i < 5000; ++i) {
                add(*ring, std::string(static_cast<std::size_t>(1 + (i * 37 + t) % 500), static_cast<char>('a' + t)));
            }
        });
    }
    for (int i = 0; i < 30; ++i) {
        for (const Taken& taken : takeAll(*ring)) {
            EXPECT_EQ(taken.m_text.find_first_not_of(taken.m_text[0]), std::string::npos);
        }
    }
    for (std::thread& writer : writers) {
        writer.join();
    }
    EXPECT_FALSE(takeAll(*ring).empty());
}

TEST(LogRingTest, TheProcessRingTakesWhatTheLevelHoldsBack) {
    CollectingSink sink;
    const LogLevel before = getLogLevel();
    setLogLevel(LogLevel::Error);
    debugMsg("only in the ring\n");
    setLogLevel(before);
    EXPECT_TRUE(sink.getLines().empty());
    EXPECT_EQ(takeAll(getLogRing()).back().m_text, "only in the ring");
}
