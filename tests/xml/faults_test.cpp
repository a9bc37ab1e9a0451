// faults_test.cpp - documents that are refused, each with the status that says why.
#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

#include "loam/xml_limits.h"
#include "tests/xml/xml_shape.h"

namespace {

using pennywort::tests::is_empty;
using pennywort::tests::parse_text;

struct fault_case {
    const char* name;
    std::string_view text;
    zStatus want;
};
void PrintTo(const fault_case& c, std::ostream* out) { *out << c.name; }

constexpr std::string_view k_utf16_half =
    std::string_view("\xFE\xFF\0<\0a\0>\xD8\0\0<\0/\0a\0>", 16);

// The feminine ordinal, which no edition of XML has in a name, and expat in these encodings has.
constexpr std::string_view k_ordinal_element = std::string_view("\xFE\xFF\0<\0\xAA\0a\0/\0>", 12);
constexpr std::string_view k_ordinal_attribute =
    "<?xml version='1.0' encoding='ISO-8859-1'?><a><b \xAA='1'/></a>";

const fault_case k_fault_cases[] = {
    {"Nothing", "", zXML::k_malformed},
    {"WhiteSpace", " \n", zXML::k_malformed},
    {"Text", "text", zXML::k_malformed},
    {"Json", "{\"a\": 1}", zXML::k_malformed},
    {"OpenElement", "<a>", zXML::k_malformed},
    {"WrongEnd", "<a></b>", zXML::k_malformed},
    {"TwoRoots", "<a/><b/>", zXML::k_malformed},
    {"TextBehind", "<a/>x", zXML::k_malformed},
    {"AttributeTwice", "<a b='1' b='2'/>", zXML::k_malformed},
    {"AttributeWithoutQuotes", "<a b=1/>", zXML::k_malformed},
    {"BareAmpersand", "<a>1 & 2</a>", zXML::k_malformed},
    {"CDataEndInText", "<a>]]></a>", zXML::k_malformed},
    {"ControlCharacter", "<a>\x01</a>", zXML::k_malformed},
    {"ControlCharacterByNumber", "<a>&#1;</a>", zXML::k_malformed},
    {"Nul", std::string_view("<a>\0</a>", 8), zXML::k_malformed},
    {"NulByNumber", "<a>&#0;</a>", zXML::k_malformed},
    {"SurrogateByNumber", "<a>&#xD800;</a>", zXML::k_malformed},
    {"DeclarationNotInFront", " <?xml version='1.0'?><a/>", zXML::k_malformed},
    {"Html", "<!DOCTYPE html><html><body><p>Not here<br></body></html>", zXML::k_doctype},
    {"HtmlWithoutDoctype", "<html><body><p>Not here<br></body></html>", zXML::k_malformed},
    {"Doctype", "<!DOCTYPE a [<!ELEMENT a ANY>]><a/>", zXML::k_doctype},
    {"ExternalDoctype", "<!DOCTYPE a SYSTEM 'http://127.0.0.1/a.dtd'><a/>", zXML::k_doctype},
    {"EntityBomb", "<!DOCTYPE a [<!ENTITY b 'bbbb'><!ENTITY c '&b;&b;'>]><a>&c;</a>",
     zXML::k_doctype},
    {"ExternalEntity", "<!DOCTYPE a [<!ENTITY b SYSTEM 'file:///etc/passwd'>]><a>&b;</a>",
     zXML::k_doctype},
    {"Entity", "<a>&nbsp;</a>", zXML::k_entity},
    {"EntityInAttribute", "<a b='&nbsp;'/>", zXML::k_entity},
    {"UnknownEncoding", "<?xml version='1.0' encoding='x-none'?><a/>", zXML::k_encoding},
    {"Utf16ThatIsNot", "<?xml version='1.0' encoding='UTF-16'?><a/>", zXML::k_encoding},
    {"MarkAndAnotherEncoding", "\xEF\xBB\xBF<?xml version='1.0' encoding='ISO-8859-1'?><a/>",
     zXML::k_encoding},
    {"InvalidUtf8", "<a>\xFF</a>", zXML::k_encoding},
    {"Overlong", "<a>\xC0\xAF</a>", zXML::k_encoding},
    {"SurrogateInUtf8", "<a>\xED\xA0\x80</a>", zXML::k_encoding},
    {"PastTheLastCharacter", "<a>\xF4\x90\x80\x80</a>", zXML::k_encoding},
    {"CutCharacter", "<a>\xC3</a>", zXML::k_encoding},
    {"CutCharacterAtTheEnd", "<a>\xE2\x82", zXML::k_encoding},
    {"InvalidInATag", "<a b='\xFF'/>", zXML::k_encoding},
    {"InvalidInAName", "<a\xFF/>", zXML::k_encoding},
    {"HalfAPairInUtf16", k_utf16_half, zXML::k_encoding},
    {"NotOfAscii", "<?xml version='1.0' encoding='US-ASCII'?><a>\xC3\xA9</a>", zXML::k_encoding},
    {"NotOfAsciiInATag", "<?xml version='1.0' encoding='us-ascii'?><a\xC3\xA9/>", zXML::k_encoding},
    {"OfLatin1InAWrongPlace", "<?xml version='1.0' encoding='ISO-8859-1'?><a \xD7='1'/>",
     zXML::k_malformed},
    {"OrdinalInAnElement", k_ordinal_element, zXML::k_malformed},
    {"OrdinalInAnAttribute", k_ordinal_attribute, zXML::k_malformed},
    {"NoCharacterButValid", "<a>\xEF\xBF\xBF</a>", zXML::k_malformed},
};

class Faults : public testing::TestWithParam<fault_case> {};

TEST_P(Faults, HaveTheirStatusAndLeaveNothing) {
    zRecord record;
    record.SetCString("old", "1");
    EXPECT_EQ(parse_text(record, GetParam().text), GetParam().want);
    EXPECT_TRUE(is_empty(record));
}

INSTANTIATE_TEST_SUITE_P(All, Faults, testing::ValuesIn(k_fault_cases),
                         [](const auto& each) { return std::string(each.param.name); });

TEST(Faults, OfAnElementInside) {
    zRecord record;
    EXPECT_EQ(parse_text(record, "<a x='1'>text<b><c/></b><d></a>"), zXML::k_malformed);
    EXPECT_TRUE(is_empty(record));
}

TEST(Faults, EveryCutOfADocument) {
    const std::string whole =
        "<?xml version='1.0'?>\n<a b='1'>text\xC3\xA9<!-- c --><c><![CDATA[d]]></c>&amp;&#65;</a>";
    for (std::size_t length = 0; length < whole.size(); ++length) {
        SCOPED_TRACE(length);
        zRecord record;
        const zStatus status = parse_text(record, std::string_view(whole).substr(0, length));
        const bool is_in_character = length > 0 && whole[length - 1] == '\xC3';
        EXPECT_EQ(status, is_in_character ? zXML::k_encoding : zXML::k_malformed);
        EXPECT_TRUE(is_empty(record));
    }
    zRecord record;
    EXPECT_EQ(parse_text(record, whole), 0);
}

std::string repeated(std::string_view piece, std::size_t count) {
    std::string text;
    text.reserve(piece.size() * count);
    for (; count > 0; --count) text += piece;
    return text;
}

zStatus status_of(const std::string& text) {
    zRecord record;
    const zStatus status = parse_text(record, text);
    EXPECT_EQ(is_empty(record), status != 0);
    return status;
}

TEST(Limits, OfDepth) {
    const auto nested = [](std::size_t depth) {
        return repeated("<a>", depth) + repeated("</a>", depth);
    };
    EXPECT_EQ(status_of(nested(zXML::k_deepest)), 0);
    EXPECT_EQ(status_of(nested(zXML::k_deepest + 1)), zXML::k_too_deep);
    EXPECT_EQ(status_of(nested(1'000'000)), zXML::k_too_deep);
    EXPECT_EQ(status_of(repeated("<a>", 1'000'000)), zXML::k_too_deep);
}

TEST(Limits, OfElementsInOneParent) {
    const auto beside = [](std::size_t count) { return "<r>" + repeated("<a/>", count) + "</r>"; };
    EXPECT_EQ(status_of(beside(zXML::k_widest)), 0);
    EXPECT_EQ(status_of(beside(zXML::k_widest + 1)), zXML::k_too_wide);
    EXPECT_EQ(status_of(beside(1'000'000)), zXML::k_too_wide);
}

// The root counts too.
TEST(Limits, OfAllElements) {
    const loam::xml_limits limits{6, 10, 10, 10};
    const auto status = [&](std::string_view text) {
        zRecord record;
        return loam::parse_xml(record, text, limits);
    };
    EXPECT_EQ(status("<r><g><a/><a/></g><g><a/></g></r>"), 0);
    EXPECT_EQ(status("<r><g><a/><a/></g><g><a/></g><a/></r>"), zXML::k_too_large);
    EXPECT_EQ(loam::xml_limits().elements, zXML::k_most_elements);
}

TEST(Limits, OfAttributes) {
    const auto with = [](int count) {
        std::string text = "<a";
        for (int i = 0; i < count; ++i) text += " b" + std::to_string(i) + "=''";
        return text + "/>";
    };
    EXPECT_EQ(status_of(with(256)), 0);
    EXPECT_EQ(status_of(with(257)), zXML::k_too_many_attributes);
    EXPECT_EQ(status_of(with(200'000)), zXML::k_too_many_attributes);
}

// The length is looked at before the bytes are.
TEST(Limits, OfBytes) {
    zRecord record;
    record.SetCString("old", "1");
    EXPECT_EQ(zXML::ParseBuffer(255, &record, "<a/>", zXML::k_most_bytes + 1), zXML::k_too_large);
    EXPECT_TRUE(is_empty(record));
}

}  // namespace
