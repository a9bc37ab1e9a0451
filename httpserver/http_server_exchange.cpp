// httpserver/http_server_exchange.cpp - what cHttpServer does on one connection: requests come in,
// answers go out.
//
// A handler may delete the server that calls it; see http_server.cpp.
#include <algorithm>
#include <cstring>
#include <string_view>

#include "core/limits.h"
#include "core/run/guarded.h"
#include "core/statuses.h"
#include "httpserver.h"
#include "httpserver/answer.h"
#include "httpserver/http_connection.h"
#include "httpserver/http_handlers.h"
#include "httpserver/http_server_state.h"
#include "httpserver/request_check.h"
#include "httpserver/request_line.h"
#include "loam/time.h"

using pennywort::http_connection;
using pennywort::http_server_state;
using pennywort::http_stage;
using pennywort::k_failed;
using pennywort::k_ok;

namespace {

// The server is for texts: what one read brings counts up to the first NUL.
std::uint32_t text_length(const char* bytes, std::int32_t received) {
    const void* nul = std::memchr(bytes, '\0', static_cast<std::size_t>(received));
    if (nul == nullptr) return static_cast<std::uint32_t>(received);
    return static_cast<std::uint32_t>(static_cast<const char*>(nul) - bytes);
}

void append(http_connection& connection, const char* bytes, std::uint32_t length) {
    if (connection.data == nullptr) connection.data = std::make_unique<zString>();
    connection.data->AddToEnd(bytes, length);
}

void empty(http_connection& connection) {
    connection.progress.reset();
    connection.is_head_checked = false;
    if (connection.data == nullptr) return;
    if (connection.data->Length() > pennywort::k_max_kept_request_bytes) {
        connection.data.reset();
    } else {
        connection.data->SetString("", 0);
    }
}

void set(zString& target, std::string_view text) {
    target.SetString(text.data(), static_cast<std::uint32_t>(text.size()));
}

// Of a text that was longer than most, the memory is not kept.
void settle(zString& text) {
    if (text.Length() > pennywort::k_max_kept_request_bytes) text = zString();
}

bool is_empty(const zString* text) { return text == nullptr || text->Empty(); }

// One request as handlers see it.
struct http_call {
    zSocket* socket;
    std::int32_t method;
    const char* request;
    const char* body;
};

// False when the handler does not take the request. One that throws has taken it.
bool offer(cHttpHandler& handler, http_server_state& state, const http_call& call, zStatus& status,
           std::unique_ptr<cHttpBody>& pieces) {
    bool is_taken = true;
    pennywort::run::guarded("cHttpServer", "a handler", [&] {
        is_taken =
            handler.CanHandle(call.method, state.path, state.extension, state.query, call.request);
        if (!is_taken || state.has_ended) return;
        pieces = handler.HandleInPieces(call.socket, call.method, state.path, state.extension,
                                        state.query, call.body, status);
    });
    return is_taken;
}

// The next bytes of a body, and never more than are left of what its head has told: a file may have
// grown since, and the peer would take the rest for the next answer. 0 or less: there are none.
std::int32_t read_piece(cHttpBody& body, std::int64_t offset, std::int64_t left,
                        std::vector<char>& piece) {
    const auto wanted =
        static_cast<std::int32_t>(std::min(left, static_cast<std::int64_t>(piece.size())));
    std::int32_t read = 0;
    pennywort::run::guarded("cHttpServer", "a body",
                            [&] { read = body.ReadAt(offset, piece.data(), wanted); });
    return read <= wanted ? read : 0;
}

}  // namespace

void cHttpServer::serve_connection(http_connection& connection, bool& close) {
    switch (connection.stage) {
        case http_stage::request:
            handle_client_read(connection, close);
            return;
        case http_stage::pieces:
            send_pieces(connection, close);
            return;
        case http_stage::parting:
            discard(connection, close);
            return;
    }
}

zStatus cHttpServer::handle_client_read(http_connection& connection, bool& close) {
    std::int32_t received = 0;
    const zStatus status =
        connection.socket->Receive(m_receive_buffer.get(), m_buffer_size, &received);
    const bool is_fatal =
        status != k_ok && status != zSocket::k_not_now && status != zSocket::k_timed_out;
    if (is_fatal || (status == k_ok && received == 0)) {
        close = true;
        return status;
    }
    m_state->bytes_received.add(received);
    return take_bytes(connection, close, received);
}

// A request that came whole, as nearly all do, is served from where it was received.
zStatus cHttpServer::take_bytes(http_connection& connection, bool& close, std::int32_t received) {
    char* const bytes = m_receive_buffer.get();
    const std::uint32_t length = text_length(bytes, received);
    const bool is_cut = static_cast<std::int32_t>(length) < received;
    bytes[length] = '\0';
    const bool is_first = is_empty(connection.data.get());
    const std::uint32_t before = is_first ? 0 : connection.data->Length();
    const std::int32_t wanted_most = m_state->settings.maxRequestBytes;
    const std::int32_t most = wanted_most > 0 ? wanted_most : pennywort::k_max_request_bytes;
    if (std::int64_t{before} + length > most) return refuse(connection, close, 413);
    if (connection.progress.is_hopeless()) return k_failed;

    if (!is_first) append(connection, bytes, length);
    const char* const request = is_first ? bytes : connection.data->CString();
    const std::string_view text(request, before + length);
    const std::uint64_t examined = connection.progress.bytes_examined();
    const bool is_complete = connection.progress.look(text);
    m_state->bytes_examined.add(
        static_cast<std::int64_t>(connection.progress.bytes_examined() - examined));
    const std::int32_t refusal = refusal_of(connection, text);
    if (refusal != 0) return refuse(connection, close, refusal);
    if (is_complete) return dispatch(connection, close, text);
    // Without the bytes that were dropped it would end elsewhere than for any other reader.
    if (is_cut && m_state->settings.answerBadRequests) return refuse(connection, close, 400);
    // What can never become a request need not be kept.
    if (is_first && !connection.progress.is_hopeless()) append(connection, bytes, length);
    return k_failed;
}

