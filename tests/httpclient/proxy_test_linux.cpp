// proxy_test_linux.cpp - the user's proxy, as the environment names it.
#include <cstdlib>
#include <initializer_list>
#include <string>
#include <utility>

#include "tests/httpclient/scripted_peer.h"
#include "tests/httpclient/session_fixture.h"

namespace {

constexpr const char* k_names[] = {"http_proxy", "https_proxy", "all_proxy", "no_proxy",
                                   "HTTP_PROXY", "HTTPS_PROXY", "ALL_PROXY", "NO_PROXY"};

class ProxyTest : public SessionTest {
protected:
    void SetUp() override { forget(); }
    void TearDown() override { forget(); }
    static void forget() {
        for (const char* name : k_names) ::unsetenv(name);
    }
    // A session asks once in its life.
    void set(std::initializer_list<std::pair<const char*, std::string>> variables) {
        forget();
        for (const auto& [name, value] : variables) ::setenv(name, value.c_str(), 1);
        m_session = cHttpSession::Factory();
    }
};

// A proxy that is one for plain text: it answers itself, with the line that it was asked.
scripted_peer::script telling() {
    return [](peer_connection& connection) {
        for (std::string head = connection.receive_head(); !head.empty();
             head = connection.receive_head()) {
            connection.send(answer_with("proxy: " + head.substr(0, head.find("\r\n"))));
        }
    };
}

TEST_F(ProxyTest, IsAskedForWhatItIsNamedFor) {
    const scripted_peer proxy(telling());
    for (const char* name : {"http_proxy", "all_proxy", "ALL_PROXY"}) {
        SCOPED_TRACE(name);
        set({{name, proxy.url("")}});
        EXPECT_EQ(get("http://host.invalid/x?y"), 0);
        EXPECT_EQ(body(), "proxy: GET http://host.invalid/x?y HTTP/1.1");
    }
}

TEST_F(ProxyTest, NeedsNoScheme) {
    const scripted_peer proxy(telling());
    set({{"http_proxy", "127.0.0.1:" + std::to_string(proxy.port())}});
    EXPECT_EQ(get("http://host.invalid/"), 0);
    EXPECT_EQ(body(), "proxy: GET http://host.invalid/ HTTP/1.1");
}

TEST_F(ProxyTest, IsNotTakenFromWhatAHeaderCanSet) {
    const scripted_peer proxy(telling());
    const scripted_peer peer(answering(answer_with("direct")));
    set({{"HTTP_PROXY", proxy.url("")}, {"https_proxy", proxy.url("")}});
    EXPECT_EQ(get(peer.url()), 0);
    EXPECT_EQ(body(), "direct");
    EXPECT_EQ(proxy.connections(), 0);
}

TEST_F(ProxyTest, IsPassedByForTheHostsThatAreListed) {
    const scripted_peer proxy(telling());
    const scripted_peer peer(answering(answer_with("direct")));
    for (const char* bypass : {"*", "127.0.0.1", "example.org, 127.0.0.0/8"}) {
        SCOPED_TRACE(bypass);
        set({{"http_proxy", proxy.url("")}, {"no_proxy", bypass}});
        EXPECT_EQ(get(peer.url()), 0);
        EXPECT_EQ(body(), "direct");
    }
    EXPECT_EQ(proxy.connections(), 0);
    set({{"http_proxy", proxy.url("")}, {"NO_PROXY", "localhost,10.0.0.0/8"}});
    EXPECT_EQ(get(peer.url()), 0);
    EXPECT_EQ(body(), "proxy: GET " + peer.url() + " HTTP/1.1");
}

TEST_F(ProxyTest, TunnelsTls) {
    const scripted_peer proxy([](peer_connection& connection) {
        const std::string head = connection.receive_head();
        connection.send("HTTP/1.1 " +
                        std::string(head.rfind("CONNECT host.invalid:8443 ", 0) == 0
                                        ? "403 Forbidden"
                                        : "500 Wrong") +
                        "\r\nContent-Length: 0\r\n\r\n");
    });
    set({{"https_proxy", proxy.url("")}});
    cHttpSessionSettings settings;
    settings.tlsByScheme = true;
    m_session->SetSettings(settings);
    EXPECT_EQ(get("https://host.invalid:8443/"), cHttpSession::k_send_failed);
    EXPECT_EQ(proxy.connections(), 1);
}

TEST_F(ProxyTest, ThatIsNotThereIsLeftOutInTheSecondAttempt) {
    const scripted_peer peer(answering(answer_with("direct")));
    set({{"http_proxy", "http://127.0.0.1:1"}});
    EXPECT_EQ(get(peer.url()), 0);
    EXPECT_EQ(body(), "direct");
}

// Whatever the first attempt fails for, the request is made again without the user's proxy.
TEST_F(ProxyTest, IsLeftOutOfTheSecondAttemptOfEveryFailure) {
    const scripted_peer proxy([](peer_connection& connection) { connection.receive_head(); });
    const scripted_peer peer(answering(answer_with("direct")));
    set({{"http_proxy", proxy.url("")}});
    EXPECT_EQ(get(peer.url()), 0);
    EXPECT_EQ(body(), "direct");
    EXPECT_GE(proxy.connections(), 1);
}

TEST_F(ProxyTest, IsAskedForOnceInASessionsLife) {
    const scripted_peer proxy(telling());
    set({{"http_proxy", proxy.url("")}});
    EXPECT_EQ(get("http://host.invalid/"), 0);
    ::setenv("http_proxy", "http://127.0.0.1:1", 1);
    EXPECT_EQ(get("http://host.invalid/"), 0);
    EXPECT_EQ(body(), "proxy: GET http://host.invalid/ HTTP/1.1");
}

}  // namespace
