// memory_test.cpp - requests whose memory runs out at any moment.
#include <cstdint>
#include <memory>
#include <string>

#include "tests/httpclient/scripted_peer.h"
#include "tests/httpclient/session_fixture.h"
#include "tests/support/failing_memory.h"

namespace {

// Longer than a string holds in itself.
const std::string k_text = "a text that needs memory of its own, wherever it goes";

class MemoryTest : public SessionTest {
protected:
    // One request in each way that its memory may fail: whole, or refused with a code, or ended
    // early; the session serves the next one in any case.
    void expect_survival(std::uint32_t verb, const std::string& sent,
                         const std::string& answer = answer_with(k_text, "X-Long-Header-Name: " +
                                                                             k_text + "\r\n")) {
        const scripted_peer peer([&](peer_connection& connection) {
            while (!connection.receive_head().empty()) {
                connection.receive(sent.size());
                connection.send(answer);
            }
        });
        const std::string url = peer.url("/" + k_text.substr(0, 6));
        zRecord headers;
        headers.SetCString("X-Sent-With-The-Request", k_text.c_str(), 0);
        m_session->Configure(verb, url.c_str(), k_patient);
        // Another one each time: one and the same would be taken apart once.
        bool is_other = false;
        const auto go_elsewhere = [&] {
            is_other = !is_other;
            m_session->Configure(verb, (is_other ? url + "?other" : url).c_str(), k_patient);
        };
        long result = 0;
        zRecord received;
        const int failures =
            with_each_allocation_failing([&] { result = ask(headers, sent, received); },
                                         [&] {
                                             EXPECT_LE(result, 0);
                                             const bool is_fine = result == 0 && m_status == 0;
                                             EXPECT_TRUE(!is_fine || m_is_whole);
                                             EXPECT_LE(m_headers_result, 0);
                                             received.MakeEmpty();
                                             go_elsewhere();
                                         });
        EXPECT_GT(failures, 10);
        EXPECT_EQ(request(verb, url, sent, &headers), 0);
        EXPECT_EQ(body(), k_text);
    }

    long ask(const zRecord& headers, const std::string& sent, zRecord& received) {
        zBuffer sink(0, 0);
        const long result =
            m_session->Request_Begin(&sink, &headers, sent.empty() ? nullptr : &sent[0],
                                     static_cast<std::uint32_t>(sent.size()));
        m_session->Request_BlockForResponse();
        m_is_whole = sink.Length() == k_text.size();
        m_status = m_session->Response_StatusCode(nullptr);
        m_headers_result = m_session->Response_Headers(received);
        m_session->Request_End();
        return result;
    }

    bool m_is_whole = false;
    long m_status = 0;
    long m_headers_result = 0;
};

TEST_F(MemoryTest, RunsOutAtAnyPlaceOfAGet) { expect_survival(cHttpSession::k_get, ""); }

// No length tells that something is missing.
TEST_F(MemoryTest, RunsOutAtAnyPlaceOfABodyInChunks) {
    expect_survival(cHttpSession::k_get, "",
                    "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\n" +
                        k_text.substr(0, 5) + "\r\n30\r\n" + k_text.substr(5) + "\r\n0\r\n\r\n");
}

TEST_F(MemoryTest, RunsOutAtAnyPlaceOfAPost) { expect_survival(cHttpSession::k_post, k_text); }

TEST_F(MemoryTest, RunsOutAtAnyPlaceOfALongPost) {
    expect_survival(cHttpSession::k_post, std::string(200'000, 'x'));
}

TEST(SessionMemory, RunsOutWhileOneIsMade) {
    std::shared_ptr<cHttpSession> session;
    bool is_made = false;
    const int failures = with_each_allocation_failing(
        [&] {
            session = cHttpSession::Factory();
            is_made = session != nullptr;
            session.reset();
        },
        [] {});
    EXPECT_GT(failures, 0);
    EXPECT_TRUE(is_made);
}

TEST_F(MemoryTest, IsGivenBackByAThousandSessions) {
    const scripted_peer peer([](peer_connection& connection) {
        while (!connection.receive_head().empty()) connection.send(answer_with(k_text));
    });
    const auto use_sessions = [&](int count) {
        for (int i = 0; i < count; ++i) {
            const auto session = cHttpSession::Factory();
            zBuffer sink(0, 0);
            session->Configure(cHttpSession::k_get, peer.url().c_str(), k_patient);
            ASSERT_EQ(session->Request_Begin(&sink, nullptr, nullptr, 0), 0);
            session->Request_BlockForResponse();
            ASSERT_EQ(sink.Length(), k_text.size());
        }
    };
    use_sessions(10);
    const std::size_t before = memory_in_use();
    use_sessions(1000);
    // The peer's one thread may be anywhere in its next answer.
    EXPECT_LE(memory_in_use(), before + 4096);
}

}  // namespace
