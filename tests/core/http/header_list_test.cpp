// header_list_test.cpp - headers in their order, found by name, and lists with commas.
#include "core/http/header_list.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/http/status.h"

namespace pennywort::http {
namespace {

std::string text_of(const header_list& list) {
    std::string text;
    for (std::size_t i = 0; i < list.size(); ++i) {
        text += std::string(list[i].name) + ":" + std::string(list[i].value) + ";";
    }
    return text;
}

TEST(HeaderList, KeepsOrderCaseAndRepeatedNames) {
    header_list list;
    list.add("A", "1");
    list.add("b", "");
    list.add("a", "2");
    EXPECT_EQ(text_of(list), "A:1;b:;a:2;");
    EXPECT_EQ(list.find("a"), "1");
    EXPECT_EQ(list.find("B"), "");
    EXPECT_EQ(list.find("c"), std::nullopt);
    EXPECT_EQ(list.count("A"), 2u);
    EXPECT_EQ(list.joined("A"), "1, 2");
    EXPECT_EQ(list.joined("c"), "");
}

TEST(HeaderList, SetsAndRemovesAllOfAName) {
    header_list list;
    list.add("A", "1");
    list.add("b", "2");
    list.add("a", "3");
    list.set("A", "4");
    EXPECT_EQ(text_of(list), "b:2;A:4;");
    EXPECT_EQ(list.remove("B"), 1u);
    EXPECT_EQ(list.remove("B"), 0u);
    EXPECT_EQ(text_of(list), "A:4;");
    list.clear();
    EXPECT_TRUE(list.is_empty());
}

TEST(HeaderList, ExtendsTheLastOne) {
    header_list list;
    list.extend_last("x");
    list.add("A", "1");
    list.extend_last("2");
    list.add("B", "3");
    EXPECT_EQ(text_of(list), "A:12;B:3;");
}

TEST(HeaderList, FindsTokensInListsInAnyCase) {
    header_list list;
    list.add("Connection", "Upgrade , keep-alive");
    list.add("connection", "a,,\"close\"");
    EXPECT_TRUE(list.has_token("CONNECTION", "KEEP-alive"));
    EXPECT_TRUE(list.has_token("connection", "upgrade"));
    EXPECT_TRUE(list.has_token("connection", "A"));
    EXPECT_FALSE(list.has_token("connection", "close"));
    EXPECT_FALSE(list.has_token("connection", "keep"));
    EXPECT_FALSE(list.has_token("other", "a"));
}

TEST(HeaderList, TakesListsApartAtCommasOutsideOfQuotationMarks) {
    const std::vector<std::string> wanted = {"a", "\"b,\\\"c\"", "W/\"d\"", "e f"};
    std::vector<std::string> found;
    std::string_view rest = " a ,, \"b,\\\"c\",W/\"d\",\te f ,";
    for (auto one = next_element(rest); !one.empty(); one = next_element(rest)) {
        found.emplace_back(one);
    }
    EXPECT_EQ(found, wanted);
    EXPECT_TRUE(rest.empty());
}

TEST(Status, HasTheReasonsOfTheStandard) {
    EXPECT_EQ(reason_of(200), "OK");
    EXPECT_EQ(reason_of(206), "Partial Content");
    EXPECT_EQ(reason_of(416), "Range Not Satisfiable");
    EXPECT_EQ(reason_of(505), "HTTP Version Not Supported");
    EXPECT_EQ(reason_of(418), "Unknown");
    EXPECT_EQ(reason_of(-1), "Unknown");
    EXPECT_EQ(reason_of(999), "Unknown");
}

TEST(Status, KnowsWhichAnswersEndWithTheirHead) {
    for (const int status : {100, 101, 199, 204, 304}) EXPECT_TRUE(is_bodiless(status)) << status;
    for (const int status : {200, 205, 301, 404, 500}) EXPECT_FALSE(is_bodiless(status)) << status;
}

}  // namespace
}  // namespace pennywort::http
