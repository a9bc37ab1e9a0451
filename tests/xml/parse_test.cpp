// parse_test.cpp - documents that are read, and what they become.
#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

#include "tests/xml/xml_shape.h"

namespace {

using pennywort::tests::is_empty;
using pennywort::tests::parse_text;
using pennywort::tests::parsed;
using pennywort::tests::text_of;
using pennywort::tests::xml_shape;

struct document_case {
    const char* name;
    std::string_view text;
    std::string_view want;
};
void PrintTo(const document_case& c, std::ostream* out) { *out << c.name; }

const document_case k_document_cases[] = {
    {"Empty", "<a/>", "a"},
    {"EmptyInTwoTags", "<a></a>", "a"},
    {"Text", "<a>text</a>", "a'text'"},
    {"WhiteSpaceIsText", "<a> \t\n</a>", "a' \t\n'"},
    {"WhiteSpaceBesideChildrenIsNot", "<a>\n  <b> </b>\n</a>", "a(b' ')"},
    {"TextBesideChildren", "<a>one<b/>two</a>", "a'onetwo'(b)"},
    {"ChildrenInOrder", "<a><c/><b/><c>1</c></a>", "a(c b c'1')"},
    {"AttributesInOrder", "<a z=\"1\" b='2' a=''/>", "a{z=1 b=2 a=}"},
    {"AttributesThatAreNamedLikeOurs", "<a name='n' text='t'>x</a>", "a{name=n text=t}'x'"},
    {"TheFiveEntities", "<a>&lt;&gt;&amp;&apos;&quot;</a>", "a'<>&'\"'"},
    {"Numbers", "<a b='&#10;&#x41;'>&#13;&#xe9;&#x1F600;</a>",
     "a{b=\nA}'\r\xC3\xA9\xF0\x9F\x98\x80'"},
    {"CData", "<a>1<![CDATA[<b>&amp;]]>2</a>", "a'1<b>&amp;2'"},
    {"CommentsAndInstructions", "<?x y?><!-- c --><a><!--d-->1<?p q?>2</a><!-- e -->", "a'12'"},
    {"LineEndsBecomeLineFeeds", "<a>1\r\n2\r3</a>", "a'1\n2\n3'"},
    {"AttributesAreNormalised", "<a b='1\n2\t3'/>", "a{b=1 2 3}"},
    {"Prefixes", "<p:a xmlns:p='u' p:b='1'/>", "p:a{xmlns:p=u p:b=1}"},
    {"Declaration", "<?xml version=\"1.0\" encoding=\"utf-8\" standalone='yes'?>\n<a/>\n", "a"},
    {"Mark", "\xEF\xBB\xBF<a>\xC3\xA9</a>", "a'\xC3\xA9'"},
    {"NamesBeyondAscii", "<\xC3\xA9 \xC3\xBC='1'/>", "\xC3\xA9{\xC3\xBC=1}"},
    {"Latin1", "<?xml version='1.0' encoding='ISO-8859-1'?><a>\xE9</a>", "a'\xC3\xA9'"},
};

class Documents : public testing::TestWithParam<document_case> {};

TEST_P(Documents, BecomeTheirTree) { EXPECT_EQ(parsed(GetParam().text), GetParam().want); }

INSTANTIATE_TEST_SUITE_P(All, Documents, testing::ValuesIn(k_document_cases),
                         [](const auto& each) { return std::string(each.param.name); });

// Each character as two bytes.
std::string utf16(std::string_view mark, std::string_view ascii, bool is_big_endian) {
    std::string wide(mark);
    for (const char c : ascii) {
        wide += is_big_endian ? '\0' : c;
        wide += is_big_endian ? c : '\0';
    }
    return wide;
}

TEST(Parse, ReadsUtf16WithAndWithoutAMark) {
    constexpr std::string_view k_text = "<?xml version='1.0' encoding='UTF-16'?><a b='1'>x</a>";
    EXPECT_EQ(parsed(utf16("\xFE\xFF", k_text, true)), "a{b=1}'x'");
    EXPECT_EQ(parsed(utf16("\xFF\xFE", k_text, false)), "a{b=1}'x'");
    EXPECT_EQ(parsed(utf16("", k_text, true)), "a{b=1}'x'");
    EXPECT_EQ(parsed(utf16("", k_text, false)), "a{b=1}'x'");
    EXPECT_EQ(parsed(utf16("\xFE\xFF", "<a/>", true)), "a");
}

TEST(Parse, ReplacesWhatTheRecordHeld) {
    zRecord record;
    record.SetCString("old", "1");
    record.AddChild(new zRecord, zRecord::k_at_end);
    ASSERT_EQ(parse_text(record, "<a>1</a>"), 0);
    EXPECT_EQ(xml_shape(record), "a'1'");
}

TEST(Parse, TakesALengthOrGoesToTheNul) {
    zRecord record;
    EXPECT_EQ(zXML::ParseBuffer(255, &record, "<a/>garbage", 4), 0);
    EXPECT_EQ(xml_shape(record), "a");
    EXPECT_EQ(zXML::ParseBuffer(255, &record, "<b/>", -1), 0);
    EXPECT_EQ(xml_shape(record), "b");
}

TEST(Parse, NeedsARecordAndADocument) {
    EXPECT_EQ(zXML::ParseBuffer(255, nullptr, "<a/>", 4), -1);
    zRecord record;
    record.SetCString("old", "1");
    EXPECT_EQ(zXML::ParseBuffer(255, &record, nullptr, 0), zXML::k_malformed);
    EXPECT_TRUE(is_empty(record));
    EXPECT_EQ(zXML::ParseBuffer(255, &record, "", 0), zXML::k_malformed);
}

// The root element is the caller's record, which may want to hear of its changes.
TEST(Parse, TellsADerivedRecordOfItsChanges) {
    class listening final : public zRecord {
    public:
        int changes = 0;

    private:
        void variable_changing(std::uint64_t, bool, bool) override { ++changes; }
    };
    listening record;
    ASSERT_EQ(parse_text(record, "<a b='1'>text</a>"), 0);
    EXPECT_EQ(record.changes, 3);
}

TEST(Parse, KeepsLongTextsAndManyAttributesWhole) {
    const std::string text(3'000'000, 't');
    std::string attributes;
    for (int i = 0; i < 256; ++i) attributes += " a" + std::to_string(i) + "='v'";
    zRecord record;
    ASSERT_EQ(parse_text(record, "<a" + attributes + "><b>" + text + "</b></a>"), 0);
    EXPECT_EQ(record.AsString("a255", ""), "v");
    ASSERT_EQ(record.ChildCount(), 1u);
    EXPECT_EQ(text_of(*record.Child(0), zXML::k_text), text);
    EXPECT_EQ(record.Child(0)->Parent(), &record);
}

}  // namespace
