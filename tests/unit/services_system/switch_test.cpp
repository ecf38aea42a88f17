#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "child_process.h"
#include "collecting_sink.h"
#include "services/system/debugger_on.h"
#include "services/system/switch_bank.h"
#include "services/system/switch_environment.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

DebuggerOn startBits("startBits", 3, "alpha", "beta gamma", "delta (reactive)");
DebuggerOn startNumber("startNumber", 7, DebuggerTypes::Init::Value);

const ChildJob switchesJob("switches", [] { std::printf("bits=%u number=%u\n", startBits.get(), startNumber.get()); });

// Counts what a switch reports, and gives back an answer.
class Listener {
public:
    bool onChange(const DebugRecord& record) {
        m_changed.push_back(&record.changed());
        m_values.push_back(record.changed().get());
        if (m_clear) record.changed().clearBit(0);
        return m_answer;
    }

    bool m_answer = true;
    bool m_clear = false;
    std::vector<DebuggerOn*> m_changed;
    std::vector<unsigned> m_values;
    BridgeAnchor<Listener, const DebugRecord&, bool> m_anchor{*this, &Listener::onChange};
};

}  // namespace

TEST(DebuggerOnTest, ABitFieldBeginsWithAllBitsOff) {
    const DebuggerOn bits("bits", 2, "one", "two");
    EXPECT_FALSE(bits.on());
    EXPECT_EQ(bits.get(), 0u);
    EXPECT_EQ(bits.getBitCount(), 2u);
    EXPECT_STREQ(bits.getName(), "bits");
    EXPECT_STREQ(bits.getBitName(0), "one");
    EXPECT_STREQ(bits.getBitName(1), "two");
    EXPECT_EQ(bits.getBitName(2), nullptr);
    EXPECT_TRUE(bits.isBitField());
}

TEST(DebuggerOnTest, ANumberBeginsWithItsValue) {
    const DebuggerOn number("number", 0x10000, DebuggerTypes::Init::Value);
    EXPECT_EQ(number.get(), 0x10000u);
    EXPECT_TRUE(number.on());
    EXPECT_EQ(number.getBitCount(), 0u);
    EXPECT_FALSE(number.isBitField());
}

TEST(DebuggerOnTest, BitsAreTestedSetAndClearedModulo32) {
    DebuggerOn bits("bits", 0);
    bits.setBit(3);
    EXPECT_TRUE(bits.on(3));
    EXPECT_TRUE(bits.on(35));
    EXPECT_FALSE(bits.on(4));
    bits.setBit(63);
    EXPECT_EQ(bits.get(), 0x80000008u);
    bits.clearBit(32 + 31);
    bits.clearBit(67);
    EXPECT_FALSE(bits.on());
}

TEST(DebuggerOnTest, TwoBitsMeanEither) {
    DebuggerOn bits("bits", 0);
    EXPECT_FALSE(bits.on(8, 9));
    bits.set(1 << 8);
    EXPECT_TRUE(bits.on(8, 9));
    bits.set(1 << 9);
    EXPECT_TRUE(bits.on(8, 9));
    EXPECT_TRUE(bits.on(8, 41));
    bits.set(0);
    EXPECT_FALSE(bits.on(8, 9));
}

TEST(DebuggerOnTest, NoMoreThan32NamesAreTaken) {
    const DebuggerOn bits("bits", 33, "0", "1", "2", "3", "4", "5", "6", "7", "8", "9", "10", "11", "12", "13", "14",
                          "15", "16", "17", "18", "19", "20", "21", "22", "23", "24", "25", "26", "27", "28", "29",
                          "30", "31", "32");
    EXPECT_EQ(bits.getBitCount(), 32u);
    EXPECT_STREQ(bits.getBitName(31), "31");
}

TEST(DebuggerOnTest, TheCallbackRunsForAChangeFromOutsideOnly) {
    DebuggerOn bits("bits", 2, "one", "two");
    Listener listener;
    bits.set(&listener.m_anchor);
    bits.set(3);
    bits.setBit(1);
    bits.clearBit(0);
    EXPECT_THAT(listener.m_values, IsEmpty());
    EXPECT_TRUE(bits.setFromOutside(1));
    EXPECT_THAT(listener.m_values, ElementsAre(1u));
    EXPECT_THAT(listener.m_changed, ElementsAre(&bits));
    EXPECT_TRUE(bits.changeBitsFromOutside(2, 1));
    EXPECT_THAT(listener.m_values, ElementsAre(1u, 2u));
    bits.set(nullptr);
    EXPECT_TRUE(bits.setFromOutside(0));
    EXPECT_EQ(listener.m_values.size(), 2u);
}

