#include "support/signals.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/clock.h"
#include "tests/unit/support/captured_log.h"

namespace {

using Subsystem::Registry;
using Subsystem::Signals;

using Journal = std::vector<std::string>;

// A subsystem that writes down what it is told.
class Recorded {
public:
    Recorded(Journal& journal, const char* name, unsigned int priority)
        : m_journal(journal),
          m_name(name),
          m_signals(name, *this, &Recorded::init, &Recorded::signalShutdown, &Recorded::checkFinished,
                    &Recorded::stopThreads, &Recorded::releaseMemory, priority) {
        Registry::registerSignalHandlers(m_signals);
    }
    virtual ~Recorded() = default;

    virtual bool init() { return note("init"); }
    bool signalShutdown() { return note("shutdown"); }
    bool checkFinished(bool report) {
        if (report) Registry::errMsg("%s isn't finished\n", m_name.c_str());
        note(report ? "finished?!" : "finished?");
        return m_unfinishedPolls == 0 || --m_unfinishedPolls == 0;
    }
    bool stopThreads() { return note("stop"); }
    bool releaseMemory() { return note("release"); }

    bool m_answer = true;
    int m_unfinishedPolls = 0;  // so many polls are answered with false, less one

protected:
    bool note(const char* what) {
        m_journal.push_back(m_name + " " + what);
        return m_answer;
    }

    Journal& m_journal;
    const std::string m_name;
    Signals<Recorded> m_signals;
};

struct Plain {
    bool yes() { return true; }
    bool no() { return false; }
    bool same(bool flag) { return flag; }
};

std::string pointerText(const void* pointer) {
    char text[32];
    std::snprintf(text, sizeof text, "%p", pointer);
    return text;
}

// The text with every address in it but the first made "*".
std::string withoutAddresses(const std::string& text) {
    std::string result;
    std::size_t at = text.find('{');
    if (at == std::string::npos) return text;
    result = text.substr(0, at);
    while (at < text.size()) {
        if (text.compare(at, 3, "=0x") == 0) {
            result += "=*";
            at = text.find(',', at);
        } else {
            result += text[at++];
        }
    }
    return result;
}

}  // namespace

TEST(BaseSignals, KeepsItsNameAndPriorities) {
    Subsystem::BaseSignals signals("base", 1, 2, 3, 4, 5);
    EXPECT_STREQ(signals.name(), "base");
    EXPECT_EQ(signals.initPriority(), 1u);
    EXPECT_EQ(signals.signalShutdownPriority(), 2u);
    EXPECT_EQ(signals.checkFinishedPriority(), 3u);
    EXPECT_EQ(signals.stopThreadsPriority(), 4u);
    EXPECT_EQ(signals.releaseMemPriority(), 5u);
}

TEST(BaseSignals, AnswersTrueToEverySignalAndHasNoText) {
    Subsystem::BaseSignals signals("base", 1, 2, 3, 4, 5);
    EXPECT_TRUE(signals.init());
    EXPECT_TRUE(signals.signalShutdown());
    EXPECT_TRUE(signals.checkFinished(false));
    EXPECT_TRUE(signals.stopThreads());
    EXPECT_TRUE(signals.releaseMemory());
    EXPECT_STREQ(signals.toString().get(), "");
    EXPECT_STREQ(signals.toIdString().get(), "");
}

TEST(Signals, PriorityServesForAllSignals) {
    Plain plain;
    const Signals<Plain> signals("plain", plain, nullptr, nullptr, nullptr, nullptr, nullptr, 50);
    EXPECT_EQ(signals.initPriority(), 50u);
    EXPECT_EQ(signals.signalShutdownPriority(), 50u);
    EXPECT_EQ(signals.checkFinishedPriority(), 50u);
    EXPECT_EQ(signals.stopThreadsPriority(), 50u);
    EXPECT_EQ(signals.releaseMemPriority(), 50u);
}

TEST(Signals, WithoutACallbackAnswersTrueAndTheTextLeavesItOut) {
    Plain plain;
    Signals<Plain> signals("plain", plain, nullptr, nullptr, nullptr, nullptr, nullptr, 50);
    EXPECT_TRUE(signals.init());
    EXPECT_TRUE(signals.signalShutdown());
    EXPECT_TRUE(signals.checkFinished(false));
    EXPECT_TRUE(signals.stopThreads());
    EXPECT_TRUE(signals.releaseMemory());
    EXPECT_EQ(std::string(signals.toString().get()), "plain(" + pointerText(&plain) + ")");
}

TEST(Signals, CallbacksAnswerForTheirSignals) {
    Plain plain;
    Signals<Plain> signals("plain", plain, &Plain::no, &Plain::no, &Plain::same, &Plain::yes, &Plain::no, 50);
    EXPECT_FALSE(signals.init());
    EXPECT_FALSE(signals.signalShutdown());
    EXPECT_TRUE(signals.stopThreads());
    EXPECT_FALSE(signals.releaseMemory());
}

