// requests_test.cpp - what the server makes of requests, over real connections.
#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "tests/httpserver/test_client.h"
#include "tests/httpserver/test_handler.h"

namespace {

struct request_case {
    const char* name;
    std::string bytes;
    std::int32_t method;
    const char* path;
    const char* extension;
    const char* query;
    const char* body;
};
void PrintTo(const request_case& c, std::ostream* out) { *out << c.name; }

constexpr std::int32_t k_get = cHttpHandler::k_get;
constexpr std::int32_t k_post = cHttpHandler::k_post;
constexpr std::int32_t k_put = cHttpHandler::k_put;

const request_case k_request_cases[] = {
    {"PathExtensionAndQuery", "GET /a/b.html?x=1 HTTP/1.1\r\n\r\n", k_get, "/a/b.html", "html",
     "x=1", ""},
    {"MethodInSmallLetters", "get / HTTP/1.1\r\n\r\n", k_get, "/", "", "", ""},
    {"MethodInMixedLetters", "pOsT / HTTP/1.1\r\n\r\n", k_post, "/", "", "", ""},
    {"ALongerWordThatBeginsWithAMethod", "GETTING /a HTTP/1.1\r\n\r\n", k_get, "/a", "", "", ""},
    {"ALongerWordThatBeginsWithPost", "POSTAL /a HTTP/1.1\r\n\r\n", k_post, "/a", "", "", ""},
    {"ALongerWordThatBeginsWithPut", "putter /a HTTP/1.1\r\n\r\n", k_put, "/a", "", "", ""},
    {"Put", "PUT /a HTTP/1.1\r\nContent-Length: 3\r\n\r\nabc", k_put, "/a", "", "", "abc"},
    {"TabsForBlanks", "GET\t \t/a\tHTTP/1.1\r\n\r\n", k_get, "/a", "", "", ""},
    {"ATabEndsTheQuery", "GET /a?b\tc\r\n\r\n", k_get, "/a", "", "b", ""},
    {"AFragmentIsNotCutOff", "GET /a#b?c#d HTTP/1.1\r\n\r\n", k_get, "/a#b", "", "c#d", ""},
    {"NoVersion", "GET /a?b \r\n\r\n", k_get, "/a", "", "b", ""},
    {"NoPath", "GET \r\n\r\n", k_get, "\r\n\r\n", "", "", ""},
    {"NoBlankInTheLine", "GET/a\r\nHost: b.c\r\n\r\n", k_get, "b.c\r\n\r\n", "c\r\n\r\n", "", ""},
    {"NothingButTheMethod", "POST\r\n\r\n", k_post, "", "", "", ""},
    {"ThePathRunsIntoTheHeaders", "GET /a\r\nHost: b\r\n\r\n", k_get, "/a\r\nHost:", "", "", ""},
    {"ExtensionWithASlash", "GET /a.b/c HTTP/1.1\r\n\r\n", k_get, "/a.b/c", "b/c", "", ""},
    {"TheLastDotCounts", "GET /a.tar.gz HTTP/1.1\r\n\r\n", k_get, "/a.tar.gz", "gz", "", ""},
    {"DotAtTheEnd", "GET /a. HTTP/1.1\r\n\r\n", k_get, "/a.", "", "", ""},
    {"ADotInTheQueryIsNoExtension", "GET /a?b.c HTTP/1.1\r\n\r\n", k_get, "/a", "", "b.c", ""},
    {"EmptyQuery", "GET /a? HTTP/1.1\r\n\r\n", k_get, "/a", "", "", ""},
    {"ASecondQuestionMark", "GET /a?b?c HTTP/1.1\r\n\r\n", k_get, "/a", "", "b?c", ""},
    {"NothingIsDecoded", "GET /%41%2e%00?%42 HTTP/1.1\r\n\r\n", k_get, "/%41%2e%00", "", "%42", ""},
    {"OnlyAQuery", "GET ?a HTTP/1.1\r\n\r\n", k_get, "", "", "a", ""},
    {"LengthInAnyLetters", "POST / HTTP/1.1\r\ncONTENT-lENGTH:2\r\n\r\nab", k_post, "/", "", "",
     "ab"},
    {"BodyWithoutALength", "POST / HTTP/1.1\r\n\r\nabc", k_post, "/", "", "", "abc"},
    {"MoreThanTheLength", "POST / HTTP/1.1\r\nContent-Length: 1\r\n\r\nabc", k_post, "/", "", "",
     "abc"},
    {"NegativeLength", "POST / HTTP/1.1\r\nContent-Length: -5\r\n\r\nab", k_post, "/", "", "",
     "ab"},
    {"LengthThatIsNoNumber", "POST / HTTP/1.1\r\nContent-Length: many\r\n\r\n", k_post, "/", "", "",
     ""},
    {"LengthWithASign", "POST / HTTP/1.1\r\nContent-Length: +2\r\n\r\nab", k_post, "/", "", "",
     "ab"},
    {"TheNumberEndsAtItsLastDigit", "POST / HTTP/1.1\r\nContent-Length: 2x9\r\n\r\nab", k_post, "/",
     "", "", "ab"},
    {"TheFirstLengthCounts",
     "POST / HTTP/1.1\r\nContent-Length: 2\r\nContent-Length: 9999\r\n\r\nab", k_post, "/", "", "",
     "ab"},
    {"LengthInTheName", "POST / HTTP/1.1\r\nX-Content-Length: 2\r\n\r\nab", k_post, "/", "", "",
     "ab"},
    {"LengthInTheBody", "POST / HTTP/1.1\r\n\r\nContent-Length: 17", k_post, "/", "", "",
     "Content-Length: 17"},
    {"LengthOnTheNextLine", "POST / HTTP/1.1\r\nContent-Length:\r\n 2\r\n\r\nab", k_post, "/", "",
     "", "ab"},
};

class RequestTest : public testing::TestWithParam<request_case> {
protected:
    RequestTest() { m_server.InstallHandler(*m_handler); }

