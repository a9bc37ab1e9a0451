// encoding_test.cpp - zBabel, zWideStr, base64 and zIDGenerator.
#include <gtest/gtest.h>

#include <cstring>
#include <ostream>
#include <set>
#include <string>
#include <string_view>

#include "loam/babel.h"
#include "loam/base64.h"
#include "loam/buffer.h"
#include "loam/id_generator.h"
#include "loam/wide_string.h"

namespace {

using namespace std::string_view_literals;

std::u16string units_of(const zBuffer& buffer) {
    std::u16string units(buffer.Length() / 2, u'\0');
    if (!units.empty()) std::memcpy(units.data(), buffer.Data(), units.size() * 2);
    return units;
}

struct utf8_case {
    const char* name;
    std::string_view text;
    bool valid;
    std::u16string_view wide;  // of the lenient conversion
};
void PrintTo(const utf8_case& c, std::ostream* out) { *out << c.name; }

constexpr utf8_case k_utf8_cases[] = {
    {"Empty", "", true, u""},
    {"Ascii", "a\0b"sv, true, u"a\0b"sv},
    {"TwoBytes", "\xc3\xa9", true, u"\u00e9"},
    {"ThreeBytes", "\xe2\x82\xac", true, u"\u20ac"},
    {"FourBytes", "\xf0\x9f\x98\x80", true, u"\U0001F600"},
    {"Highest", "\xf4\x8f\xbf\xbf", true, u"\U0010FFFF"},
    {"LoneContinuation", "a\x80z", false, u"a\uFFFDz"},
    {"CutShort", "a\xe2\x82", false, u"a\uFFFD"},
    {"CutByAscii", "\xe2\x82z", false, u"\uFFFDz"},
};

class Utf8Test : public testing::TestWithParam<utf8_case> {};

TEST_P(Utf8Test, StrictConversionTellsRightFromWrong) {
    const utf8_case& c = GetParam();
    zBuffer out(8, 0);
    const zStatus status = zBabel::ConvertToWide(
        out, c.text.data(), static_cast<std::int32_t>(c.text.size()), zBabel::k_utf8);
    EXPECT_EQ(status == 0, c.valid);
    EXPECT_EQ(units_of(out), c.valid ? c.wide : u"");
}

TEST_P(Utf8Test, LenientConversionMarksWhatIsWrong) {
    const utf8_case& c = GetParam();
    const zWideStr wide(c.text.data(), static_cast<std::int32_t>(c.text.size()));
    EXPECT_EQ(std::u16string_view(wide.WideStr(), wide.Length()), c.wide);
    EXPECT_EQ(wide.WideStr()[wide.Length()], u'\0');
}

// Valid text that is cut anywhere but between two characters is not valid.
TEST_P(Utf8Test, CutInsideACharacterIsRefused) {
    const utf8_case& c = GetParam();
    if (!c.valid) return;
    for (std::size_t length = 0; length < c.text.size(); ++length) {
        const bool inside = (static_cast<unsigned char>(c.text[length]) & 0xC0) == 0x80;
        zBuffer out;
        EXPECT_EQ(zBabel::ConvertToWide(out, c.text.data(), static_cast<std::int32_t>(length),
                                        zBabel::k_utf8) != 0,
                  inside);
    }
}

INSTANTIATE_TEST_SUITE_P(All, Utf8Test, testing::ValuesIn(k_utf8_cases),
                         [](const auto& test) { return std::string(test.param.name); });

class NotUtf8Test : public testing::TestWithParam<const char*> {};

TEST_P(NotUtf8Test, IsRefusedStrictlyAndNeverReadAsItsLookalike) {
    zBuffer out;
    EXPECT_NE(zBabel::ConvertToWide(out, GetParam(), -1, zBabel::k_utf8), 0);
    EXPECT_EQ(out.Length(), 0u);
    const zWideStr wide(GetParam(), -1);
    for (std::uint32_t i = 0; i < wide.Length(); ++i) EXPECT_EQ(wide.WideStr()[i], u'\uFFFD');
}

// Overlong forms of '/' and NUL, surrogates, past the last character, bytes that never occur.
INSTANTIATE_TEST_SUITE_P(All, NotUtf8Test,
                         testing::Values("\xc0\xaf", "\xe0\x80\xaf", "\xc0\x80", "\xf0\x80\x80\xaf",
                                         "\xed\xa0\xbd", "\xed\xb8\x80", "\xf4\x90\x80\x80",
                                         "\xf8\x88\x80\x80\x80", "\xfe", "\xff"));

TEST(Babel, KnowsNoOtherEncoding) {
    zBuffer out(4, 0);
    EXPECT_LT(zBabel::ConvertToWide(out, "a", 1, 0x6c61746e), 0);
    EXPECT_EQ(out.Length(), 0u);
}

TEST(Babel, TakesTextUpToItsNulAndNullAsEmpty) {
    zBuffer out;
    EXPECT_EQ(zBabel::ConvertToWide(out, "ab\0c", -1, 0x75746638), 0);
    EXPECT_EQ(units_of(out), u"ab");
    EXPECT_EQ(zBabel::ConvertToWide(out, nullptr, 5, 0x75746638), 0);
    EXPECT_EQ(out.Length(), 0u);
}

struct base64_case {
    std::string_view bytes;
    const char* text;
};
void PrintTo(const base64_case& c, std::ostream* out) { *out << c.text; }

class Base64Test : public testing::TestWithParam<base64_case> {};

TEST_P(Base64Test, EncodesWithPaddingIntoTheRoomAskedFor) {
    const base64_case& c = GetParam();
    const int length = static_cast<int>(c.bytes.size());
    const int room = Base64encode_len(length);
    std::string out(static_cast<std::size_t>(room) + 1, '#');
    EXPECT_EQ(Base64encode(out.data(), c.bytes.data(), length), room);
    EXPECT_STREQ(out.c_str(), c.text);
    EXPECT_EQ(out.back(), '#') << "wrote past the room it asked for";
}

INSTANTIATE_TEST_SUITE_P(
    Rfc4648, Base64Test,
    testing::Values(base64_case{"", ""}, base64_case{"f", "Zg=="}, base64_case{"fo", "Zm8="},
                    base64_case{"foo", "Zm9v"}, base64_case{"foob", "Zm9vYg=="},
                    base64_case{"fooba", "Zm9vYmE="}, base64_case{"foobar", "Zm9vYmFy"},
                    base64_case{"\xfb\xff\xbf", "+/+/"}, base64_case{"\0\0"sv, "AAA="}));

TEST(Base64, LengthsThatCannotBeAreSaid) {
    EXPECT_EQ(Base64encode_len(-1), 1);
    EXPECT_EQ(Base64encode_len(0x7fffffff), -1);
}

TEST(IdGenerator, MakesVersionFourIdentifiersThatDiffer) {
    std::set<std::string> seen;
    for (int i = 0; i < 1000; ++i) {
        zString id("old");
        const char* answer = zIDGenerator::GenerateUUID(id);
        EXPECT_STREQ(answer, id.CString());
        ASSERT_EQ(id.Length(), 36u);
        const std::string text = id.CString();
        EXPECT_EQ(text.find_first_not_of("0123456789abcdef-"), std::string::npos) << text;
        for (const std::size_t dash : {8u, 13u, 18u, 23u}) EXPECT_EQ(text[dash], '-') << text;
        EXPECT_EQ(text[14], '4');
        EXPECT_NE(std::string("89ab").find(text[19]), std::string::npos);
        EXPECT_TRUE(seen.insert(text).second);
    }
}

}  // namespace
