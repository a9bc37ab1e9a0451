// tls_peer.cpp - see the header for the contract.
#include "tests/websocket/tls_peer.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <filesystem>
#include <memory>
#include <random>
#include <system_error>

#include "tests/websocket/frames.h"
#include "tests/websocket/scripted_peer.h"

namespace {

constexpr long k_day = 24L * 60 * 60;

std::string new_file() {
    const std::string name = "websocket-" + std::to_string(std::random_device()()) + ".pem";
    return (std::filesystem::temp_directory_path() / name).string();
}

bool add_names(X509* certificate, const std::string& names) {
    X509_EXTENSION* const extension =
        ::X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name, names.c_str());
    if (extension == nullptr) return false;
    const bool is_added = ::X509_add_ext(certificate, extension, -1) == 1;
    ::X509_EXTENSION_free(extension);
    return is_added;
}

// Self-signed: its own authority.
bool fill(X509* certificate, EVP_PKEY* key, const std::string& names) {
    ::X509_set_version(certificate, 2);
    ::ASN1_INTEGER_set(::X509_get_serialNumber(certificate), 1);
    ::X509_gmtime_adj(::X509_getm_notBefore(certificate), -k_day);
    ::X509_gmtime_adj(::X509_getm_notAfter(certificate), k_day);
    X509_NAME* const name = ::X509_get_subject_name(certificate);
    const auto* const text = reinterpret_cast<const unsigned char*>("pennywort test");
    return ::X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, text, -1, -1, 0) == 1 &&
           ::X509_set_issuer_name(certificate, name) == 1 &&
           ::X509_set_pubkey(certificate, key) == 1 && add_names(certificate, names) &&
           ::X509_sign(certificate, key, ::EVP_sha256()) > 0;
}

bool write_to(const std::string& file, X509* certificate) {
    BIO* const bio = ::BIO_new_file(file.c_str(), "w");
    if (bio == nullptr) return false;
    const bool is_written = ::PEM_write_bio_X509(bio, certificate) == 1;
    ::BIO_free_all(bio);
    return is_written;
}

std::string read_head(BIO* connection) {
    std::string head;
    char byte = 0;
    while (head.find("\r\n\r\n") == std::string::npos && ::BIO_read(connection, &byte, 1) == 1) {
        head.push_back(byte);
    }
    return head;
}

}  // namespace

tls_peer::tls_peer(const std::string& names)
    : m_context(::SSL_CTX_new(::TLS_server_method())), m_file(new_file()) {
    m_is_ready = make_certificate(names) && listen();
    if (m_is_ready) m_thread = std::thread([this] { serve(); });
}

tls_peer::~tls_peer() {
    std::error_code ignored;
    std::filesystem::remove(m_file, ignored);
    if (!m_is_ready) return;
    m_is_ending = true;
    // One more connection ends the wait for one.
    BIO* const last = ::BIO_new_connect(("127.0.0.1:" + m_port).c_str());
    BIO_do_connect(last);
    ::BIO_free_all(last);
    m_thread.join();
}

bool tls_peer::make_certificate(const std::string& names) {
    EVP_PKEY* const key = ::EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256");
    X509* const certificate = ::X509_new();
    const bool is_made = fill(certificate, key, names) && write_to(m_file, certificate) &&
                         ::SSL_CTX_use_certificate(m_context.get(), certificate) == 1 &&
                         ::SSL_CTX_use_PrivateKey(m_context.get(), key) == 1;
    ::X509_free(certificate);
    ::EVP_PKEY_free(key);
    return is_made;
}

bool tls_peer::listen() {
    m_listener.reset(::BIO_new_accept("127.0.0.1:0"));
    BIO_set_accept_bios(m_listener.get(), ::BIO_new_ssl(m_context.get(), 0));
    // The first call binds.
    if (BIO_do_accept(m_listener.get()) != 1) return false;
    m_port = BIO_get_accept_port(m_listener.get());
    return true;
}

void tls_peer::serve() {
    while (BIO_do_accept(m_listener.get()) == 1) {
        BIO* const connection = ::BIO_pop(m_listener.get());
        if (!m_is_ending) talk(connection);
        ::BIO_free_all(connection);
        if (m_is_ending) return;
    }
}

void tls_peer::talk(BIO* connection) {
    if (BIO_do_handshake(connection) != 1) return;
    const std::string head = read_head(connection);
    if (head.empty()) return;
    const std::string answer =
        "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
        "Sec-WebSocket-Accept: " +
        accept_key(head) + "\r\n\r\n" + frames::text("over TLS") + frames::close(1000);
    ::BIO_write(connection, answer.data(), static_cast<int>(answer.size()));
    char byte = 0;
    while (::BIO_read(connection, &byte, 1) == 1) {
    }
    SSL* ssl = nullptr;
    BIO_get_ssl(connection, &ssl);
    if ((::SSL_get_shutdown(ssl) & SSL_RECEIVED_SHUTDOWN) != 0) ++m_goodbyes;
    ++m_ends;
}