TEST(Signals, CheckFinishedPassesItsFlagOn) {
    Plain plain;
    Signals<Plain> signals("plain", plain, nullptr, nullptr, &Plain::same, nullptr, nullptr, 50);
    EXPECT_TRUE(signals.checkFinished(true));
    EXPECT_FALSE(signals.checkFinished(false));
}

TEST(Signals, TextNamesEveryCallbackInOrderWithItsPriority) {
    Plain plain;
    const Signals<Plain> signals("plain", plain, &Plain::yes, &Plain::yes, &Plain::same, &Plain::yes, &Plain::yes, 50);
    const std::string id = "plain(" + pointerText(&plain) + ")";
    EXPECT_EQ(withoutAddresses(signals.toString().get()),
              id + "{init=*,p=50}{signalShutdown=*,p=50}{checkFinished=*,p=50}{stopThreads=*,p=50}{releaseMem=*,p=50}");
    EXPECT_EQ(std::string(signals.toIdString().get()), id);
}

TEST(Signals, TextLeavesOutOnlyTheCallbacksThatAreMissing) {
    Plain plain;
    const Signals<Plain> signals("plain", plain, nullptr, &Plain::yes, nullptr, nullptr, &Plain::yes, 7);
    EXPECT_EQ(withoutAddresses(signals.toString().get()),
              "plain(" + pointerText(&plain) + "){signalShutdown=*,p=7}{releaseMem=*,p=7}");
}

TEST(Registry, InitGoesInAscendingPriorityAndEqualOnesInOrderOfRegistration) {
    Journal journal;
    const Recorded late(journal, "late", 90);
    const Recorded first(journal, "first", 50);
    const Recorded second(journal, "second", 50);
    const Recorded early(journal, "early", 10);
    EXPECT_TRUE(Registry::initSubsystems());
    EXPECT_EQ(journal, (Journal{"early init", "first init", "second init", "late init"}));
}

TEST(Registry, InitGoesOnAfterARefusalAndAnswersFalse) {
    Journal journal;
    Recorded refusing(journal, "refusing", 1);
    const Recorded other(journal, "other", 2);
    refusing.m_answer = false;
    EXPECT_FALSE(Registry::initSubsystems());
    EXPECT_EQ(journal, (Journal{"refusing init", "other init"}));
}

TEST(Registry, ShutdownGoesThroughItsStepsOneByOne) {
    Journal journal;
    const Recorded a(journal, "a", 1);
    const Recorded b(journal, "b", 2);
    EXPECT_TRUE(Registry::shutdownSubsystems());
    EXPECT_EQ(journal, (Journal{"a shutdown", "b shutdown", "a finished?", "b finished?", "a stop", "b stop",
                                "a release", "b release"}));
}

TEST(Registry, EachStepHasItsOwnPriority) {
    struct Ordered : Subsystem::BaseSignals {
        Ordered(Journal& journal, const char* name, bool forwards)
            : BaseSignals(name, forwards ? 1 : 2, forwards ? 2 : 1, forwards ? 1 : 2, forwards ? 2 : 1,
                          forwards ? 1 : 2),
              m_journal(journal) {
            Registry::registerSignalHandlers(*this);
        }
        ~Ordered() override { Registry::unregisterSignalHandlers(*this); }
        bool note(const char* what) {
            m_journal.push_back(std::string(name()) + what);
            return true;
        }
        bool signalShutdown() override { return note(" shutdown"); }
        bool checkFinished(bool) override { return note(" finished?"); }
        bool stopThreads() override { return note(" stop"); }
        bool releaseMemory() override { return note(" release"); }
        Journal& m_journal;
    };
    Journal journal;
    const Ordered a(journal, "a", true);
    const Ordered b(journal, "b", false);
    EXPECT_TRUE(Registry::shutdownSubsystems());
    EXPECT_EQ(journal, (Journal{"b shutdown", "a shutdown", "a finished?", "b finished?", "b stop", "a stop",
                                "a release", "b release"}));
}

TEST(Registry, CheckFinishedIsAskedUntilAllSayTrueAndWithoutAReport) {
    const CapturedLog log;
    Journal journal;
    Recorded slow(journal, "slow", 1);
    slow.m_unfinishedPolls = 3;
    EXPECT_TRUE(Registry::shutdownSubsystems(600000));
    EXPECT_EQ(journal, (Journal{"slow shutdown", "slow finished?", "slow finished?", "slow finished?", "slow stop",
                                "slow release"}));
    EXPECT_TRUE(log.lines().empty());
}