TEST(DebuggerOnTest, TheCallbacksAnswerComesBackAndItMayClearABit) {
    DebuggerOn bits("bits", 2, "one (reactive)", "two");
    Listener listener;
    listener.m_answer = false;
    listener.m_clear = true;
    bits.set(&listener.m_anchor);
    EXPECT_FALSE(bits.setFromOutside(3));
    EXPECT_EQ(bits.get(), 2u);
}

TEST(SwitchBankTest, SetsByBitNamesAndByNumber) {
    DebuggerOn bits("bankBits", 3, "cache activity", "ctor", "4:2:2");
    FormatStr reason(64);
    EXPECT_TRUE(SwitchBank::set("bankBits", "cache activity|ctor", reason));
    EXPECT_EQ(bits.get(), 3u);
    EXPECT_TRUE(SwitchBank::set("bankBits", " ctor | 4:2:2 ", reason));
    EXPECT_EQ(bits.get(), 6u);
    EXPECT_TRUE(SwitchBank::set("bankBits", "4:2:2", reason));
    EXPECT_EQ(bits.get(), 4u);
    EXPECT_TRUE(SwitchBank::set("bankBits", "5", reason));
    EXPECT_EQ(bits.get(), 5u);
    EXPECT_TRUE(SwitchBank::set("bankBits", "0x3", reason));
    EXPECT_EQ(bits.get(), 3u);
    EXPECT_TRUE(reason.empty());
}

TEST(SwitchBankTest, AListMayBeginWithANameThatBeginsWithADigit) {
    DebuggerOn bits("bankBits", 3, "4:2:2", "ctor", "7");
    FormatStr reason(64);
    EXPECT_TRUE(SwitchBank::set("bankBits", "4:2:2|ctor", reason));
    EXPECT_EQ(bits.get(), 3u);
    EXPECT_TRUE(SwitchBank::set("bankBits", "7 | 4:2:2", reason));
    EXPECT_EQ(bits.get(), 5u);
    EXPECT_TRUE(SwitchBank::setBits("bankBits", "7|ctor", false, reason));
    EXPECT_EQ(bits.get(), 1u);
    EXPECT_TRUE(reason.empty());
    EXPECT_FALSE(SwitchBank::set("bankBits", "1|ctor", reason));
    EXPECT_STREQ(reason.get(), "bankBits has no bit named \"1\"");
}

TEST(SwitchBankTest, ANumberTakesAll32Bits) {
    DebuggerOn number("bankNumber", 1, DebuggerTypes::Init::Value);
    FormatStr reason(64);
    EXPECT_TRUE(SwitchBank::set("bankNumber", "4294967295", reason));
    EXPECT_EQ(number.get(), 0xffffffffu);
    EXPECT_TRUE(SwitchBank::set("bankNumber", "0XfF", reason));
    EXPECT_EQ(number.get(), 255u);
}

TEST(SwitchBankTest, AWrongNameOrValueIsAnsweredWithAReasonAndChangesNothing) {
    DebuggerOn bits("bankBits", 2, "one", "two");
    DebuggerOn number("bankNumber", 1, DebuggerTypes::Init::Value);
    Listener listener;
    bits.set(&listener.m_anchor);
    number.set(&listener.m_anchor);
    bits.set(1);
    const struct {
        const char* m_name;
        const char* m_value;
        const char* m_reason;
    } cases[] = {
        {"bankNone", "1", "no switch is named \"bankNone\""},
        {"", "1", "no switch is named \"\""},
        {nullptr, "1", "no switch is named \"\""},
        {"bankBits", "three", "bankBits has no bit named \"three\""},
        {"bankBits", "one|", "bankBits has no bit named \"\""},
        {"bankBits", "One", "bankBits has no bit named \"One\""},
        {"bankBits", "-1", "bankBits has no bit named \"-1\""},
        {"bankBits", "", "bankBits: the value is empty"},
        {"bankBits", nullptr, "bankBits: the value is empty"},
        {"bankBits", "1x", "bankBits: \"1x\" isn't a number (decimal, or hexadecimal behind 0x)"},
        {"bankBits", "4", "bankBits: \"4\" sets bits above the last, which is 1"},
        {"bankNumber", "one", "bankNumber: \"one\" isn't a number (decimal, or hexadecimal behind 0x)"},
        {"bankNumber", "1.5", "bankNumber: \"1.5\" isn't a number (decimal, or hexadecimal behind 0x)"},
        {"bankNumber", "0x", "bankNumber: \"0x\" isn't a number (decimal, or hexadecimal behind 0x)"},
        {"bankNumber", "4294967296", "bankNumber: \"4294967296\" doesn't fit 32 bits"},
    };
    for (const auto& c : cases) {
        FormatStr reason(64);
        EXPECT_FALSE(SwitchBank::set(c.m_name, c.m_value, reason));
        EXPECT_STREQ(reason.get(), c.m_reason);
    }
    EXPECT_EQ(bits.get(), 1u);
    EXPECT_EQ(number.get(), 1u);
    EXPECT_THAT(listener.m_values, IsEmpty());
}

