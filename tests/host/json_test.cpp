// tests/host/json_test.cpp - JSON that others send: what is refused, and what the rest means; and
// what is written.
#include "host/app/json.h"

#include <gtest/gtest.h>

#include <limits>
#include <ostream>
#include <string>

namespace pennywort::host {
namespace {

struct bad_json {
    const char* name;
    const char* text;
};
void PrintTo(const bad_json& c, std::ostream* out) { *out << c.name; }

constexpr bad_json k_bad[] = {
    {"Empty", ""},
    {"List", "[]"},
    {"Unfinished", "{\"a\":1"},
    {"UnfinishedText", "{\"a\":\"b"},
    {"UnfinishedEscape", "{\"a\":\"\\"},
    {"TrailingComma", "{\"a\":1,}"},
    {"NoColon", "{\"a\" 1}"},
    {"NameWithoutQuotes", "{a:1}"},
    {"TwoObjects", "{}{}"},
    {"SameNameTwice", "{\"a\":1,\"a\":2}"},
    {"ObjectInside", "{\"a\":{}}"},
    {"ListInside", "{\"a\":[1]}"},
    {"NoNumber", "{\"a\":1-2}"},
    {"HugeNumber", "{\"a\":1e999}"},
    {"TinyNumber", "{\"a\":1e-999}"},
    {"LeadingZero", "{\"a\":01}"},
    {"NegativeLeadingZero", "{\"a\":-00}"},
    {"PointAtTheEnd", "{\"a\":1.}"},
    {"PointInFront", "{\"a\":.5}"},
    {"PointAndExponent", "{\"a\":1.e5}"},
    {"Plus", "{\"a\":+1}"},
    {"MinusAlone", "{\"a\":-}"},
    {"NoExponent", "{\"a\":1e+}"},
    {"NumberEndsTheText", "{\"a\":1"},
    {"Infinity", "{\"a\":-Infinity}"},
    {"UnknownWord", "{\"a\":yes}"},
    {"UnknownEscape", "{\"a\":\"\\x41\"}"},
    {"ShortCode", "{\"a\":\"\\u12\"}"},
    {"Nul", "{\"a\":\"\\u0000\"}"},
    {"HalfPair", "{\"a\":\"\\ud83d\"}"},
    {"WrongPair", "{\"a\":\"\\ud83d\\u0041\"}"},
    {"LowHalfFirst", "{\"a\":\"\\ude00\"}"},
    {"HalfCharacter", "{\"a\":\"\xC3\"}"},
    {"OverlongCharacter", "{\"a\":\"\xC0\xAF\"}"},
    {"HalfPairAsBytes", "{\"a\":\"\xED\xA0\xBD\"}"},
    {"NameIsNoUtf8", "{\"\xFF\":1}"},
    {"ByteOrderMark", "\xEF\xBB\xBF{}"},
    {"NoBreakSpaceBehind", "{}\xC2\xA0"},
    {"SameNameEscaped", "{\"a\":1,\"\\u0061\":2}"},
    {"ControlCharacter", "{\"a\":\"b\nc\"}"},
};

class BadJson : public testing::TestWithParam<bad_json> {};

TEST_P(BadJson, IsRefusedWithAReason) {
    std::string reason;
    EXPECT_FALSE(json_object::parse(GetParam().text, reason));
    EXPECT_FALSE(reason.empty());
}

INSTANTIATE_TEST_SUITE_P(All, BadJson, testing::ValuesIn(k_bad),
                         [](const auto& one) { return std::string(one.param.name); });

TEST(JsonObject, GivesEachMemberByItsKindOnly) {
    std::string reason;
    const auto object = json_object::parse(
        " { \"t\" : \"x\" , \"n\":-1.5e1, \"b\":true,\"f\":false,\"z\":null } ", reason);
    ASSERT_TRUE(object) << reason;
    EXPECT_EQ(*object->text("t"), "x");
    EXPECT_EQ(*object->number("n"), -15);
    EXPECT_TRUE(*object->truth("b"));
    EXPECT_FALSE(*object->truth("f"));
    EXPECT_EQ(object->text("n"), nullptr);
    EXPECT_EQ(object->text("z"), nullptr);
    EXPECT_EQ(object->truth("missing"), nullptr);
}

TEST(JsonObject, TakesEveryFormOfANumber) {
    std::string reason;
    const auto object = json_object::parse(
        "{\"a\":0,\"b\":-0,\"c\":-0.25,\"d\":10E-2,\"e\":1e+2,\"f\":0e0,\"g\":0.0e-999}", reason);
    ASSERT_TRUE(object) << reason;
    EXPECT_EQ(*object->number("a"), 0);
    EXPECT_EQ(*object->number("b"), 0);
    EXPECT_EQ(*object->number("c"), -0.25);
    EXPECT_EQ(*object->number("d"), 0.1);
    EXPECT_EQ(*object->number("e"), 100);
    EXPECT_EQ(*object->number("f"), 0);
    EXPECT_EQ(*object->number("g"), 0);
}

TEST(JsonObject, UndoesEscapes) {
    std::string reason;
    const auto object = json_object::parse(
        "{\"a\":\"\\\"\\\\\\/\\b\\f\\n\\r\\t\\u00e9\\u20ac\\ud83d\\ude00\"}", reason);
    ASSERT_TRUE(object) << reason;
    EXPECT_EQ(*object->text("a"), "\"\\/\b\f\n\r\t\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
}

TEST(JsonObject, IsRefusedAtANulByte) {
    std::string reason;
    EXPECT_FALSE(json_object::parse(std::string_view("{}\0", 3), reason));
    EXPECT_FALSE(json_object::parse(std::string_view("{\"a\\u0000\":1}"), reason));
    EXPECT_FALSE(json_object::parse(std::string_view("\0{}", 3), reason));
    EXPECT_FALSE(reason.empty());
}

// Deeper than any stack, and as large as a request may be.
TEST(JsonObject, IsRefusedAtItsFirstFaultHoweverLongItIs) {
    constexpr std::size_t k_request = 1 << 20;
    std::string reason;
    EXPECT_FALSE(json_object::parse(std::string(k_request, '['), reason));
    EXPECT_EQ(reason, "the JSON holds a list");
    std::string deep;
    while (deep.size() < k_request) deep += "{\"a\":";
    EXPECT_FALSE(json_object::parse(deep, reason));
    EXPECT_EQ(reason, "the JSON holds an object in an object");
    EXPECT_FALSE(json_object::parse("{\"a\":\"" + std::string(k_request, 'x'), reason));
}

TEST(JsonText, EscapesWhatWouldEndTheTextOrTheLine) {
    EXPECT_EQ(json_text("a\"b\\c"), R"("a\"b\\c")");
    EXPECT_EQ(json_text("a\nb\rc\td"), R"("a\nb\rc\td")");
    EXPECT_EQ(json_text(std::string("\0\x01\x1f", 3)), R"("\u0000\u0001\u001f")");
}

// A terminal obeys these too: U+009B begins a command as ESC and a bracket do.
TEST(JsonText, EscapesTheControlCharactersBeyondAscii) {
    EXPECT_EQ(json_text("\x7F\xC2\x80\xC2\x9B[\xC2\x9F"), R"("\u007f\u0080\u009b[\u009f")");
    EXPECT_EQ(json_text("\xC2\xA0\xC3\x9B\xE2\x82\x9B"), "\"\xC2\xA0\xC3\x9B\xE2\x82\x9B\"");
    EXPECT_EQ(json_text({{"\xC2\x9B", 1}}), R"({"\u009b":1})");
}

TEST(JsonText, KeepsUtf8AndReplacesWhatIsNone) {
    EXPECT_EQ(json_text("ä€😀"), "\"ä€😀\"");
    const std::string bad = "\xEF\xBF\xBD";
    for (const char* broken : {"\xFF", "\x80", "\xC3", "\xE2\x82", "\xF0\x9F\x98"}) {
        EXPECT_EQ(json_text(broken).substr(0, 4), "\"" + bad) << broken;
    }
    EXPECT_EQ(json_text("\xC0\xAF"), "\"" + bad + bad + "\"");            // overlong
    EXPECT_EQ(json_text("\xED\xA0\x80"), "\"" + bad + bad + bad + "\"");  // half a pair
    EXPECT_EQ(json_text("\xF4\x90\x80\x80").size(), 2 + 4 * bad.size());  // past the last
    EXPECT_EQ(json_text("\xC3(a"), "\"" + bad + "(a\"");
}

TEST(JsonText, WritesMembersInTheirOrder) {
    EXPECT_EQ(json_text(json::object()), "{}");
    const json line = {{"count", std::uint64_t(18446744073709551615ull)},
                       {"na\"me", "x"},
                       {"s", rounded_to(1.26, 1)}};
    EXPECT_EQ(json_text(line), R"({"count":18446744073709551615,"na\"me":"x","s":1.3})");
}

TEST(JsonText, WhatIsNoNumberIsNull) {
    const json line = {{"a", rounded_to(std::numeric_limits<double>::quiet_NaN(), 1)},
                       {"b", std::numeric_limits<double>::infinity()},
                       {"c", rounded_to(std::numeric_limits<double>::max(), 0)}};
    EXPECT_EQ(json_text(line).substr(0, 24), R"({"a":null,"b":null,"c":1)");
}

}  // namespace
}  // namespace pennywort::host