TEST(Registry, WhatNeverFinishesIsAskedForAReportAndStoppedAllTheSame) {
    const CapturedLog log;
    Journal journal;
    Recorded stuck(journal, "stuck", 1);
    stuck.m_unfinishedPolls = 1000000;
    EXPECT_FALSE(Registry::shutdownSubsystems(30));
    ASSERT_GE(journal.size(), 5u);
    EXPECT_EQ(journal[1], "stuck finished?");
    EXPECT_EQ(Journal(journal.end() - 3, journal.end()), (Journal{"stuck finished?!", "stuck stop", "stuck release"}));
    EXPECT_EQ(log.count(LogLevel::Error, "stuck isn't finished"), 1);
}

TEST(Registry, RegisteringTwiceIsOnceAndLeavingFreesThePlace) {
    struct Counted : Subsystem::BaseSignals {
        Counted() : BaseSignals("counted", 1, 1, 1, 1, 1) {}
        bool init() override {
            ++m_inits;
            return true;
        }
        int m_inits = 0;
    };
    Counted signals;
    Registry::registerSignalHandlers(signals);
    Registry::registerSignalHandlers(signals);
    EXPECT_TRUE(Registry::initSubsystems());
    EXPECT_EQ(signals.m_inits, 1);
    Registry::unregisterSignalHandlers(signals);
    Registry::unregisterSignalHandlers(signals);
    EXPECT_TRUE(Registry::initSubsystems());
    EXPECT_EQ(signals.m_inits, 1);
}

TEST(Registry, SubsystemMayLeaveInItsOwnCallback) {
    struct Leaving : Recorded {
        using Recorded::Recorded;
        bool init() override {
            note("leaves");
            delete this;
            return true;
        }
    };
    Journal journal;
    new Leaving(journal, "leaving", 1);
    const Recorded other(journal, "other", 2);
    EXPECT_TRUE(Registry::initSubsystems());
    EXPECT_TRUE(Registry::initSubsystems());
    EXPECT_EQ(journal, (Journal{"leaving leaves", "other init", "other init"}));
}

TEST(Registry, SubsystemThatIsTakenOutDuringTheSequenceIsNotCalled) {
    struct Remover : Recorded {
        using Recorded::Recorded;
        bool init() override {
            m_victim.reset();
            return note("init");
        }
        std::unique_ptr<Recorded> m_victim;
    };
    Journal journal;
    Remover remover(journal, "remover", 1);
    remover.m_victim = std::make_unique<Recorded>(journal, "victim", 2);
    EXPECT_TRUE(Registry::initSubsystems());
    EXPECT_EQ(journal, (Journal{"remover init"}));
}

TEST(Registry, SubsystemThatComesDuringTheSequenceIsCalledToo) {
    struct Maker : Recorded {
        using Recorded::Recorded;
        bool init() override {
            m_made = std::make_unique<Recorded>(m_journal, "made", 1);
            return note("init");
        }
        std::unique_ptr<Recorded> m_made;
    };
    Journal journal;
    const Maker maker(journal, "maker", 5);
    EXPECT_TRUE(Registry::initSubsystems());
    EXPECT_EQ(journal, (Journal{"maker init", "made init"}));
}

TEST(Registry, LeavingWaitsForACallInAnotherThread) {
    struct Slow : Recorded {
        using Recorded::Recorded;
        bool init() override {
            m_inside = true;
            while (!m_goOn)
                waitMsec(1);
            m_over = true;
            return true;
        }
        std::atomic<bool> m_inside{false};
        std::atomic<bool> m_goOn{false};
        std::atomic<bool> m_over{false};
        using Recorded::m_signals;
    };
    Journal journal;
    Slow slow(journal, "slow", 1);
    std::thread sequence([] { EXPECT_TRUE(Registry::initSubsystems()); });
    while (!slow.m_inside)
        waitMsec(1);
    std::atomic<bool> leaving{false};
    std::thread leaver([&] {
        leaving = true;
        Registry::unregisterSignalHandlers(slow.m_signals);
        EXPECT_TRUE(slow.m_over);
    });
    while (!leaving)
        waitMsec(1);
    slow.m_goOn = true;
    leaver.join();
    sequence.join();
}

TEST(Registry, ComplaintsGoOutAsErrors) {
    const CapturedLog log;
    Registry::errMsg("thread %d of \"%s\" is stuck\n", 3, "x");
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].m_level, LogLevel::Error);
    EXPECT_EQ(log.lines()[0].m_text, "thread 3 of \"x\" is stuck");
}

TEST(Registry, RegistrationsAndSequencesInManyThreadsKeepApart) {
    std::atomic<int> inits{0};
    struct Shared {
        bool init() {
            ++m_inits;
            return true;
        }
        std::atomic<int>& m_inits;
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&inits, i] {
            for (int k = 0; k < 50; ++k) {
                Shared shared{inits};
                Signals<Shared> signals("shared", shared, &Shared::init, nullptr, nullptr, nullptr, nullptr, 1);
                Registry::registerSignalHandlers(signals);
                if (i % 2 == 0) {
                    EXPECT_TRUE(Registry::initSubsystems());
                }
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_GE(inits.load(), 4 * 50);
}
