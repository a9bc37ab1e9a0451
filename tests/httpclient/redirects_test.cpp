// redirects_test.cpp - responses that send the request elsewhere.
#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>

#include "tests/httpclient/scripted_peer.h"
#include "tests/httpclient/session_fixture.h"
#include "tests/loam/wine.h"

namespace {

std::string redirect(int status, const std::string& location, const std::string& body = "moved") {
    return "HTTP/1.1 " + std::to_string(status) + " Moved\r\nLocation: " + location +
           "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

std::string path_of(const std::string& head) {
    const std::size_t from = head.find(' ') + 1;
    return head.substr(from, head.find(' ', from) - from);
}

// What a peer's thread has been asked last.
class last_request {
public:
    void set(const std::string& text) {
        const std::lock_guard lock(m_mutex);
        m_text = text;
    }
    std::string text() const {
        const std::lock_guard lock(m_mutex);
        return m_text;
    }

private:
    mutable std::mutex m_mutex;
    std::string m_text;
};

// Answers one request, and keeps it.
scripted_peer::script keeping(last_request& seen) {
    return [&seen](peer_connection& connection) {
        seen.set(connection.receive_head());
        connection.send(answer_with("other"));
        connection.wait_for_end();
    };
}

// Wine follows a redirect by other rules than Windows: it waits for a body that is kept back, keeps
// the headers for every host and the method for every status.
class RedirectsTest : public SessionTest {
protected:
    void SetUp() override {
        if (runs_under_wine()) GTEST_SKIP() << "Wine follows redirects by other rules";
    }
};

TEST_F(RedirectsTest, AreFollowedToTheirEnd) {
    const scripted_peer peer([](peer_connection& connection) {
        for (std::string head = connection.receive_head(); !head.empty();
             head = connection.receive_head()) {
            const std::string path = path_of(head);
            if (path == "/a/start") connection.send(redirect(302, "next?x=1#there"));
            if (path == "/a/next?x=1") connection.send(redirect(307, "/root"));
            if (path == "/root") connection.send(answer_with("end"));
        }
    });
    EXPECT_EQ(get(peer.url("/a/start")), 0);
    EXPECT_EQ(body(), "end");
    EXPECT_EQ(status(), 0);
}

TEST_F(RedirectsTest, LeadToAnotherHostWithoutTheSecretsOfTheFirst) {
    last_request seen;
    const scripted_peer other(keeping(seen));
    const scripted_peer peer(answering(redirect(301, other.url("/x"))));
    zRecord headers;
    headers.SetCString("Authorization", "secret", 0);
    headers.SetCString("cookie", "secret", 0);
    headers.SetCString("X-Public", "yes", 0);
    EXPECT_EQ(request(cHttpSession::k_get, peer.url(), {}, &headers), 0);
    EXPECT_EQ(body(), "other");
    EXPECT_EQ(seen.text().find("secret"), std::string::npos);
    EXPECT_NE(seen.text().find("X-Public: yes"), std::string::npos);
}

TEST_F(RedirectsTest, BringTheCookiesThatTheySetAndNoRequestBringsThoseOfAnother) {
    last_request seen;
    const scripted_peer peer([&](peer_connection& connection) {
        for (std::string head = connection.receive_head(); !head.empty();
             head = connection.receive_head()) {
            if (path_of(head) == "/") {
                connection.send(
                    "HTTP/1.1 302 Found\r\nLocation: /next\r\nSet-Cookie: a=1\r\n"
                    "Set-Cookie: b=2; Path=/other\r\nContent-Length: 0\r\n\r\n");
                continue;
            }
            seen.set(head);
            connection.send(answer_with("end", "Set-Cookie: c=3\r\n"));
        }
    });
    EXPECT_EQ(get(peer.url()), 0);
    EXPECT_NE(seen.text().find("\r\nCookie: a=1\r\n"), std::string::npos) << seen.text();
    EXPECT_EQ(get(peer.url("/alone")), 0);
    EXPECT_EQ(seen.text().find("Cookie:"), std::string::npos) << seen.text();
}

TEST_F(RedirectsTest, TakeNoHostOfTheCallersAlongNorTheCookiesThatItGot) {
    last_request seen;
    const scripted_peer other(keeping(seen));
    std::string there = other.url("/x");
    there.replace(there.find("127.0.0.1"), 9, "localhost");
    const scripted_peer peer(answering("HTTP/1.1 302 Found\r\nLocation: " + there +
                                       "\r\nSet-Cookie: a=secret; Path=/\r\n"
                                       "Content-Length: 0\r\n\r\n"));
    zRecord headers;
    headers.SetCString("host", "api.example", 0);
    EXPECT_EQ(request(cHttpSession::k_get, peer.url(), {}, &headers), 0);
    EXPECT_EQ(body(), "other");
    EXPECT_EQ(seen.text().find("secret"), std::string::npos) << seen.text();
    EXPECT_NE(seen.text().find("\r\nHost: localhost:"), std::string::npos) << seen.text();
}

TEST_F(RedirectsTest, MakeAGetOfAPostButWhereTheStatusKeepsIt) {
    for (const auto& [code, want] : {std::pair{301, "GET 0"},
                                     {302, "GET 0"},
                                     {303, "GET 0"},
                                     {307, "POST 4"},
                                     {308, "POST 4"}}) {
        SCOPED_TRACE(code);
        last_request seen;
        const scripted_peer peer([&, status = code](peer_connection& connection) {
            for (std::string head = connection.receive_head(); !head.empty();
                 head = connection.receive_head()) {
                const bool has_body = head.find("Content-Length: 4") != std::string::npos;
                const std::string received = connection.receive(has_body ? 4 : 0);
                const bool is_first = path_of(head) == "/";
                if (!is_first) {
                    seen.set(head.substr(0, head.find(' ')) + " " +
                             std::to_string(received.size()));
                }
                connection.send(is_first ? redirect(status, "/next") : answer_with("end"));
            }
        });
        EXPECT_EQ(request(cHttpSession::k_post, peer.url(), "body"), 0);
        EXPECT_EQ(body(), "end");
        EXPECT_EQ(seen.text(), want);
    }
}

TEST_F(RedirectsTest, InACircleEndAfterTen) {
    std::atomic<int> requests{0};
    const scripted_peer peer([&](peer_connection& connection) {
        while (!connection.receive_head().empty()) {
            ++requests;
            connection.send(redirect(302, "/again"));
        }
    });
    EXPECT_EQ(get(peer.url()), cHttpSession::k_receive_failed);
    EXPECT_EQ(m_session->Request_Error(), cHttpSession::k_error_too_many_redirects);
    // Both attempts that a request has: the first with the user's proxy, if there is one.
    EXPECT_TRUE(requests == 11 || requests == 22) << requests;
}

TEST_F(RedirectsTest, InAChainOfTenAreFollowedAndInOneOfElevenNot) {
    // "/7" leads to "/6", and "/0" nowhere.
    const scripted_peer peer([](peer_connection& connection) {
        for (std::string head = connection.receive_head(); !head.empty();
             head = connection.receive_head()) {
            const int left = std::stoi(path_of(head).substr(1));
            connection.send(left == 0 ? answer_with("end")
                                      : redirect(302, "/" + std::to_string(left - 1)));
        }
    });
    EXPECT_EQ(get(peer.url("/10")), 0);
    EXPECT_EQ(body(), "end");
    EXPECT_EQ(get(peer.url("/11")), cHttpSession::k_receive_failed);
    EXPECT_EQ(get(peer.url("/100")), cHttpSession::k_receive_failed);
}

TEST_F(RedirectsTest, ThatLeadNowhereAreTheResponse) {
    for (const std::string location : {"ftp://host/", "http://", "http://[::1", "javascript:1"}) {
        SCOPED_TRACE(location);
        const scripted_peer peer(answering(redirect(302, location)));
        EXPECT_EQ(get(peer.url()), 0);
        EXPECT_EQ(body(), "moved");
        EXPECT_EQ(status(), -29302);
    }
    const scripted_peer without(answering("HTTP/1.1 302 Found\r\nContent-Length: 0\r\n\r\n"));
    EXPECT_EQ(get(without.url()), 0);
    EXPECT_EQ(status(), -29302);
}

TEST_F(RedirectsTest, WithALongBodyAreFollowedWithoutReadingIt) {
    const scripted_peer peer([](peer_connection& connection) {
        const std::string head = connection.receive_head();
        if (path_of(head) == "/") {
            connection.send(redirect(302, "/next", std::string(10 << 20, 'x')));
        } else {
            connection.send(answer_with("end"));
        }
        connection.wait_for_end();
    });
    EXPECT_EQ(get(peer.url()), 0);
    EXPECT_EQ(body(), "end");
}

// Its bytes come far within the time-out, and all of them together last several times as long.
TEST_F(RedirectsTest, WithABodyThatDripsAreNotHeldByIt) {
    constexpr int k_all = 100;
    std::atomic<int> dripped{0};
    std::atomic<int> dripped_by_then{0};
    const scripted_peer peer([&](peer_connection& connection) {
        if (path_of(connection.receive_head()) == "/next") {
            dripped_by_then = dripped.load();
            connection.send(answer_with("end"));
            return;
        }
        connection.send("HTTP/1.1 302 Found\r\nLocation: /next\r\nContent-Length: 100\r\n\r\n");
        for (; dripped < k_all && connection.send("x"); ++dripped) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        connection.wait_for_end();
    });
    EXPECT_EQ(request(cHttpSession::k_get, peer.url(), {}, nullptr, 3), 0);
    EXPECT_EQ(body(), "end");
    EXPECT_LT(dripped_by_then, k_all);
}

}  // namespace
