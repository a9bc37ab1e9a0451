// httpserver/exchange_answers.cpp - how requests are answered; see exchanges.h for the contract.
#include <algorithm>

#include "core/http/status.h"
#include "core/limits.h"
#include "core/statuses.h"
#include "httpserver/answer.h"
#include "httpserver/exchanges.h"
#include "httpserver/guarded.h"
#include "httpserver/whole_answer.h"

namespace pennywort::httpserver {
namespace {

// Another response follows one of 1xx, and a number without three digits is no status.
constexpr std::int32_t k_first_final = 200;
constexpr std::int32_t k_last_status = 999;

// The next bytes of a body, and never more than are left of what its head has told: a file may have
// grown since, and the peer would take the rest for the next answer. 0 or less: there are none.
std::int32_t read_piece(cHttpBody& body, std::int64_t offset, std::int64_t left,
                        std::vector<char>& piece) {
    const auto wanted =
        static_cast<std::int32_t>(std::min(left, static_cast<std::int64_t>(piece.size())));
    std::int32_t read = 0;
    guarded("a body", [&] { read = body.ReadAt(offset, piece.data(), wanted); });
    return read <= wanted ? read : 0;
}

}  // namespace

exchanges::meeting exchanges::offer(connection& one) {
    m_answer.reset();
    meeting met = meeting::nobody;
    one.facade.begin_answer(m_filter);
    for (std::size_t i = 0; met == meeting::nobody; ++i) {
        const handler_reference handler(m_handlers.take(i));
        if (handler.get() == nullptr) break;
        met = offer_to(*handler.get(), one);
    }
    one.facade.end_answer();
    if (m_answer.is_trusted) one.is_trusted = true;
    return met;
}

// A handler that throws has taken the request. One that ends its server in the question has closed
// the socket, and there is nothing left to handle.
exchanges::meeting exchanges::offer_to(cHttpHandler& handler, connection& one) {
    meeting met = meeting::failed;
    guarded("a handler", [&] {
        const cHttpRequest request(m_view);
        cHttpAnswer answer(m_answer);
        const bool is_taken = handler.CanHandleRequest(request);
        if (!is_taken || !one.facade.IsOpen()) {
            met = is_taken ? meeting::failed : meeting::nobody;
            return;
        }
        const zStatus status = handler.HandleRequest(request, answer);
        met = status == k_ok || m_answer.is_set ? meeting::done : meeting::failed;
    });
    if (met == meeting::failed) m_answer = answer_parts();
    return met;
}

bool exchanges::would_take(std::int32_t method) {
    bool is_taken = false;
    m_view.method = method;
    for (std::size_t i = 0; !is_taken; ++i) {
        const handler_reference handler(m_handlers.take(i));
        if (handler.get() == nullptr) break;
        const cHttpRequest request(m_view);
        guarded("a handler", [&] { is_taken = handler.get()->CanHandleRequest(request); });
    }
    return is_taken;
}

std::string exchanges::allowed_methods() {
    const std::int32_t asked = m_view.method;
    std::string allowed;
    const auto add = [&](std::int32_t method, const char* names) {
        if (method == asked || !would_take(method)) return;
        if (!allowed.empty()) allowed += ", ";
        allowed += names;
    };
    add(cHttpHandler::k_get, "GET, HEAD");
    add(cHttpHandler::k_post, "POST");
    add(cHttpHandler::k_put, "PUT");
    return allowed;
}

// Whatever a handler does, the peer gets one whole answer or the end of its connection.
fate exchanges::finish_strict(connection& one, meeting met) {
    if (!one.facade.IsOpen() || one.facade.has_failed()) return fate::ends;
    const bool has_begun = m_filter.has_begun();
    const bool has_raw_rest = m_answer.whole != nullptr;
    if (met == meeting::nobody) {
        const std::string allowed = allowed_methods();
        if (!one.facade.IsOpen()) return fate::ends;
        return answer_status(one, allowed.empty() ? 404 : 405, allowed);
    }
    if (m_answer.is_set && (!has_begun || has_raw_rest)) return send_answer(one);
    if (!has_begun) return answer_status(one, 500, {});
    const bool is_whole =
        m_filter.is_complete() || (met == meeting::done && m_filter.is_until_close());
    if (!is_whole) return fate::ends;
    return m_filter.ends_connection() ? part(one) : fate::stays;
}

fate exchanges::answer_status(connection& one, std::int32_t status, std::string_view allowed) {
    m_answer = answer_parts();
    m_answer.status = status;
    m_answer.is_set = true;
    if (!allowed.empty()) m_answer.headers.add("Allow", allowed);
    m_answer.headers.add("Content-Type", "text/html");
    m_answer.text = status_page(status);
    return send_answer(one);
}

// Closed at once, the connection would be reset under the answer by what the peer still sends.
fate exchanges::refuse(connection& one, std::int32_t status) {
    const bool is_head = one.reader->is_head();
    m_filter.begin_strict({is_head, true, date()});
    one.is_last_answer = true;
    release_reader(one);
    return answer_status(one, status, {});
}

std::string exchanges::head_of_answer(std::int64_t length, bool is_last) const {
    std::string head;
    append_front(head, m_answer.status, is_last ? after_answer::close : after_answer::keep_alive);
    if (m_settings.isStrict) head.append("Date: ").append(m_date).append("\r\n");
    for (std::size_t i = 0; i < m_answer.headers.size(); ++i) {
        const http::header one = m_answer.headers[i];
        head.append(one.name).append(": ").append(one.value).append("\r\n");
    }
    if (!http::is_bodiless(m_answer.status)) {
        head.append("Content-Length: ").append(std::to_string(length)).append("\r\n");
    }
    return head + "\r\n";
}

fate exchanges::send_answer(connection& one) {
    if (m_answer.is_last) one.is_last_answer = true;
    if (m_answer.whole != nullptr) {
        if (!m_filter.is_strict()) return begin_pieces(one, std::move(m_answer.whole));
        return send_whole_strictly(one);
    }
    if (m_answer.status < k_first_final || m_answer.status > k_last_status) {
        return answer_status(one, 500, {});
    }
    const bool has_body = !http::is_bodiless(m_answer.status);
    std::int64_t length = 0;
    if (has_body && !guarded("a body", [&] { length = m_answer.length(); })) return fate::ends;
    if (!one.facade.IsOpen() || length < 0) return fate::ends;
    std::string head = head_of_answer(length, one.is_last_answer);
    const bool is_sent = has_body && !m_filter.is_head();
    auto whole =
        std::make_unique<whole_answer>(std::move(head), std::move(m_answer), is_sent ? length : 0);
    return begin_pieces(one, std::move(whole));
}

// How much of `size` further bytes goes out: no more than the head has told. Where that is more
// than there are, or where only a look at the bytes would tell, the connection ends behind them.
std::int64_t exchanges::rest_of_answer(connection& one, std::int64_t size) {
    if (m_filter.is_complete()) return 0;
    const std::int64_t left = m_filter.counted_left();
    if (left < 0 || left > size) one.is_last_answer = true;
    return left < 0 ? size : std::min(size, left);
}

// A response that a handler wrote for any server: its head is made to fit like one that was sent,
// and behind the head goes out what the head has told.
fate exchanges::send_whole_strictly(connection& one) {
    auto whole = std::move(m_answer.whole);
    const bool has_head = m_filter.has_begun();
    if (has_head && m_filter.is_head()) return m_filter.ends_connection() ? part(one) : fate::stays;
    if (m_filter.ends_connection()) one.is_last_answer = true;
    std::int64_t size = 0;
    if (!guarded("a body", [&] { size = whole->Size(); })) return fate::ends;
    if (has_head) return begin_rest(one, {}, std::move(whole), size);
    m_piece.resize(k_http_piece_bytes);
    const std::int32_t read = read_piece(*whole, 0, size, m_piece);
    if (read <= 0 || !one.facade.IsOpen()) return fate::ends;
    std::string front(m_filter.pass({m_piece.data(), static_cast<std::size_t>(read)}));
    if (front.empty()) return fate::ends;
    if (m_filter.ends_connection()) one.is_last_answer = true;
    return begin_rest(one, std::move(front), std::make_unique<rest_of_body>(std::move(whole), read),
                      size - read);
}

// A head that is not whole yet waits in the filter, and its rest cannot be told from a body.
fate exchanges::begin_rest(connection& one, std::string front, std::unique_ptr<cHttpBody> rest,
                           std::int64_t size) {
    if (!one.facade.IsOpen() || !m_filter.is_head_whole()) return fate::ends;
    const std::int64_t length = rest_of_answer(one, size);
    answer_parts parts;
    parts.body = std::move(rest);
    return begin_pieces(one,
                        std::make_unique<whole_answer>(std::move(front), std::move(parts), length));
}

fate exchanges::begin_pieces(connection& one, std::unique_ptr<cHttpBody> pieces) {
    if (pieces == nullptr) return fate::ends;
    one.pieces = std::move(pieces);
    one.sent = 0;
    begin_timed(one, stage::pieces);
    one.requested = zSocket::k_writable;
    return send_pieces(one);
}

void exchanges::begin_timed(connection& one, stage at) {
    if (one.at == stage::request) ++m_timed;
    one.at = at;
    one.since = micro_now(m_clock);
}

fate exchanges::send_pieces(connection& one) {
    m_piece.resize(k_http_piece_bytes);
    std::int64_t size = 0;
    if (!guarded("a body", [&] { size = one.pieces->Size(); })) return fate::ends;
    for (int i = 0; i < k_max_pieces_at_once && one.sent < size; ++i) {
        const std::int64_t before = one.sent;
        if (send_piece(one, size) == fate::ends) return fate::ends;
        if (one.sent == before) return fate::stays;
    }
    return one.sent < size ? fate::stays : end_pieces(one);
}

// Nothing is sent, and the connection stays, while there is no room.
fate exchanges::send_piece(connection& one, std::int64_t size) {
    const std::int32_t read = read_piece(*one.pieces, one.sent, size - one.sent, m_piece);
    std::int32_t sent = 0;
    const zStatus status = read <= 0 ? k_failed : one.facade.SendSome(m_piece.data(), read, &sent);
    if (status == zSocket::k_not_now) return fate::stays;
    if (status != k_ok) return fate::ends;
    one.sent += sent;
    one.since = micro_now(m_clock);
    return fate::stays;
}

fate exchanges::end_pieces(connection& one) {
    const auto finished = std::move(one.pieces);
    one.at = stage::request;
    --m_timed;
    one.requested = zSocket::k_readable;
    if (one.is_last_answer) return part(one);
    if (one.pending.empty()) return fate::stays;
    const std::string bytes = std::move(one.pending);
    one.pending.clear();
    return take_strict(one, bytes);
}

// The peer is told that nothing more comes, and what it still sends is dropped until it ends too.
fate exchanges::part(connection& one) {
    one.requested = zSocket::k_readable;
    if (one.facade.EndSending() != k_ok) return fate::ends;
    begin_timed(one, stage::parting);
    return fate::stays;
}

fate exchanges::discard(connection& one) {
    std::int32_t received = 0;
    const zStatus status = one.socket->Receive(m_receive_buffer, m_buffer_size, &received);
    if (status == zSocket::k_not_now) return fate::stays;
    one.dropped += received;
    const bool is_over = status != k_ok || received == 0 || one.dropped > k_max_dropped_bytes;
    return is_over ? fate::ends : fate::stays;
}

}  // namespace pennywort::httpserver
