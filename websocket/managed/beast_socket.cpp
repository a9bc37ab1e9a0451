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
#include "websocket/class_names.h"
#include "websocket/close_codes.h"
#include "websocket/link/link.h"
#include "websocket/link/link_address.h"
#include "websocket/link/link_maker.h"
#include "websocket/link/valid_text.h"
#include "websocket/managed/engine.h"
#include "websocket/managed/socket_life.h"
#include "websocket/managed/spare_text.h"

namespace pennywort::websocket {

namespace {

// Of what an idle socket keeps for the next message: before and after the first one that is longer.
constexpr std::size_t k_kept_by_all = 512;
constexpr std::size_t k_kept_by_talkers = 2048;

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

// The message that is coming in. Short ones are copied out of it; a long one is handed over with
// its memory.
class message_buffer {
public:
    // Room for more of a message of which so much is still to come, as the peer says.
    std::span<char> space(std::size_t to_come) {
        const std::size_t free = m_bytes.size() - m_used;
        if (free == 0 || (is_short() && to_come > free)) grow(to_come);
        return {m_bytes.data() + m_used, m_bytes.size() - m_used};
    }
    void take(std::size_t size) { m_used += size; }
    std::string release() {
        if (m_used > m_kept) m_kept = k_kept_by_talkers;
        const std::size_t used = std::exchange(m_used, 0);
        if (is_short()) return m_bytes.substr(0, used);
        m_bytes.resize(used);
        return std::exchange(m_bytes, {});
    }

private:
    bool is_short() const { return m_bytes.size() <= m_kept; }
    // At least twice as much, for a message of many frames. A peer that announces much and sends
    // little gets little.
    void grow(std::size_t to_come) {
        const std::size_t trusted = std::max(k_long_text, m_used * 3);
        const std::size_t wish = std::max(m_kept, m_used + std::max(to_come, m_used));
        std::string larger = spare_text::take(std::min(wish, m_used + trusted), wish);
        std::copy_n(m_bytes.data(), m_used, larger.data());
        m_bytes = std::move(larger);
    }

    std::string m_bytes;
    std::size_t m_used = 0;
    std::size_t m_kept = k_kept_by_all;
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
    // From any thread; the first throws when a message cannot be sent now.
    void reserve(std::size_t bytes);

    std::size_t waiting() const {
        return m_life.now() == socket_life::state::closed ? 0 : m_waiting.load();
    }

    void connect() noexcept;
    void close() noexcept;
    void send(outgoing message) noexcept;
    void ping() noexcept {
        if (m_life.is_open()) m_link->ping();
    }

    void link_opened() noexcept override;
    void link_received(const link_piece& piece) noexcept override;
    void link_wrote(std::size_t size) noexcept override;
    void link_sent() noexcept override;
    void link_ended(const link_result& result) noexcept override;

private:
    void receive(std::size_t to_come) noexcept;
    void send_next() noexcept;
    void say_goodbye() noexcept;
    void deliver(bool is_binary) noexcept;
    void run_out() noexcept { link_ended({link_fault::no_memory, 0, {}}); }
    void tell_fault(const std::string& why) noexcept;
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
    // Of the first one, what counts as waiting.
    std::size_t m_unsent = 0;
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
    const bool is_begun = run::guarded(k_class_sharp, "ConnectAsync", [this] {
        m_link = current_link_maker()(m_engine->events(), weak_from_this());
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
        run::guarded(k_class_sharp, "Send", [&] { m_queue.push_back(std::move(message)); });
    if (!is_queued) return run_out();
    if (m_queue.size() == 1) send_next();
}

void beast_connection::send_next() noexcept {
    const outgoing& next = m_queue.front();
    m_unsent = next.bytes.size();
    m_link->send(next.bytes, next.is_text);
}

// What Send has taken goes out before. Each message has the goodbye's time; a peer that reads
// nothing would keep the connection for ever.
void beast_connection::say_goodbye() noexcept {
    if (m_queue.empty()) return m_link->close(0);
    m_link->bound_by_goodbye();
}

// Heads of frames count too, so that the last byte waits until the message is out.
void beast_connection::link_wrote(std::size_t size) noexcept {
    if (m_unsent == 0) return;
    const std::size_t gone = std::min(size, m_unsent - 1);
    m_unsent -= gone;
    m_waiting -= gone;
}

void beast_connection::link_sent() noexcept {
    m_waiting -= std::exchange(m_unsent, 0);
    spare_text::give_back(std::move(m_queue.front().bytes));
    m_queue.pop_front();
    if (!m_queue.empty()) send_next();
    if (m_life.now() == socket_life::state::closing) say_goodbye();
}

void beast_connection::link_opened() noexcept {
    const auto self = shared_from_this();
    if (!m_life.connected()) return;
    if (const auto owner = m_owner.lock()) owner->socket_opened();
    if (m_life.now() != socket_life::state::closed) receive(0);
}

void beast_connection::receive(std::size_t to_come) noexcept {
    std::span<char> space;
    if (!run::guarded(k_class_sharp, "the receiving", [&] { space = m_incoming.space(to_come); })) {
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
    if (m_life.is_open() || is_draining) receive(piece.to_come);
}

void beast_connection::deliver(bool is_binary) noexcept {
    std::string message;
    if (!run::guarded(k_class_sharp, "a message", [&] { message = m_incoming.release(); })) {
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
    if (is_goodbye && m_life.is_open()) {
        if (const auto owner = m_owner.lock()) owner->goodbye_received(code, result.text);
    }
    if (!is_goodbye) tell_fault(result.text);
    tell(is_goodbye ? m_life.said_goodbye(code) : m_life.failed(code));
}

void beast_connection::tell_fault(const std::string& why) noexcept {
    if (m_life.now() == socket_life::state::closed) return;
    if (const auto owner = m_owner.lock()) owner->fault_received(why);
}

void beast_connection::tell(socket_life::ending ending) noexcept {
    if (!ending.is_told) return;
    const auto self = shared_from_this();
    m_self.reset();
    const auto link = std::move(m_link);
    if (link != nullptr) {
        link->drop();
        // The message that is being sent is ours.
        link->keep(self);
    }
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
    void send_text(std::string_view text) override {
        send({is_valid_text(text) ? spare_text::copy_of(text) : valid_text(text), true});
    }
    void send_binary(std::string_view bytes) override { send({spare_text::copy_of(bytes), false}); }
    std::size_t waiting_bytes() const noexcept override { return m_connection->waiting(); }

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
