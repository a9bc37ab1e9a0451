// string_test.cpp - zString.
#include "loam/string.h"

#include <gtest/gtest.h>

#include <limits>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace {

using namespace std::string_view_literals;

constexpr std::uint32_t k_to_nul = zString::k_to_nul;

TEST(String, IsNeverNull) {
    EXPECT_STREQ(zString().CString(), "");
    EXPECT_STREQ(zString(static_cast<const char*>(nullptr)).CString(), "");
    EXPECT_STREQ(zString(static_cast<const char16_t*>(nullptr), 3).CString(), "");
    zString assigned("x");
    assigned = static_cast<const char*>(nullptr);
    EXPECT_STREQ(assigned.CString(), "");
    EXPECT_TRUE(assigned.Empty());
}

TEST(String, CopiesExactlyTheLengthAsked) {
    EXPECT_EQ(zString("abcdef", 3).View(), "abc");
    EXPECT_EQ(zString("ab\0cd", 5).View(), "ab\0cd"sv);
    EXPECT_EQ(zString("abc", 0).View(), "");
}

TEST(String, AllOnesMeansUpToTheNul) {
    EXPECT_EQ(zString("ab\0cd", k_to_nul).View(), "ab");
    EXPECT_EQ(zString("ab", static_cast<std::uint32_t>(-1)).View(), "ab");
    zString text("x");
    text.AddToEnd("yz\0!", k_to_nul);
    EXPECT_EQ(text.View(), "xyz");
}

TEST(String, KeepsNulsThroughEveryCopy) {
    const zString text("a\0b", 3);
    zString copy(text);
    zString assigned;
    assigned = text;
    copy += assigned;
    EXPECT_EQ(copy.Length(), 6u);
    EXPECT_EQ(copy.View(), "a\0ba\0b"sv);
    EXPECT_TRUE(assigned == text);
    EXPECT_FALSE(zString("a\0c", 3) == text);
}

struct wide_case {
    const char* name;
    std::u16string_view wide;
    std::string_view utf8;
};
void PrintTo(const wide_case& c, std::ostream* out) { *out << c.name; }

constexpr wide_case k_wide_cases[] = {
    {"Ascii", u"abc", "abc"},
    {"TwoBytes", u"\u00e9", "\xc3\xa9"},
    {"ThreeBytes", u"\u20ac", "\xe2\x82\xac"},
    {"Pair", u"\U0001F600", "\xf0\x9f\x98\x80"},
    {"LoneHigh", u"a\xD83Dz", "a\xef\xbf\xbdz"},
    {"LoneLow", u"a\xDE00z", "a\xef\xbf\xbdz"},
    {"HighAtTheEnd", u"a\xD83D", "a\xef\xbf\xbd"},
    {"TwoHighs", u"\xD83D\xD83D\xDE00", "\xef\xbf\xbd\xf0\x9f\x98\x80"},
    {"Swapped", u"\xDE00\xD83D", "\xef\xbf\xbd\xef\xbf\xbd"},
    {"Highest", u"\U0010FFFF", "\xf4\x8f\xbf\xbf"},
};

class WideTest : public testing::TestWithParam<wide_case> {};

TEST_P(WideTest, ConvertsWithMarksForHalves) {
    const wide_case& c = GetParam();
    EXPECT_EQ(zString(c.wide.data(), static_cast<std::int32_t>(c.wide.size())).View(), c.utf8);
    zString set("old");
    set.SetWideStr(c.wide.data(), static_cast<std::int32_t>(c.wide.size()));
    EXPECT_EQ(set.View(), c.utf8);
    EXPECT_EQ(zString(c.wide.data(), -1).View(), c.utf8);
}

// A converter that reads past its length would join the halves again.
TEST_P(WideTest, CutAnywhereNeverReadsOn) {
    const wide_case& c = GetParam();
    for (std::size_t length = 0; length <= c.wide.size(); ++length) {
        const std::u16string alone(c.wide.substr(0, length));
        EXPECT_EQ(zString(c.wide.data(), static_cast<std::int32_t>(length)).View(),
                  zString(alone.data(), static_cast<std::int32_t>(length)).View());
    }
}

