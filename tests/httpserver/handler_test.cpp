// handler_test.cpp - what cHttpHandler writes, byte for byte, on a connection without a server.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "httpserver.h"
#include "tests/httpserver/test_client.h"
#include "tests/httpserver/test_handler.h"

namespace {

constexpr const char* k_page =
    "<HTML><TITLE>Not Found</TITLE>\r\n\t<BODY><P>The server could not fulfill your request "
    "(Resource not found)</P>\r\n</BODY></HTML>\r\n";

// Two ends of a connection; the near one is what a handler gets.
class HandlerTest : public testing::Test {
protected:
    HandlerTest() {
        const std::unique_ptr<zSocket> listener(zSocket::Factory());
        EXPECT_EQ(listener->Open(0), 0);
        EXPECT_EQ(listener->BindTo("127.0.0.1", 0), 0);
        EXPECT_EQ(listener->Listen(1), 0);
        m_far = std::make_unique<test_client>(listener->LocalPort());
        zSocket* accepted = nullptr;
        while (listener->Accept(&accepted, 0) == zSocket::k_not_now) zThread::MicroSleep(100);
        m_near.reset(accepted);
    }

    std::string all_that_was_sent() {
        m_near->Close();
        m_far->is_ended();
        return m_far->receive(1 << 20);
    }

    std::unique_ptr<test_client> m_far;
    std::unique_ptr<zSocket> m_near;
};

class bare_handler final : public cHttpHandler {};

TEST_F(HandlerTest, OfTheBaseClassTakesNothingAndSendsNothing) {
    const auto handler = make<bare_handler>();
    const zString text("/");
    EXPECT_FALSE(handler->CanHandle(cHttpHandler::k_get, text, text, text, ""));
    EXPECT_EQ(handler->Handle(m_near.get(), cHttpHandler::k_get, text, text, text, ""), -1);
    zStatus status = 0;
    EXPECT_EQ(handler->HandleInPieces(m_near.get(), 0, text, text, text, "", status), nullptr);
    EXPECT_EQ(status, -1);
    EXPECT_EQ(all_that_was_sent(), "");
}

TEST_F(HandlerTest, BeginsWithOneReference) {
    auto* handler = new bare_handler;
    EXPECT_EQ(handler->AddRef(), 2);
    EXPECT_EQ(handler->Release(), 1);
    EXPECT_EQ(handler->Release(), 0);
}

TEST_F(HandlerTest, SendsNothingForNull) {
    EXPECT_EQ(cHttpHandler::SendString(m_near.get(), nullptr), 0);
    EXPECT_EQ(cHttpHandler::SendString(m_near.get(), ""), 0);
    EXPECT_EQ(cHttpHandler::SendBytes(m_near.get(), nullptr, 0), 0);
    EXPECT_EQ(all_that_was_sent(), "");
}

TEST_F(HandlerTest, RefusesWhatCannotBeSent) {
    EXPECT_EQ(cHttpHandler::SendString(nullptr, "a"), -1);
    EXPECT_EQ(cHttpHandler::SendBytes(m_near.get(), nullptr, 1), -1);
    EXPECT_EQ(cHttpHandler::SendBytes(m_near.get(), "a", -1), -1);
    EXPECT_EQ(cHttpHandler::SendAnswer(m_near.get(), 200, "a", nullptr, 1), -1);
    cHttpHandler::SendHeaders(nullptr, 1, "a");
    cHttpHandler::Send404(nullptr);
    EXPECT_EQ(all_that_was_sent(), "");
}

TEST_F(HandlerTest, SendsTheTextUpToItsNul) {
    EXPECT_EQ(cHttpHandler::SendString(m_near.get(), "ab\0cd"), 0);
    EXPECT_EQ(all_that_was_sent(), "ab");
}

TEST_F(HandlerTest, GivesTheStatusOfTheSocket) {
    m_far->reset();
    zStatus status = 0;
    while (status == 0) status = cHttpHandler::SendString(m_near.get(), "a");
    EXPECT_EQ(status, zSocket::k_lost);
    m_near->Close();
    EXPECT_EQ(cHttpHandler::SendString(m_near.get(), "a"), zSocket::k_failed);
}

TEST_F(HandlerTest, SendsTheHeadersByteForByte) {
    cHttpHandler::SendHeaders(m_near.get(), 12, "text/html");
    EXPECT_EQ(all_that_was_sent(),
              "HTTP/1.1 200 OK\r\nConnection: Keep-Alive\r\nServer: nimb_httpd/0.1.0\r\n"
              "Content-Type: text/html\r\nContent-Length: 12\r\n\r\n");
}

TEST_F(HandlerTest, SendsTheHeadersOfNothing) {
    cHttpHandler::SendHeaders(m_near.get(), 0, "text/plain");
    EXPECT_EQ(all_that_was_sent(), plain_answer(""));
}

TEST_F(HandlerTest, WritesTheLengthAsItIs) {
    cHttpHandler::SendHeaders(m_near.get(), -1, "");
    EXPECT_EQ(all_that_was_sent(),
              "HTTP/1.1 200 OK\r\nConnection: Keep-Alive\r\nServer: nimb_httpd/0.1.0\r\n"
              "Content-Type: \r\nContent-Length: -1\r\n\r\n");
}

// Notes what is sent, and how, in place of sending it.
class noting_socket final : public zSocket {
public:
    struct piece {
        std::string bytes;
        std::int32_t flags;
        std::int32_t timeout;
    };

    zStatus Send(const char* data, std::int32_t length, std::int32_t flags,
                 std::int32_t timeout) override {
        pieces.push_back({length > 0 ? std::string(data, static_cast<std::size_t>(length)) : "",
                          flags, timeout});
        return answer;
    }

