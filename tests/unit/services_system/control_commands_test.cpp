#include "services/system/control_commands.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "collecting_sink.h"
#include "services/system/debugger_on.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

bool echo(const ControlRequest& request, ControlReply& reply) {
    const char* const text = request.getText("text");
    if (text == nullptr) return reply.fail("nothing to %s", "echo");
    reply.result().string(text);
    return true;
}

bool saySilence(const ControlRequest&, ControlReply&) { return true; }

class ControlCommandsTest : public testing::Test {
protected:
    static std::string run(const std::string& line) { return ControlCommands::execute(line); }

    DebuggerOn m_bits{"ctlBits", 3, "cache activity", "ctor", "morph"};
    DebuggerOn m_number{"ctlNumber", 5, DebuggerTypes::Init::Value};
};

}  // namespace

TEST_F(ControlCommandsTest, TheReplyCarriesTheRequestsId) {
    EXPECT_THAT(run(R"({"id":1,"cmd":"version"})"), StartsWith(R"({"id":1,"ok":true,"result":")"));
    EXPECT_THAT(run(R"({"id":"a\"b","cmd":"version"})"), StartsWith(R"({"id":"a\"b","ok":true,)"));
    EXPECT_THAT(run(R"({"cmd":"version"})"), StartsWith(R"({"id":null,"ok":true,)"));
    EXPECT_THAT(run(R"({"id":12345678901234567890123,"cmd":"nope"})"),
                StartsWith(R"({"id":12345678901234567890123,"ok":false,)"));
    EXPECT_EQ(run(R"({"id":[1],"cmd":"version"})"),
              R"({"id":null,"ok":false,"error":"\"id\" is neither a number nor a text"})");
}

TEST_F(ControlCommandsTest, ALineThatIsntARequestIsRefusedWithTheReason) {
    EXPECT_EQ(run("hello"), R"({"id":null,"ok":false,"error":"the line isn't JSON: no value can begin at byte 0"})");
    EXPECT_EQ(run("[1]"), R"({"id":null,"ok":false,"error":"the line isn't an object"})");
    EXPECT_EQ(run(R"({"id":4})"), R"({"id":4,"ok":false,"error":"\"cmd\" is missing, or no text"})");
    EXPECT_EQ(run(R"({"id":4,"cmd":[]})"), R"({"id":4,"ok":false,"error":"\"cmd\" is missing, or no text"})");
    EXPECT_EQ(run(R"({"id":4,"cmd":"fly"})"),
              R"({"id":4,"ok":false,"error":"no command is named \"fly\"; \"help\" lists them"})");
}

TEST_F(ControlCommandsTest, HelpListsEveryCommandWithOneLine) {
    const std::string help = run(R"({"id":1,"cmd":"help"})");
    for (const char* name :
         {"help", "version", "switch.list", "switch.get", "switch.set", "switch.setbit", "switch.clear", "log.ring"}) {
        EXPECT_THAT(help, HasSubstr(std::string("\"") + name + "\":\""));
    }
    EXPECT_THAT(help, testing::Not(HasSubstr("\n")));
}

TEST_F(ControlCommandsTest, ASwitchIsShownWithValueAndBits) {
    m_bits.set(5);
    EXPECT_EQ(run(R"({"id":1,"cmd":"switch.get","name":"ctlBits"})"),
              R"({"id":1,"ok":true,"result":{"name":"ctlBits","value":5,"on":["cache activity","morph"],)"
              R"("bits":["cache activity","ctor","morph"]}})");
    EXPECT_EQ(run(R"({"id":1,"cmd":"switch.get","name":"ctlNumber"})"),
              R"({"id":1,"ok":true,"result":{"name":"ctlNumber","value":5}})");
}

TEST_F(ControlCommandsTest, AllSwitchesAreListed) {
    const std::string list = run(R"({"id":1,"cmd":"switch.list"})");
    EXPECT_THAT(list, StartsWith(R"({"id":1,"ok":true,"result":[)"));
    EXPECT_THAT(list, EndsWith(R"({"name":"ctlNumber","value":5}]})"));
    EXPECT_THAT(list, HasSubstr(R"("name":"ctlBits","value":0,"on":[])"));
}

TEST_F(ControlCommandsTest, SwitchesAreSetByNamesAndNumbersAndTheCallbackRuns) {
    struct Listener {
        bool onChange(const DebugRecord& record) {
            m_value = record.changed().get();
            record.changed().clearBit(0);
            return true;
        }
        unsigned m_value = 0;
    } listener;
    const BridgeAnchor<Listener, const DebugRecord&, bool> anchor(listener, &Listener::onChange);
    m_bits.set(&anchor);
    EXPECT_THAT(run(R"({"id":1,"cmd":"switch.set","name":"ctlBits","value":"cache activity|ctor"})"),
                HasSubstr(R"("value":2,"on":["ctor"])"));
    EXPECT_EQ(listener.m_value, 3u);
    m_bits.set(nullptr);
    EXPECT_THAT(run(R"({"id":1,"cmd":"switch.set","name":"ctlNumber","value":9})"), HasSubstr(R"("value":9)"));
    EXPECT_EQ(m_number.get(), 9u);
    EXPECT_THAT(run(R"({"id":1,"cmd":"switch.set","name":"ctlNumber","value":"0x10"})"), HasSubstr(R"("value":16)"));
}

