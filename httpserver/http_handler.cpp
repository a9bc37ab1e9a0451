// httpserver/http_handler.cpp - cHttpHandler of include/httpserver.h.
#include <algorithm>
#include <limits>
#include <string>
#include <string_view>
#include <utility>

#include "core/http/status.h"
#include "core/limits.h"
#include "core/run/guarded.h"
#include "core/statuses.h"
#include "httpserver.h"
#include "httpserver/answer.h"

using pennywort::k_ok;
using pennywort::httpserver::after_answer;
using pennywort::httpserver::append_head;
using pennywort::httpserver::k_head_room;
using pennywort::httpserver::write_head;

namespace {

// An answer up to this size leaves in one piece: a copy costs less than a second call.
constexpr std::size_t k_one_piece = 16 * 1024;
// A head of more than this has a type of uncommon length.
constexpr std::size_t k_usual_head = 1024;

std::string_view view(const char* text) {
    return text == nullptr ? std::string_view() : std::string_view(text);
}

std::int64_t length_of(std::string_view text) { return static_cast<std::int64_t>(text.size()); }

// The system's calls count in 32 bits.
zStatus send_all(zSocket& socket, std::string_view bytes) {
    while (true) {
        const auto length = static_cast<std::int32_t>(
            std::min<std::size_t>(bytes.size(), std::numeric_limits<std::int32_t>::max()));
        const zStatus status = socket.Send(bytes.data(), length, 0, pennywort::k_send_timeout_ms);
        bytes.remove_prefix(static_cast<std::size_t>(length));
        if (status != k_ok || bytes.empty()) return status;
    }
}

// False when `send` has failed, for want of memory too.
bool guarded(const char* what, auto send) {
    return pennywort::run::guarded_or(zSocket::k_no_resources, "cHttpHandler", what, send) == k_ok;
}

// Joins head and short body on the stack: an allocation would make an answer a tenth slower.
zStatus send_in_one_piece(zSocket& socket, std::int32_t status, std::string_view content_type,
                          std::string_view body) {
    char answer[k_one_piece];
    char* const body_at =
        write_head(answer, status, after_answer::keep_alive, content_type, length_of(body));
    const char* const end = std::copy(body.begin(), body.end(), body_at);
    return send_all(socket, {answer, end});
}

zStatus send_in_two_pieces(zSocket& socket, std::int32_t status, std::string_view content_type,
                           std::string_view body) {
    std::string head;
    append_head(head, status, after_answer::keep_alive, content_type, length_of(body));
    const zStatus sent = send_all(socket, head);
    return sent != k_ok ? sent : send_all(socket, body);
}

zStatus send_answer(zSocket& socket, std::int32_t status, std::string_view content_type,
                    std::string_view body) {
    if (pennywort::http::is_bodiless(status)) body = {};
    return k_head_room + content_type.size() + body.size() <= k_one_piece
               ? send_in_one_piece(socket, status, content_type, body)
               : send_in_two_pieces(socket, status, content_type, body);
}

zStatus send_head(zSocket& socket, std::string_view content_type, std::int64_t length) {
    if (k_head_room + content_type.size() > k_usual_head) {
        std::string head;
        append_head(head, 200, after_answer::keep_alive, content_type, length);
        return send_all(socket, head);
    }
    char head[k_usual_head];
    const char* const end = write_head(head, 200, after_answer::keep_alive, content_type, length);
    return send_all(socket, {head, end});
}

}  // namespace

cHttpBody::~cHttpBody() = default;

cHttpHandler::~cHttpHandler() = default;

zStatus cHttpHandler::Handle(zSocket*, std::int32_t, const zString&, const zString&, const zString&,
                             const char*) {
    return pennywort::k_failed;
}

bool cHttpHandler::CanHandle(std::int32_t, const zString&, const zString&, const zString&,
                             const char*) {
    return false;
}

std::unique_ptr<cHttpBody> cHttpHandler::HandleInPieces(zSocket* socket, std::int32_t method,
                                                        const zString& path,
                                                        const zString& extension,
                                                        const zString& query, const char* body,
                                                        zStatus& status) {
    status = Handle(socket, method, path, extension, query, body);
    return nullptr;
}

bool cHttpHandler::CanHandleRequest(const cHttpRequest& request) {
    return CanHandle(request.Method(), request.Path(), request.Extension(), request.Query(),
                     request.Text());
}

zStatus cHttpHandler::HandleRequest(const cHttpRequest& request, cHttpAnswer& answer) {
    zStatus status = pennywort::k_failed;
    auto pieces =
        HandleInPieces(request.Socket(), request.Method(), request.Path(), request.Extension(),
                       request.Query(), request.Body().data(), status);
    if (pieces != nullptr) answer.SetWhole(std::move(pieces));
    return status;
}

const char* cHttpHandler::ServerString() { return pennywort::httpserver::k_server_line.data(); }

zStatus cHttpHandler::SendString(zSocket* socket, const char* data) {
    if (socket == nullptr) return pennywort::k_failed;
    return send_all(*socket, view(data));
}

// Tells the system that more follows, so that head and body may leave as one piece. A connection
// that did not take the head ends: its peer would take the body for a head.
void cHttpHandler::SendHeaders(zSocket* socket, std::int32_t contentLength,
                               const char* contentType) {
    if (socket == nullptr) return;
    const bool is_sent = guarded("SendHeaders", [&] {
        if (contentLength > 0) socket->MoreFollows();
        return send_head(*socket, view(contentType), contentLength);
    });
    if (!is_sent) socket->Close();
}

void cHttpHandler::Send404(zSocket* socket) {
    const std::string_view page = pennywort::httpserver::not_found_page();
    SendHeaders(socket, static_cast<std::int32_t>(page.size()), "text/html");
    SendString(socket, page.data());
}

zStatus cHttpHandler::SendBytes(zSocket* socket, const char* data, std::int64_t length) {
    if (socket == nullptr || length < 0 || (data == nullptr && length > 0)) {
        return pennywort::k_failed;
    }
    return send_all(*socket, {data, static_cast<std::size_t>(length)});
}

zStatus cHttpHandler::SendAnswer(zSocket* socket, std::int32_t status, const char* contentType,
                                 const char* data, std::int64_t length) {
    if (socket == nullptr || length < 0 || (data == nullptr && length > 0)) {
        return pennywort::k_failed;
    }
    zStatus sent = zSocket::k_no_resources;
    const bool has_memory = pennywort::run::guarded("cHttpHandler", "SendAnswer", [&] {
        sent = send_answer(*socket, status, view(contentType),
                           {data, static_cast<std::size_t>(length)});
    });
    // Without this, the peer would wait for ever.
    if (!has_memory) socket->Close();
    return sent;
}
