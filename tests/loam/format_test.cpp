// format_test.cpp - {fmt} as users of the library get it.
#include "loam/format.h"

#include <gtest/gtest.h>

#include <string>

#include "loam/string.h"

namespace {

TEST(Format, IsThereForWhoeverUsesTheLibrary) {
    EXPECT_EQ(fmt::format("cThing::Step() - code:{} wasClean:{}\n", 5, true),
              "cThing::Step() - code:5 wasClean:true\n");
    zString text;
    text = fmt::format("{:08x}", 0xBEEFu);
    EXPECT_EQ(text.View(), "0000beef");
}

}  // namespace
