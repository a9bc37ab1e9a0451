// requests_test.cpp - what a session sends, and what it makes of whole responses.
#include <algorithm>
#include <cstdlib>
#include <mutex>

#include "logger.h"
#include "tests/httpclient/scripted_peer.h"
#include "tests/httpclient/session_fixture.h"
#include "tests/loam/wine.h"
#include "tests/support/eventually.h"

namespace {

// What a peer was sent.
class recorded {
public:
    void add(const std::string& text) {
        const std::lock_guard lock(m_mutex);
        m_text += text;
    }
    std::string text() {
        const std::lock_guard lock(m_mutex);
        return m_text;
    }

private:
    std::mutex m_mutex;
    std::string m_text;
};

class RequestsTest : public SessionTest {
protected:
    scripted_peer::script recording(std::size_t body_bytes, std::string answer) {
        return [this, body_bytes, answer = std::move(answer)](peer_connection& connection) {
            m_sent.add(connection.receive_head());
            m_sent.add(connection.receive(body_bytes));
            connection.send(answer);
            connection.wait_for_end();
        };
    }
    bool has_line(const std::string& line) {
        return m_sent.text().find("\r\n" + line + "\r\n") != std::string::npos;
    }
    int count_of(const std::string& name) {
        const std::string text = m_sent.text();
        int count = 0;
        for (std::size_t at = text.find("\r\n" + name + ":"); at != std::string::npos;
             at = text.find("\r\n" + name + ":", at + 1)) {
            ++count;
        }
        return count;
    }

