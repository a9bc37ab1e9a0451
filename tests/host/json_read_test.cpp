// tests/host/json_read_test.cpp - JSON that others send: what is refused, and what the rest means.
#include "host/json_read.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>

namespace pennywort {
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
    {"UnknownWord", "{\"a\":yes}"},
    {"UnknownEscape", "{\"a\":\"\\x41\"}"},
    {"ShortCode", "{\"a\":\"\\u12\"}"},
    {"Nul", "{\"a\":\"\\u0000\"}"},
    {"HalfPair", "{\"a\":\"\\ud83d\"}"},
    {"WrongPair", "{\"a\":\"\\ud83d\\u0041\"}"},
    {"LowHalfFirst", "{\"a\":\"\\ude00\"}"},
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

TEST(JsonObject, UndoesEscapes) {
    std::string reason;
    const auto object = json_object::parse(
        "{\"a\":\"\\\"\\\\\\/\\b\\f\\n\\r\\t\\u00e9\\u20ac\\ud83d\\ude00\"}", reason);
    ASSERT_TRUE(object) << reason;
    EXPECT_EQ(*object->text("a"), "\"\\/\b\f\n\r\t\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
}

}  // namespace
}  // namespace pennywort
