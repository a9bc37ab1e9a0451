// tls_peer.h - a wss server with a certificate of its own making, which it writes to a file
// of its own.
#pragma once

#include <openssl/ssl.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>

class tls_peer {
public:
    // The names of the certificate as OpenSSL writes them: "DNS:localhost", "IP:127.0.0.1".
    explicit tls_peer(const std::string& names);
    ~tls_peer();
    tls_peer(const tls_peer&) = delete;
    tls_peer& operator=(const tls_peer&) = delete;

    // False when OpenSSL does not play along.
    bool is_ready() const { return m_is_ready; }
    // The file with its certificate, which goes with it: another run has another one.
    const std::string& certificate() const { return m_file; }
    // How many connections have ended as TLS has it, and how many at all.
    int goodbyes() const { return m_goodbyes; }
    int ends() const { return m_ends; }
    std::string url(const std::string& host) const { return "wss://" + host + ":" + m_port + "/"; }

private:
    struct releaser {
        void operator()(SSL_CTX* context) const { ::SSL_CTX_free(context); }
        void operator()(BIO* bio) const { ::BIO_free_all(bio); }
    };

    bool make_certificate(const std::string& names);
    bool listen();
    void serve();
    void talk(BIO* connection);

    std::unique_ptr<SSL_CTX, releaser> m_context;
    std::unique_ptr<BIO, releaser> m_listener;
    const std::string m_file;
    std::string m_port;
    bool m_is_ready = false;
    std::atomic<bool> m_is_ending{false};
    std::atomic<int> m_goodbyes{0};
    std::atomic<int> m_ends{0};
    std::thread m_thread;
};
