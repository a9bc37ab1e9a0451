// any_stream.h - a TCP connection with or without TLS as one type, so that the heavy templates of
// Beast are compiled for one stream alone.
#pragma once

#include <boost/asio/async_result.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <boost/beast/core/error.hpp>
#include <boost/beast/core/role.hpp>
#include <memory>
#include <optional>
#include <utility>

namespace pennywort::websocket {

namespace net = boost::asio;
namespace beast = boost::beast;
using boost::system::error_code;

using tcp = net::ip::tcp;
using loop_executor = net::io_context::executor_type;
using tcp_socket = net::basic_stream_socket<tcp, loop_executor>;
using tls_stream = net::ssl::stream<tcp_socket&>;

class any_stream {
public:
    using executor_type = loop_executor;

    explicit any_stream(net::io_context& on) : m_socket(on) {}

    executor_type get_executor() noexcept { return m_socket.get_executor(); }
    tcp_socket& socket() { return m_socket; }
    tls_stream& begin_tls(net::ssl::context& context) { return m_tls.emplace(m_socket, context); }

    template <typename buffers, typename token>
    auto async_read_some(const buffers& into, token&& handler) {
        return net::async_initiate<token, void(error_code, std::size_t)>(
            [this](auto&& done, const buffers& where) {
                using handler_type = decltype(done);
                if (m_tls) {
                    m_tls->async_read_some(where, std::forward<handler_type>(done));
                } else {
                    m_socket.async_read_some(where, std::forward<handler_type>(done));
                }
            },
            handler, into);
    }

    template <typename buffers, typename token>
    auto async_write_some(const buffers& from, token&& handler) {
        return net::async_initiate<token, void(error_code, std::size_t)>(
            [this](auto&& done, const buffers& what) {
                using handler_type = decltype(done);
                if (m_tls) {
                    m_tls->async_write_some(what, std::forward<handler_type>(done));
                } else {
                    m_socket.async_write_some(what, std::forward<handler_type>(done));
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
        error_code ignored;
        stream.m_socket.shutdown(tcp_socket::shutdown_send, ignored);
        net::post(stream.get_executor(),
                  [taken = std::forward<handler>(done)]() mutable { taken(error_code()); });
    }
    friend void teardown(beast::role_type, any_stream& stream, error_code& error) {
        stream.m_socket.shutdown(tcp_socket::shutdown_send, error);
    }

private:
    tcp_socket m_socket;
    std::optional<tls_stream> m_tls;
};

}  // namespace pennywort::websocket
