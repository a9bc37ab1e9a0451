// head_parser_test.cpp - heads of requests, answers and parts, at every split of their bytes.
#include "core/http/head_parser.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <string_view>

namespace pennywort::http {
namespace {

using state = head_parser::state;

struct head_case {
    const char* name;
    head_kind kind;
    head_policy policy;
    std::string_view bytes;
    state want;
    head_fault fault;
    std::string_view result;  // what the head says, if it is complete
    std::size_t used;
};
void PrintTo(const head_case& c, std::ostream* out) { *out << c.name; }

constexpr head_policy k_bare_lf{.allows_bare_lf = true};
constexpr head_policy k_folding{.allows_folding = true};
constexpr head_policy k_blank{.allows_blank_before_colon = true};
constexpr head_policy k_skipping{.allows_folding = true, .skips_lines_that_are_no_headers = true};
constexpr head_policy k_control{.allows_control_bytes = true};
constexpr head_policy k_short_reason{.allows_missing_reason = true};
constexpr head_policy k_empty_first{.empty_lines_first = 1};
constexpr head_policy k_small{.max_bytes = 28};
constexpr head_policy k_two_headers{.max_headers = 2};

constexpr auto k_request = head_kind::request;
constexpr auto k_answer = head_kind::answer;
constexpr auto k_headers = head_kind::headers;
constexpr auto k_strict = k_strictest_heads;

head_case good(const char* name, head_kind kind, const head_policy& policy, std::string_view bytes,
               std::string_view result, std::size_t used = 0) {
    return {name,
            kind,
            policy,
            bytes,
            state::complete,
            head_fault::none,
            result,
            used == 0 ? bytes.size() : used};
}

head_case bad(const char* name, head_kind kind, const head_policy& policy, std::string_view bytes,
              head_fault fault, std::size_t used) {
    return {name, kind, policy, bytes, state::refused, fault, "", used};
}

using namespace std::string_view_literals;

const head_case k_head_cases[] = {
    good("Shortest", k_request, k_strict, "GET / HTTP/1.1\r\n\r\n", "GET / 1;"),
    good("Headers", k_request, k_strict, "PUT /a?b HTTP/1.0\r\nHost: x\r\nA:b \t\r\nA:\r\n\r\n",
         "PUT /a?b 0;Host=x;A=b;A=;"),
    good("StopsBeforeTheBody", k_request, k_strict, "GET / HTTP/1.1\r\n\r\nbody", "GET / 1;", 18),
    good("AnyMethod", k_request, k_strict, "m-1 * HTTP/1.9\r\n\r\n", "m-1 * 9;"),
    good("BytesBeyondAscii", k_request, k_strict, "GET / HTTP/1.1\r\nA: \xc3\xa4\r\n\r\n",
         "GET / 1;A=\xc3\xa4;"),
    good("ColonsInAValue", k_request, k_strict, "GET / HTTP/1.1\r\nHost: a:1:2\r\n\r\n",
         "GET / 1;Host=a:1:2;"),
    bad("Tls", k_request, k_strict, "\x16\x03\x01"sv, head_fault::bad_method, 0),
    bad("BadMethodAtOnce", k_request, k_strict, "GE@T", head_fault::bad_method, 2),
    bad("BlankFirst", k_request, k_strict, " GET / HTTP/1.1\r\n", head_fault::bad_method, 0),
    bad("EmptyLineFirst", k_request, k_strict, "\r\nGET / HTTP/1.1\r\n\r\n", head_fault::bad_method,
        2),
    good("EmptyLineFirstAllowed", k_request, k_empty_first, "\r\nGET / HTTP/1.1\r\n\r\n",
         "GET / 1;"),
    bad("TwoEmptyLinesFirst", k_request, k_empty_first, "\r\n\r\nGET / HTTP/1.1\r\n\r\n",
        head_fault::bad_method, 4),
    bad("NoTarget", k_request, k_strict, "GET\r\n", head_fault::bad_target, 5),
    bad("TwoSpaces", k_request, k_strict, "GET  / HTTP/1.1\r\n", head_fault::bad_target, 17),
    bad("TabInTarget", k_request, k_strict, "GET /\t HTTP/1.1\r\n", head_fault::bad_target, 17),
    bad("Utf8Target", k_request, k_strict, "GET /\xc3\xa4 HTTP/1.1\r\n", head_fault::bad_target,
        18),
    bad("NoVersion", k_request, k_strict, "GET /\r\n", head_fault::bad_version, 7),
    bad("SmallVersion", k_request, k_strict, "GET / http/1.1\r\n", head_fault::bad_version, 16),
    bad("LongVersion", k_request, k_strict, "GET / HTTP/1.10\r\n", head_fault::bad_version, 17),
    bad("TrailingSpace", k_request, k_strict, "GET / HTTP/1.1 \r\n", head_fault::bad_version, 17),
    bad("ForeignVersion", k_request, k_strict, "PRI * HTTP/2.0\r\n", head_fault::foreign_version,
        16),
    bad("BareLf", k_request, k_strict, "GET / HTTP/1.1\n\n", head_fault::bad_line_end, 15),
    good("BareLfAllowed", k_request, k_bare_lf, "GET / HTTP/1.1\nA: b\r\n\n", "GET / 1;A=b;"),
    bad("BareCr", k_request, k_bare_lf, "GET / HTTP/1.1\r\nA: b\rc\r\n\r\n",
        head_fault::bad_line_end, 24),
    bad("CrCrLf", k_request, k_strict, "GET / HTTP/1.1\r\r\n", head_fault::bad_line_end, 17),
    bad("Nul", k_request, k_strict, "GET / HTTP/1.1\r\nA: b\0c\r\n\r\n"sv, head_fault::bad_value,
        24),
    bad("Control", k_request, k_strict, "GET / HTTP/1.1\r\nA: b\x01\r\n", head_fault::bad_value,
        23),
    good("ControlAllowed", k_headers, k_control, "A: b\x01\r\n\r\n", "A=b\x01;"),
    bad("NulNeverAllowed", k_headers, k_control, "A: b\0c\r\n\r\n"sv, head_fault::bad_value, 8),
    bad("NoColon", k_request, k_strict, "GET / HTTP/1.1\r\nHost\r\n", head_fault::no_name, 22),
    bad("NoName", k_headers, k_strict, ": a\r\n", head_fault::no_name, 5),
    bad("BadName", k_headers, k_strict, "A(b: a\r\n", head_fault::no_name, 8),
    bad("BlankBeforeColon", k_headers, k_strict, "A : a\r\n", head_fault::blank_before_colon, 7),
    good("BlankBeforeColonAllowed", k_headers, k_blank, "A \t: a\r\n\r\n", "A=a;"),
    bad("Folded", k_headers, k_strict, "A: a\r\n b\r\n\r\n", head_fault::folded, 10),
    good("FoldedAllowed", k_headers, k_folding, "A: a \r\n \tb\r\n c\r\nB: d\r\n\r\n",
         "A=a b c;B=d;"),
    bad("FoldedFirst", k_headers, k_folding, " b\r\n\r\n", head_fault::folded, 4),
    good("Skipping", k_headers, k_skipping, "A: a\r\nnothing\r\n more\r\nB: b\r\n\r\n", "A=a;B=b;"),
    good("NoHeaders", k_headers, k_strict, "\r\n", ""),
    bad("TooLong", k_request, k_small, "GET / HTTP/1.1\r\nA: 0123456789\r\n\r\n",
        head_fault::too_long, 28),
    good("LongestAllowed", k_request, k_small, "GET / HTTP/1.1\r\nA: 01234\r\n\r\n",
         "GET / 1;A=01234;"),
    good("MostHeaders", k_headers, k_two_headers, "A: a\r\nB: b\r\n\r\n", "A=a;B=b;"),
    bad("TooManyHeaders", k_headers, k_two_headers, "A: a\r\nB: b\r\nC: c\r\n\r\n",
        head_fault::too_many_headers, 18),
    good("Answer", k_answer, k_strict, "HTTP/1.1 200 Very OK\r\nA: b\r\n\r\n",
         "200 Very OK 1;A=b;"),
    good("AnswerWithoutReason", k_answer, k_strict, "HTTP/1.0 404 \r\n\r\n", "404  0;"),
    bad("AnswerWithoutSpace", k_answer, k_strict, "HTTP/1.1 200\r\n", head_fault::bad_status, 14),
    good("AnswerWithoutSpaceAllowed", k_answer, k_short_reason, "HTTP/1.1 200\r\n\r\n", "200  1;"),
    bad("ShortStatus", k_answer, k_strict, "HTTP/1.1 20 OK\r\n", head_fault::bad_status, 16),
    bad("LongStatus", k_answer, k_strict, "HTTP/1.1 2000 OK\r\n", head_fault::bad_status, 18),
    bad("LowStatus", k_answer, k_strict, "HTTP/1.1 099 No\r\n", head_fault::bad_status, 17),
    bad("NoAnswer", k_answer, k_strict, "ICY 200 OK\r\n", head_fault::bad_version, 12),
    {"Unfinished", k_request, k_strict, "GET / HTTP/1.1\r\nA", state::need_more, head_fault::none,
     "", 17},
};

std::string said_by(const head_parser& parser, head_kind kind) {
    const message_head& head = parser.head();
    std::string text;
    if (kind == k_request) text = head.method + ' ' + head.target + ' ';
    if (kind == k_answer) text = std::to_string(head.status) + ' ' + head.reason + ' ';
    if (kind != k_headers) text += std::to_string(head.minor) + ';';
    for (std::size_t i = 0; i < head.headers.size(); ++i) {
        text += std::string(head.headers[i].name) + '=' + std::string(head.headers[i].value) + ';';
    }
    return text;
}

void expect(const head_parser& parser, const head_case& c, std::size_t used) {
    EXPECT_EQ(parser.status(), c.want);
    EXPECT_EQ(parser.fault(), c.fault);
    EXPECT_EQ(used, c.used);
    if (c.want == state::complete) {
        EXPECT_EQ(said_by(parser, c.kind), c.result);
    }
}

class HeadParserTest : public testing::TestWithParam<head_case> {};

TEST_P(HeadParserTest, GivesTheSameAtEverySplit) {
    const head_case& c = GetParam();
    head_parser parser(c.kind, c.policy);
    for (std::size_t split = 0; split <= c.bytes.size(); ++split) {
        SCOPED_TRACE(testing::Message() << "split at " << split);
        parser.reset();
        std::size_t used = parser.feed(c.bytes.substr(0, split));
        used += parser.feed(c.bytes.substr(used));
        expect(parser, c, used);
    }
}

TEST_P(HeadParserTest, GivesTheSameByteByByte) {
    const head_case& c = GetParam();
    head_parser parser(c.kind, c.policy);
    std::size_t used = 0;
    for (std::size_t i = 0; i < c.bytes.size() && used == i; ++i) {
        used += parser.feed(c.bytes.substr(i, 1));
    }
    expect(parser, c, used);
}

INSTANTIATE_TEST_SUITE_P(All, HeadParserTest, testing::ValuesIn(k_head_cases),
                         [](const auto& one) { return std::string(one.param.name); });

TEST(HeadParser, ResetForgetsEverything) {
    head_parser parser(head_kind::request);
    parser.feed("GET /long HTTP/1.0\r\nA: b\r\nbad");
    parser.feed("\r\n");
    ASSERT_EQ(parser.status(), state::refused);
    parser.reset();
    parser.feed("PUT / HTTP/1.1\r\n\r\n");
    ASSERT_EQ(parser.status(), state::complete);
    EXPECT_EQ(said_by(parser, head_kind::request), "PUT / 1;");
    EXPECT_EQ(parser.fault(), head_fault::none);
}

TEST(HeadParser, HasWordsForEachFault) {
    for (int i = 0; i <= static_cast<int>(head_fault::bad_value); ++i) {
        EXPECT_FALSE(words_of(static_cast<head_fault>(i)).empty()) << i;
    }
}

}  // namespace
}  // namespace pennywort::http
