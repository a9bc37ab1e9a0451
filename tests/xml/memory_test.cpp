// memory_test.cpp - reading and writing XML while the memory runs out at any moment.
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "tests/support/failing_memory.h"
#include "tests/xml/xml_shape.h"

namespace {

using pennywort::tests::buffer_text;
using pennywort::tests::is_empty;
using pennywort::tests::parse_text;

const std::string k_document =
    "<document-with-a-long-name><child attribute-with-a-long-name='" + std::string(40, 'v') + "'>" +
    std::string(3000, 't') +
    "</child><child/><child>\xC3\xA9</child>text</document-with-a-long-name>";

TEST(XmlMemory, RunsOutAtAnyPlaceOfParseBuffer) {
    zRecord record;
    zStatus status = 0;
    bool has_failed = false;
    const int failures =
        with_each_allocation_failing([&] { status = parse_text(record, k_document); },
                                     [&] {
                                         if (status != 0) {
                                             EXPECT_EQ(status, -1);
                                             EXPECT_TRUE(is_empty(record));
                                             has_failed = true;
                                         } else {
                                             EXPECT_EQ(record.ChildCount(), 3u);
                                         }
                                     });
    EXPECT_TRUE(has_failed);
    EXPECT_GT(failures, 20);
    EXPECT_EQ(status, 0);
}

TEST(XmlMemory, RunsOutAtAnyPlaceOfRecordToBuffer) {
    zRecord record;
    ASSERT_EQ(parse_text(record, k_document), 0);
    zStatus status = 0;
    std::optional<zBuffer> out;
    out.emplace(3u);
    const int failures = with_each_allocation_failing(
        [&] { status = zXML::RecordToBuffer(&*out, record, 3, false, true); },
        [&] {
            if (status != 0) {
                EXPECT_EQ(status, -1);
                EXPECT_EQ(out->Length(), 3u);
            } else {
                EXPECT_GT(out->Length(), 3000u);
            }
            out.emplace(3u);
        });
    EXPECT_GT(failures, 3);
}

TEST(XmlMemory, IsGivenBack) {
    zRecord record;
    parse_text(record, k_document);
    record.MakeEmpty();
    const std::size_t before = memory_in_use();
    for (int i = 0; i < 3; ++i) {
        parse_text(record, k_document);
        parse_text(record, k_document + "x");
    }
    EXPECT_EQ(memory_in_use(), before);
}

}  // namespace
