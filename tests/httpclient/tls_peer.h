// tls_peer.h - a server that speaks TLS with a certificate made for the test. Linux only:
// tls_peer_linux.cpp, over OpenSSL.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>

// What a certificate says. Each is made anew, with a key of its own.
struct certificate_wish {
    std::string name = "IP:127.0.0.1";  // as in subjectAltName
    int valid_from_days = -1;           // from now
    int valid_to_days = 1;
};

// Signs itself, so that it is its own authority.
class certificate {
public:
    explicit certificate(const certificate_wish& wish = {});
    ~certificate();
    certificate(const certificate&) = delete;
    certificate& operator=(const certificate&) = delete;

    // As PEM.
    std::string text() const;

    struct native;
    const native& get() const { return *m_native; }

private:
    std::unique_ptr<native> m_native;
};

// Answers each request of each connection, which has a thread of its own, with what `answer` makes
// of its head. Only 127.0.0.1.
class tls_peer {
public:
    tls_peer(const certificate& shown, std::function<std::string(const std::string& head)> answer);
    ~tls_peer();

    // "https://127.0.0.1:port" with a path behind it.
    std::string url(const std::string& path = "/") const;
    int connections() const { return m_connections; }

private:
    struct native;

    void serve();
    void talk(int socket) const;

    const std::function<std::string(const std::string&)> m_answer;
    std::unique_ptr<native> m_native;
    std::int32_t m_port = 0;
    std::atomic<int> m_connections{0};
    std::thread m_thread;
};
