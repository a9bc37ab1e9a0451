// upgrade_transport.h - the steps of a synchronous WebSocket connection: session, connection,
// request, upgrade, then receiving, sending and closing. Twins: upgrade_transport_win.cpp over
// WinHTTP, upgrade_transport_linux.cpp over Boost.Beast.
//
// Threads: one at a time, save that receive, send and close of a socket may run on three threads at
// once. What fails is traced by the twin.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace pennywort::websocket {

// Their numbers are WinHTTP's.
enum class piece_kind {
    binary_message = 0,
    binary_fragment = 1,
    text_message = 2,
    text_fragment = 3,
    close = 4
};

enum class receive_status { ok, connection_lost, failed };

struct received_piece {
    receive_status status = receive_status::failed;
    piece_kind kind = piece_kind::close;
    std::size_t size = 0;
};

struct close_report {
    std::uint16_t code = 0;
    std::string reason;
};

// An open WebSocket.
class upgraded_socket {
public:
    upgraded_socket(const upgraded_socket&) = delete;
    upgraded_socket& operator=(const upgraded_socket&) = delete;
    virtual ~upgraded_socket() = default;

    // Waits for the next piece of a message. Whatever close() and drop() interrupt is `failed`.
    virtual received_piece receive(std::span<char> into) = 0;
    // Returns when the system has taken all of it.
    virtual bool send_text(std::string_view text) = 0;
    virtual bool send_binary(std::string_view bytes) = 0;
    // Says goodbye and waits for the peer's, for a bounded time. Afterwards receive() waits no
    // more, whatever this returns.
    virtual bool close(std::uint16_t code) = 0;
    // After a close() that succeeded, and after the peer's close has been received.
    virtual close_report query_close_status() = 0;
    // Ends the connection at once, and every wait for it.
    virtual void drop() noexcept = 0;
    // Behind a loss: why, in words; empty where nothing is known.
    virtual std::string fault() const { return {}; }

protected:
    upgraded_socket() = default;
};

// A GET that is to become a WebSocket.
class transport_request {
public:
    transport_request(const transport_request&) = delete;
    transport_request& operator=(const transport_request&) = delete;
    virtual ~transport_request() = default;

    virtual bool ask_for_upgrade() = 0;
    virtual bool send() = 0;
    virtual bool receive_response() = 0;
    // Null when the server has not upgraded.
    virtual std::shared_ptr<upgraded_socket> complete_upgrade() = 0;
    // Behind a step that has failed: why, in words; empty where nothing is known.
    virtual std::string fault() const { return {}; }

protected:
    transport_request() = default;
};

class transport_connection {
public:
    transport_connection(const transport_connection&) = delete;
    transport_connection& operator=(const transport_connection&) = delete;
    virtual ~transport_connection() = default;

    // Null on failure. `is_secure`: with TLS, and the server's certificate and name checked.
    virtual std::unique_ptr<transport_request> open_request(const std::string& path,
                                                            bool is_secure) = 0;

protected:
    transport_connection() = default;
};

// What a session is made with. The defaults are those that the system has.
struct transport_settings {
    std::string user_agent;
    std::chrono::milliseconds opening_time{0};  // for all of it; 0: the system's own bounds
    std::chrono::milliseconds closing_time{0};  // for the peer's goodbye; 0: the library's bound
    std::vector<std::string> headers;           // "Name: value"
    std::string protocols;
    std::size_t max_message_bytes = 0;  // 0: the library's bound
    bool offers_deflate = false;
};

class transport_session {
public:
    // Null on failure. Uses the proxy that the user has configured. Tests put another one in its
    // place (session_maker.h).
    static std::shared_ptr<transport_session> open(const transport_settings& settings);

    transport_session(const transport_session&) = delete;
    transport_session& operator=(const transport_session&) = delete;
    virtual ~transport_session() = default;

    // Null on failure. Nothing is sent yet. The host is UTF-8.
    virtual std::shared_ptr<transport_connection> connect(const std::string& host,
                                                          std::int32_t port) = 0;

protected:
    transport_session() = default;
};

}  // namespace pennywort::websocket
