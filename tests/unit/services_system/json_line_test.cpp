#include "services/system/json_line.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using Kind = JsonValue::Kind;

namespace {

// The reason why the text isn't taken; empty when it is.
std::string getReason(const std::string& text) {
    JsonValue value;
    std::string reason;
    return JsonValue::parse(text, value, reason) ? "" : reason;
}

JsonValue parse(const std::string& text) {
    JsonValue value;
    std::string reason;
    EXPECT_TRUE(JsonValue::parse(text, value, reason)) << reason;
    return value;
}

std::string nest(unsigned depth) { return std::string(depth, '[') + std::string(depth, ']'); }

}  // namespace

TEST(JsonValueTest, ReadsEveryKind) {
    EXPECT_EQ(parse("null").getKind(), Kind::Null);
    EXPECT_EQ(parse(" true ").getKind(), Kind::True);
    EXPECT_EQ(parse("false").getKind(), Kind::False);
    EXPECT_EQ(parse("-12.5e+3").getText(), "-12.5e+3");
    EXPECT_EQ(parse("\"a b\"").getText(), "a b");
    EXPECT_EQ(parse("[1, \"x\", []]").getItems().size(), 3u);
    const JsonValue object = parse("{\"a\":1 , \"b\":{\"c\":[true]}}");
    EXPECT_THAT(object.getKeys(), testing::ElementsAre("a", "b"));
    ASSERT_NE(object.find("b"), nullptr);
    ASSERT_NE(object.find("b")->find("c"), nullptr);
    EXPECT_EQ(object.find("b")->find("c")->getItems()[0].getKind(), Kind::True);
    EXPECT_EQ(object.find("c"), nullptr);
    EXPECT_EQ(parse("[]").find("a"), nullptr);
}

TEST(JsonValueTest, WholeNumbersAreReadWithoutLoss) {
    std::uint64_t number = 1;
    EXPECT_TRUE(parse("18446744073709551615").getUnsigned(number));
    EXPECT_EQ(number, 18446744073709551615u);
    EXPECT_FALSE(parse("18446744073709551616").getUnsigned(number));
    EXPECT_FALSE(parse("-1").getUnsigned(number));
    EXPECT_FALSE(parse("1.0").getUnsigned(number));
    EXPECT_FALSE(parse("\"1\"").getUnsigned(number));
    EXPECT_EQ(number, 18446744073709551615u);
}

TEST(JsonValueTest, EscapesBecomeTheirCharacters) {
    EXPECT_EQ(parse(R"("\"\\\/\b\f\n\r\t")").getText(), "\"\\/\b\f\n\r\t");
    EXPECT_EQ(parse(R"("\u0041\u00e4\u20AC\ud83d\uDE00")").getText(), "A\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80");
}

TEST(JsonValueTest, BytesThatArentUtf8PassInStrings) { EXPECT_EQ(parse("\"\xff\xc3\"").getText(), "\xff\xc3"); }

