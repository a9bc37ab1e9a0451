// file_reply_test.cpp - conditions and ranges of files.
#include "httpserver/file_reply.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>

namespace pennywort::httpserver {
namespace {

constexpr std::int64_t k_now = 1'700'000'000;
constexpr file_facts k_file{100, {784'111'777, 500'000'000}};  // Sun, 06 Nov 1994 08:49:37 GMT
constexpr const char* k_date = "Sun, 06 Nov 1994 08:49:37 GMT";
constexpr const char* k_before = "Sun, 06 Nov 1994 08:49:36 GMT";

struct reply_case {
    const char* name;
    file_question question;
    std::int32_t status;
    std::int64_t begin;
    std::int64_t length;
};
void PrintTo(const reply_case& c, std::ostream* out) { *out << c.name; }

file_question range(const char* text, std::optional<std::string_view> if_range = {}) {
    return {.range = text, .if_range = if_range};
}

const std::string k_tag = etag_of(k_file);
const std::string k_weak = "W/" + k_tag;
const std::string k_list = "\"x\", " + k_tag;

const reply_case k_reply_cases[] = {
    {"Plain", {}, 200, 0, 100},
    {"NoneMatchOther", {.if_none_match = "\"x\""}, 200, 0, 100},
    {"NoneMatchSame", {.if_none_match = k_tag}, 304, 0, 0},
    {"NoneMatchWeak", {.if_none_match = k_weak}, 304, 0, 0},
    {"NoneMatchList", {.if_none_match = k_list}, 304, 0, 0},
    {"NoneMatchAny", {.if_none_match = "*"}, 304, 0, 0},
    {"TagBeforeDate", {.if_none_match = "\"x\"", .if_modified_since = k_date}, 200, 0, 100},
    {"NotModified", {.if_modified_since = k_date}, 304, 0, 0},
    {"Modified", {.if_modified_since = k_before}, 200, 0, 100},
    {"NoDate", {.if_modified_since = "yesterday"}, 200, 0, 100},
    {"Match", {.if_match = k_tag}, 200, 0, 100},
    {"MatchWeak", {.if_match = k_weak}, 412, 0, 0},
    {"MatchOther", {.if_match = "\"x\""}, 412, 0, 0},
    {"Unmodified", {.if_unmodified_since = k_date}, 200, 0, 100},
    {"ModifiedSince", {.if_unmodified_since = k_before}, 412, 0, 0},
    {"FromTo", range("bytes=10-19"), 206, 10, 10},
    {"OneByte", range("bytes=0-0"), 206, 0, 1},
    {"Open", range("bytes=90-"), 206, 90, 10},
    {"BeyondTheEnd", range("bytes=90-1000"), 206, 90, 10},
    {"Suffix", range("bytes=-30"), 206, 70, 30},
    {"LongSuffix", range("bytes=-1000"), 206, 0, 100},
    {"EmptySuffix", range("bytes=-0"), 416, 0, 0},
    {"BehindTheEnd", range("bytes=100-"), 416, 0, 0},
    {"Backwards", range("bytes=5-4"), 200, 0, 100},
    {"Several", range("bytes=0-1,3-4"), 200, 0, 100},
    {"OtherUnit", range("lines=0-1"), 200, 0, 100},
    {"NoNumber", range("bytes=a-b"), 200, 0, 100},
    {"Nothing", range("bytes=-"), 200, 0, 100},
    {"Huge", range("bytes=99999999999999999999-"), 200, 0, 100},
    {"IfRangeTag", range("bytes=1-2", k_tag), 206, 1, 2},
    {"IfRangeWeak", range("bytes=1-2", k_weak), 200, 0, 100},
    {"IfRangeOther", range("bytes=1-2", "\"x\""), 200, 0, 100},
    {"IfRangeDate", range("bytes=1-2", k_date), 206, 1, 2},
    {"IfRangeOtherDate", range("bytes=1-2", k_before), 200, 0, 100},
};

class FileReplyTest : public testing::TestWithParam<reply_case> {};

TEST_P(FileReplyTest, FollowsTheStandard) {
    const reply_case& c = GetParam();
    const file_reply reply = reply_to(c.question, k_file, k_now);
    EXPECT_EQ(reply.status, c.status);
    EXPECT_EQ(reply.begin, c.begin);
    EXPECT_EQ(reply.length, c.length);
}

INSTANTIATE_TEST_SUITE_P(All, FileReplyTest, testing::ValuesIn(k_reply_cases),
                         [](const auto& one) { return std::string(one.param.name); });

TEST(FileReply, AnEmptyFileHasNoRange) {
    EXPECT_EQ(reply_to(range("bytes=0-"), {0, {}}, k_now).status, 416);
    EXPECT_EQ(reply_to(range("bytes=-5"), {0, {}}, k_now).status, 416);
    EXPECT_EQ(reply_to({}, {0, {}}, k_now).status, 200);
}

TEST(FileReply, ATagDiffersWithSizeAndTime) {
    EXPECT_NE(etag_of({1, {5, 0}}), etag_of({2, {5, 0}}));
    EXPECT_NE(etag_of({1, {5, 0}}), etag_of({1, {6, 0}}));
    EXPECT_NE(etag_of({1, {5, 0}}), etag_of({1, {5, 1}}));
    EXPECT_EQ(etag_of({255, {16, 10}}), "\"ff-10.a\"");
}

}  // namespace
}  // namespace pennywort::httpserver
