// tls.h - TLS as a client needs it: the system's certificates, the server's name or address
// checked.
#pragma once

#include <boost/asio/ssl/context.hpp>
#include <memory>
#include <string>

#include "websocket/link/any_stream.h"

namespace pennywort::websocket {

// Shared as long as somebody uses it, since reading the certificates takes milliseconds. Null when
// OpenSSL has no memory.
std::shared_ptr<net::ssl::context> tls_context();

// Makes OpenSSL enter its exit handler, which frees what it keeps.
void prepare_tls() noexcept;
// Frees what OpenSSL keeps for the calling thread.
void end_tls_of_thread() noexcept;

// Why there is no agreement: what is wrong with the certificate, where it is that.
std::string words_of_refusal(tls_stream& stream, error_code error);

// False when OpenSSL does not take the name.
bool expect_server(tls_stream& stream, const std::string& host);

}  // namespace pennywort::websocket
