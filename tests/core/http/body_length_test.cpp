// body_length_test.cpp - how far bodies reach, and what is refused because two readers could
// differ.
#include "core/http/body_length.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>

namespace pennywort::http {
namespace {

struct length_case {
    const char* name;
    const char* head;
    body_kind kind;
    std::uint64_t length;
    body_fault fault;
};
void PrintTo(const length_case& c, std::ostream* out) { *out << c.name; }

message_head parsed(head_kind kind, const std::string& text) {
    head_parser parser(kind);
    parser.feed(text);
    EXPECT_EQ(parser.status(), head_parser::state::complete) << text;
    return parser.head();
}

message_head request_with(const std::string& headers, const char* version = "1.1") {
    return parsed(head_kind::request,
                  std::string("POST / HTTP/") + version + "\r\n" + headers + "\r\n");
}

message_head answer_with(const std::string& headers, const char* status = "200") {
    return parsed(head_kind::answer,
                  std::string("HTTP/1.1 ") + status + " x\r\n" + headers + "\r\n");
}

constexpr length_case k_length_cases[] = {
    {"Nothing", "", body_kind::none, 0, body_fault::none},
    {"Zero", "Content-Length: 0\r\n", body_kind::counted, 0, body_fault::none},
    {"Some", "content-length:  12 \r\n", body_kind::counted, 12, body_fault::none},
    {"Huge", "Content-Length: 18446744073709551615\r\n", body_kind::counted, 18446744073709551615u,
     body_fault::none},
    {"TooHuge", "Content-Length: 18446744073709551616\r\n", body_kind::none, 0,
     body_fault::bad_length},
    {"Negative", "Content-Length: -1\r\n", body_kind::none, 0, body_fault::bad_length},
    {"Plus", "Content-Length: +1\r\n", body_kind::none, 0, body_fault::bad_length},
    {"Hex", "Content-Length: 0x1\r\n", body_kind::none, 0, body_fault::bad_length},
    {"EmptyLength", "Content-Length:\r\n", body_kind::none, 0, body_fault::bad_length},
    {"List", "Content-Length: 1, 1\r\n", body_kind::none, 0, body_fault::bad_length},
    {"Twice", "Content-Length: 1\r\nContent-Length: 1\r\n", body_kind::none, 0,
     body_fault::bad_length},
    {"Chunked", "Transfer-Encoding: chunked\r\n", body_kind::chunked, 0, body_fault::none},
    {"ChunkedInAnyCase", "transfer-encoding: CHUNKED\r\n", body_kind::chunked, 0, body_fault::none},
    {"Both", "Transfer-Encoding: chunked\r\nContent-Length: 1\r\n", body_kind::none, 0,
     body_fault::length_and_coding},
    {"OtherCoding", "Transfer-Encoding: gzip, chunked\r\n", body_kind::none, 0,
     body_fault::unknown_coding},
    {"Identity", "Transfer-Encoding: identity\r\n", body_kind::none, 0, body_fault::unknown_coding},
    {"ChunkedTwice", "Transfer-Encoding: chunked\r\nTransfer-Encoding: chunked\r\n",
     body_kind::none, 0, body_fault::bad_coding},
    {"EmptyCoding", "Transfer-Encoding:\r\n", body_kind::none, 0, body_fault::bad_coding},
    {"NearlyChunked", "Transfer-Encoding: xchunked\r\n", body_kind::none, 0,
     body_fault::unknown_coding},
};

class BodyLengthTest : public testing::TestWithParam<length_case> {};

TEST_P(BodyLengthTest, OfARequest) {
    const length_case& c = GetParam();
    const body_plan plan = body_of_request(request_with(c.head));
    EXPECT_EQ(plan.kind, c.kind);
    EXPECT_EQ(plan.length, c.length);
    EXPECT_EQ(plan.fault, c.fault);
}

INSTANTIATE_TEST_SUITE_P(All, BodyLengthTest, testing::ValuesIn(k_length_cases),
                         [](const auto& one) { return std::string(one.param.name); });

TEST(BodyLength, ChunkedIsUnknownToTheOlderVersion) {
    const auto plan = body_of_request(request_with("Transfer-Encoding: chunked\r\n", "1.0"));
    EXPECT_EQ(plan.fault, body_fault::bad_coding);
}

TEST(BodyLength, OfAnAnswer) {
    const std::string counted = "Content-Length: 3\r\n";
    EXPECT_EQ(body_of_answer(answer_with(counted), "GET").length, 3u);
    EXPECT_EQ(body_of_answer(answer_with(""), "GET").kind, body_kind::until_close);
    EXPECT_EQ(body_of_answer(answer_with(counted), "HEAD").kind, body_kind::none);
    for (const char* status : {"100", "204", "304"}) {
        EXPECT_EQ(body_of_answer(answer_with(counted, status), "GET").kind, body_kind::none);
    }
}

TEST(BodyLength, PersistenceFollowsTheVersionAndItsWord) {
    EXPECT_TRUE(is_persistent(request_with("")));
    EXPECT_FALSE(is_persistent(request_with("Connection: a, Close\r\n")));
    EXPECT_FALSE(is_persistent(request_with("", "1.0")));
    EXPECT_TRUE(is_persistent(request_with("Connection: Keep-Alive\r\n", "1.0")));
    EXPECT_FALSE(is_persistent(request_with("Connection: keep-alive, close\r\n", "1.0")));
}

}  // namespace
}  // namespace pennywort::http