TEST_F(ControlCommandsTest, SingleBitsAreSetAndCleared) {
    EXPECT_THAT(run(R"({"id":1,"cmd":"switch.setbit","name":"ctlBits","bit":"morph"})"), HasSubstr(R"("value":4)"));
    EXPECT_THAT(run(R"({"id":1,"cmd":"switch.setbit","name":"ctlBits","bit":0})"), HasSubstr(R"("value":5)"));
    EXPECT_THAT(run(R"({"id":1,"cmd":"switch.clear","name":"ctlBits","bit":"morph"})"), HasSubstr(R"("value":1)"));
    EXPECT_THAT(run(R"({"id":1,"cmd":"switch.clear","name":"ctlBits"})"), HasSubstr(R"("value":0)"));
}

TEST_F(ControlCommandsTest, AWrongNameOrValueIsAnsweredWithTheReasonAndChangesNothing) {
    m_bits.set(1);
    const std::pair<const char*, const char*> cases[] = {
        {R"({"cmd":"switch.get"})", R"(\"name\" is missing, or no text)"},
        {R"({"cmd":"switch.get","name":"nope"})", R"(no switch is named \"nope\")"},
        {R"({"cmd":"switch.set","name":"ctlBits"})", R"(\"value\" is missing, or no text)"},
        {R"({"cmd":"switch.set","name":"ctlBits","value":true})", R"(\"value\" is missing, or no text)"},
        {R"({"cmd":"switch.set","name":"ctlBits","value":"fast"})", R"(ctlBits has no bit named \"fast\")"},
        {R"({"cmd":"switch.set","name":"ctlBits","value":8})",
         R"(ctlBits: \"8\" sets bits above the last, which is 2)"},
        {R"({"cmd":"switch.set","name":"ctlNumber","value":-1})", R"(ctlNumber: \"-1\" isn't a number)"},
        {R"({"cmd":"switch.set","name":"ctlNumber","value":1.5})", R"(ctlNumber: \"1.5\" isn't a number)"},
        {R"({"cmd":"switch.setbit","name":"ctlBits"})", R"(\"bit\" is missing, or no text)"},
        {R"({"cmd":"switch.setbit","name":"ctlBits","bit":3})", "ctlBits has no bit 3: its bits are 0 to 2"},
        {R"({"cmd":"switch.clear","name":"ctlBits","bit":[]})", R"(\"bit\" is missing, or no text)"},
        {R"({"cmd":"switch.clear","name":"ctlBits","bit":"x"})", R"(ctlBits has no bit named \"x\")"},
        {R"({"cmd":"log.ring","count":"all"})", R"(\"count\" isn't a whole number)"},
        {R"({"cmd":"log.ring","level":"loud"})", R"(\"loud\" is none of error, warning, info, debug)"},
        {R"({"cmd":"log.ring","level":{}})", R"(\"level\" is missing, or no text)"},
    };
    for (const auto& [line, reason] : cases) {
        EXPECT_THAT(run(line), StartsWith(std::string(R"({"id":null,"ok":false,"error":")") + reason)) << line;
    }
    EXPECT_EQ(m_bits.get(), 1u);
    EXPECT_EQ(m_number.get(), 5u);
}

TEST_F(ControlCommandsTest, TheLogRingGivesTheLastMessages) {
    CollectingSink sink;
    errorMsg("first of three\n");
    infoMsg("second \"of\" three\n");
    debugMsg("third of three\n");
    const std::string two = run(R"({"id":1,"cmd":"log.ring","count":2})");
    EXPECT_THAT(two, StartsWith(R"({"id":1,"ok":true,"result":[{"time":)"));
    EXPECT_THAT(two, HasSubstr(R"("text":"second \"of\" three"},{"time":)"));
    EXPECT_THAT(two, EndsWith(R"("text":"third of three"}]})"));
    EXPECT_THAT(two, testing::Not(HasSubstr("first of three")));
    EXPECT_THAT(run(R"({"id":1,"cmd":"log.ring","count":1,"level":"error"})"),
                EndsWith(R"("text":"first of three"}]})"));
    EXPECT_EQ(run(R"({"id":1,"cmd":"log.ring","count":0})"), R"({"id":1,"ok":true,"result":[]})");
}

TEST_F(ControlCommandsTest, OtherRoomsAddTheirCommands) {
    static const bool s_echo = ControlCommands::add("test.echo", "gives back its text", &echo);
    static const bool s_silent = ControlCommands::add("test.silent", "says nothing", &saySilence);
    ASSERT_TRUE(s_echo);
    ASSERT_TRUE(s_silent);
    EXPECT_EQ(run(R"({"id":1,"cmd":"test.echo","text":"hi"})"), R"({"id":1,"ok":true,"result":"hi"})");
    EXPECT_EQ(run(R"({"id":1,"cmd":"test.echo"})"), R"({"id":1,"ok":false,"error":"nothing to echo"})");
    EXPECT_EQ(run(R"({"id":1,"cmd":"test.silent"})"), R"({"id":1,"ok":true,"result":null})");
    EXPECT_THAT(run(R"({"id":1,"cmd":"help"})"), HasSubstr(R"("test.echo":"gives back its text")"));
}

TEST_F(ControlCommandsTest, ANameIsGivenOnce) {
    EXPECT_FALSE(ControlCommands::add("help", "mine", [](const ControlRequest&, ControlReply&) { return true; }));
}