TEST(JsonValueTest, WhatIsntJsonIsRefusedWithReasonAndPlace) {
    EXPECT_EQ(getReason(""), "a value is missing at byte 0");
    EXPECT_EQ(getReason("   "), "a value is missing at byte 3");
    EXPECT_EQ(getReason("{} x"), "something stands behind the value at byte 3");
    EXPECT_EQ(getReason("{\"a\":1,}"), "a key is missing at byte 7");
    EXPECT_EQ(getReason("{\"a\" 1}"), "\":\" is missing at byte 5");
    EXPECT_EQ(getReason("{\"a\":1 2}"), "\",\" or \"}\" is missing at byte 7");
    EXPECT_EQ(getReason("{\"a\":1,\"a\":2}"), "a key comes twice at byte 10");
    EXPECT_EQ(getReason("[1 2]"), "\",\" or \"]\" is missing at byte 3");
    EXPECT_EQ(getReason("[1,]"), "no value can begin at byte 3");
    EXPECT_EQ(getReason("["), "a value is missing at byte 1");
    EXPECT_EQ(getReason("tru"), "an unknown word stands at byte 0");
    EXPECT_EQ(getReason("'a'"), "no value can begin at byte 0");
    EXPECT_EQ(getReason("01"), "a number begins with 0 at byte 2");
    EXPECT_EQ(getReason("-"), "no value can begin at byte 1");
    EXPECT_EQ(getReason("1."), "a digit is missing at byte 2");
    EXPECT_EQ(getReason("1e"), "a digit is missing at byte 2");
    EXPECT_EQ(getReason("+1"), "no value can begin at byte 0");
    EXPECT_EQ(getReason("\"a"), "the string has no end at byte 2");
    EXPECT_EQ(getReason("\"a\\"), "the string has no end at byte 3");
    EXPECT_EQ(getReason("\"\\x\""), "an unknown escape stands at byte 2");
    EXPECT_EQ(getReason("\"\x01\""), "a control character stands at byte 1");
    EXPECT_EQ(getReason("\"\\u12\""), "four hexadecimal digits are missing at byte 3");
    EXPECT_EQ(getReason("\"\\u-123\""), "four hexadecimal digits are missing at byte 3");
    EXPECT_EQ(getReason("\"\\u0000\""), "a zero character stands at byte 7");
    EXPECT_EQ(getReason("\"\\udc00\""), "half a character stands at byte 7");
    EXPECT_EQ(getReason("\"\\ud800x\""), "half a character stands at byte 7");
    EXPECT_EQ(getReason("\"\\ud800\\u0041\""), "half a character stands at byte 13");
    EXPECT_EQ(getReason(std::string("\0", 1)), "no value can begin at byte 0");
}

TEST(JsonValueTest, NestingStopsAtItsLimit) {
    EXPECT_EQ(getReason(nest(JsonValue::s_maxDepth)), "");
    EXPECT_EQ(getReason(nest(JsonValue::s_maxDepth + 1)), "the nesting is too deep at byte 16");
    EXPECT_EQ(getReason(std::string(60000, '[')), "the nesting is too deep at byte 16");
    std::string objects;
    for (int i = 0; i < 5000; ++i) {
        objects += "{\"a\":";
    }
    EXPECT_EQ(getReason(objects), "the nesting is too deep at byte 80");
}

TEST(JsonValueTest, AnObjectHasAtMost256Members) {
    std::string text = "{";
    for (int i = 0; i < 256; ++i) {
        text += (i == 0 ? "\"k" : ",\"k") + std::to_string(i) + "\":0";
    }
    EXPECT_EQ(getReason(text + "}"), "");
    EXPECT_THAT(getReason(text + ",\"k256\":0}"), testing::StartsWith("an object has too many members at byte "));
}

TEST(JsonWriterTest, SetsCommasAndEscapes) {
    JsonWriter out;
    out.beginObject().key("a").number(-1).key("b").beginArray().string("x\"\\\n\x01").boolean(true).null().endArray();
    out.key("c").beginObject().endObject().key("d").number(std::uint64_t{18446744073709551615u}).endObject();
    EXPECT_EQ(out.get(), R"({"a":-1,"b":["x\"\\\u000a\u0001",true,null],"c":{},"d":18446744073709551615})");
}

TEST(JsonWriterTest, BytesThatArentUtf8AreReplaced) {
    JsonWriter out;
    out.string("ok \xc3\xa4 \xff \xc3( \xed\xa0\x80 \xc0\x80 \xf4\x90\x80\x80 \xf0\x9f\x98\x80 \xe2\x82");
    const std::string bad = "\xef\xbf\xbd";
    EXPECT_EQ(out.get(), "\"ok \xc3\xa4 " + bad + " " + bad + "( " + bad + bad + bad + " " + bad + bad + " " + bad +
                             bad + bad + bad + " \xf0\x9f\x98\x80 " + bad + bad + "\"");
}

TEST(JsonWriterTest, WhatItWritesIsReadBack) {
    std::string text;
    for (int c = 1; c < 128; ++c) {
        text.push_back(static_cast<char>(c));
    }
    JsonWriter out;
    EXPECT_EQ(parse(out.string(text).get()).getText(), text);
}
