// text_test.cpp - core/text: bytes, UTF-8, percent coding and numbers.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <ostream>
#include <string>
#include <string_view>

#include "core/text/ascii.h"
#include "core/text/numbers.h"
#include "core/text/percent.h"
#include "core/text/utf8.h"

namespace pennywort::text {
namespace {

TEST(Ascii, ClassesHoldForEachByte) {
    for (int byte = 0; byte < 256; ++byte) {
        const char c = static_cast<char>(byte);
        SCOPED_TRACE(byte);
        EXPECT_EQ(is_space(c), byte != 0 && k_space.find(c) != std::string_view::npos);
        EXPECT_EQ(is_blank(c), c == ' ' || c == '\t');
        EXPECT_EQ(is_digit(c), byte >= 48 && byte <= 57);
        EXPECT_EQ(is_letter(c), (byte >= 65 && byte <= 90) || (byte >= 97 && byte <= 122));
        EXPECT_EQ(is_control(c), byte < 32 || byte == 127);
        EXPECT_EQ(lower(c), byte >= 65 && byte <= 90 ? static_cast<char>(byte + 32) : c);
        const auto digit = std::string_view("0123456789abcdef").find(lower(c));
        EXPECT_EQ(hex_value(c), digit == std::string_view::npos ? -1 : static_cast<int>(digit));
    }
}

TEST(Ascii, ComparesWithoutRegardToCase) {
    EXPECT_TRUE(equal_ignoring_case("Content-LENGTH", "content-length"));
    EXPECT_TRUE(equal_ignoring_case("", ""));
    EXPECT_FALSE(equal_ignoring_case("a", "ab"));
    EXPECT_FALSE(equal_ignoring_case("@", "`"));
    EXPECT_FALSE(equal_ignoring_case("[", "{"));
    EXPECT_FALSE(equal_ignoring_case("\xc4", "\xe4"));
    EXPECT_TRUE(begins_ignoring_case("GETx", "get"));
    EXPECT_FALSE(begins_ignoring_case("ge", "get"));
}

TEST(Ascii, TrimsBothEndsAndNothingBetween) {
    EXPECT_EQ(trimmed(" \t\r\n\v\fa b \n"), "a b");
    EXPECT_EQ(trimmed(" \t "), "");
    EXPECT_EQ(trimmed(""), "");
    EXPECT_EQ(trimmed("\r a \r", k_blank), "\r a \r");
    EXPECT_EQ(trimmed("\t a\v ", k_blank), "a\v");
    EXPECT_EQ(lower(std::string_view("AbZ\xc4")), "abz\xc4");
}

struct piece_case {
    const char* name;
    std::string_view text;
    std::size_t bytes;
    char32_t point;
    bool is_valid;
};
void PrintTo(const piece_case& c, std::ostream* out) { *out << c.name; }

constexpr piece_case k_pieces[] = {
    {"Nul", std::string_view("\0x", 2), 1, 0, true},
    {"Ascii", "ab", 1, 'a', true},
    {"Two", "\xc3\xa9x", 2, 0xe9, true},
    {"TwoLowest", "\xc2\x80", 2, 0x80, true},
    {"Three", "\xe2\x82\xac", 3, 0x20ac, true},
    {"ThreeLowest", "\xe0\xa0\x80", 3, 0x800, true},
    {"BelowTheSurrogates", "\xed\x9f\xbf", 3, 0xd7ff, true},
    {"AboveTheSurrogates", "\xee\x80\x80", 3, 0xe000, true},
    {"Four", "\xf0\x9f\x8e\xa5", 4, 0x1f3a5, true},
    {"FourLowest", "\xf0\x90\x80\x80", 4, 0x10000, true},
    {"Highest", "\xf4\x8f\xbf\xbf", 4, 0x10ffff, true},
    {"Empty", "", 0, k_replacement, false},
    {"NoLead", "\x80x", 1, k_replacement, false},
    {"OverlongTwo", "\xc1\xbf", 1, k_replacement, false},
    {"OverlongThree", "\xe0\x9f\xbf", 1, k_replacement, false},
    {"OverlongFour", "\xf0\x8f\xbf\xbf", 1, k_replacement, false},
    {"HighSurrogate", "\xed\xa0\x80", 1, k_replacement, false},
    {"PastTheLast", "\xf4\x90\x80\x80", 1, k_replacement, false},
    {"NoSuchLead", "\xf5\x80\x80\x80", 1, k_replacement, false},
    {"CutOff", "\xe2\x82", 2, k_replacement, false},
    {"BrokenOff", "\xf0\x9f\x8e?", 3, k_replacement, false},
};

class Utf8PieceTest : public testing::TestWithParam<piece_case> {};

TEST_P(Utf8PieceTest, IsTheFrontOfTheText) {
    const piece_case& c = GetParam();
    const utf8_piece front = first_character(c.text);
    EXPECT_EQ(front.bytes, c.bytes);
    EXPECT_EQ(front.point, c.point);
    EXPECT_EQ(front.is_valid, c.is_valid);
}

// Cut anywhere, a character is one piece that is not valid.
TEST_P(Utf8PieceTest, CutAnywhereIsOnePiece) {
    const piece_case& c = GetParam();
    if (!c.is_valid) return;
    for (std::size_t cut = 1; cut < c.bytes; ++cut) {
        const utf8_piece front = first_character(c.text.substr(0, cut));
        EXPECT_EQ(front.bytes, cut);
        EXPECT_FALSE(front.is_valid);
    }
}

TEST_P(Utf8PieceTest, WrittenAgainIsTheSameBytes) {
    const piece_case& c = GetParam();
    std::string written;
    append_utf8(written, c.point);
    EXPECT_EQ(written, c.is_valid ? c.text.substr(0, c.bytes) : k_replacement_text);
}

INSTANTIATE_TEST_SUITE_P(All, Utf8PieceTest, testing::ValuesIn(k_pieces),
                         [](const auto& one) { return std::string(one.param.name); });

TEST(Utf8, EachPointComesBack) {
    for (char32_t point = 0; point <= 0x10ffff; ++point) {
        if (point >= 0xd800 && point <= 0xdfff) continue;
        std::string written;
        append_utf8(written, point);
        const utf8_piece front = first_character(written);
        ASSERT_TRUE(front.is_valid && front.point == point && front.bytes == written.size())
            << static_cast<std::uint32_t>(point);
    }
}

TEST(Utf8, WhatIsNoCharacterIsReplaced) {
    for (const char32_t point : {0xd800, 0xdfff, 0x110000}) {
        std::string written;
        append_utf8(written, point);
        EXPECT_EQ(written, k_replacement_text);
    }
}

TEST(Utf8, TextsAreValidAsAWhole) {
    EXPECT_TRUE(is_utf8(""));
    EXPECT_TRUE(is_utf8("a\xc3\xa9\xe2\x82\xac\xf0\x9f\x8e\xa5"));
    EXPECT_FALSE(is_utf8("a\xc3\xa9\xe2\x82"));
    EXPECT_FALSE(is_utf8("\xffz"));
}

TEST(PercentDecoded, RefusesWhatIsNoByte) {
    for (const char* text : {"%", "a%", "%1", "%g1", "%1g", "%-1", "%+1", "%0x", "% 1", "%%41"}) {
        EXPECT_FALSE(percent_decoded(text)) << text;
    }
}

TEST(PercentDecoded, DecodesOnce) {
    EXPECT_EQ(percent_decoded("a%41%7eb"), "aA~b");
    EXPECT_EQ(percent_decoded("%2541"), "%41");
    EXPECT_EQ(percent_decoded("%00"), std::string(1, '\0'));
    EXPECT_EQ(percent_decoded("a+b"), "a+b");
    EXPECT_EQ(percent_decoded(""), "");
}

TEST(PercentDecoded, AsBrowsersDoLeavesWhatIsNoByte) {
    for (const char* text : {"%", "a%", "%1", "%g1", "%1g"}) {
        EXPECT_EQ(percent_decoded_as_browsers_do(text), text);
    }
    EXPECT_EQ(percent_decoded_as_browsers_do("%%41%c3%A9"), "%A\xc3\xa9");
}

TEST(PercentEncoded, EachByteComesBack) {
    std::string all;
    for (int byte = 0; byte < 256; ++byte) all += static_cast<char>(byte);
    EXPECT_EQ(percent_decoded(percent_encoded(all)), all);
    EXPECT_EQ(percent_decoded(percent_encoded(all, k_path_bytes)), all);
}

TEST(PercentEncoded, KeepsWhatItIsTold) {
    EXPECT_EQ(percent_encoded("aZ0-._~"), "aZ0-._~");
    EXPECT_EQ(percent_encoded("/a b%?#"), "%2Fa%20b%25%3F%23");
    EXPECT_EQ(percent_encoded("/a b%?#\xc3\xa9", k_path_bytes), "/a%20b%25%3F%23%C3%A9");
}

TEST(Numbers, AreTheWholeTextOrNone) {
    EXPECT_EQ(whole<std::int32_t>("-12"), -12);
    EXPECT_EQ(whole<std::int32_t>("007"), 7);
    EXPECT_EQ(whole<std::uint64_t>("18446744073709551615"), std::uint64_t(-1));
    EXPECT_EQ(whole<std::uint32_t>("fF", 16), 255u);
    for (const char* text : {"", " 1", "1 ", "+1", "1x", "0x1", "-", "--1", "1.0"}) {
        EXPECT_FALSE(whole<std::int32_t>(text)) << text;
    }
    EXPECT_FALSE(whole<std::uint32_t>("-1"));
    EXPECT_FALSE(whole<std::int32_t>("2147483648"));
    EXPECT_FALSE(digits<std::int32_t>("-0"));
    EXPECT_FALSE(digits<std::int32_t>(""));
    EXPECT_EQ(digits<std::int32_t>("2147483647"), 2147483647);
}

TEST(Numbers, BoundsAreWithin) {
    EXPECT_EQ(whole_between<int>("1", 1, 9), 1);
    EXPECT_EQ(whole_between<int>("9", 1, 9), 9);
    EXPECT_FALSE(whole_between<int>("0", 1, 9));
    EXPECT_FALSE(whole_between<int>("10", 1, 9));
    EXPECT_EQ(decimal_between("0.5", 0.5, 1), 0.5);
    EXPECT_FALSE(decimal_between("1.01", 0.5, 1));
}

TEST(Numbers, DecimalsAreFinite) {
    EXPECT_EQ(decimal("-1.5e3"), -1500);
    EXPECT_EQ(decimal(".5"), .5);
    for (const char* text : {"", "inf", "nan", "-inf", "1e999", "1,5", " 1", "1 ", "+1", "0x10"}) {
        EXPECT_FALSE(decimal(text)) << text;
    }
}

}  // namespace
}  // namespace pennywort::text