INSTANTIATE_TEST_SUITE_P(All, WideTest, testing::ValuesIn(k_wide_cases),
                         [](const auto& test) { return std::string(test.param.name); });

struct number_case {
    const char* name;
    const char* text;
    std::int32_t as32;
    std::int64_t as64;
};
void PrintTo(const number_case& c, std::ostream* out) { *out << c.name; }

constexpr std::int32_t k_max32 = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t k_min32 = std::numeric_limits<std::int32_t>::min();
constexpr std::int64_t k_max64 = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t k_min64 = std::numeric_limits<std::int64_t>::min();

constexpr number_case k_number_cases[] = {
    {"Empty", "", 0, 0},
    {"Words", "abc", 0, 0},
    {"Plain", "42", 42, 42},
    {"Signed", "-7", -7, -7},
    {"Plus", "+7", 7, 7},
    {"BlanksBefore", " \t12", 12, 12},
    {"RubbishBehind", "12px", 12, 12},
    {"SignAlone", "-", 0, 0},
    {"TwoSigns", "--1", 0, 0},
    {"OctalLooks", "010", 10, 10},
    {"HexLooks", "0x10", 0, 0},
    {"Max32", "2147483647", k_max32, 2147483647},
    {"OverMax32", "2147483648", k_max32, 2147483648},
    {"Min32", "-2147483648", k_min32, -2147483648LL},
    {"UnderMin32", "-2147483649", k_min32, -2147483649LL},
    {"Max64", "9223372036854775807", k_max32, k_max64},
    {"OverMax64", "9223372036854775808", k_max32, k_max64},
    {"UnderMin64", "-9223372036854775809", k_min32, k_min64},
};

class NumberTest : public testing::TestWithParam<number_case> {};

TEST_P(NumberTest, ReadsTheDecimalNumberAtTheFront) {
    const zString text(GetParam().text);
    EXPECT_EQ(text.AsInt32(), GetParam().as32);
    EXPECT_EQ(text.AsInt64(), GetParam().as64);
}

INSTANTIATE_TEST_SUITE_P(All, NumberTest, testing::ValuesIn(k_number_cases),
                         [](const auto& test) { return std::string(test.param.name); });

// What the operators take and return is laid down for other libraries, so a change of it is a
// fault.
template <typename argument>
using assigned = decltype(std::declval<zString&>() = std::declval<argument>());
template <typename argument>
using appended = decltype(std::declval<zString&>() += std::declval<argument>());

static_assert(std::is_same_v<assigned<const char*>, const zString&>);
static_assert(std::is_same_v<assigned<const zString&>, const zString&>);
static_assert(std::is_same_v<assigned<std::string>, const zString&>);
static_assert(std::is_same_v<appended<const char*>, const zString&>);
static_assert(std::is_same_v<appended<const zString&>, const zString&>);
static_assert(std::is_same_v<appended<std::string>, const zString&>);

TEST(String, IsReplacedByAnotherStringAndByItself) {
    zString text("before");
    const zString other("after");
    EXPECT_EQ(&(text = other), &text);
    EXPECT_EQ(text.View(), "after");
    const zString& same = text;
    text = same;
    EXPECT_EQ(text.View(), "after");
    EXPECT_EQ(other.View(), "after");
}

TEST(String, CanBeAppendedToItselfAndFromItsOwnBytes) {
    zString text("abc");
    text += text;
    EXPECT_EQ(text.View(), "abcabc");
    text.AddToEnd(text.CString() + 1, 4);
    EXPECT_EQ(text.View(), "abcabcbcab");
    text.Prepend(text.CString(), 2);
    EXPECT_EQ(text.View(), "ababcabcbcab");
    text.SetString(text.CString() + 3, 3);
    EXPECT_EQ(text.View(), "bca");
    text = text.CString() + 1;
    EXPECT_EQ(text.View(), "ca");
}

