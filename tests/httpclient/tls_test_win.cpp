// tls_test_win.cpp - TLS: which peers WinHTTP trusts. The servers are those of tls_peers.py, since
// nothing on Windows speaks as one.
#include <windows.h>
// After windows.h, whose types it needs.
#include <wincrypt.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include "tests/httpclient/session_fixture.h"
#include "tests/loam/wine.h"

namespace {

std::string variable(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? "" : value;
}

// The user's trust in the certificate that has signed the others.
class trusted_root {
public:
    trusted_root()
        : m_store(::CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_CURRENT_USER,
                                  L"Root")) {
        std::ifstream file(variable("TLS_PEERS_ROOT"), std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(file)), {});
        ::CertAddEncodedCertificateToStore(
            m_store, X509_ASN_ENCODING, reinterpret_cast<const BYTE*>(bytes.data()),
            static_cast<DWORD>(bytes.size()), CERT_STORE_ADD_ALWAYS, &m_certificate);
        commit();
    }
    ~trusted_root() {
        if (m_certificate != nullptr) ::CertDeleteCertificateFromStore(m_certificate);
        commit();
        if (m_store != nullptr) ::CertCloseStore(m_store, 0);
    }
    trusted_root(const trusted_root&) = delete;
    trusted_root& operator=(const trusted_root&) = delete;

    bool is_trusted() const { return m_certificate != nullptr; }

private:
    // Others of this user see it from then on.
    void commit() { ::CertControlStore(m_store, 0, CERT_STORE_CTRL_COMMIT, nullptr); }

    HCERTSTORE m_store;
    PCCERT_CONTEXT m_certificate = nullptr;
};

class TlsPeers : public SessionTest {
protected:
    void SetUp() override {
        // Windows asks its user before it trusts a root.
        if (!runs_under_wine()) GTEST_SKIP() << "nobody is there to be asked";
        cHttpSessionSettings settings;
        settings.tlsByScheme = true;
        m_session->SetSettings(settings);
    }
    static std::string url(const char* peer) {
        return "https://localhost:" + variable((std::string("TLS_PEER_") + peer).c_str()) + "/";
    }
    void expect_refused(const char* peer) {
        SCOPED_TRACE(peer);
        EXPECT_EQ(get(url(peer)), cHttpSession::k_send_failed);
        EXPECT_EQ(status(), -1);
        // Wine has no error of its own for it.
        EXPECT_EQ(m_session->Request_Error(), cHttpSession::k_error_no_tls);
    }
};

TEST_F(TlsPeers, NobodyIsTrustedUnasked) {
    expect_refused("GOOD");
    expect_refused("SELF_SIGNED");
}

TEST_F(TlsPeers, AreTrustedWhereTheSystemTrustsTheirRoot) {
    const trusted_root root;
    ASSERT_TRUE(root.is_trusted());
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(get(url("GOOD")), 0);
        EXPECT_EQ(status(), 0);
        EXPECT_EQ(body(), "hello");
    }
    expect_refused("SELF_SIGNED");
}

TEST_F(TlsPeers, ACertificateHasItsTime) {
    const trusted_root root;
    ASSERT_TRUE(root.is_trusted());
    ASSERT_EQ(get(url("GOOD")), 0) << "or the refusals would say nothing";
    expect_refused("EXPIRED");
    expect_refused("EARLY");
}

TEST_F(TlsPeers, ACertificateIsForItsName) {
    const trusted_root root;
    ASSERT_TRUE(root.is_trusted());
    ASSERT_EQ(get(url("GOOD")), 0) << "or the refusals would say nothing";
    expect_refused("OTHER_NAME");
}

}  // namespace
