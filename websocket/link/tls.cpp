// websocket/link/tls.cpp - see the header for the contract.
#include "websocket/link/tls.h"

#include <openssl/crypto.h>
#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>

#include <boost/asio/ip/address.hpp>
#include <mutex>

#include "websocket/fault_words.h"

namespace pennywort::websocket {

namespace {

std::shared_ptr<net::ssl::context> make_context() {
    auto context = std::make_shared<net::ssl::context>(net::ssl::context::tls_client);
    error_code error;
    context->set_options(net::ssl::context::default_workarounds | net::ssl::context::no_sslv2 |
                             net::ssl::context::no_sslv3 | net::ssl::context::no_tlsv1 |
                             net::ssl::context::no_tlsv1_1,
                         error);
    // Without certificates no server passes the check, which is the safe side.
    context->set_default_verify_paths(error);
    context->set_verify_mode(net::ssl::verify_peer, error);
    return error ? nullptr : context;
}

bool is_address(const std::string& host) {
    error_code error;
    net::ip::make_address(host, error);
    return !error;
}

}  // namespace

std::shared_ptr<net::ssl::context> tls_context() {
    static std::mutex mutex;
    static std::weak_ptr<net::ssl::context> shared;
    const std::lock_guard lock(mutex);
    auto context = shared.lock();
    if (context == nullptr) {
        context = make_context();
        shared = context;
    }
    return context;
}

void prepare_tls() noexcept { OPENSSL_init_crypto(0, nullptr); }

void end_tls_of_thread() noexcept { OPENSSL_thread_stop(); }

std::string words_of_refusal(tls_stream& stream, error_code error) {
    const long verdict = SSL_get_verify_result(stream.native_handle());
    if (verdict == X509_V_OK) return k_no_tls + (" (" + error.message() + ")");
    return k_bad_certificate + (" (" + std::string(X509_verify_cert_error_string(verdict)) + ")");
}

bool expect_server(tls_stream& stream, const std::string& host) {
    SSL* const ssl = stream.native_handle();
    if (is_address(host)) {
        return X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(ssl), host.c_str()) == 1;
    }
    SSL_set_hostflags(ssl, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
    return SSL_set_tlsext_host_name(ssl, host.c_str()) == 1 &&
           SSL_set1_host(ssl, host.c_str()) == 1;
}

}  // namespace pennywort::websocket