TEST(SwitchBankTest, SingleBitsAreSetAndClearedByNameOrNumber) {
    DebuggerOn bits("bankBits", 3, "one", "two", "three");
    FormatStr reason(64);
    EXPECT_TRUE(SwitchBank::setBits("bankBits", "two", true, reason));
    EXPECT_TRUE(SwitchBank::setBits("bankBits", "2", true, reason));
    EXPECT_EQ(bits.get(), 6u);
    EXPECT_TRUE(SwitchBank::setBits("bankBits", "two|one", false, reason));
    EXPECT_EQ(bits.get(), 4u);
    EXPECT_FALSE(SwitchBank::setBits("bankBits", "3", true, reason));
    EXPECT_STREQ(reason.get(), "bankBits has no bit 3: its bits are 0 to 2");
    FormatStr empty(64);
    EXPECT_FALSE(SwitchBank::setBits("bankBits", nullptr, true, empty));
    EXPECT_EQ(bits.get(), 4u);
}

TEST(SwitchBankTest, ASwitchIsKnownFromItsConstructionToItsDestruction) {
    const auto count = [](DebuggerOn&, void* context) { ++*static_cast<int*>(context); };
    int calls = 0;
    {
        const DebuggerOn bits("bankPassing", 0);
        EXPECT_TRUE(SwitchBank::visit("bankPassing", count, &calls));
    }
    EXPECT_FALSE(SwitchBank::visit("bankPassing", count, &calls));
    EXPECT_EQ(calls, 1);
}

TEST(SwitchBankTest, AllSwitchesAreVisitedInOrderOfConstruction) {
    const DebuggerOn first("bankFirst", 0);
    const DebuggerOn second("bankSecond", 0);
    std::vector<std::string> names;
    SwitchBank::visit([](DebuggerOn& item,
                         void* context) { static_cast<std::vector<std::string>*>(context)->push_back(item.getName()); },
                      &names);
    ASSERT_GE(names.size(), 4u);
    EXPECT_EQ(names[names.size() - 2], "bankFirst");
    EXPECT_EQ(names[names.size() - 1], "bankSecond");
}

TEST(SwitchBankTest, SwitchesComeAndGoWhileOthersVisit) {
    std::atomic<bool> stop{false};
    std::thread visitor([&stop] {
        while (!stop.load()) {
            SwitchBank::visit([](DebuggerOn& item, void*) { item.setFromOutside(item.get()); }, nullptr);
            FormatStr reason(64);
            SwitchBank::set("bankPassing", "1", reason);
        }
    });
    for (int i = 0; i < 2000; ++i) {
        DebuggerOn bits("bankPassing", 1, "one");
        bits.setBit(0);
    }
    stop.store(true);
    visitor.join();
}

TEST(SwitchEnvironmentTest, TheLastEntryOfASwitchHolds) {
    DebuggerOn bits("mediaBits", 2, "cache activity", "ctor");
    SwitchEnvironment::apply(bits, "mediaBits=2, other=7 ,mediaBits = cache activity|ctor");
    EXPECT_EQ(bits.get(), 3u);
}

TEST(SwitchEnvironmentTest, ABadValueIsAWarningAndChangesNothing) {
    DebuggerOn number("mediaNumber", 5, DebuggerTypes::Init::Value);
    CollectingSink sink;
    SwitchEnvironment::apply(number, "mediaNumber=five");
    SwitchEnvironment::apply(number, "mediaNumber=");
    SwitchEnvironment::apply(number, "mediaNumber");
    SwitchEnvironment::apply(number, nullptr);
    EXPECT_EQ(number.get(), 5u);
    EXPECT_THAT(
        sink.getLines(),
        ElementsAre("MEDIACORE_SWITCHES: mediaNumber: \"five\" isn't a number (decimal, or hexadecimal behind 0x)",
                    "MEDIACORE_SWITCHES: mediaNumber: the value is empty"));
}

