// write_test.cpp - trees as XML.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>

#include "tests/xml/xml_shape.h"

namespace {

using pennywort::tests::buffer_text;
using pennywort::tests::parse_text;
using pennywort::tests::xml_shape;

constexpr std::string_view k_declaration = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";

zRecord element(const char* name) {
    zRecord record;
    record.SetCString(zXML::k_name, name);
    return record;
}

zRecord with_text(const std::string& text) {
    zRecord record = element("a");
    record.SetString(zXML::k_text, text);
    return record;
}

std::string written(const zRecord& record, std::uint32_t flags = 0, bool is_indented = false) {
    zBuffer out;
    const zStatus status = zXML::RecordToBuffer(&out, record, flags, is_indented, true);
    return status == 0 ? buffer_text(out) : std::to_string(status);
}

TEST(Write, AnEmptyElement) {
    EXPECT_EQ(written(element("a")), "<a></a>\n");
    EXPECT_EQ(written(element("a"), zXML::k_short_empty), "<a/>\n");
    EXPECT_EQ(written(element("a"), 3), std::string(k_declaration) + "<a/>\n");
}

TEST(Write, ChildrenTextAndAttributesInOrder) {
    zRecord record;
    ASSERT_EQ(parse_text(record, "<a z='1' b='2'>text<c/><b>x</b></a>"), 0);
    EXPECT_EQ(written(record, 2), "<a z=\"1\" b=\"2\">text<c/><b>x</b></a>\n");
}

TEST(Write, IndentsWhereThereIsNoText) {
    zRecord record;
    ASSERT_EQ(parse_text(record, "<a><b><c/><d>x</d></b><e>t<f><g/></f></e></a>"), 0);
    EXPECT_EQ(written(record, 3, true),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
              "<a>\n  <b>\n    <c/>\n    <d>x</d>\n  </b>\n  <e>t<f><g/></f></e>\n</a>\n");
}

TEST(Write, EscapesWhatWouldBeReadAsSomethingElse) {
    EXPECT_EQ(written(with_text("<a>&\"'\t\n\r]]>")), "<a>&lt;a&gt;&amp;\"'\t\n&#13;]]&gt;</a>\n");
    zRecord record = element("a");
    record.SetCString("b", "<a>&\"'\t\n\r");
    EXPECT_EQ(written(record, 2), "<a b=\"&lt;a&gt;&amp;&quot;'&#9;&#10;&#13;\"/>\n");
}

TEST(Write, CharactersBeyondAsciiAsTheyAre) {
    EXPECT_EQ(written(with_text("\xC3\xA9\xF0\x9F\x98\x80\x7F")),
              "<a>\xC3\xA9\xF0\x9F\x98\x80\x7F</a>\n");
    EXPECT_EQ(written(element("\xC3\xA9")), "<\xC3\xA9></\xC3\xA9>\n");
}

TEST(Write, NumbersAndBoolsBecomeText) {
    zRecord record = element("a");
    record.SetInt32("i", -7);
    record.SetBool("b", true);
    record.SetInt64(zXML::k_text, 1LL << 40);
    EXPECT_EQ(written(record), "<a i=\"-7\" b=\"true\">1099511627776</a>\n");
}

TEST(Write, RefusesTextThatXmlCannotHold) {
    for (const std::string& text :
         {std::string("\0", 1), std::string("\x01"), std::string("\x1F"), std::string("a\vb"),
          std::string("\xFF"), std::string("\xC3"), std::string("\xED\xA0\x80"),
          std::string("\xEF\xBF\xBF"), std::string("\xEF\xBF\xBE")}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(written(with_text(text)), std::to_string(zXML::k_bad_text));
        zRecord record = element("a");
        record.SetString("b", text);
        EXPECT_EQ(written(record), std::to_string(zXML::k_bad_text));
    }
    zRecord record = element("a");
    record.SetBytes(zXML::k_text, "x", 1);
    EXPECT_EQ(written(record), std::to_string(zXML::k_bad_text));
}

TEST(Write, RefusesNamesThatXmlCannotHave) {
    const std::string bad = std::to_string(zXML::k_bad_name);
    EXPECT_EQ(written(zRecord()), bad);
    for (const char* const name : {"", "1a", "a b", "a>", "-a", ".a", "\xC3", "a\xC3\x97"}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(written(element(name)), bad);
        zRecord record = element("a");
        record.SetCString(name, "1");
        EXPECT_EQ(written(record), bad);
        zRecord parent = element("a");
        parent.AddChild(std::make_unique<zRecord>(element(name)).release(), zRecord::k_at_end);
        EXPECT_EQ(written(parent), bad);
    }
    EXPECT_EQ(written(element("_a:b-1.\xC2\xB7")), "<_a:b-1.\xC2\xB7></_a:b-1.\xC2\xB7>\n");
}

TEST(Write, AppendsOrReplacesAndLeavesTheBufferAloneInAFault) {
    zBuffer out;
    ASSERT_EQ(zXML::RecordToBuffer(&out, element("a"), 2, false, true), 0);
    ASSERT_EQ(zXML::RecordToBuffer(&out, element("b"), 2, false, false), 0);
    EXPECT_EQ(buffer_text(out), "<a/>\n<b/>\n");
    EXPECT_EQ(zXML::RecordToBuffer(&out, element("1"), 2, false, true), zXML::k_bad_name);
    EXPECT_EQ(buffer_text(out), "<a/>\n<b/>\n");
    ASSERT_EQ(zXML::RecordToBuffer(&out, element("c"), 2, false, true), 0);
    EXPECT_EQ(buffer_text(out), "<c/>\n");
    EXPECT_EQ(zXML::RecordToBuffer(nullptr, element("c"), 2, false, true), -1);
}

TEST(Write, ATreeDeeperThanTheStack) {
    zRecord root = element("a");
    zRecord* at = &root;
    for (int i = 0; i < 300'000; ++i) {
        auto child = std::make_unique<zRecord>(element("a"));
        zRecord* const next = child.get();
        ASSERT_EQ(at->AddChild(child.release(), zRecord::k_at_end), 0);
        at = next;
    }
    EXPECT_EQ(written(root).size(), 300'000 * 7 + 8u);
}

}  // namespace
