#include "services/system/msg_clamp.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "collecting_sink.h"
#include "support/clock.h"

using testing::ElementsAre;

TEST(MsgClamp, FiveLinesASecondGoOutAndTheNextSecondBeginsAnew) {
    MsgClamp clamp;
    const std::int64_t second = 1000000;
    for (int i = 0; i < 5; ++i) {
        EXPECT_TRUE(clamp.admit(7 * second + i));
    }
    EXPECT_FALSE(clamp.admit(7 * second + 10));
    EXPECT_FALSE(clamp.admit(8 * second - 1));
    EXPECT_EQ(clamp.getHeldBack(), 2u);
    EXPECT_TRUE(clamp.admit(8 * second));
}

TEST(MsgClamp, ALateThreadDoesntOpenTheSecondBeforeAgain) {
    MsgClamp clamp;
    for (int i = 0; i < 5; ++i) {
        EXPECT_TRUE(clamp.admit(9000000));
    }
    EXPECT_FALSE(clamp.admit(8999999));
    EXPECT_FALSE(clamp.admit(9000001));
}

TEST(MsgClamp, EachFunctionSendsItsLevel) {
    CollectingSink sink;
    MsgClamp clamp;
    clamp.error("e%d\n", 1);
    clamp.warning("w%d\n", 2);
    clamp.info("i%d\n", 3);
    clamp.debug("d%d\n", 4);
    EXPECT_THAT(sink.getLevels(), ElementsAre(LogLevel::Error, LogLevel::Warning, LogLevel::Info, LogLevel::Debug));
    EXPECT_THAT(sink.getLines(), ElementsAre("e1", "w2", "i3", "d4"));
}

TEST(MsgClamp, AFloodComesDownToAFewLinesAndTheNextLineTellsHowManyWereHeldBack) {
    CollectingSink sink;
    MsgClamp clamp;
    int sent = 0;
    while (clamp.getHeldBack() < 100) {
        clamp.error("bad sample %d\n", sent++);
    }
    const std::size_t before = sink.getLines().size();
    EXPECT_LT(before, static_cast<std::size_t>(sent));
    const unsigned held = clamp.getHeldBack();
    unsigned more = 0;
    while (sink.getLines().size() == before) {
        clamp.error("one more\n");
        ++more;
        waitMsec(1);
    }
    EXPECT_EQ(sink.getLines().back(), "one more (" + std::to_string(held + more - 1) + " more held back)");
    EXPECT_EQ(clamp.getHeldBack(), 0u);
}

TEST(MsgClamp, WhatIsStillHeldBackAtTheEndIsTold) {
    CollectingSink sink;
    auto clamp = std::make_unique<MsgClamp>();
    while (clamp->getHeldBack() < 3) {
        clamp->error("gap of %u bytes\n", 5u);
    }
    const unsigned held = clamp->getHeldBack();
    clamp.reset();
    EXPECT_EQ(sink.getLines().back(), "\"gap of %u bytes\" (" + std::to_string(held) + " more held back)");
    EXPECT_EQ(sink.getLevels().back(), LogLevel::Warning);
}

TEST(MsgClamp, AClampThatHeldNothingBackEndsInSilence) {
    CollectingSink sink;
    { MsgClamp clamp; }
    {
        MsgClamp clamp;
        clamp.info("x");
    }
    EXPECT_THAT(sink.getLines(), ElementsAre("x"));
}

TEST(MsgClamp, EveryLineOfManyThreadsIsEitherSentOrCounted) {
    MsgClamp clamp;
    std::atomic<unsigned> sent{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&clamp, &sent] {
            for (int i = 0; i < 5000; ++i) {
                if (clamp.admit(5000000)) ++sent;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    CollectingSink sink;
    EXPECT_EQ(sent.load(), MsgClamp::s_linesPerSecond);
    EXPECT_EQ(clamp.getHeldBack(), 4u * 5000u - MsgClamp::s_linesPerSecond);
}

TEST(MsgClamp, WhatManyThreadsSayIsSentOrToldAsHeldBack) {
    CollectingSink sink;
    {
        MsgClamp clamp;
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([&clamp] {
                for (int i = 0; i < 2000; ++i) {
                    clamp.warning("late sample\n");
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
    unsigned told = 0;
    for (const std::string& line : sink.getLines()) {
        if (line.rfind("late sample", 0) == 0) ++told;
        const std::size_t note = line.find('(');
        if (note != std::string::npos) told += static_cast<unsigned>(std::stoul(line.substr(note + 1)));
    }
    EXPECT_EQ(told, 4u * 2000u);
}

TEST(MsgClamp, ANullFormatIsHeldBackLikeAnyOther) {
    CollectingSink sink;
    const char* const none = nullptr;
    MsgClamp clamp;
    while (clamp.getHeldBack() == 0) {
        clamp.error(none);
    }
    EXPECT_GE(sink.getLines().size(), 5u);
}
