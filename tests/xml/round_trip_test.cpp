// round_trip_test.cpp - what the writer writes the parser reads, for generated trees.
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>

#include "tests/xml/xml_shape.h"

namespace {

using pennywort::tests::buffer_text;
using pennywort::tests::parse_text;
using pennywort::tests::xml_shape;

class tree_maker {
public:
    explicit tree_maker(unsigned seed) : m_random(seed) {}

    std::unique_ptr<zRecord> tree(int depth) {
        auto record = std::make_unique<zRecord>();
        record->SetString(zXML::k_name, name());
        for (int i = up_to(3); i > 0; --i) record->SetString(name().c_str(), text(12));
        const int children = depth == 0 ? 0 : up_to(4);
        for (int i = 0; i < children; ++i) {
            record->AddChild(tree(depth - 1).release(), zRecord::k_at_end);
        }
        // Text that is empty, or white beside children, is left out when it is read.
        std::string own = text(20);
        if (children > 0) own += own.empty() ? "" : "x";
        if (!own.empty()) record->SetString(zXML::k_text, own);
        return record;
    }

private:
    int up_to(int most) { return std::uniform_int_distribution<int>(0, most)(m_random); }

    std::string name() {
        const char* const k_names[] = {"a", "b", "value", "x:y", "\xC3\xA9", "dateTime.iso8601"};
        return k_names[up_to(5)];
    }

    std::string text(int most) {
        const char* const k_pieces[] = {"<",
                                        ">",
                                        "&",
                                        "\"",
                                        "'",
                                        "\r",
                                        "\n",
                                        "\t",
                                        " ",
                                        "]]>",
                                        "&amp;",
                                        "\xC3\xA9",
                                        "\xF0\x9F\x98\x80",
                                        "\xEF\xBF\xBD",
                                        "word",
                                        "\r\n",
                                        "<!--",
                                        "\x7F"};
        std::string made;
        for (int i = up_to(most); i > 0; --i) made += k_pieces[up_to(17)];
        return made;
    }

    std::mt19937 m_random;
};

TEST(RoundTrip, OfGeneratedTrees) {
    for (unsigned seed = 0; seed < 500; ++seed) {
        SCOPED_TRACE(seed);
        const auto sent = tree_maker(seed).tree(4);
        zBuffer text;
        ASSERT_EQ(zXML::RecordToBuffer(&text, *sent, seed % 4, false, true), 0);
        zRecord received;
        ASSERT_EQ(parse_text(received, buffer_text(text)), 0) << buffer_text(text);
        EXPECT_EQ(xml_shape(received), xml_shape(*sent));
    }
}

}  // namespace
