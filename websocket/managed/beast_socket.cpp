// websocket/managed/beast_socket.cpp - see the header for the contract.
#include "websocket/managed/beast_socket.h"

#include <algorithm>
#include <atomic>
#include <deque>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>

#include "core/run/guarded.h"
#include "loam/trace.h"
#include "websocket/close_codes.h"
#include "websocket/link/link.h"
#include "websocket/link/link_address.h"
#include "websocket/link/valid_text.h"
#include "websocket/managed/engine.h"
#include "websocket/managed/socket_life.h"

namespace pennywort::websocket {

namespace {

constexpr char k_class[] = "cWebSocket_Sharp";
// Of what an idle socket keeps for the next message.
constexpr std::size_t k_first_buffer = 2048;

std::uint16_t code_of(const link_result& result) {
    switch (result.fault) {
        case link_fault::closed:
        case link_fault::protocol:
            return result.code;
        case link_fault::refused:
            return k_close_protocol_error;
        default:
            return k_close_abnormal;
    }
}

// The message that is coming in, without the cost of clearing memory that is about to be filled.
class message_buffer {
public:
    std::span<char> space() {
        if (m_used == m_size) grow();
        return {m_bytes.get() + m_used, m_size - m_used};
    }
    void take(std::size_t size) { m_used += size; }
    std::string release() {
        std::string text(m_bytes.get(), m_used);
        m_used = 0;
        if (m_size > k_first_buffer) {
            m_bytes.reset();
            m_size = 0;
        }
        return text;
    }

private:
    void grow() {
        const std::size_t wanted = std::max(k_first_buffer, m_size * 2);
        auto larger = std::make_unique_for_overwrite<char[]>(wanted);
        std::copy_n(m_bytes.get(), m_used, larger.get());
        m_bytes = std::move(larger);
        m_size = wanted;
    }

