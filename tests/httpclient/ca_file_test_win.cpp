// ca_file_test_win.cpp - certificates of the host's own: WinHTTP takes the system's alone, and
// whoever has named a file trusts no others.
#include <atomic>

#include "tests/httpclient/scripted_peer.h"
#include "tests/httpclient/session_fixture.h"

namespace {

class CaFileTest : public SessionTest {
protected:
    void trust(const char* file) {
        cHttpSessionSettings settings;
        settings.tlsByScheme = true;
        settings.caFile = file;
        m_session->SetSettings(settings);
    }
    // Whatever speaks to it, TLS or not, is noticed.
    std::atomic<int> m_connections{0};
    scripted_peer m_peer{[this](peer_connection& connection) {
        ++m_connections;
        connection.receive_head();
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello");
    }};
};

TEST_F(CaFileTest, IsRefusedBeforeAnythingIsSent) {
    trust("C:\\own.pem");
    EXPECT_EQ(get(m_peer.url()), cHttpSession::k_session_failed);
    EXPECT_EQ(get("https" + m_peer.url().substr(4)), cHttpSession::k_session_failed);
    EXPECT_EQ(m_session->Request_Error(), cHttpSession::k_error_not_supported);
    EXPECT_EQ(m_connections, 0);
}

TEST_F(CaFileTest, IsRefusedAfterARequestWithout) {
    EXPECT_EQ(get(m_peer.url()), 0);
    EXPECT_EQ(body(), "hello");
    trust("C:\\own.pem");
    EXPECT_EQ(get(m_peer.url()), cHttpSession::k_session_failed);
    EXPECT_EQ(m_connections, 1);
    trust("");
    EXPECT_EQ(get(m_peer.url()), 0);
}

}  // namespace
