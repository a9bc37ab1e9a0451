// bench/websocket/beast_clients.cpp - see clients.h.
#include <atomic>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/websocket/stream.hpp>
#include <future>
#include <thread>
#include <vector>

#include "bench/websocket/clients.h"

namespace {

namespace net = boost::asio;
namespace beast = boost::beast;
using error_code = boost::system::error_code;
using tcp = net::ip::tcp;
using stream = beast::websocket::stream<tcp::socket>;

constexpr std::size_t k_write_buffer_bytes = 64 * 1024;
constexpr std::size_t k_longest_message = 256 * 1024 * 1024;

std::unique_ptr<stream> connected(net::io_context& io, std::uint16_t port,
                                  beast_settings settings) {
    auto made = std::make_unique<stream>(io);
    made->next_layer().connect({net::ip::address_v4::loopback(), port});
    made->next_layer().set_option(tcp::no_delay(true));
    if (settings == beast_settings::tuned) {
        made->auto_fragment(false);
        made->write_buffer_bytes(k_write_buffer_bytes);
        made->read_message_max(k_longest_message);
    }
    made->handshake("127.0.0.1", "/");
    made->text(true);
    return made;
}

class blocking final : public client {
public:
    explicit blocking(beast_settings settings) : m_settings(settings) {}

    bool connect(std::uint16_t port) override {
        m_streams.push_back(connected(m_io, port, m_settings));
        return true;
    }
    std::uint64_t play(const std::string& message, std::chrono::milliseconds time) override {
        stream& on = *m_streams.back();
        beast::flat_buffer buffer;
        std::uint64_t count = 0;
        const auto end = std::chrono::steady_clock::now() + time;
        on.write(net::buffer(message));
        while (true) {
            on.read(buffer);
            if (std::chrono::steady_clock::now() >= end) return count;
            ++count;
            on.write(buffer.data());
            buffer.clear();
        }
    }

private:
    const beast_settings m_settings;
    net::io_context m_io{1};
    std::vector<std::unique_ptr<stream>> m_streams;
};

class asynchronous final : public client {
public:
    explicit asynchronous(beast_settings settings) : m_settings(settings) {}
    ~asynchronous() override {
        m_io.stop();
        m_thread.join();
    }
    bool connect(std::uint16_t port) override {
        auto made = std::make_unique<connection>();
        made->on = connected(m_io, port, m_settings);
        connection& last = *m_connections.emplace_back(std::move(made));
        net::post(m_io, [this, &last] { receive(last); });
        return true;
    }
    std::uint64_t play(const std::string& message, std::chrono::milliseconds time) override {
        m_count = 0;
        m_is_stopping = false;
        m_stopped = {};
        net::post(m_io, [this, &message] {
            connection& last = *m_connections.back();
            last.on->async_write(net::buffer(message), [](error_code, std::size_t) {});
        });
        std::this_thread::sleep_for(time);
        const std::uint64_t count = m_count;
        m_is_stopping = true;
        m_stopped.get_future().wait();
        return count;
    }

private:
    struct connection {
        std::unique_ptr<stream> on;
        beast::flat_buffer buffer;
    };

    void receive(connection& from) {
        from.on->async_read(from.buffer, [this, &from](error_code error, std::size_t) {
            if (error) return;
            ++m_count;
            if (!m_is_stopping) return send(from);
            from.buffer.clear();
            receive(from);
            m_stopped.set_value();
        });
    }
    void send(connection& to) {
        to.on->async_write(to.buffer.data(), [this, &to](error_code error, std::size_t) {
            to.buffer.clear();
            if (!error) receive(to);
        });
    }

    const beast_settings m_settings;
    net::io_context m_io{1};
    net::executor_work_guard<net::io_context::executor_type> m_work{m_io.get_executor()};
    std::vector<std::unique_ptr<connection>> m_connections;
    std::atomic<std::uint64_t> m_count{0};
    std::atomic<bool> m_is_stopping{false};
    std::promise<void> m_stopped;
    std::thread m_thread{[this] { m_io.run(); }};
};

}  // namespace

std::unique_ptr<client> make_beast_blocking(beast_settings settings) {
    return std::make_unique<blocking>(settings);
}
std::unique_ptr<client> make_beast_asynchronous(beast_settings settings) {
    return std::make_unique<asynchronous>(settings);
}
