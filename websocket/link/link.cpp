// websocket/link/link.cpp - see link.h for the contract. The one file that compiles Beast's
// streams.
#include "websocket/link/link.h"

#include <algorithm>
#include <array>
#include <boost/asio/basic_waitable_timer.hpp>
#include <boost/asio/connect.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/websocket/stream.hpp>
#include <iterator>
#include <utility>

#include "core/http/bytes.h"
#include "core/limits.h"
#include "core/run/guarded.h"
#include "core/text/ascii.h"
#include "loam/trace.h"
#include "websocket/close_codes.h"
#include "websocket/fault_words.h"
#include "websocket/link/any_stream.h"
#include "websocket/link/look_up.h"
#include "websocket/link/loop_state.h"
#include "websocket/link/proxy_request.h"
#include "websocket/link/tls.h"

namespace pennywort::websocket {

namespace {

namespace ws = beast::websocket;
using loop_clock = std::chrono::steady_clock;
using timer = net::basic_waitable_timer<loop_clock, net::wait_traits<loop_clock>, loop_executor>;
using resolver = net::ip::basic_resolver<tcp, loop_executor>;
using std::chrono::milliseconds;

// Masked bytes go through a buffer that the stream keeps: a small one as long as messages are
// short; with that a long one would take a call of the system for each 4 KiB.
constexpr std::size_t k_short_write_bytes = 4 * 1024;
constexpr std::size_t k_long_write_bytes = 64 * 1024;

milliseconds or_else(milliseconds asked, milliseconds otherwise) {
    return asked.count() > 0 ? asked : otherwise;
}

bool is_unknown_name(error_code error) {
    return error == net::error::host_not_found || error == net::error::host_not_found_try_again ||
           error == net::error::no_data;
}

// Of an upgrade that failed: whether there was an answer, and it was wrong. What is no HTTP is
// none.
bool is_bad_answer(error_code error) {
    return error.category() == ws::make_error_code(ws::error::closed).category();
}

// What the handshake says itself stays as it is: another key would make the right answer wrong.
bool is_of_handshake(std::string_view name) {
    constexpr std::string_view k_names[] = {"host",
                                            "upgrade",
                                            "connection",
                                            "sec-websocket-key",
                                            "sec-websocket-version",
                                            "sec-websocket-extensions",
                                            "sec-websocket-protocol"};
    return std::any_of(std::begin(k_names), std::end(k_names), [name](std::string_view one) {
        return text::equal_ignoring_case(name, one);
    });
}

void add_header(ws::request_type& head, const std::string& line) {
    const std::size_t colon = line.find(':');
    const std::string name = line.substr(0, colon);
    if (is_of_handshake(name)) {
        zTraceManager::Default()->TraceNote("cWebSocket: the header %s is the handshake's own\n",
                                            name.c_str());
        return;
    }
    const std::string_view value = http::trimmed_value(std::string_view(line).substr(colon + 1));
    if (text::equal_ignoring_case(name, "user-agent")) head.erase(name);
    head.insert(name, beast::string_view(value.data(), value.size()));
}

// One step that is under way. It keeps its link. When it is destroyed without having been called,
// because memory ran out on the way, the link ends: it would wait for ever otherwise.
template <typename owner, typename work>
class step {
public:
    step(std::shared_ptr<owner> self, work next) noexcept
        : m_self(std::move(self)), m_work(std::move(next)) {}
    step(step&& other) noexcept : m_self(std::move(other.m_self)), m_work(other.m_work) {}
    step(const step&) = delete;
    step& operator=(const step&) = delete;
    step& operator=(step&&) = delete;
    ~step() {
        if (m_self != nullptr) m_self->end_without_memory();
    }

