// proxy_test_win.cpp - the user's proxy, as the Internet options name it.
#include <windows.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "tests/httpclient/scripted_peer.h"
#include "tests/httpclient/session_fixture.h"

namespace {

constexpr wchar_t k_connections[] =
    L"Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings\\Connections";

// A key of this process: tests run beside each other, and each chooses a proxy of its own.
std::string own_user() {
    return "Software\\PennywortProxyTest" + std::to_string(::GetCurrentProcessId());
}

// What the user has chosen, in the form in which the system keeps it.
class settings_bytes {
public:
    explicit settings_bytes(std::uint32_t flags) {
        put(0x46);  // the form's number
        put(1);     // how often it was changed
        put(flags);
    }
    void put(std::string_view text) {
        put(static_cast<std::uint32_t>(text.size()));
        m_bytes += text;
    }
    const std::string& bytes() const { return m_bytes; }

private:
    void put(std::uint32_t number) {
        for (int shift = 0; shift < 32; shift += 8) m_bytes += static_cast<char>(number >> shift);
    }

    std::string m_bytes;
};

// Another user, for this process alone.
class ProxyTest : public SessionTest {
protected:
    static constexpr std::uint32_t k_direct = 1;
    static constexpr std::uint32_t k_named = 2;

    void SetUp() override {
        ::RegDeleteTreeA(HKEY_CURRENT_USER, own_user().c_str());
        ASSERT_EQ(::RegCreateKeyA(HKEY_CURRENT_USER, own_user().c_str(), &m_user), ERROR_SUCCESS);
        ASSERT_EQ(::RegOverridePredefKey(HKEY_CURRENT_USER, m_user), ERROR_SUCCESS);
    }
    void TearDown() override {
        ::RegOverridePredefKey(HKEY_CURRENT_USER, nullptr);
        ::RegCloseKey(m_user);
        ::RegDeleteTreeA(HKEY_CURRENT_USER, own_user().c_str());
    }
    // A session asks once in its life.
    void choose(std::uint32_t flags, const std::string& proxy, const std::string& bypass = {}) {
        settings_bytes chosen(flags);
        chosen.put(proxy);
        chosen.put(bypass);
        chosen.put(std::string_view());
        HKEY key = nullptr;
        ASSERT_EQ(::RegCreateKeyW(HKEY_CURRENT_USER, k_connections, &key), ERROR_SUCCESS);
        EXPECT_EQ(::RegSetValueExA(key, "DefaultConnectionSettings", 0, REG_BINARY,
                                   reinterpret_cast<const BYTE*>(chosen.bytes().data()),
                                   static_cast<DWORD>(chosen.bytes().size())),
                  ERROR_SUCCESS);
        ::RegCloseKey(key);
        m_session = cHttpSession::Factory();
    }
    static std::string place_of(const scripted_peer& peer) {
        return "127.0.0.1:" + std::to_string(peer.port());
    }

    HKEY m_user = nullptr;
};

// A proxy that answers itself, with the line that it was asked. Wine names the port even there
// where it is the usual one.
scripted_peer::script telling() {
    return [](peer_connection& connection) {
        for (std::string head = connection.receive_head(); !head.empty();
             head = connection.receive_head()) {
            std::string line = head.substr(0, head.find("\r\n"));
            if (const auto port = line.find(":80/"); port != line.npos) line.erase(port, 3);
            connection.send(answer_with("proxy: " + line));
        }
    };
}

TEST_F(ProxyTest, IsAskedWhereTheUserHasNamedOne) {
    const scripted_peer proxy(telling());
    choose(k_direct | k_named, place_of(proxy));
    EXPECT_EQ(get("http://host.invalid/x?y"), 0);
    EXPECT_EQ(body(), "proxy: GET http://host.invalid/x?y HTTP/1.1");
}

TEST_F(ProxyTest, IsAskedForNothingWhereItIsSwitchedOff) {
    const scripted_peer proxy(telling());
    const scripted_peer peer(answering(answer_with("direct")));
    choose(k_direct, place_of(proxy));
    EXPECT_EQ(get(peer.url()), 0);
    EXPECT_EQ(body(), "direct");
    EXPECT_EQ(proxy.connections(), 0);
}

TEST_F(ProxyTest, IsPassedByForTheHostsThatAreListed) {
    const scripted_peer proxy(telling());
    const scripted_peer peer(answering(answer_with("direct")));
    choose(k_direct | k_named, place_of(proxy), "example.org;127.0.0.1");
    EXPECT_EQ(get(peer.url()), 0);
    EXPECT_EQ(body(), "direct");
    EXPECT_EQ(proxy.connections(), 0);
}

TEST_F(ProxyTest, ThatIsNotThereIsLeftOutInTheSecondAttempt) {
    const scripted_peer peer(answering(answer_with("direct")));
    choose(k_direct | k_named, "127.0.0.1:1");
    EXPECT_EQ(get(peer.url()), 0);
    EXPECT_EQ(body(), "direct");
}

// Whatever the first attempt fails for, the request is made again without the user's proxy.
TEST_F(ProxyTest, IsLeftOutOfTheSecondAttemptOfEveryFailure) {
    const scripted_peer proxy([](peer_connection& connection) { connection.receive_head(); });
    const scripted_peer peer(answering(answer_with("direct")));
    choose(k_direct | k_named, place_of(proxy));
    EXPECT_EQ(get(peer.url()), 0);
    EXPECT_EQ(body(), "direct");
    EXPECT_GE(proxy.connections(), 1);
}

TEST_F(ProxyTest, TunnelsTls) {
    const scripted_peer proxy([](peer_connection& connection) {
        const std::string head = connection.receive_head();
        const bool is_right = head.rfind("CONNECT host.invalid:8443 ", 0) == 0;
        connection.send("HTTP/1.1 " + std::string(is_right ? "403 Forbidden" : "500 Wrong") +
                        "\r\nContent-Length: 0\r\n\r\n");
    });
    choose(k_direct | k_named, place_of(proxy));
    cHttpSessionSettings settings;
    settings.tlsByScheme = true;
    m_session->SetSettings(settings);
    EXPECT_NE(get("https://host.invalid:8443/"), 0);
    EXPECT_EQ(proxy.connections(), 1);
}

TEST_F(ProxyTest, IsAskedForOnceInASessionsLife) {
    const scripted_peer proxy(telling());
    choose(k_direct | k_named, place_of(proxy));
    EXPECT_EQ(get("http://host.invalid/"), 0);
    const std::shared_ptr<cHttpSession> before = m_session;
    choose(k_direct | k_named, "127.0.0.1:1");
    m_session = before;
    EXPECT_EQ(get("http://host.invalid/"), 0);
    EXPECT_EQ(body(), "proxy: GET http://host.invalid/ HTTP/1.1");
}

}  // namespace