TEST(String, AppendsTextsOfEveryKind) {
    zString text;
    text += "a";
    text += zString("b");
    text += std::string("c\0d", 3);
    text.AddToEnd(std::string("e"));
    text.Prepend("<", 1);
    EXPECT_EQ(text.View(), "<abc\0de"sv);
    text = std::string("n\0w", 3);
    EXPECT_EQ(text.Length(), 3u);
}

TEST(String, FormatsIntoItselfFromItself) {
    zString text("abc");
    text.sprintf("%s-%d-%s", text.CString(), 7, text.CString());
    EXPECT_EQ(text.View(), "abc-7-abc");
    const std::string longer(100000, 'x');
    text.sprintf("[%s]", longer.c_str());
    EXPECT_EQ(text.Length(), longer.size() + 2);
}

TEST(String, GivesRoomToWriteAndCountsWhatWasWritten) {
    zString text("ab");
    char* room = text.Preallocate(64);
    EXPECT_STREQ(room, "ab");
    room[0] = 'x';
    room[2] = 'y';
    EXPECT_EQ(text.View(), "xby");
    text.Preallocate(1);
    EXPECT_EQ(text.View(), "xby");
    text.Preallocate(-5);
    EXPECT_EQ(text.View(), "xby");
    room = text.Preallocate(8);
    room[3] = '\0';
    room[4] = 'z';
    text.SetLength(5);
    EXPECT_EQ(text.View(), "xby\0z"sv);
}

TEST(String, SplitsAtTheFirstSeparatorOnly) {
    zString text("id:a:b");
    zString rest("old");
    EXPECT_EQ(&text.SplitAtFirst(&rest, ":"), &text);
    EXPECT_EQ(text.View(), "id");
    EXPECT_EQ(rest.View(), "a:b");
}

TEST(String, WithoutASeparatorTheOtherHalfIsEmpty) {
    zString text("plain");
    zString rest("old");
    text.SplitAtFirst(&rest, ":");
    EXPECT_EQ(text.View(), "plain");
    EXPECT_EQ(rest.View(), "");
    rest = "old";
    text.SplitAtFirst(&rest, "");
    EXPECT_EQ(text.View(), "plain");
    EXPECT_EQ(rest.View(), "");
    text.SplitAtFirst(nullptr, "a");
    EXPECT_EQ(text.View(), "pl");
}

TEST(String, SplitsAtTheEnds) {
    zString front(":x");
    zString rest;
    front.SplitAtFirst(&rest, ":");
    EXPECT_EQ(front.View(), "");
    EXPECT_EQ(rest.View(), "x");
    zString back("x::");
    back.SplitAtFirst(&rest, "::");
    EXPECT_EQ(back.View(), "x");
    EXPECT_EQ(rest.View(), "");
}

TEST(String, ComparesWithoutCaseAndNoFurtherThanAsked) {
    EXPECT_EQ(zString::strncasecmp("Content-Type", "content-TYPE", 12), 0);
    EXPECT_EQ(zString::strncasecmp("abcX", "ABCy", 3), 0);
    EXPECT_LT(zString::strncasecmp("a", "B", 1), 0);
    EXPECT_GT(zString::strncasecmp("ab", "A", 2), 0);
    EXPECT_LT(zString::strncasecmp("a", "ab", 9), 0);
    EXPECT_EQ(zString::strncasecmp("a", "b", 0), 0);
    EXPECT_EQ(zString::strncasecmp(nullptr, "", 4), 0);
    // Letters outside ASCII have no case here, whatever the locale.
    EXPECT_NE(zString::strncasecmp("\xc3\xa9", "\xc3\x89", 2), 0);
    EXPECT_NE(zString::strncasecmp("[", "{", 1), 0);
}

TEST(String, MovingLeavesAnEmptyString) {
    zString from("text that is longer than any small buffer of a string");
    zString to(std::move(from));
    EXPECT_EQ(from.View(), "");  // NOLINT: that it can still be used is what is tested
    EXPECT_EQ(to.Length(), 53u);
}

}  // namespace
