// header_entry_test.cpp - the entries of a header value, by cUtils.
#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "utils.h"

namespace {

// "-" stands for null, so that null and empty are told apart.
std::string shown(const char* text, std::int32_t length) {
    if (text == nullptr) return length == 0 ? "-" : "null with a length";
    return std::string(text, static_cast<std::size_t>(length));
}

// All entries of a value as "name=value", and how many bytes each took.
std::vector<std::string> entries(const char* value) {
    std::vector<std::string> found;
    while (*value != '\0') {
        const char* name = "unset";
        const char* entry = "unset";
        std::int32_t name_length = -1;
        std::int32_t entry_length = -1;
        const std::int32_t used =
            cUtils::HeaderEntry_ParseToNextEntry(value, &name, &name_length, &entry, &entry_length);
        found.push_back(shown(name, name_length) + "=" + shown(entry, entry_length) + " " +
                        std::to_string(used));
        value += used;
    }
    return found;
}

struct value_case {
    const char* name;
    const char* value;
    std::vector<std::string> want;
};
void PrintTo(const value_case& c, std::ostream* out) { *out << c.name; }

const value_case k_value_cases[] = {
    {"Empty", "", {}},
    {"OnlyBlanks", " \t\r\n", {"-=- 4"}},
    {"ATokenAloneIsAName", "text/xml", {"text/xml=- 8"}},
    {"ATokenBeforeASemicolonIsAValue", "text/xml;", {"-=text/xml 9"}},
    {"TokenAndPair",
     "multipart/related; boundary=abc",
     {"-=multipart/related 18", "boundary=abc 13"}},
    {"BlanksAroundEverything", " a = b ; c = d ", {"a=b 8", "c=d 7"}},
    {"ANewLineIsABlank", "a\r\n=\r\n b\r\n;c=d", {"a=b 11", "c=d 3"}},
    {"OtherBlanksAreBytes", "a\v=\fb\xa0;c", {"a\v=\fb\xa0 7", "c=- 1"}},
    {"QuotationMarksAreBytes", "a=\"b c\";d=\"e\"", {"a=\"b 8", "d=\"e\" 5"}},
    {"ASemicolonInQuotesEndsTheEntry", "a=\"b;c\"", {"a=\"b 5", "c\"=- 2"}},
    {"WhatFollowsABlankInTheNameIsDropped", "a b=c", {"a=c 5"}},
    {"WhatFollowsABlankInTheValueIsDropped", "a=b c;d=e", {"a=b 6", "d=e 3"}},
    {"ASecondEqualsSignBelongsToTheValue", "a=b=c", {"a=b=c 5"}},
    {"AnEmptyValue", "a=;b=", {"a=- 3", "b=- 2"}},
    {"NoNameIsOneStep", "=x;y=z", {"-=- 1", "-=x 2", "y=z 3"}},
    {"EmptyEntries", ";;a=b", {"-=- 1", "-=- 1", "a=b 3"}},
    {"BlanksAtTheEnd", "a=b; ", {"a=b 4", "-=- 1"}},
    {"ALastTokenIsAName", "a; b", {"-=a 2", "b=- 2"}},
};

class HeaderEntryTest : public testing::TestWithParam<value_case> {};

TEST_P(HeaderEntryTest, GivesOneEntryAfterTheOther) {
    EXPECT_EQ(entries(GetParam().value), GetParam().want);
}

INSTANTIATE_TEST_SUITE_P(All, HeaderEntryTest, testing::ValuesIn(k_value_cases),
                         [](const auto& tested) { return std::string(tested.param.name); });

struct answer {
    zStatus status;
    std::string value;
};

answer find(const char* value, const char* name) {
    const char* entry = "unset";
    std::int32_t length = -1;
    const zStatus status = cUtils::HeaderEntry_FindByName(value, name, &entry, &length);
    return {status, shown(entry, length)};
}

TEST(HeaderEntryFind, GivesMinusOneWithNullForANameThatIsNotThere) {
    for (const char* value : {"", "text/xml", "multipart/related; charset=x", "=abc", ";;"}) {
        const answer found = find(value, "boundary");
        EXPECT_EQ(found.status, -1) << value;
        EXPECT_EQ(found.value, "-") << value;
    }
}

TEST(HeaderEntryFind, GivesMinusOneForNullValuesAndNames) {
    EXPECT_EQ(find(nullptr, "a").status, -1);
    EXPECT_EQ(find("a=b", nullptr).status, -1);
}

TEST(HeaderEntryFind, FindsANameInAnyCase) {
    const answer found = find("multipart/related; type=x; BOUNDary=abc", "boundary");
    EXPECT_EQ(found.status, 0);
    EXPECT_EQ(found.value, "abc");
}

TEST(HeaderEntryFind, GivesTheFirstOfSeveral) { EXPECT_EQ(find("a=1; a=2", "a").value, "1"); }

TEST(HeaderEntryFind, TakesAnEntryWhoseNameIsTheFrontOfTheWantedOne) {
    EXPECT_EQ(find("bound=abc; boundary=def", "boundary").value, "abc");
}

TEST(HeaderEntryFind, DoesNotTakeALongerName) {
    EXPECT_EQ(find("boundaryx=abc", "boundary").status, -1);
}

TEST(HeaderEntryFind, FindsANameWithoutAValue) {
    const answer found = find("a=b; boundary", "boundary");
    EXPECT_EQ(found.status, 0);
    EXPECT_EQ(found.value, "-");
}

TEST(HeaderEntryFind, DoesNotTakeATokenForAName) {
    EXPECT_EQ(find("boundary; a=b", "boundary").status, -1);
}

}  // namespace