// 0 while there is nothing against the request.
std::int32_t cHttpServer::refusal_of(http_connection& connection, std::string_view text) const {
    if (!m_state->settings.answerBadRequests || connection.is_head_checked) return 0;
    const auto& progress = connection.progress;
    if (progress.is_hopeless()) return pennywort::refusal_of_method(text);
    if (progress.body_offset() == 0) return 0;
    connection.is_head_checked = true;
    return pennywort::refusal_of_head(text.substr(0, progress.body_offset()),
                                      progress.content_length());
}

// Closed at once, the connection would be reset under the answer by what the peer still sends.
zStatus cHttpServer::refuse(http_connection& connection, bool& close, std::int32_t status) {
    empty(connection);
    if (!m_state->settings.answerBadRequests) {
        close = true;
        return k_failed;
    }
    const std::string page = pennywort::refusal_page(status);
    std::int32_t sent = 0;
    connection.socket->SendSome(page.data(), static_cast<std::int32_t>(page.size()), &sent);
    close = connection.socket->EndSending() != k_ok;
    begin_timed(connection, http_stage::parting);
    return k_failed;
}

zStatus cHttpServer::dispatch(http_connection& connection, bool& close, std::string_view text) {
    http_server_state& state = *m_state;
    const auto line = pennywort::parse_request_line(text);
    set(state.path, line.path);
    set(state.extension, line.extension);
    set(state.query, line.query);
    state.requests.add(1);
    const http_call call{connection.socket, static_cast<std::int32_t>(connection.progress.method()),
                         text.data(), text.data() + connection.progress.body_offset()};
    zStatus status = k_failed;
    std::unique_ptr<cHttpBody> pieces;
    bool is_taken = false;
    for (std::size_t i = 0; !is_taken; ++i) {
        const pennywort::handler_reference handler(m_handlers->take(i));
        if (handler.get() == nullptr) break;
        is_taken = offer(*handler.get(), state, call, status, pieces);
        if (state.has_ended) return status;
    }
    // The handler may have taken long, which is not the peer's fault.
    connection.since = zTime::MicroNow();
    empty(connection);
    for (zString* part : {&state.path, &state.extension, &state.query}) settle(*part);
    if (pieces != nullptr) begin_pieces(connection, close, std::move(pieces));
    if (state.has_ended) return status;
    // A handler may have closed it, and nothing would ever be told of it again.
    if (!connection.socket->IsOpen()) close = true;
    return status;
}

void cHttpServer::begin_pieces(http_connection& connection, bool& close,
                               std::unique_ptr<cHttpBody> pieces) {
    connection.pieces = std::move(pieces);
    connection.sent = 0;
    connection.requested = zSocket::k_writable;
    begin_timed(connection, http_stage::pieces);
    send_pieces(connection, close);
}

void cHttpServer::begin_timed(http_connection& connection, http_stage stage) {
    connection.stage = stage;
    connection.since = zTime::MicroNow();
    ++m_state->timed_stages;
    m_state->next_check = 0;
}

void cHttpServer::send_pieces(http_connection& connection, bool& close) {
    http_server_state& state = *m_state;
    auto& piece = state.piece;
    piece.resize(pennywort::k_http_piece_bytes);
    std::int64_t size = 0;
    close = !pennywort::run::guarded("cHttpServer", "a body",
                                     [&] { size = connection.pieces->Size(); });
    if (close || state.has_ended) return;
    for (int i = 0; i < pennywort::k_max_pieces_at_once && connection.sent < size; ++i) {
        const std::int32_t read =
            read_piece(*connection.pieces, connection.sent, size - connection.sent, piece);
        if (state.has_ended) return;
        std::int32_t sent = 0;
        const zStatus status =
            read <= 0 ? k_failed : connection.socket->SendSome(piece.data(), read, &sent);
        if (status == zSocket::k_not_now) return;
        if (status != k_ok) {
            close = true;
            return;
        }
        connection.sent += sent;
        connection.since = zTime::MicroNow();
    }
    if (connection.sent < size) return;
    const auto finished = std::move(connection.pieces);
    connection.stage = http_stage::request;
    connection.requested = zSocket::k_readable;
    --state.timed_stages;
}

void cHttpServer::discard(http_connection& connection, bool& close) {
    std::int32_t received = 0;
    const zStatus status =
        connection.socket->Receive(m_receive_buffer.get(), m_buffer_size, &received);
    if (status == zSocket::k_not_now) return;
    connection.dropped += received;
    close = status != k_ok || received == 0 || connection.dropped > pennywort::k_max_dropped_bytes;
}
