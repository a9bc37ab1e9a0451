// xop_test.cpp - the names by which XML refers to another part of its message.
#include <gtest/gtest.h>

#include <string>

#include "utils.h"

namespace {

TEST(Xop, MakesTheTwoFormsOfAName) {
    zString out("what was there");
    EXPECT_STREQ(cUtils::XOP_MakeContentIDHeaderString(out, "part1"), "<part1>");
    EXPECT_EQ(out.View(), "<part1>");
    EXPECT_STREQ(cUtils::XOP_MakeReference(out, "part1"), "cid:part1");
    EXPECT_EQ(out.View(), "cid:part1");
}

TEST(Xop, TakesAnyName) {
    zString out;
    EXPECT_STREQ(cUtils::XOP_MakeReference(out, ""), "cid:");
    EXPECT_STREQ(cUtils::XOP_MakeReference(out, nullptr), "cid:");
    EXPECT_STREQ(cUtils::XOP_MakeContentIDHeaderString(out, nullptr), "<>");
    EXPECT_STREQ(cUtils::XOP_MakeReference(out, "100%s%n"), "cid:100%s%n");
    const std::string name(100'000, 'n');
    EXPECT_EQ(cUtils::XOP_MakeReference(out, name.c_str()), "cid:" + name);
}

TEST(Xop, TheNameMayStandInTheResult) {
    zString out("part1");
    EXPECT_STREQ(cUtils::XOP_MakeReference(out, out.CString()), "cid:part1");
    EXPECT_STREQ(cUtils::XOP_MakeContentIDHeaderString(out, out.CString() + 4), "<part1>");
}

}  // namespace
