// header_parse_test.cpp - cUtils::HeaderParse.
#include <gtest/gtest.h>

#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "utils.h"

namespace {

using variables = std::vector<std::pair<std::string, std::string>>;

// The bytes are copied to memory of their own size, so that a look past them is noticed.
std::int32_t parse(std::string_view block, zRecord& headers) {
    const auto exact = std::make_unique<char[]>(block.size());
    block.copy(exact.get(), block.size());
    return cUtils::HeaderParse(exact.get(), static_cast<std::int32_t>(block.size()), headers);
}

variables all(const zRecord& headers) {
    variables found;
    for (std::uint32_t i = 0; i < headers.VariableCount(); ++i) {
        std::uint32_t length = 0;
        const char* value = headers.AsText(headers.VariableName(i), &length);
        found.emplace_back(headers.VariableName(i), std::string(value, length));
    }
    return found;
}

struct block_case {
    const char* name;
    std::string_view block;
    std::int32_t used;
    variables want;
};
void PrintTo(const block_case& c, std::ostream* out) { *out << c.name; }

const block_case k_block_cases[] = {
    {"Nothing", "", 0, {}},
    {"OnlyTheBlankLine", "\r\n", 0, {}},
    {"BlankLineAndABody", "\r\nA: b\r\n", 0, {}},
    {"OneHeader", "Content-Type: text/xml\r\n\r\n", 24, {{"Content-Type", "text/xml"}}},
    {"TheBodyIsLeftAlone", "A: b\r\n\r\nC: d\r\n", 6, {{"A", "b"}}},
    {"EmptyValue", "X: \r\n", 5, {{"X", ""}}},
    {"NothingBehindTheColon", "X:\r\n", 4, {{"X", ""}}},
    {"WithoutTheSpaceAByteIsLost", "Name:value\r\n\r\n", 12, {{"Name", "alue"}}},
    {"OneByteWithoutTheSpace", "Name:v\r\n\r\n", 8, {{"Name", ""}}},
    {"TwoSpacesKeepOne", "A:  b\r\n", 7, {{"A", " b"}}},
    {"NameKeepsCaseAndBlanks", " aB : c\r\n", 9, {{" aB ", "c"}}},
    {"TheFirstColonCounts", "Host: a:80\r\n", 12, {{"Host", "a:80"}}},
    {"NoName", ": value\r\n", 9, {{"", "value"}}},
    {"ALineWithoutAColonIsPassedOver", "junk\r\nA: b\r\n\r\n", 12, {{"A", "b"}}},
    {"ALaterOneReplacesAnEarlier", "A: b\r\nC: d\r\nA: e\r\n\r\n", 18, {{"A", "e"}, {"C", "d"}}},
    {"OtherCaseIsAnotherName", "A: b\r\na: c\r\n\r\n", 12, {{"A", "b"}, {"a", "c"}}},
    {"FoldedByATab", "A: b\r\n\tc\r\n\r\n", 10, {{"A", "b\r\n\tc"}}},
    {"FoldedByASpace", "A: b\r\n c\r\nD: e\r\n\r\n", 16, {{"A", "b\r\n c"}, {"D", "e"}}},
    {"FoldedTwice", "A: b\r\n c\r\n\td\r\n\r\n", 14, {{"A", "b\r\n c\r\n\td"}}},
    {"FoldedToABlankLine", "A: b\r\n \r\n\r\n", 9, {{"A", "b\r\n "}}},
    {"FoldedRightBehindTheColon", "A:\r\n b\r\n\r\n", 8, {{"A", "\n b"}}},
    {"FoldedBehindTheSpace", "A: \r\n b\r\n\r\n", 9, {{"A", "\r\n b"}}},
    {"ColonOnTheContinuation", "A\r\n b: c\r\n\r\n", 10, {{"A\r\n b", "c"}}},
    {"BlankLineBeforeASpaceEnds", "A: b\r\n\r\n c: d\r\n", 6, {{"A", "b"}}},
    {"BlankLineFirstAndASpace", "\r\n A: b\r\n", 0, {}},
    {"WithoutAnyLineEnd", "A: b", 4, {{"A", "b"}}},
    {"WithoutAnyLineEndAndColon", "junk", 4, {}},
    {"TheLastLineIsNotEnded", "A: b\r\nC: d", 10, {{"A", "b"}, {"C", "d"}}},
    {"FoldIsAllThatIsLeft", "A: b\r\n ", 7, {{"A", "b\r\n "}}},
    {"AloneCrIsAByte", "A: b\rc\r\n\r\n", 8, {{"A", "b\rc"}}},
    {"AloneLfIsAByte", "A: b\nC: d\r\n\r\n", 11, {{"A", "b\nC: d"}}},
    {"CrCrLf", "A: b\r\r\n\r\n", 7, {{"A", "b\r"}}},
    {"CrAtTheEnd", "A: b\r", 5, {{"A", "b\r"}}},
    {"OnlyAColon", ":", 1, {{"", ""}}},
    {"ColonAtTheEnd", "AB:", 3, {{"AB", ""}}},
    {"ANulInTheValue", std::string_view("A: b\0c\r\n\r\n", 10), 8, {{"A", std::string("b\0c", 3)}}},
};

class HeaderParseTest : public testing::TestWithParam<block_case> {};

TEST_P(HeaderParseTest, StoresTheHeadersAndCountsTheirBytes) {
    zRecord headers;
    EXPECT_EQ(parse(GetParam().block, headers), GetParam().used);
    EXPECT_EQ(all(headers), GetParam().want);
}

// Cut anywhere, the block is one that ends there: nothing behind it is looked at, and what was
// counted alone gives the same headers.
TEST_P(HeaderParseTest, CutAnywhereItEndsThere) {
    const std::string_view block = GetParam().block;
    for (std::size_t cut = 0; cut <= block.size(); ++cut) {
        SCOPED_TRACE(testing::Message() << "cut at " << cut);
        zRecord headers;
        const std::int32_t used = parse(block.substr(0, cut), headers);
        EXPECT_LE(used, static_cast<std::int32_t>(cut));
        zRecord again;
        EXPECT_EQ(parse(block.substr(0, static_cast<std::size_t>(used)), again), used);
        EXPECT_EQ(all(again), all(headers));
    }
}

INSTANTIATE_TEST_SUITE_P(All, HeaderParseTest, testing::ValuesIn(k_block_cases),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST(HeaderParse, PassesOverNamesOf255BytesAndTakes254) {
    const std::string longest(254, 'n');
    zRecord headers;
    const std::string block = longest + "x: no\r\n" + longest + ": yes\r\n\r\n";
    EXPECT_EQ(parse(block, headers), static_cast<std::int32_t>(block.size()) - 2);
    EXPECT_EQ(all(headers), (variables{{longest, "yes"}}));
}

TEST(HeaderParse, TakesNothingFromNothing) {
    zRecord headers;
    EXPECT_EQ(cUtils::HeaderParse(nullptr, 10, headers), 0);
    EXPECT_EQ(cUtils::HeaderParse("A: b\r\n", -1, headers), 0);
    EXPECT_EQ(cUtils::HeaderParse("A: b\r\n", 0, headers), 0);
    EXPECT_EQ(headers.VariableCount(), 0u);
}

TEST(HeaderParse, LooksAtNoByteBehindItsLength) {
    zRecord headers;
    EXPECT_EQ(cUtils::HeaderParse("A: bcd\r\n", 4, headers), 4);
    EXPECT_EQ(all(headers), (variables{{"A", "b"}}));
}

TEST(HeaderParse, TakesAMegabyteOfHeaders) {
    std::string block;
    for (int i = 0; block.size() < (1u << 20); ++i) {
        block += "X-" + std::to_string(i) + ": " + std::to_string(i) + "\r\n";
    }
    zRecord headers;
    EXPECT_EQ(parse(block + "\r\n", headers), static_cast<std::int32_t>(block.size()));
    EXPECT_EQ(headers.AsInt32("X-1234", -1), 1234);
    EXPECT_GT(headers.VariableCount(), 50000u);
}

}  // namespace
