// link.h - one WebSocket connection on a loop, asynchronous: name, proxy, TLS, upgrade, messages,
// goodbye. All of Boost.Beast and OpenSSL stands behind it, in link.cpp.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "websocket/link/loop.h"

namespace pennywort::websocket {

enum class link_fault {
    unreachable,  // no address, refused, or no way there
    proxy,        // the proxy does not let it through
    tls,          // no agreement, or a certificate that is not the server's
    refused,      // the server does not upgrade
    timed_out,
    closed,    // the peer said goodbye; `code` is what it gave
    lost,      // without one
    protocol,  // the peer broke the protocol; `code` is what it was told
    no_memory
};

struct link_result {
    link_fault fault = link_fault::lost;
    std::uint16_t code = 0;
    std::string text;  // why, or the reason of a goodbye; empty when there is no memory for it
};

struct link_piece {
    std::size_t size = 0;
    bool is_text = true;
    bool is_last = false;  // of its message
    // Bytes of its frame that are still to come, as the peer says; 1 or more before the last one.
    std::size_t to_come = 0;
};

struct link_proxy {
    std::string host;
    std::uint16_t port = 0;
    std::string credentials;  // "name:password", or empty
};

struct link_request {
    std::string host;  // without brackets
    std::uint16_t port = 0;
    std::string authority;  // what the Host header says
    std::string target = "/";
    bool is_secure = false;
    std::optional<link_proxy> proxy;
    std::string user_agent;
    std::vector<std::string> headers;  // "Name: value"
    std::string protocols;
    bool offers_deflate = false;
    std::size_t max_message_bytes = 0;
    std::chrono::milliseconds opening_time{0};  // for all of it; 0: the library's bounds
    std::chrono::milliseconds closing_time{0};  // for the peer's goodbye; 0: the library's bound
    // The name is looked up by the calling thread, which waits; otherwise by one that the loop
    // keeps for that.
    bool looks_up_in_place = false;
};

// What becomes of a link, on the loop's thread, under no lock. Only the end may come within an
// operation of the link. After link_ended nothing more is called, after drop() nothing at all.
class link_listener {
public:
    link_listener(const link_listener&) = delete;
    link_listener& operator=(const link_listener&) = delete;
    virtual ~link_listener() = default;

    virtual void link_opened() noexcept = 0;
    virtual void link_received(const link_piece& piece) noexcept = 0;
    // The system has taken more of a long message, and of what goes with it.
    virtual void link_wrote(std::size_t) noexcept {}
    virtual void link_sent() noexcept = 0;
    // For good, whatever was under way. link_fault::closed: both sides have said goodbye.
    virtual void link_ended(const link_result& result) noexcept = 0;

protected:
    link_listener() = default;
};

// Threads: everything on the loop's thread. What is under way keeps the link.
class link {
public:
    // Calls go to the listener as long as it exists.
    static std::shared_ptr<link> make(loop& on, std::weak_ptr<link_listener> listener);

    link(const link&) = delete;
    link& operator=(const link&) = delete;
    virtual ~link() = default;

    virtual void open(link_request request) noexcept = 0;
    // The memory has to stay until the link has received or ended.
    virtual void receive(std::span<char> into) noexcept = 0;
    // One message. The bytes have to stay until it is sent, or else until the link is gone; one at
    // a time.
    virtual void send(std::string_view bytes, bool is_text) noexcept = 0;
    // Nobody is told whether it went out.
    virtual void ping() noexcept = 0;
    // Ends the connection after the goodbye's time, unless this or close() comes again.
    virtual void bound_by_goodbye() noexcept = 0;
    // 0: without a code. May come while a receive is under way, which then receives nothing.
    virtual void close(std::uint16_t code) noexcept = 0;
    virtual void drop() noexcept = 0;
    // Keeps it until nothing is under way any more: also behind drop() a send that has been begun
    // may look at its bytes once more.
    virtual void keep(std::shared_ptr<const void> what) noexcept = 0;

protected:
    link() = default;
};

}  // namespace pennywort::websocket