    recorded m_sent;
};

TEST_F(RequestsTest, AGetBringsTheBody) {
    const scripted_peer peer(recording(0, answer_with("hello", "Content-Type: text/plain\r\n")));
    EXPECT_EQ(get(peer.url("/a/b?c=d")), 0);
    EXPECT_EQ(body(), "hello");
    std::uint32_t code = 7;
    EXPECT_EQ(status(&code), 0);
    EXPECT_EQ(code, 200U);
    zString type;
    EXPECT_EQ(m_session->Response_ContentType(type), 0);
    EXPECT_STREQ(type.CString(), "text/plain");
    std::uint32_t length = 7;
    EXPECT_EQ(m_session->Response_ContentLength(&length), 0);
    EXPECT_EQ(length, 5U);
    EXPECT_EQ(m_sent.text().substr(0, 23), "GET /a/b?c=d HTTP/1.1\r\n");
    EXPECT_TRUE(has_line("User-Agent: Nimb Software Client"));
    EXPECT_TRUE(has_line("Host: 127.0.0.1:" + std::to_string(peer.port())));
    EXPECT_EQ(count_of("Content-Length"), 0);
    EXPECT_EQ(count_of("Accept"), 0);
    EXPECT_EQ(count_of("Accept-Encoding"), 0);
}

TEST_F(RequestsTest, EachVerbIsSent) {
    struct verb {
        std::uint32_t code;
        const char* text;
    };
    for (const auto& [code, text] : {verb{cHttpSession::k_get, "GET "},
                                     {cHttpSession::k_post, "POST "},
                                     {cHttpSession::k_put, "PUT "},
                                     {cHttpSession::k_patch, "PATCH "},
                                     {cHttpSession::k_delete, "DELETE "},
                                     {0x12345678, "GET "}}) {
        SCOPED_TRACE(text);
        recorded sent;
        const scripted_peer peer([&sent](peer_connection& connection) {
            sent.add(connection.receive_head());
            connection.send(answer_with(""));
            connection.wait_for_end();
        });
        EXPECT_EQ(request(code, peer.url()), 0);
        EXPECT_EQ(sent.text().rfind(text, 0), 0U) << sent.text();
    }
}

TEST_F(RequestsTest, APostSendsItsBodyAndHeaders) {
    const scripted_peer peer(recording(11, answer_with("ok")));
    zRecord headers;
    cHttpSession::SetContentTypeHeader(headers, "text/xml");
    headers.SetInt32("X-Number", 42, 0);
    headers.SetCString("X-Empty", "", 0);
    headers.SetInt32(std::uint64_t{99}, 1, 0);
    EXPECT_EQ(request(cHttpSession::k_post, peer.url(), "hello world", &headers), 0);
    EXPECT_TRUE(has_line("Content-Length: 11"));
    EXPECT_TRUE(has_line("Content-Type: text/xml"));
    EXPECT_TRUE(has_line("X-Number: 42"));
    EXPECT_EQ(count_of("X-Empty"), 1);
    EXPECT_EQ(count_of("Expect"), 0);
    EXPECT_EQ(count_of("Transfer-Encoding"), 0);
    EXPECT_TRUE(m_sent.text().ends_with("\r\n\r\nhello world"));
}

TEST_F(RequestsTest, APostWithoutABodySaysSo) {
    const scripted_peer peer(recording(0, answer_with("ok")));
    EXPECT_EQ(request(cHttpSession::k_post, peer.url()), 0);
    EXPECT_TRUE(has_line("Content-Length: 0"));
}

TEST_F(RequestsTest, AnAnnouncedBodyThatIsNotThereIsWaitedForByThePeerAlone) {
    if (runs_under_wine()) GTEST_SKIP() << "Wine waits 90 s for a head, whatever the time-out";
    const scripted_peer peer(recording(5, answer_with("never")));
    m_session->Configure(cHttpSession::k_post, peer.url().c_str(), 1);
    EXPECT_EQ(m_session->Request_Begin(&m_sink, nullptr, nullptr, 5), cHttpSession::k_timed_out);
    EXPECT_TRUE(pennywort::tests::eventually([&] { return has_line("Content-Length: 5"); }));
}

TEST_F(RequestsTest, ABadHeaderNameIsRefusedBeforeAnythingIsSent) {
    const scripted_peer peer(recording(0, answer_with("")));
    zRecord headers;
    headers.SetCString("Good", "1", 0);
    headers.SetCString("Bad name", "1", 0);
    EXPECT_EQ(request(cHttpSession::k_get, peer.url(), {}, &headers),
              cHttpSession::k_bad_header_name);
    EXPECT_EQ(peer.connections(), 0);
}

TEST_F(RequestsTest, AValueThatWouldBeginAnotherHeaderIsRefused) {
    const scripted_peer peer(recording(0, answer_with("")));
    zRecord headers;
    headers.SetCString("X", "a\nInjected: 1", 0);
    EXPECT_EQ(request(cHttpSession::k_get, peer.url(), {}, &headers), cHttpSession::k_send_failed);
    EXPECT_EQ(peer.connections(), 0);
}

TEST_F(RequestsTest, BlanksAndBytesBeyondAsciiInAPathAreCoded) {
    const scripted_peer peer(recording(0, answer_with("")));
    EXPECT_EQ(get(peer.url("/a b/\xC3\xA9?q=\"x\"&y=%20")), 0);
    EXPECT_EQ(m_sent.text().substr(0, m_sent.text().find(" HTTP/")),
              "GET /a%20b/%C3%A9?q=%22x%22&y=%20");
}

TEST_F(RequestsTest, AFragmentIsNotSent) {
    const scripted_peer peer(recording(0, answer_with("")));
    EXPECT_EQ(get(peer.url("/a?b#c")), 0);
    EXPECT_EQ(m_sent.text().substr(0, 16), "GET /a?b HTTP/1.");
}

TEST_F(RequestsTest, AUrlWithAQueryAndNoPathAsksForTheRoot) {
    const scripted_peer peer(recording(0, answer_with("")));
    EXPECT_EQ(get(peer.url("?a=b")), 0);
    EXPECT_EQ(m_sent.text().substr(0, 11), "GET /?a=b H");
}

TEST_F(RequestsTest, CredentialsAreKeptAndSentOnlyWhereAsked) {
    const scripted_peer peer(recording(0, answer_with("")));
    m_session->SetBasicHTTPAuthentication("user", "pass");
    m_session->SetAuthentication(true, "other", "other");
    EXPECT_EQ(get(peer.url()), 0);
    EXPECT_EQ(count_of("Authorization"), 0);
    cHttpSessionSettings settings;
    settings.sendBasicAuthentication = true;
    m_session->SetSettings(settings);
    const scripted_peer other(recording(0, answer_with("")));
    EXPECT_EQ(get(other.url()), 0);
    EXPECT_TRUE(has_line("Authorization: Basic dXNlcjpwYXNz"));
}

TEST_F(RequestsTest, HeadersBecomeARecord) {
    const scripted_peer peer(
        recording(0, answer_with("x", "A: 1\r\nB:2\r\nCC:\r\nD:\r\nA: 3\r\n")));
    EXPECT_EQ(get(peer.url()), 0);
    zRecord headers;
    EXPECT_EQ(m_session->Response_Headers(headers), 0);
    EXPECT_EQ(headers.AsString("A", ""), "3");
    EXPECT_EQ(headers.AsString("B", "none"), "");  // its first byte stands for the blank
    EXPECT_EQ(headers.AsString("CC", "none"), "");
    EXPECT_FALSE(headers.Has("D"));  // its line is shorter than any that is looked at
    EXPECT_EQ(headers.AsString("Content-Length", ""), "1");
    EXPECT_EQ(headers.VariableCount(), 4U);
}

TEST_F(RequestsTest, RepeatedHeadersAreJoinedWhereAsked) {
    cHttpSessionSettings settings;
    settings.keepRepeatedHeaders = true;
    m_session->SetSettings(settings);
    const scripted_peer peer(
        recording(0, answer_with("x", "A: 1\r\na: 2\r\nSet-Cookie: x=1\r\nset-cookie: y=2\r\n")));
    EXPECT_EQ(get(peer.url()), 0);
    zRecord headers;
    EXPECT_EQ(m_session->Response_Headers(headers), 0);
    EXPECT_EQ(headers.AsString("A", ""), "1, 2");
    EXPECT_EQ(headers.AsString("Set-Cookie", ""), "x=1\ny=2");
}

TEST_F(RequestsTest, WithoutARequestThereIsNothing) {
    zRecord headers;
    zString type;
    std::uint32_t code = 7;
    std::uint32_t length = 7;
    EXPECT_EQ(status(&code), cHttpSession::k_no_request);
    EXPECT_EQ(code, 0U);
    EXPECT_EQ(m_session->Response_Headers(headers), -1);
    EXPECT_EQ(m_session->Response_ContentType(type), -1);
    EXPECT_EQ(m_session->Response_ContentLength(&length), -1);
    EXPECT_EQ(length, 7U);
    EXPECT_TRUE(m_session->Request_IsComplete());
    EXPECT_FALSE(m_session->IsConfigured());
    m_session->Request_Stop();
    m_session->Request_End();
    m_session->Reserved22();
    m_session->Reserved23();
    EXPECT_STREQ(m_session->GetURL().CString(), "");
}

TEST_F(RequestsTest, ACallbackGetsThePiecesAndMayStop) {
    const std::string large(1 << 20, 'x');
    const scripted_peer peer(answering(answer_with(large)));
    std::size_t received = 0;
    m_session->Configure(cHttpSession::k_get, peer.url().c_str(), k_patient);
    const auto count = [&received](zBuffer& chunk) {
        received += chunk.Length();
        return true;
    };
    ASSERT_EQ(m_session->Request_BeginWithCallback(count, nullptr, nullptr, 0), 0);
    m_session->Request_BlockForResponse();
    EXPECT_EQ(received, large.size());
    EXPECT_EQ(status(), 0);
    const auto stop = [](zBuffer&) { return false; };
    ASSERT_EQ(m_session->Request_BeginWithCallback(stop, nullptr, nullptr, 0), 0);
    EXPECT_TRUE(m_session->Request_IsComplete());
    EXPECT_LT(m_session->Request_ContentBytesRead64(), std::int64_t{1 << 20});
    EXPECT_EQ(status(), cHttpSession::k_incomplete);
}

TEST_F(RequestsTest, ACallbackStaysForLaterRequestsWithASink) {
    const scripted_peer peer(answering(answer_with("hello")));
    int calls = 0;
    std::uint32_t length = 7;
    const auto count = [&](zBuffer& chunk) {
        length = chunk.Length();
        return ++calls > 0;
    };
    m_session->Configure(cHttpSession::k_get, peer.url().c_str(), k_patient);
    ASSERT_EQ(m_session->Request_BeginWithCallback(count, nullptr, nullptr, 0), 0);
    m_session->Request_BlockForResponse();
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(length, 5U);
    EXPECT_EQ(get(peer.url()), 0);
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(length, 0U);  // the sink has it
    EXPECT_EQ(body(), "hello");
}

TEST_F(RequestsTest, WithNeitherSinkNorCallbackARequestIsCompleteAtOnce) {
    const scripted_peer peer(answering(answer_with("hello")));
    m_session->Configure(cHttpSession::k_get, peer.url().c_str(), k_patient);
    ASSERT_EQ(m_session->Request_Begin(nullptr, nullptr, nullptr, 0), 0);
    EXPECT_TRUE(m_session->Request_IsComplete());
    EXPECT_EQ(m_session->Request_ContentBytesRead(), 0U);
}

TEST_F(RequestsTest, ProgressIsTold) {
    const scripted_peer peer(answering(answer_with("hello")));
    float started = 7;
    float fraction = 7;
    m_session->Request_Status(&started, &fraction);
    EXPECT_EQ(started, 0.0F);
    EXPECT_EQ(fraction, 0.0F);
    EXPECT_EQ(get(peer.url()), 0);
    m_session->Request_Status(&started, &fraction);
    EXPECT_EQ(started, 1.0F);
    EXPECT_EQ(fraction, 1.0F);
    m_session->Request_Status(nullptr, nullptr);
}

TEST_F(RequestsTest, AResponseWithoutALengthEndsWithItsConnection) {
    const scripted_peer peer([](peer_connection& connection) {
        connection.receive_head();
        connection.send("HTTP/1.1 200 OK\r\n\r\nhello");
    });
    EXPECT_EQ(get(peer.url()), 0);
    EXPECT_EQ(body(), "hello");
    EXPECT_EQ(status(), 0);
    float started = 7;
    float fraction = 7;
    m_session->Request_Status(&started, &fraction);
    EXPECT_EQ(started, 0.0F);
    EXPECT_EQ(fraction, 0.0F);
}

TEST_F(RequestsTest, ChunksArePutTogether) {
    const scripted_peer peer(answering(
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n1;x=y\r\n!\r\n0\r\n"
        "Trailer: t\r\n\r\n"));
    EXPECT_EQ(get(peer.url()), 0);
    EXPECT_EQ(body(), "hello!");
    EXPECT_EQ(status(), 0);
}

TEST_F(RequestsTest, WhatIsCompressedUnaskedStaysAsItIs) {
    const scripted_peer peer(answering(answer_with("\x1f\x8b\x08", "Content-Encoding: gzip\r\n")));
    EXPECT_EQ(get(peer.url()), 0);
    EXPECT_EQ(body(), "\x1f\x8b\x08");
}

TEST_F(RequestsTest, ASinkIsMadeLongerAndNeverShorter) {
    const scripted_peer peer(answering(answer_with("hello")));
    ASSERT_EQ(m_sink.ResizeTo(8, 8), 0);
    EXPECT_EQ(get(peer.url()), 0);
    EXPECT_EQ(m_sink.Length(), 8U);
    EXPECT_EQ(body(), "hello");
}

struct status_case {
    int status;
    long want;
};

TEST_F(RequestsTest, EachStatusHasItsCode) {
    for (const auto& [wanted, result] : {status_case{200, 0},
                                         {204, 0},
                                         {299, 0},
                                         {300, -29300},
                                         {304, -29304},
                                         {400, -29400},
                                         {404, -29404},
                                         {500, -29500},
                                         {599, -29599},
                                         {600, -29600},
                                         {998, -29998},
                                         {999, -29999}}) {
        SCOPED_TRACE(wanted);
        const scripted_peer peer(answering("HTTP/1.1 " + std::to_string(wanted) +
                                           " Words\r\nContent-Length: 0\r\n\r\n"));
        EXPECT_EQ(get(peer.url()), 0);
        std::uint32_t code = 0;
        EXPECT_EQ(status(&code), result);
        EXPECT_EQ(code, static_cast<std::uint32_t>(wanted));
    }
}

TEST_F(RequestsTest, WhatComesBeforeTheAnswerIsNotTold) {
    if (runs_under_wine()) GTEST_SKIP() << "Wine takes the first head for the last";
    const scripted_peer peer(
        answering("HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 103 Early Hints\r\nLink: x\r\n\r\n" +
                  answer_with("hello")));
    EXPECT_EQ(get(peer.url()), 0);
    EXPECT_EQ(body(), "hello");
    zRecord headers;
    EXPECT_EQ(m_session->Response_Headers(headers), 0);
    EXPECT_FALSE(headers.Has("Link"));
}

TEST_F(RequestsTest, OneConnectionServesManyRequestsAndSessions) {
    const scripted_peer peer([](peer_connection& connection) {
        while (!connection.receive_head().empty()) connection.send(answer_with("x"));
    });
    for (int i = 0; i < 20; ++i) {
        if (i % 5 == 0) m_session = cHttpSession::Factory();
        ASSERT_EQ(get(peer.url()), 0);
    }
    m_session.reset();
    EXPECT_LE(peer.connections(), 2);
}

TEST_F(RequestsTest, AKeptConnectionThatWasClosedIsMadeAnew) {
    const scripted_peer peer([](peer_connection& connection) {
        connection.receive_head();
        connection.send(answer_with("x"));
    });
    for (int i = 0; i < 5; ++i) {
        ASSERT_EQ(request(cHttpSession::k_post, peer.url(), ""), 0);
        EXPECT_EQ(body(), "x");
    }
    EXPECT_EQ(peer.connections(), 5);
}

}  // namespace
