// tls_test_linux.cpp - TLS: which peers are trusted, and when it is spoken at all. On Linux, where
// a test can trust a certificate of its own; on Windows WinHTTP asks the system's store.
#include <filesystem>
#include <fstream>
#include <string>

#include "tests/httpclient/scripted_peer.h"
#include "tests/httpclient/session_fixture.h"
#include "tests/httpclient/tls_peer.h"
#include "tests/support/collected_traces.h"

namespace {

using pennywort::tests::collected_traces;

class TlsTest : public SessionTest {
protected:
    void trust(const certificate& trusted) {
        const std::string path = testing::TempDir() + "trusted.pem";
        std::ofstream(path) << trusted.text();
        m_settings.caFile = path;
        m_session->SetSettings(m_settings);
    }
    void SetUp() override {
        m_settings.tlsByScheme = true;
        m_session->SetSettings(m_settings);
    }
    void expect_refused(const std::string& url,
                        std::int32_t error = cHttpSession::k_error_not_trusted) {
        const collected_traces traces;
        EXPECT_EQ(get(url), cHttpSession::k_send_failed);
        EXPECT_EQ(status(), -1);
        EXPECT_EQ(m_session->Request_Error(), error);
        EXPECT_NE(traces.text().find("(err=" + std::to_string(error) + ","), std::string::npos)
            << traces.text();
    }

    cHttpSessionSettings m_settings;
};

std::string hello(const std::string&) { return answer_with("hello"); }

TEST_F(TlsTest, ATrustedPeerIsHeard) {
    const certificate shown;
    const tls_peer peer(shown, hello);
    trust(shown);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(get(peer.url()), 0);
        EXPECT_EQ(body(), "hello");
        EXPECT_EQ(status(), 0);
    }
    EXPECT_EQ(peer.connections(), 1);
}

TEST_F(TlsTest, AConnectionIsForThoseWhoTrustThePeerAlone) {
    const certificate shown;
    const tls_peer peer(shown, hello);
    trust(shown);
    EXPECT_EQ(get(peer.url()), 0);
    m_settings.caFile = "";
    m_session->SetSettings(m_settings);
    expect_refused(peer.url());
}

TEST_F(TlsTest, APeerThatSignedItselfIsNotTrusted) {
    const certificate shown;
    const tls_peer peer(shown, hello);
    expect_refused(peer.url());
    const certificate another;
    trust(another);
    expect_refused(peer.url());
}

TEST_F(TlsTest, ACertificateHasItsTime) {
    for (const auto& [from, to] : {std::pair{-3, -1}, {1, 3}}) {
        const certificate shown({"IP:127.0.0.1", from, to});
        const tls_peer peer(shown, hello);
        trust(shown);
        expect_refused(peer.url());
    }
}

TEST_F(TlsTest, ACertificateIsForItsName) {
    for (const char* name : {"DNS:example.org", "IP:127.0.0.2", "DNS:*.0.0.1"}) {
        SCOPED_TRACE(name);
        const certificate shown({name});
        const tls_peer peer(shown, hello);
        trust(shown);
        expect_refused(peer.url());
    }
}

TEST_F(TlsTest, APeerThatSpeaksPlainTextIsRefused) {
    const scripted_peer peer([](peer_connection& connection) {
        connection.send(answer_with("hello"));
        connection.wait_for_end();
    });
    expect_refused("https" + peer.url().substr(4), cHttpSession::k_error_no_tls);
}

TEST_F(TlsTest, AFileOfCertificatesThatIsNotThereTrustsNobody) {
    const certificate shown;
    const tls_peer peer(shown, hello);
    m_settings.caFile = testing::TempDir() + "nobody.pem";
    m_session->SetSettings(m_settings);
    expect_refused(peer.url());
}

// As it stands by default: the port alone decides.
TEST_F(TlsTest, AnotherPortIsSpokenToInTheClear) {
    m_session->SetSettings({});
    const scripted_peer peer(answering(answer_with("clear")));
    EXPECT_EQ(get("https" + peer.url().substr(4)), 0);
    EXPECT_EQ(body(), "clear");
}

TEST_F(TlsTest, ARedirectOutOfTlsIsNotFollowed) {
    const scripted_peer plain(answering(answer_with("plain")));
    const certificate shown;
    const tls_peer peer(shown, [&](const std::string&) {
        return "HTTP/1.1 302 Found\r\nLocation: " + plain.url() +
               "\r\nContent-Length: 5\r\n\r\nmoved";
    });
    trust(shown);
    EXPECT_EQ(get(peer.url()), 0);
    EXPECT_EQ(body(), "moved");
    EXPECT_EQ(status(), -29302);
    EXPECT_EQ(plain.connections(), 0);
}

TEST_F(TlsTest, ARedirectIntoTlsIsFollowed) {
    const certificate shown;
    const tls_peer peer(shown, hello);
    trust(shown);
    const scripted_peer plain(answering("HTTP/1.1 302 Found\r\nLocation: " + peer.url() +
                                        "\r\nContent-Length: 0\r\n\r\n"));
    EXPECT_EQ(get(plain.url()), 0);
    EXPECT_EQ(body(), "hello");
}

}  // namespace