    void expect_call() const {
        const request_case& want = GetParam();
        const seen_call call = m_handler->last();
        EXPECT_EQ(call.method, want.method);
        EXPECT_EQ(call.path, want.path);
        EXPECT_EQ(call.extension, want.extension);
        EXPECT_EQ(call.query, want.query);
        EXPECT_EQ(call.body, want.body);
        EXPECT_EQ(call.request, want.bytes);
        EXPECT_TRUE(call.is_as_asked);
    }

    held<test_handler> m_handler = make<test_handler>("");
    cHttpServer m_server{0, k_buffer};
};

TEST_P(RequestTest, GivesItsPartsToTheHandler) {
    test_client client(m_server.ListenPort());
    ASSERT_TRUE(client.send(GetParam().bytes));
    EXPECT_EQ(client.receive_answer(), plain_answer("fine"));
    expect_call();
}

INSTANTIATE_TEST_SUITE_P(All, RequestTest, testing::ValuesIn(k_request_cases),
                         [](const auto& tested) { return std::string(tested.param.name); });

class RequestsTest : public testing::Test {
protected:
    RequestsTest() { m_server.InstallHandler(*m_handler); }

    // The server has taken so many bytes off its connections.
    void wait_for_bytes(std::int64_t count) {
        cHttpServerCounts counts;
        do {
            m_server.GetCounts(counts);
            zThread::MicroSleep(100);
        } while (counts.bytesReceived < count);
    }

