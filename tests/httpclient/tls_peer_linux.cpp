// tls_peer_linux.cpp - see the header for the contract.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <utility>
#include <vector>

#include "tests/httpclient/tls_peer.h"

namespace {

constexpr long k_day = 24L * 60 * 60;

template <auto release>
struct releaser {
    template <typename type>
    void operator()(type* object) const {
        release(object);
    }
};
template <typename type, auto release>
using owned = std::unique_ptr<type, releaser<release>>;
using owned_ssl = owned<SSL, SSL_free>;

}  // namespace

struct certificate::native {
    owned<EVP_PKEY, EVP_PKEY_free> key;
    owned<X509, X509_free> x509;
};

certificate::certificate(const certificate_wish& wish) : m_native(std::make_unique<native>()) {
    m_native->key.reset(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
    m_native->x509.reset(X509_new());
    X509* const x509 = m_native->x509.get();
    X509_set_version(x509, 2);
    ASN1_INTEGER_set(X509_get_serialNumber(x509), 1);
    X509_gmtime_adj(X509_getm_notBefore(x509), wish.valid_from_days * k_day);
    X509_gmtime_adj(X509_getm_notAfter(x509), wish.valid_to_days * k_day);
    X509_set_pubkey(x509, m_native->key.get());
    X509_NAME* const name = X509_get_subject_name(x509);
    const auto* const text = reinterpret_cast<const unsigned char*>("test");
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, text, -1, -1, 0);
    X509_set_issuer_name(x509, name);
    const std::pair<int, std::string> extensions[] = {{NID_subject_alt_name, wish.name},
                                                      {NID_basic_constraints, "critical,CA:TRUE"}};
    for (const auto& [number, value] : extensions) {
        const owned<X509_EXTENSION, X509_EXTENSION_free> extension(
            X509V3_EXT_conf_nid(nullptr, nullptr, number, value.c_str()));
        X509_add_ext(x509, extension.get(), -1);
    }
    X509_sign(x509, m_native->key.get(), EVP_sha256());
}

certificate::~certificate() = default;

std::string certificate::text() const {
    const owned<BIO, BIO_free_all> memory(BIO_new(BIO_s_mem()));
    PEM_write_bio_X509(memory.get(), m_native->x509.get());
    char* bytes = nullptr;
    const long count = BIO_get_mem_data(memory.get(), &bytes);
    return {bytes, static_cast<std::size_t>(count)};
}

struct tls_peer::native {
    owned<SSL_CTX, SSL_CTX_free> context{SSL_CTX_new(TLS_server_method())};
    int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int end = ::eventfd(0, EFD_CLOEXEC);  // readable for ever once the peer ends

    ~native() {
        ::close(listener);
        ::close(end);
    }

    // False once the peer ends.
    bool wait_for(int descriptor) const {
        pollfd both[] = {{descriptor, POLLIN, 0}, {end, POLLIN, 0}};
        constexpr int k_long_ms = 30'000;
        return ::poll(both, 2, k_long_ms) > 0 && both[1].revents == 0;
    }

    // Empty when the connection or the peer ends.
    std::string head_from(SSL* ssl) const {
        std::string head;
        char bytes[4096];
        while (head.find("\r\n\r\n") == std::string::npos) {
            if (SSL_pending(ssl) == 0 && !wait_for(SSL_get_fd(ssl))) return {};
            const int count = SSL_read(ssl, bytes, sizeof bytes);
            if (count <= 0) return {};
            head.append(bytes, static_cast<std::size_t>(count));
        }
        return head;
    }
};

tls_peer::tls_peer(const certificate& shown,
                   std::function<std::string(const std::string& head)> answer)
    : m_answer(std::move(answer)), m_native(std::make_unique<native>()) {
    SSL_CTX_use_certificate(m_native->context.get(), shown.get().x509.get());
    SSL_CTX_use_PrivateKey(m_native->context.get(), shown.get().key.get());
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    ::bind(m_native->listener, reinterpret_cast<sockaddr*>(&address), size);
    ::listen(m_native->listener, 16);
    ::getsockname(m_native->listener, reinterpret_cast<sockaddr*>(&address), &size);
    m_port = ntohs(address.sin_port);
    // OpenSSL writes to sockets without a way to leave the signal out.
    std::signal(SIGPIPE, SIG_IGN);
    m_thread = std::thread([this] { serve(); });
}

tls_peer::~tls_peer() {
    const std::uint64_t one = 1;
    if (::write(m_native->end, &one, sizeof one) == sizeof one) m_thread.join();
}

std::string tls_peer::url(const std::string& path) const {
    return "https://127.0.0.1:" + std::to_string(m_port) + path;
}

void tls_peer::serve() {
    std::vector<std::thread> threads;
    while (m_native->wait_for(m_native->listener)) {
        const int accepted = ::accept(m_native->listener, nullptr, nullptr);
        if (accepted < 0) continue;
        ++m_connections;
        threads.emplace_back([this, accepted] { talk(accepted); });
    }
    for (std::thread& each : threads) each.join();
}

void tls_peer::talk(int socket) const {
    const owned_ssl ssl(SSL_new(m_native->context.get()));
    SSL_set_fd(ssl.get(), socket);
    if (SSL_accept(ssl.get()) == 1) {
        std::string head = m_native->head_from(ssl.get());
        for (; !head.empty(); head = m_native->head_from(ssl.get())) {
            const std::string text = m_answer(head);
            SSL_write(ssl.get(), text.data(), static_cast<int>(text.size()));
        }
        SSL_shutdown(ssl.get());
    }
    ::close(socket);
}
