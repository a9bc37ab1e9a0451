// any_stream.h - a TCP connection with or without TLS as one type, so that the heavy templates of
// Beast are compiled for one stream alone.
#pragma once

#include <boost/asio/async_result.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <boost/beast/core/error.hpp>
#include <boost/beast/core/role.hpp>
#include <memory>
#include <optional>
#include <utility>

#include "websocket/link/loop_state.h"

namespace pennywort::websocket {

namespace net = boost::asio;
namespace beast = boost::beast;
using boost::system::error_code;

using tcp = net::ip::tcp;
using loop_executor = net::io_context::executor_type;
using tcp_socket = net::basic_stream_socket<tcp, loop_executor>;
using tls_stream = net::ssl::stream<tcp_socket&>;

// Hears how much the system has taken, behind each write.
class write_listener {
public:
    write_listener(const write_listener&) = delete;
    write_listener& operator=(const write_listener&) = delete;
    virtual void wrote(std::size_t size) noexcept = 0;

protected:
    write_listener() = default;
    ~write_listener() = default;
};

class any_stream {
public:
    using executor_type = loop_executor;

    explicit any_stream(loop::state& on) : m_socket(on.io), m_ready(on.ready) {}

    executor_type get_executor() noexcept { return m_socket.get_executor(); }
    tcp_socket& socket() { return m_socket; }
    tls_stream& begin_tls(net::ssl::context& context) { return m_tls.emplace(m_socket, context); }

    // Once it is connected.
    void begin_transfer() noexcept {
        error_code error;
        m_socket.non_blocking(true, error);
        m_is_never_waiting = !error;
    }

    // Null: nobody. To be there as long as the stream is.
    void tell_of_writes(write_listener* who) noexcept { m_write_listener = who; }

    template <typename buffers, typename token>
    auto async_read_some(const buffers& into, token&& handler) {
        return net::async_initiate<token, void(error_code, std::size_t)>(
            [this](auto&& done, const buffers& where) {
                if (m_tls) {
                    m_tls->async_read_some(where, std::forward<decltype(done)>(done));
                } else if (!has_read_now(where, done)) {
                    m_socket.async_read_some(where, in_turn(std::forward<decltype(done)>(done),
                                                            net::buffer_size(where)));
                }
            },
            handler, into);
    }

    template <typename buffers, typename token>
    auto async_write_some(const buffers& from, token&& handler) {
        return net::async_initiate<token, void(error_code, std::size_t)>(
            [this](auto&& done, const buffers& what) {
                if (m_tls) {
                    m_tls->async_write_some(what, told(std::forward<decltype(done)>(done)));
                } else if (!has_written_now(what, done)) {
                    m_socket.async_write_some(what,
                                              in_turn(told(std::forward<decltype(done)>(done))));
                }
            },
            handler, from);
    }

    void drop() noexcept {
        error_code ignored;
        m_socket.close(ignored);
    }

    // What Beast asks of a stream: to be closed, and to be ended when both sides have said goodbye.
    friend void beast_close_socket(any_stream& stream) { stream.drop(); }

    template <typename handler>
    friend void async_teardown(beast::role_type, any_stream& stream, handler&& done) {
        auto end = [&stream, taken = std::forward<handler>(done)](error_code = {}) mutable {
            error_code ignored;
            stream.m_socket.shutdown(tcp_socket::shutdown_send, ignored);
            taken(error_code());
        };
        if (!stream.m_tls) return net::post(stream.get_executor(), std::move(end));
        // TLS has a goodbye of its own, and the peer's is not waited for: WebSocket's has come.
        SSL_set_shutdown(stream.m_tls->native_handle(), SSL_RECEIVED_SHUTDOWN);
        stream.m_tls->async_shutdown(std::move(end));
    }
    friend void teardown(beast::role_type, any_stream& stream, error_code& error) {
        stream.m_socket.shutdown(tcp_socket::shutdown_send, error);
    }

private:
    // A peer that filled the room has more, as a rule. Any other read would find nothing.
    template <typename buffers, typename handler>
    bool has_read_now(const buffers& where, handler& done) {
        if (!m_is_full || !m_is_never_waiting || !m_ready.takes_more()) return false;
        error_code error;
        const std::size_t size = m_socket.read_some(where, error);
        m_is_full = size == net::buffer_size(where);
        return has_added(done, error, size);
    }
    template <typename buffers, typename handler>
    bool has_written_now(const buffers& what, handler& done) {
        if (!m_is_never_waiting || !m_ready.takes_more()) return false;
        error_code error;
        const std::size_t size = m_socket.write_some(what, error);
        tell(size);
        return has_added(done, error, size);
    }
    void tell(std::size_t size) noexcept {
        if (m_write_listener != nullptr && size > 0) m_write_listener->wrote(size);
    }
    // The handler of a write that is not done at once.
    template <typename handler>
    auto told(handler&& done) {
        return [this, whose = std::forward<handler>(done)](error_code error,
                                                           std::size_t size) mutable {
            tell(size);
            std::move(whose)(error, size);
        };
    }
    template <typename handler>
    bool has_added(handler& done, error_code error, std::size_t size) {
        if (error == net::error::would_block || error == net::error::try_again) return false;
        m_ready.add(done, error, size);
        return true;
    }
    // The handler of something that the system has to wait for. `room`: of a read.
    template <typename handler>
    auto in_turn(handler&& done, std::size_t room = 0) {
        return [this, room, whose = std::forward<handler>(done)](error_code error,
                                                                 std::size_t size) mutable {
            if (room > 0) m_is_full = size == room;
            // The stream may be gone behind the call.
            ready_operations& ready = m_ready;
            ready.run([&] { std::move(whose)(error, size); });
        };
    }

    tcp_socket m_socket;
    ready_operations& m_ready;
    bool m_is_never_waiting = false;
    bool m_is_full = false;
    write_listener* m_write_listener = nullptr;
    std::optional<tls_stream> m_tls;
};

}  // namespace pennywort::websocket
