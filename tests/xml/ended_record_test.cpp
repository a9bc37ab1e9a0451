// ended_record_test.cpp - that the address sanitizer sees who uses a record that has ended, though
// the memory of its document lives on. Built with that sanitizer only.
#include <gtest/gtest.h>

#include "tests/xml/xml_shape.h"

namespace {

TEST(EndedRecordDeathTest, IsNotUsedUnseen) {
    zRecord record;
    ASSERT_EQ(pennywort::tests::parse_text(record, "<r><a/><b/></r>"), 0);
    const zRecord* const gone = record.Child(0);
    delete record.TakeChild(0);
    EXPECT_EQ(record.ChildCount(), 1u);
    EXPECT_DEATH(gone->VariableCount(), "use-after-poison");
}

}  // namespace
