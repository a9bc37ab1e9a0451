// bench/websocket/server.cpp - sends every message back, on one thread. Prints its port.
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/websocket/stream.hpp>
#include <cstdio>
#include <memory>

namespace {

namespace net = boost::asio;
namespace beast = boost::beast;
using error_code = boost::system::error_code;
using tcp = net::ip::tcp;

constexpr std::size_t k_write_buffer_bytes = 64 * 1024;
constexpr std::size_t k_longest_message = 64 * 1024 * 1024;

class session : public std::enable_shared_from_this<session> {
public:
    explicit session(tcp::socket socket) : m_stream(std::move(socket)) {}

    void start() {
        m_stream.next_layer().set_option(tcp::no_delay(true));
        m_stream.auto_fragment(false);
        m_stream.write_buffer_bytes(k_write_buffer_bytes);
        m_stream.read_message_max(k_longest_message);
        m_stream.async_accept([self = shared_from_this()](error_code error) {
            if (!error) self->receive();
        });
    }

private:
    void receive() {
        m_stream.async_read(m_buffer, [self = shared_from_this()](error_code error, std::size_t) {
            if (!error) self->send();
        });
    }
    void send() {
        m_stream.text(m_stream.got_text());
        m_stream.async_write(m_buffer.data(),
                             [self = shared_from_this()](error_code error, std::size_t size) {
                                 self->m_buffer.consume(size);
                                 if (!error) self->receive();
                             });
    }

    beast::websocket::stream<tcp::socket> m_stream;
    beast::flat_buffer m_buffer;
};

void accept(tcp::acceptor& acceptor) {
    acceptor.async_accept([&acceptor](error_code error, tcp::socket socket) {
        if (!error) std::make_shared<session>(std::move(socket))->start();
        accept(acceptor);
    });
}

}  // namespace

int main() {
    net::io_context io{1};
    tcp::acceptor acceptor(io, tcp::endpoint(net::ip::address_v4::loopback(), 0));
    std::printf("%d\n", int(acceptor.local_endpoint().port()));
    std::fflush(stdout);
    accept(acceptor);
    io.run();
}