TEST(SwitchEnvironmentTest, UnknownNamesAndBadFormsAreReported) {
    CollectingSink sink;
    EXPECT_EQ(SwitchEnvironment::reportUnknown("startBits=1,noSuch=2,,startNumber,=3"), 3u);
    EXPECT_THAT(sink.getLines(), ElementsAre("MEDIACORE_SWITCHES: no switch is named \"noSuch\"",
                                             "MEDIACORE_SWITCHES: \"startNumber\" isn't of the form name=value",
                                             "MEDIACORE_SWITCHES: no switch is named \"\""));
    EXPECT_EQ(SwitchEnvironment::reportUnknown("startBits=1,startNumber=2"), 0u);
}

TEST(SwitchEnvironmentTest, HostileTextsAreReportedAndChangeNothing) {
    const unsigned bits = startBits.get();
    for (const std::string& text :
         {std::string("=5"), std::string("="), std::string("startBits=="), std::string("startBits=|"),
          std::string("startBits=alpha|"), std::string("startBits=0x"), std::string("startBits=-1"),
          std::string("startBits=99999999999999999999"), std::string("startBits=8"), std::string("startBits=\xff\xfe"),
          std::string("startBits=") + std::string(100000, 'x'), std::string(100000, 'y')}) {
        const CollectingSink sink;
        SwitchEnvironment::apply(startBits, text.c_str());
        SwitchEnvironment::reportUnknown(text.c_str());
        EXPECT_EQ(startBits.get(), bits) << text.substr(0, 40);
        ASSERT_FALSE(sink.getLines().empty()) << text.substr(0, 40);
        EXPECT_LT(sink.getLines().back().size(), 300u);
    }
    for (const std::string& text : {std::string(), std::string(100000, ','), std::string(" , ,\t, ")}) {
        SwitchEnvironment::apply(startBits, text.c_str());
        EXPECT_EQ(SwitchEnvironment::reportUnknown(text.c_str()), 0u);
    }
    const CollectingSink sink;
    std::string many;
    for (int i = 0; i < 1000; ++i) {
        many += "nobody" + std::to_string(i) + "=1,";
    }
    EXPECT_EQ(SwitchEnvironment::reportUnknown(many.c_str()), 1000u);
}

TEST(SwitchEnvironmentTest, AProcessStartsWithTheValuesOfItsEnvironment) {
    const char* const job = "switches";
    const ChildResult plain = runChild(job, {{"MEDIACORE_SWITCHES", ""}});
    EXPECT_EQ(plain.m_exit, 0);
    EXPECT_THAT(plain.m_out, HasSubstr("bits=0 number=7\n"));
    const ChildResult given =
        runChild(job, {{"MEDIACORE_SWITCHES", "startBits=alpha|delta (reactive),startNumber=0x20"}});
    EXPECT_THAT(given.m_out, HasSubstr("bits=5 number=32\n"));
    EXPECT_THAT(given.m_err, Not(HasSubstr("MEDIACORE_SWITCHES")));
}

TEST(SwitchEnvironmentTest, AWrongEntryIsToldOnceBeforeTheProcessEndsAndTheOthersHold) {
    const ChildResult wrong =
        runChild("switches", {{"MEDIACORE_SWITCHES", "startBits=epsilon,startNumbr=1,startNumber=8,nonsense"}});
    EXPECT_EQ(wrong.m_exit, 0);
    EXPECT_THAT(wrong.m_out, HasSubstr("bits=0 number=8\n"));
    EXPECT_THAT(wrong.m_err, HasSubstr("warning"));
    EXPECT_THAT(wrong.m_err, HasSubstr("MEDIACORE_SWITCHES: startBits has no bit named \"epsilon\"\n"));
    const std::string unknown = "MEDIACORE_SWITCHES: no switch is named \"startNumbr\"\n";
    EXPECT_THAT(wrong.m_err, HasSubstr(unknown));
    EXPECT_EQ(wrong.m_err.find(unknown), wrong.m_err.rfind(unknown));
    EXPECT_THAT(wrong.m_err, HasSubstr("\"nonsense\" isn't of the form name=value\n"));
}