    template <typename... results>
    void operator()(error_code error, results... result) {
        const std::shared_ptr<owner> self = std::move(m_self);
        if (self->has_ended()) return;
        try {
            ((*self).*m_work)(error, result...);
        } catch (...) {
            self->end_without_memory();
        }
    }

private:
    std::shared_ptr<owner> m_self;
    work m_work;
};

class beast_link final : public link,
                         public write_listener,
                         public std::enable_shared_from_this<beast_link> {
public:
    beast_link(loop::state& on, std::weak_ptr<link_listener> listener)
        : m_listener(std::move(listener)), m_timer(on.io), m_stream(on), m_resolver(on.io) {}

    void open(link_request request) noexcept override;
    void receive(std::span<char> into) noexcept override;
    void send(std::string_view bytes, bool is_text) noexcept override;
    void ping() noexcept override;
    void bound_by_goodbye() noexcept override;
    void close(std::uint16_t code) noexcept override;
    void drop() noexcept override;
    void keep(std::shared_ptr<const void> what) noexcept override { m_kept = std::move(what); }
    void wrote(std::size_t size) noexcept override;

    bool has_ended() const noexcept { return m_has_ended; }
    void end_without_memory() noexcept { end({link_fault::no_memory, 0, {}}); }

private:
    using endpoints = resolver::results_type;

    any_stream& transport() { return m_stream.next_layer(); }
    template <typename... results>
    auto then(void (beast_link::*next)(error_code, results...)) {
        return step<beast_link, decltype(next)>(shared_from_this(), next);
    }
    // Begins something; what that throws for want of memory ends the link.
    template <typename work>
    void begin(work what) noexcept {
        if (m_has_ended) return;
        try {
            what();
        } catch (...) {
            end_without_memory();
        }
    }

    void look_up();
    void look_up_here(const std::string& host, const std::string& service);
    std::string words_of_way(error_code error) const;
    void looked_up(error_code error, endpoints found);
    void connected(error_code error, tcp::endpoint to);
    void connect_sent(error_code error, std::size_t size);
    void receive_proxy_head();
    void proxy_answered(error_code error, std::size_t size);
    void connection_stands();
    void tls_agreed(error_code error);
    void upgrade();
    void upgraded(error_code error);
    std::string fault_of_response() const;
    void received(error_code error, std::size_t size);
    void sent(error_code error, std::size_t size);
    void pinged(error_code error);
    void closed(error_code error);
    void time_over(error_code error);

    void bound_by(milliseconds most);
    void unbound() noexcept { m_timer.cancel(); }
    void fail(link_fault fault, std::string text) noexcept;
    void fail(link_fault fault, error_code error) { fail(fault, error.message()); }
    void fail_open(error_code error);
    link_result goodbye();
    link_result result_of(error_code error);
    void end(const link_result& result) noexcept;

    // First, so that it goes last: the loop may go with it.
    std::shared_ptr<const void> m_kept;
    std::weak_ptr<link_listener> m_listener;
    // Before the stream: the loop's first timer takes memory. A stream enters itself in a list of
    // the loop and makes a timer then; were that to fail, the list would hold what is gone.
    timer m_timer;
    ws::stream<any_stream> m_stream;
    resolver m_resolver;
    link_request m_request;
    loop_clock::time_point m_opening_end = loop_clock::time_point::max();
    milliseconds m_closing_time{0};
    std::shared_ptr<net::ssl::context> m_tls;
    tls_stream* m_tls_stream = nullptr;  // the transport's
    std::unique_ptr<proxy_exchange> m_proxy;
    ws::response_type m_response;
    bool m_has_ended = false;
    bool m_is_pinging = false;
    bool m_is_closing = false;
};

void beast_link::open(link_request request) noexcept {
    begin([&] {
        m_request = std::move(request);
        m_closing_time = or_else(m_request.closing_time, k_max_websocket_goodbye);
        if (m_request.opening_time.count() > 0) {
            m_opening_end = loop_clock::now() + m_request.opening_time;
        }
        bound_by(k_max_websocket_connect);
        look_up();
    });
}

void beast_link::look_up() {
    const std::string& host = m_request.proxy ? m_request.proxy->host : m_request.host;
    const std::uint16_t port = m_request.proxy ? m_request.proxy->port : m_request.port;
    error_code error;
    const auto address = net::ip::make_address(host, error);
    if (!error) {
        looked_up(error, endpoints::create(tcp::endpoint(address, port), host, {}));
        return;
    }
    const std::string service = std::to_string(port);
    if (m_request.looks_up_in_place) return look_up_here(host, service);
    m_resolver.async_resolve(host, service, resolver::numeric_service,
                             then(&beast_link::looked_up));
}

void beast_link::look_up_here(const std::string& host, const std::string& service) {
    const auto end = std::min(m_opening_end, loop_clock::now() + k_max_websocket_connect);
    const found_addresses found = look_up_until(end, host, service);
    looked_up(found.error, found.addresses);
}

std::string beast_link::words_of_way(error_code error) const {
    std::string words = m_request.proxy ? "no way to the proxy: " : "";
    if (is_unknown_name(error)) {
        words += k_unknown_host;
    } else {
        words += error == net::error::connection_refused ? k_nobody_listens : k_no_way;
    }
    return words + " (" + error.message() + ")";
}

void beast_link::looked_up(error_code error, endpoints found) {
    if (error) return fail(link_fault::unreachable, words_of_way(error));
    net::async_connect(transport().socket(), found, then(&beast_link::connected));
}

void beast_link::connected(error_code error, tcp::endpoint) {
    if (error) return fail(link_fault::unreachable, words_of_way(error));
    error_code ignored;
    transport().socket().set_option(tcp::no_delay(true), ignored);
    transport().begin_transfer();
    if (!m_request.proxy) return connection_stands();
    m_proxy = std::make_unique<proxy_exchange>(m_request);
    net::async_write(transport(), net::buffer(m_proxy->request), then(&beast_link::connect_sent));
}

void beast_link::connect_sent(error_code error, std::size_t) {
    if (error) return fail(link_fault::proxy, error);
    receive_proxy_head();
}

void beast_link::receive_proxy_head() {
    transport().async_read_some(net::buffer(m_proxy->received), then(&beast_link::proxy_answered));
}

void beast_link::proxy_answered(error_code error, std::size_t size) {
    if (error) return fail(link_fault::proxy, error);
    switch (m_proxy->take(size)) {
        case proxy_exchange::state::need_more:
            return receive_proxy_head();
        case proxy_exchange::state::refused:
            return fail(link_fault::proxy, m_proxy->why());
        case proxy_exchange::state::complete:
            break;
    }
    m_proxy.reset();
    connection_stands();
}

void beast_link::connection_stands() {
    if (!m_request.is_secure) return upgrade();
    m_tls = tls_context();
    if (m_tls == nullptr) return fail(link_fault::tls, "OpenSSL cannot be set up");
    tls_stream& stream = transport().begin_tls(*m_tls);
    if (!expect_server(stream, m_request.host)) return fail(link_fault::tls, "bad server name");
    m_tls_stream = &stream;
    stream.async_handshake(net::ssl::stream_base::client, then(&beast_link::tls_agreed));
}

void beast_link::tls_agreed(error_code error) {
    if (error) return fail(link_fault::tls, words_of_refusal(*m_tls_stream, error));
    upgrade();
}

void beast_link::upgrade() {
    bound_by(k_max_websocket_upgrade);
    m_stream.set_option(ws::stream_base::decorator([this](ws::request_type& head) {
        head.set(beast::http::field::user_agent, m_request.user_agent);
        if (!m_request.protocols.empty()) {
            head.set(beast::http::field::sec_websocket_protocol, m_request.protocols);
        }
        for (const std::string& line : m_request.headers) add_header(head, line);
    }));
    ws::permessage_deflate deflate;
    deflate.client_enable = m_request.offers_deflate;
    m_stream.set_option(deflate);
    m_stream.auto_fragment(false);
    m_stream.read_message_max(m_request.max_message_bytes);
    m_stream.async_handshake(m_response, m_request.authority, m_request.target,
                             then(&beast_link::upgraded));
}

// What Beast leaves to its users: a server may choose nothing that it was not offered.
std::string beast_link::fault_of_response() const {
    const auto protocol = m_response.find(beast::http::field::sec_websocket_protocol);
    if (protocol != m_response.end() &&
        !is_offered(m_request.protocols, {protocol->value().data(), protocol->value().size()})) {
        return "the server chose a sub-protocol that was not offered";
    }
    const bool has_extension = m_response.count(beast::http::field::sec_websocket_extensions) != 0;
    return has_extension && !m_request.offers_deflate
               ? "the server chose an extension that was not offered"
               : "";
}

void beast_link::upgraded(error_code error) {
    if (error) return fail_open(error);
    const std::string wrong = fault_of_response();
    if (!wrong.empty()) return fail(link_fault::refused, wrong);
    unbound();
    m_opening_end = loop_clock::time_point::max();
    m_request = {};
    m_response = {};
    if (const auto listener = m_listener.lock()) listener->link_opened();
}

void beast_link::fail_open(error_code error) {
    const unsigned status = m_response.result_int();
    if (error == ws::error::upgrade_declined && status != 0) {
        return fail(link_fault::refused, k_server_answers + std::to_string(status));
    }
    fail(is_bad_answer(error) ? link_fault::refused : link_fault::lost, error);
}

void beast_link::receive(std::span<char> into) noexcept {
    begin([&] {
        m_stream.async_read_some(net::buffer(into.data(), into.size()),
                                 then(&beast_link::received));
    });
}

void beast_link::received(error_code error, std::size_t size) {
    // The goodbye that is under way has taken over the reading, and reports the end.
    if (m_is_closing && error && error != ws::error::closed) return;
    if (error) return end(result_of(error));
    const bool is_last = m_stream.is_message_done();
    const std::size_t to_come = is_last ? 0 : m_stream.read_size_hint(1);
    const link_piece piece{size, m_stream.got_text(), is_last, to_come};
    if (const auto listener = m_listener.lock()) listener->link_received(piece);
}

void beast_link::send(std::string_view bytes, bool is_text) noexcept {
    begin([&] {
        m_stream.text(is_text);
        m_stream.write_buffer_bytes(bytes.size() < k_short_write_bytes ? k_short_write_bytes
                                                                       : k_long_write_bytes);
        transport().tell_of_writes(bytes.size() > k_long_write_bytes ? this : nullptr);
        m_stream.async_write(net::buffer(bytes.data(), bytes.size()), then(&beast_link::sent));
    });
}

void beast_link::wrote(std::size_t size) noexcept {
    if (m_has_ended) return;
    if (const auto listener = m_listener.lock()) listener->link_wrote(size);
}

void beast_link::sent(error_code error, std::size_t) {
    // A connection that is lost tells the one who receives why.
    if (m_is_closing && error) return;
    if (error) return end(result_of(error));
    if (const auto listener = m_listener.lock()) listener->link_sent();
}

// The stream takes one ping at a time; what was asked for meanwhile is that one.
void beast_link::ping() noexcept {
    if (m_is_pinging || m_is_closing) return;
    begin([&] {
        m_is_pinging = true;
        m_stream.async_ping({}, then(&beast_link::pinged));
    });
}

void beast_link::pinged(error_code error) {
    m_is_pinging = false;
    if (m_is_closing) return;
    if (error) end(result_of(error));
}

void beast_link::bound_by_goodbye() noexcept {
    begin([&] { bound_by(m_closing_time); });
}

void beast_link::close(std::uint16_t code) noexcept {
    if (m_is_closing) return;
    begin([&] {
        m_is_closing = true;
        bound_by(m_closing_time);
        const ws::close_reason reason = code == 0 ? ws::close_reason() : ws::close_reason(code);
        m_stream.async_close(reason, then(&beast_link::closed));
    });
}

void beast_link::closed(error_code error) {
    if (error) return end(result_of(error));
    end(goodbye());
}

void beast_link::drop() noexcept {
    m_has_ended = true;
    unbound();
    // Takes memory; without it the look-up ends by itself, and nobody listens.
    run::guarded("cWebSocket", "the look-up's end", [this] { m_resolver.cancel(); });
    transport().drop();
}

void beast_link::bound_by(milliseconds most) {
    m_timer.expires_at(std::min(m_opening_end, loop_clock::now() + most));
    m_timer.async_wait(then(&beast_link::time_over));
}

void beast_link::time_over(error_code error) {
    if (error) return;
    fail(link_fault::timed_out, k_silent);
}

// Beast knows which codes below 5000 may be sent, and lets all others pass.
link_result beast_link::goodbye() {
    const std::uint16_t code = m_stream.reason().code;
    if (code > k_close_last) return {link_fault::protocol, k_close_protocol_error, {}};
    const auto& reason = m_stream.reason().reason;
    return {link_fault::closed, code == ws::close_code::none ? k_close_no_status : code,
            std::string(reason.data(), reason.size())};
}

link_result beast_link::result_of(error_code error) {
    if (error == ws::error::closed) return goodbye();
    if (error == ws::error::message_too_big) {
        return {link_fault::protocol, k_close_too_big, error.message()};
    }
    if (error == ws::error::bad_frame_payload) {
        return {link_fault::protocol, k_close_bad_payload, error.message()};
    }
    if (error == net::error::eof) return {link_fault::lost, k_close_abnormal, k_no_goodbye};
    const bool is_broken = error == ws::condition::protocol_violation;
    return {is_broken ? link_fault::protocol : link_fault::lost,
            is_broken ? k_close_protocol_error : k_close_abnormal, error.message()};
}

void beast_link::fail(link_fault fault, std::string text) noexcept {
    end({fault, 0, std::move(text)});
}

void beast_link::end(const link_result& result) noexcept {
    if (m_has_ended) return;
    const auto self = weak_from_this().lock();
    drop();
    if (const auto listener = m_listener.lock()) listener->link_ended(result);
}

}  // namespace

std::shared_ptr<link> link::make(loop& on, std::weak_ptr<link_listener> listener) {
    return std::make_shared<beast_link>(on.inside(), std::move(listener));
}

}  // namespace pennywort::websocket