    held<test_handler> m_handler = make<test_handler>("/");
    cHttpServer m_server{0, k_buffer};
};

TEST_F(RequestsTest, ThatNoHandlerTakesGetNoAnswerAndKeepTheirConnection) {
    test_client client(m_server.ListenPort());
    const std::string strange = "GET nowhere HTTP/1.1\r\n\r\n";
    client.send(strange);
    wait_for_bytes(static_cast<std::int64_t>(strange.size()));
    EXPECT_FALSE(client.has_anything());
    client.send(get_request("/a"));
    EXPECT_EQ(client.receive_answer(), plain_answer("fine"));
    EXPECT_EQ(m_handler->calls().size(), 1u);
}

// The rest of it must not be taken for the front of the next one.
TEST_F(RequestsTest, ThatNoHandlerTakesAreForgottenAlsoWhenTheyCameInPieces) {
    test_client client(m_server.ListenPort());
    client.send("GET nowhere ");
    wait_for_bytes(12);
    client.send("HTTP/1.1\r\n\r\n");
    wait_for_bytes(12 + 12);
    client.send(get_request("/a"));
    EXPECT_EQ(client.receive_answer(), plain_answer("fine"));
    EXPECT_EQ(m_handler->last().request, get_request("/a"));
}

TEST_F(RequestsTest, WithAnUnknownMethodAreNeverAnswered) {
    test_client client(m_server.ListenPort());
    const std::string strange = "DELETE /a HTTP/1.1\r\n\r\n" + get_request("/b");
    client.send(strange);
    wait_for_bytes(static_cast<std::int64_t>(strange.size()));
    client.send(get_request("/c"));
    client.end_sending();
    EXPECT_TRUE(client.is_ended());
    EXPECT_EQ(m_handler->calls().size(), 0u);
    EXPECT_EQ(get(m_server.ListenPort(), "/d"), plain_answer("fine"));
}

TEST_F(RequestsTest, WithALengthThatNeverArrivesAreNeverAnswered) {
    for (const char* length :
         {"6", "99999999", "2147483648", "4294967297", "99999999999999999999"}) {
        test_client client(m_server.ListenPort());
        client.send("POST /a HTTP/1.1\r\nContent-Length: " + std::string(length) + "\r\n\r\nabcde");
        client.end_sending();
        EXPECT_TRUE(client.is_ended()) << length;
    }
    EXPECT_EQ(m_handler->calls().size(), 0u);
}

TEST_F(RequestsTest, CountTheLengthThatStandsInABodyOfTheSameRead) {
    test_client client(m_server.ListenPort());
    client.send("POST /a HTTP/1.1\r\n\r\nContent-Length: 40.");
    wait_for_bytes(39);
    EXPECT_FALSE(client.has_anything());
    client.send("123456789012345678901");
    EXPECT_EQ(client.receive_answer(), plain_answer("fine"));
    EXPECT_EQ(m_handler->last().body.size(), 40u);
}

TEST_F(RequestsTest, ReadOnANumberThatWasCut) {
    test_client client(m_server.ListenPort());
    client.send("POST /a HTTP/1.1\r\n\r\nContent-Length: 4");
    EXPECT_EQ(client.receive_answer(), plain_answer("fine"));
    client.send("POST /b HTTP/1.1\r\nContent-Length: 1");
    wait_for_bytes(37 + 35);
    client.send("0\r\n\r\n123456789");
    wait_for_bytes(37 + 35 + 14);
    EXPECT_FALSE(client.has_anything());
    client.send("0");
    EXPECT_EQ(client.receive_answer(), plain_answer("fine"));
    EXPECT_EQ(m_handler->last().body, "1234567890");
}

TEST_F(RequestsTest, AreDispatchedOnceWhenTheirLastByteHasCome) {
    test_client client(m_server.ListenPort());
    std::int64_t sent = 0;
    for (const std::string piece :
         {"POST /a HT", "TP/1.1\r\nContent-Le", "ngth: 1", "0\r\n\r", "\n", "12345", "6789"}) {
        client.send(piece);
        sent += static_cast<std::int64_t>(piece.size());
        wait_for_bytes(sent);
        EXPECT_EQ(m_handler->calls().size(), 0u) << piece;
    }
    client.send("0");
    EXPECT_EQ(client.receive_answer(), plain_answer("fine"));
    ASSERT_EQ(m_handler->calls().size(), 1u);
    EXPECT_EQ(m_handler->last().body, "1234567890");
}

// As the pieces come, not as they are in the end: here the length was 1 when all of it was there.
TEST_F(RequestsTest, AreJudgedByWhatHasCome) {
    test_client client(m_server.ListenPort());
    client.send("POST /a HTTP/1.1\r\n\r\n");
    EXPECT_EQ(client.receive_answer(), plain_answer("fine"));
    client.send("Content-Length: 100\r\n\r\n");
    client.send(get_request("/b"));
    client.end_sending();
    EXPECT_TRUE(client.is_ended());
    EXPECT_EQ(m_handler->calls().size(), 1u);
}

TEST_F(RequestsTest, ComeOneAfterTheOtherOnAConnection) {
    test_client client(m_server.ListenPort());
    for (int i = 0; i < 100; ++i) {
        const std::string path = "/" + std::to_string(i);
        client.send(get_request(path));
        ASSERT_EQ(client.receive_answer(), plain_answer("fine"));
        ASSERT_EQ(m_handler->last().path, path);
    }
}

TEST_F(RequestsTest, DropWhatCameTogetherWithTheirEnd) {
    test_client client(m_server.ListenPort());
    client.send(get_request("/a") + get_request("/b") + "GET /c");
    EXPECT_EQ(client.receive_answer(), plain_answer("fine"));
    client.send(get_request("/d"));
    EXPECT_EQ(client.receive_answer(), plain_answer("fine"));
    ASSERT_EQ(m_handler->calls().size(), 2u);
    EXPECT_EQ(m_handler->calls()[0].path, "/a");
    EXPECT_EQ(m_handler->calls()[1].path, "/d");
}

TEST_F(RequestsTest, LoseWhatFollowsANulInOneRead) {
    test_client client(m_server.ListenPort());
    client.send(std::string("POST /a HTTP/1.1\r\nContent-Length: 4\r\n\r\nab\0cd", 43));
    wait_for_bytes(43);
    EXPECT_FALSE(client.has_anything());
    client.send(std::string("ef\0gh", 5));
    EXPECT_EQ(client.receive_answer(), plain_answer("fine"));
    EXPECT_EQ(m_handler->last().body, "abef");
}

// The NUL is the last byte that fits: what is behind it comes by a read of its own.
TEST_F(RequestsTest, AreReadByNoMoreThanTheBufferTakes) {
    cHttpServer small(0, 8);
    small.InstallHandler(*m_handler);
    test_client client(small.ListenPort());
    client.send(std::string("GET /ab\0c HTTP/1.1\r\n\r\n", 22));
    EXPECT_EQ(client.receive_answer(), plain_answer("fine"));
    EXPECT_EQ(m_handler->last().path, "/abc");
}

TEST_F(RequestsTest, ThatBeginWithANulAreNothing) {
    test_client client(m_server.ListenPort());
    client.send(std::string("\0GET /a HTTP/1.1\r\n\r\n", 20));
    wait_for_bytes(20);
    client.send(get_request("/b"));
    EXPECT_EQ(client.receive_answer(), plain_answer("fine"));
    EXPECT_EQ(m_handler->last().path, "/b");
}

TEST_F(RequestsTest, GoToTheFirstHandlerThatTakesThem) {
    const auto second = make<test_handler>("/", "second");
    m_server.InstallHandler(*second);
    EXPECT_EQ(get(m_server.ListenPort(), "/a"), plain_answer("fine"));
    EXPECT_EQ(second->calls().size(), 0u);
}

TEST_F(RequestsTest, GoOnToTheNextHandler) {
    const auto second = make<test_handler>("other", "second");
    m_server.InstallHandler(*second);
    EXPECT_EQ(get(m_server.ListenPort(), "other"), plain_answer("second"));
    EXPECT_EQ(m_handler->calls().size(), 0u);
}

TEST_F(RequestsTest, WithHeadersOfAMegabyteAreAnswered) {
    test_client client(m_server.ListenPort());
    std::string request = "GET /a HTTP/1.1\r\n";
    while (request.size() < (1u << 20)) request += "X-Header: " + std::string(90, 'v') + "\r\n";
    client.send(request + "\r\n");
    EXPECT_EQ(client.receive_answer(), plain_answer("fine"));
    EXPECT_EQ(m_handler->last().request.size(), request.size() + 2);
}

// Work and not time: how often the server looks at a byte does not depend on how many there are.
TEST_F(RequestsTest, CostWorkInProportionHoweverTheyAreSplit) {
    constexpr std::int64_t k_body = 64 << 20;
    const std::string piece(1024, ':');  // the byte that the search for the length stops at
    test_client client(m_server.ListenPort());
    client.send("POST /a HTTP/1.1\r\nContent-Length: " + std::to_string(k_body) + "\r\n\r\n");
    for (std::int64_t sent = 0; sent < k_body; sent += 1024) ASSERT_TRUE(client.send(piece));
    EXPECT_EQ(client.receive_answer(), plain_answer("fine"));
    EXPECT_EQ(m_handler->last().body.size(), static_cast<std::size_t>(k_body));
    cHttpServerCounts counts;
    m_server.GetCounts(counts);
    EXPECT_GE(counts.bytesReceived, k_body);
    EXPECT_LE(counts.bytesExamined, 1024);
}

TEST_F(RequestsTest, CostWorkInProportionWithoutALength) {
    test_client client(m_server.ListenPort());
    client.send("GET /a HTTP/1.1\r\nX: ");
    const std::string piece(256, ':');
    constexpr std::int64_t k_head = 4 << 20;
    for (std::int64_t sent = 0; sent < k_head; sent += 256) ASSERT_TRUE(client.send(piece));
    client.send("\r\n\r\n");
    EXPECT_EQ(client.receive_answer(), plain_answer("fine"));
    cHttpServerCounts counts;
    m_server.GetCounts(counts);
    // Once for the blank line, and for each colon the 14 bytes before it.
    EXPECT_LE(counts.bytesExamined, 17 * counts.bytesReceived);
}

TEST_F(RequestsTest, CostWorkInProportionWithALengthOfBlanksAndZeros) {
    test_client client(m_server.ListenPort());
    client.send("POST /a HTTP/1.1\r\nContent-Length:");
    const std::string blanks(256, ' ');
    const std::string zeros(256, '0');
    for (int i = 0; i < 4096; ++i) ASSERT_TRUE(client.send(i < 2048 ? blanks : zeros));
    client.send("2\r\n\r\nab");
    EXPECT_EQ(client.receive_answer(), plain_answer("fine"));
    cHttpServerCounts counts;
    m_server.GetCounts(counts);
    EXPECT_LE(counts.bytesExamined, 3 * counts.bytesReceived);
}

}  // namespace
