// managed_socket.h - an asynchronous WebSocket with the operations and events of websocket-sharp's
// class of that name. Bindings: beast_socket.h, mono_socket.h. Twins choose among them:
// managed_socket_linux.cpp, managed_socket_win.cpp.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "websocket/upgrade_transport.h"

namespace pennywort::websocket {

// Who gets the events, on a thread of the binding, one at a time for each socket. What they throw
// is the owner's to catch.
class managed_owner {
public:
    managed_owner(const managed_owner&) = delete;
    managed_owner& operator=(const managed_owner&) = delete;
    virtual ~managed_owner() = default;

    virtual void socket_opened() noexcept = 0;
    virtual void message_received(std::string bytes, bool is_binary) noexcept = 0;
    virtual void error_received(const std::string& text) noexcept = 0;
    // The peer says goodbye first; the close follows. Not every binding tells.
    virtual void goodbye_received(std::uint16_t /*code*/, const std::string& /*reason*/) noexcept {}
    // Why the connection has failed, in words; the close follows. Not every binding tells.
    virtual void fault_received(const std::string& /*why*/) noexcept {}
    // Once, and nothing after it. `code` is the peer's, or 1005 for a close of our own, 1002 for a
    // handshake or a frame against the protocol, 1006 for a connection that failed or was lost.
    virtual void socket_closed(std::uint16_t code, bool was_clean) noexcept = 0;

protected:
    managed_owner() = default;
};

struct managed_request {
    std::string url;
    transport_settings settings;
    std::size_t max_waiting_bytes = 0;
    // How often a connection that was lost is opened again; see cWebSocketOptions.
    std::int32_t max_reconnects = 0;
    double first_reconnect_wait = 0;
    double longest_reconnect_wait = 0;
};

// Each operation may be called from any thread, events included. What the managed library would
// throw, they throw as std::exception. The socket lives until it has closed, whoever drops it.
class managed_socket {
public:
    // Throws for a URL that cannot be used. Events go to the owner as long as it exists.
    static std::shared_ptr<managed_socket> make(const managed_request& request,
                                                const std::weak_ptr<managed_owner>& owner);

    managed_socket(const managed_socket&) = delete;
    managed_socket& operator=(const managed_socket&) = delete;
    virtual ~managed_socket() = default;

    virtual void connect_async() = 0;
    // From now on no message is told, only the close.
    virtual void close_async() = 0;
    // Throws unless the socket is open.
    virtual void send_text(std::string_view text) = 0;
    virtual void send_binary(std::string_view bytes) = 0;
    virtual void ping() = 0;
    // What was to be sent and has not been; 0 where sending waits.
    virtual std::size_t waiting_bytes() const noexcept { return 0; }

protected:
    managed_socket() = default;
};

}  // namespace pennywort::websocket
