// strict_request_test.cpp - requests as the standard asks for, at every split of their bytes.
#include "httpserver/strict_request.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <string_view>

namespace pennywort::httpserver {
namespace {

using state = strict_request::state;
using namespace std::string_view_literals;

constexpr std::int64_t k_most = 200;

struct strict_case {
    const char* name;
    std::string_view bytes;
    std::int32_t refusal;       // 0: complete
    std::string_view resource;  // and what follows of a complete one
    std::string_view body;
};
void PrintTo(const strict_case& c, std::ostream* out) { *out << c.name; }

constexpr strict_case k_strict_cases[] = {
    {"Get", "GET /a?b HTTP/1.1\r\nHost: h\r\n\r\n", 0, "/a?b", ""},
    {"Head", "HEAD / HTTP/1.1\r\nHost: h\r\n\r\n", 0, "/", ""},
    {"Put", "PUT / HTTP/1.1\r\nHost: h:80\r\nContent-Length: 3\r\n\r\na\0c"sv, 0, "/", "a\0c"sv},
    {"Chunked",
     "POST / HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n2\r\nab\r\n1;x\r\n"
     "c\r\n0\r\nT: u\r\n\r\n",
     0, "/", "abc"},
    {"EmptyLineFirst", "\r\nGET / HTTP/1.1\r\nHost: h\r\n\r\n", 0, "/", ""},
    {"ProxyForm", "GET http://h:81/a?b HTTP/1.1\r\nHost: h\r\n\r\n", 0, "/a?b", ""},
    {"OldVersionWithoutHost", "GET / HTTP/1.0\r\n\r\n", 0, "/", ""},
    {"Literal", "GET / HTTP/1.1\r\nHost: [::1]:8080\r\n\r\n", 0, "/", ""},
    {"NoHost", "GET / HTTP/1.1\r\n\r\n", 400, "", ""},
    {"TwoHosts", "GET / HTTP/1.1\r\nHost: h\r\nhost: h\r\n\r\n", 400, "", ""},
    {"BadHost", "GET / HTTP/1.1\r\nHost: a/b\r\n\r\n", 400, "", ""},
    {"UserInHost", "GET / HTTP/1.1\r\nHost: a@b\r\n\r\n", 400, "", ""},
    {"EmptyHost", "GET / HTTP/1.1\r\nHost:\r\n\r\n", 400, "", ""},
    {"SmallLetters", "get / HTTP/1.1\r\nHost: h\r\n\r\n", 501, "", ""},
    {"LongerWord", "GETTING / HTTP/1.1\r\nHost: h\r\n\r\n", 501, "", ""},
    {"OtherMethod", "DELETE / HTTP/1.1\r\nHost: h\r\n\r\n", 501, "", ""},
    {"Connect", "CONNECT h:80 HTTP/1.1\r\nHost: h\r\n\r\n", 501, "", ""},
    {"Asterisk", "GET * HTTP/1.1\r\nHost: h\r\n\r\n", 400, "", ""},
    {"Fragment", "GET /a#b HTTP/1.1\r\nHost: h\r\n\r\n", 400, "", ""},
    {"OtherScheme", "GET ws://h/ HTTP/1.1\r\nHost: h\r\n\r\n", 400, "", ""},
    {"NoSlash", "GET a HTTP/1.1\r\nHost: h\r\n\r\n", 400, "", ""},
    {"ForeignVersion", "GET / HTTP/2.0\r\n", 505, "", ""},
    {"NoVersion", "GET /\r\n", 400, "", ""},
    {"Folded", "GET / HTTP/1.1\r\nHost: h\r\nA: b\r\n c\r\n\r\n", 400, "", ""},
    {"BlankBeforeColon", "GET / HTTP/1.1\r\nHost : h\r\n\r\n", 400, "", ""},
    {"NulInHead", "GET / HTTP/1.1\r\nHost: h\r\nA: \0\r\n\r\n"sv, 400, "", ""},
    {"LengthAndCoding",
     "POST / HTTP/1.1\r\nHost: h\r\nContent-Length: 1\r\nTransfer-Encoding: "
     "chunked\r\n\r\n",
     400, "", ""},
    {"TwoLengths", "POST / HTTP/1.1\r\nHost: h\r\nContent-Length: 1\r\nContent-Length: 1\r\n\r\n",
     400, "", ""},
    {"OtherCoding", "POST / HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: gzip\r\n\r\n", 501, "", ""},
    {"BadChunk", "POST / HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\nx", 400, "", ""},
    {"LengthInAnotherName", "POST / HTTP/1.1\r\nHost: h\r\nX-Content-Length: 5\r\n\r\n", 0, "/",
     ""},
    {"TooLongByItsLength", "POST / HTTP/1.1\r\nHost: h\r\nContent-Length: 300\r\n\r\n", 413, "",
     ""},
    {"TooLongChunk",
     "POST / HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\nff\r\n"
     "0123456789012345678901234567890123456789012345678901234567890123456789012345678901234567890"
     "0123456789012345678901234567890123456789012345678901234567890123456789",
     413, "", ""},
    {"TooLongByTheSizeOfAChunk",
     "POST / HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\nff\r\n", 413, "", ""},
    {"TwoExpectations",
     "PUT / HTTP/1.1\r\nHost: h\r\nExpect: 100-continue\r\nExpect: tea\r\nContent-Length: "
     "1\r\n\r\n1",
     417, "", ""},
    {"Expectation",
     "PUT / HTTP/1.1\r\nHost: h\r\nExpect: 100-Continue\r\nContent-Length: 1\r\n\r\n1", 0, "/",
     "1"},
    {"OtherExpectation", "PUT / HTTP/1.1\r\nHost: h\r\nExpect: coffee\r\n\r\n", 417, "", ""},
};

void expect(const strict_request& request, const strict_case& c) {
    EXPECT_EQ(request.refusal(), c.refusal);
    EXPECT_EQ(request.status(), c.refusal == 0 ? state::complete : state::refused);
    if (c.refusal != 0) return;
    EXPECT_EQ(request.resource(), c.resource);
    EXPECT_EQ(request.body(), c.body);
}

class StrictRequestTest : public testing::TestWithParam<strict_case> {};

TEST_P(StrictRequestTest, GivesTheSameAtEverySplit) {
    const strict_case& c = GetParam();
    strict_request request(k_most);
    for (std::size_t split = 0; split <= c.bytes.size(); ++split) {
        SCOPED_TRACE(testing::Message() << "split at " << split);
        request.reset();
        const std::size_t used = request.feed(c.bytes.substr(0, split));
        request.feed(c.bytes.substr(used));
        expect(request, c);
    }
}

INSTANTIATE_TEST_SUITE_P(All, StrictRequestTest, testing::ValuesIn(k_strict_cases),
                         [](const auto& one) { return std::string(one.param.name); });

TEST(StrictRequest, StopsAtTheEndOfTheFirst) {
    const std::string one = "PUT / HTTP/1.1\r\nHost: h\r\nContent-Length: 1\r\n\r\na";
    strict_request request(k_most);
    EXPECT_EQ(request.feed(one + "GET / HTTP/1.1\r\n"), one.size());
    EXPECT_EQ(request.status(), state::complete);
}

TEST(StrictRequest, APeerWaitsForTheBodyOnlyBeforeItSendsAny) {
    const std::string head =
        "PUT / HTTP/1.1\r\nHost: h\r\nExpect: 100-continue\r\nContent-Length: 2\r\n\r\n";
    strict_request request(k_most);
    request.feed(head);
    EXPECT_TRUE(request.takes_continue());
    EXPECT_FALSE(request.takes_continue());
    request.reset();
    request.feed(head + "a");
    EXPECT_FALSE(request.takes_continue());
}

TEST(StrictRequest, AHeadHasABoundOfItsOwn) {
    strict_request request(1 << 30);
    request.feed("GET /" + std::string(100'000, 'a'));
    EXPECT_EQ(request.refusal(), 414);
    request.reset();
    request.feed("GET / HTTP/1.1\r\nHost: h\r\nA: " + std::string(100'000, 'a'));
    EXPECT_EQ(request.refusal(), 431);
}

}  // namespace
}  // namespace pennywort::httpserver