    std::unique_ptr<char[]> m_bytes;
    std::size_t m_size = 0;
    std::size_t m_used = 0;
};

struct outgoing {
    std::string bytes;
    bool is_text = true;
};

// The connection. It keeps itself from connect() until it has ended, so that the close is told even
// when the host has let go of the socket. Everything but what says otherwise is of the engine's
// thread.
class beast_connection final : public link_listener,
                               public std::enable_shared_from_this<beast_connection> {
public:
    beast_connection(link_request request, std::size_t most_waiting,
                     std::weak_ptr<managed_owner> owner)
        : m_engine(engine::shared()),
          m_owner(std::move(owner)),
          m_most_waiting(most_waiting),
          m_request(std::move(request)) {}

    // From any thread: runs one of the operations below on the engine's.
    template <typename work>
    void carry_out(work what) {
        if (m_engine->is_current()) return what(*this);
        m_engine->post(
            [self = shared_from_this(), what = std::move(what)]() mutable { what(*self); });
    }
    // From any thread; throws when a message cannot be sent now.
    void reserve(std::size_t bytes);

    void connect() noexcept;
    void close() noexcept;
    void send(outgoing message) noexcept;
    void ping() noexcept {
        if (m_life.is_open()) m_link->ping();
    }

    void link_opened() noexcept override;
    void link_received(const link_piece& piece) noexcept override;
    void link_sent() noexcept override;
    void link_ended(const link_result& result) noexcept override;

private:
    void receive() noexcept;
    void send_next() noexcept;
    void say_goodbye() noexcept;
    void deliver(bool is_binary) noexcept;
    void run_out() noexcept { link_ended({link_fault::no_memory, 0, {}}); }
    void tell(socket_life::ending ending) noexcept;

    const std::shared_ptr<engine> m_engine;
    const std::weak_ptr<managed_owner> m_owner;
    const std::size_t m_most_waiting;
    std::atomic<std::size_t> m_waiting{0};
    link_request m_request;
    socket_life m_life;
    std::shared_ptr<link> m_link;
    std::shared_ptr<beast_connection> m_self;
    message_buffer m_incoming;
    std::deque<outgoing> m_queue;
};

void beast_connection::reserve(std::size_t bytes) {
    if (!m_life.is_open()) throw std::logic_error("The socket is not open.");
    const std::size_t before = m_waiting.fetch_add(bytes);
    if (before == 0 || before + bytes <= m_most_waiting) return;
    m_waiting -= bytes;
    throw std::runtime_error("Too much waits to be sent.");
}

void beast_connection::connect() noexcept {
    if (!m_life.connect()) return;
    m_self = shared_from_this();
    const bool is_begun = run::guarded(k_class, "ConnectAsync", [this] {
        m_link = link::make(m_engine->events(), weak_from_this());
        m_link->open(std::move(m_request));
    });
    if (!is_begun) run_out();
}

void beast_connection::close() noexcept {
    switch (m_life.close()) {
        case socket_life::farewell::say_goodbye:
            say_goodbye();
            break;
        case socket_life::farewell::drop:
            tell(m_life.failed(k_close_abnormal));
            break;
        case socket_life::farewell::nothing:
            break;
    }
}

void beast_connection::send(outgoing message) noexcept {
    if (!m_life.is_open()) return;
    const bool is_queued =
        run::guarded(k_class, "Send", [&] { m_queue.push_back(std::move(message)); });
    if (!is_queued) return run_out();
    if (m_queue.size() == 1) send_next();
}

void beast_connection::send_next() noexcept {
    const outgoing& next = m_queue.front();
    m_link->send(next.bytes, next.is_text);
}

// What Send has taken goes out before. Each message has the goodbye's time; a peer that reads
// nothing would keep the connection for ever.
void beast_connection::say_goodbye() noexcept {
    if (m_queue.empty()) return m_link->close(0);
    m_link->bound_by_goodbye();
}

void beast_connection::link_sent() noexcept {
    m_waiting -= m_queue.front().bytes.size();
    m_queue.pop_front();
    if (!m_queue.empty()) send_next();
    if (m_life.now() == socket_life::state::closing) say_goodbye();
}

void beast_connection::link_opened() noexcept {
    const auto self = shared_from_this();
    if (!m_life.connected()) return;
    if (const auto owner = m_owner.lock()) owner->socket_opened();
    if (m_life.now() != socket_life::state::closed) receive();
}

void beast_connection::receive() noexcept {
    std::span<char> space;
    if (!run::guarded(k_class, "the receiving", [&] { space = m_incoming.space(); })) {
        return run_out();
    }
    m_link->receive(space);
}

void beast_connection::link_received(const link_piece& piece) noexcept {
    const auto self = shared_from_this();
    m_incoming.take(piece.size);
    if (piece.is_last) deliver(!piece.is_text);
    // A peer that cannot send may not receive either: what waits would stay.
    const bool is_draining = m_life.now() == socket_life::state::closing && !m_queue.empty();
    if (m_life.is_open() || is_draining) receive();
}

void beast_connection::deliver(bool is_binary) noexcept {
    std::string message;
    if (!run::guarded(k_class, "a message", [&] { message = m_incoming.release(); })) {
        return run_out();
    }
    if (!m_life.is_open()) return;
    if (const auto owner = m_owner.lock()) owner->message_received(std::move(message), is_binary);
}

void beast_connection::link_ended(const link_result& result) noexcept {
    const bool is_goodbye = result.fault == link_fault::closed;
    const std::uint16_t code = code_of(result);
    zTraceManager::Default()->TraceNote("cWebSocket_Sharp: the connection has ended: %s\n",
                                        is_goodbye ? "goodbye" : result.text.c_str());
    tell(is_goodbye ? m_life.said_goodbye(code) : m_life.failed(code));
}

void beast_connection::tell(socket_life::ending ending) noexcept {
    if (!ending.is_told) return;
    const auto self = shared_from_this();
    m_self.reset();
    const auto link = std::move(m_link);
    if (link != nullptr) link->drop();
    if (const auto owner = m_owner.lock()) owner->socket_closed(ending.code, ending.was_clean);
}

// What the host's side holds.
class beast_socket final : public managed_socket {
public:
    explicit beast_socket(std::shared_ptr<beast_connection> connection)
        : m_connection(std::move(connection)) {}

    void connect_async() override {
        m_connection->carry_out([](beast_connection& connection) { connection.connect(); });
    }
    void close_async() override {
        m_connection->carry_out([](beast_connection& connection) { connection.close(); });
    }
    void ping() override {
        m_connection->carry_out([](beast_connection& connection) { connection.ping(); });
    }
    // Text crosses to the managed library as UTF-8, which repairs what is none.
    void send_text(std::string_view text) override { send({valid_text(text), true}); }
    void send_binary(std::string_view bytes) override { send({std::string(bytes), false}); }

private:
    void send(outgoing message) {
        m_connection->reserve(message.bytes.size());
        m_connection->carry_out([taken = std::move(message)](beast_connection& connection) mutable {
            connection.send(std::move(taken));
        });
    }

    const std::shared_ptr<beast_connection> m_connection;
};

}  // namespace

std::shared_ptr<managed_socket> make_beast_socket(const managed_request& request,
                                                  const std::weak_ptr<managed_owner>& owner) {
    return std::make_shared<beast_socket>(std::make_shared<beast_connection>(
        request_for_url(request.url, request.settings), request.max_waiting_bytes, owner));
}

}  // namespace pennywort::websocket