    std::vector<piece> pieces;
    zStatus answer = 0;
};

TEST(Handler, SendsEachTextByOneCallThatWaitsFiveSeconds) {
    noting_socket socket;
    EXPECT_EQ(cHttpHandler::SendString(&socket, "text"), 0);
    EXPECT_EQ(cHttpHandler::SendString(&socket, nullptr), 0);
    cHttpHandler::SendHeaders(&socket, 7, "a/b");
    cHttpHandler::Send404(&socket);
    ASSERT_EQ(socket.pieces.size(), 5u);
    const char* const parts[] = {"text", "", "Content-Type: a/b\r\nContent-Length: 7\r\n\r\n",
                                 "Content-Length: 126\r\n\r\n", k_page};
    for (std::size_t i = 0; i < 5; ++i) {
        const noting_socket::piece& sent = socket.pieces[i];
        const std::string part = parts[i];
        const std::size_t rest = sent.bytes.size() - std::min(sent.bytes.size(), part.size());
        EXPECT_EQ(sent.bytes.substr(rest), part);
        EXPECT_EQ(sent.flags, 0);
        EXPECT_EQ(sent.timeout, 5000);
    }
    EXPECT_EQ(socket.pieces[0].bytes, "text");
    EXPECT_EQ(socket.pieces[1].bytes, "");
}

TEST(Handler, GivesAnyStatusOfTheSocketAsItIs) {
    noting_socket socket;
    for (const zStatus status : {zSocket::k_timed_out, zSocket::k_lost, -777}) {
        socket.answer = status;
        EXPECT_EQ(cHttpHandler::SendString(&socket, "text"), status);
        EXPECT_EQ(cHttpHandler::SendBytes(&socket, "text", 4), status);
        EXPECT_EQ(cHttpHandler::SendAnswer(&socket, 200, "a/b", "text", 4), status);
    }
}

// Not collected for the acknowledgement of the peer, nor held for ever for a body that fails to
// come.
TEST_F(HandlerTest, SendsHeadersAlsoWhenNothingFollows) {
    cHttpHandler::SendHeaders(m_near.get(), 5, "text/plain");
    EXPECT_EQ(m_far->receive(16), "HTTP/1.1 200 OK\r");
}

TEST_F(HandlerTest, SendsThePageOfANotFoundAsASuccess) {
    EXPECT_EQ(std::strlen(k_page), 126u);
    cHttpHandler::Send404(m_near.get());
    EXPECT_EQ(all_that_was_sent(),
              std::string("HTTP/1.1 200 OK\r\nConnection: Keep-Alive\r\n"
                          "Server: nimb_httpd/0.1.0\r\nContent-Type: text/html\r\n"
                          "Content-Length: 126\r\n\r\n") +
                  k_page);
}

TEST_F(HandlerTest, SendsAWholeAnswerWithItsStatus) {
    EXPECT_EQ(cHttpHandler::SendAnswer(m_near.get(), 503, "text/plain", "a\0b", 3), 0);
    EXPECT_EQ(all_that_was_sent(),
              std::string("HTTP/1.1 503 Service Unavailable\r\nConnection: Keep-Alive\r\n"
                          "Server: nimb_httpd/0.1.0\r\nContent-Type: text/plain\r\n"
                          "Content-Length: 3\r\n\r\na") +
                  std::string("\0b", 2));
}

// A peer takes the bytes behind a 204 for the next answer.
TEST_F(HandlerTest, SendsNoLengthAndNoBodyWithAStatusThatHasNone) {
    EXPECT_EQ(cHttpHandler::SendAnswer(m_near.get(), 204, "text/plain", "abc", 3), 0);
    EXPECT_EQ(all_that_was_sent(),
              "HTTP/1.1 204 No Content\r\nConnection: Keep-Alive\r\n"
              "Server: nimb_httpd/0.1.0\r\n\r\n");
}

TEST_F(HandlerTest, SendsALongAnswerToItsEnd) {
    const std::string body(100000, 'b');
    EXPECT_EQ(cHttpHandler::SendAnswer(m_near.get(), 200, "text/plain", body.data(), 100000), 0);
    EXPECT_EQ(all_that_was_sent(), plain_answer(body));
}

TEST(TextHandler, AnswersItsPathAndNoOther) {
    const auto handler =
        make<cHttpTextHandler>(zString("/a"), zString("text/plain"), zString("hello"));
    const auto last = make<cHttpNotFoundHandler>();
    cHttpServer server(0, 4096);
    server.InstallHandler(*handler);
    server.InstallHandler(*last);
    EXPECT_EQ(get(server.ListenPort(), "/a?b"), plain_answer("hello"));
    EXPECT_EQ(get(server.ListenPort(), "/ab").substr(0, 24), "HTTP/1.1 404 Not Found\r\n");
    test_client client(server.ListenPort());
    client.send("PUT /a HTTP/1.1\r\n\r\n");
    EXPECT_EQ(client.receive_answer().substr(0, 12), "HTTP/1.1 404");
}

TEST(NotFoundHandler, AnswersEverythingWithA404AndKeepsTheConnection) {
    const auto handler = make<cHttpNotFoundHandler>();
    cHttpServer server(0, 4096);
    server.InstallHandler(*handler);
    test_client client(server.ListenPort());
    for (int i = 0; i < 2; ++i) {
        client.send(get_request("/nothing"));
        const std::string answer = client.receive_answer();
        EXPECT_EQ(answer.substr(0, 24), "HTTP/1.1 404 Not Found\r\n");
        EXPECT_EQ(body_of(answer), k_page);
    }
}

}  // namespace
