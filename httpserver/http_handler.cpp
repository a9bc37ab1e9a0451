// httpserver/http_handler.cpp - cHttpHandler of include/httpserver.h.
#include <algorithm>
#include <cstring>
#include <limits>
#include <string>

#include "core/limits.h"
#include "core/statuses.h"
#include "httpserver.h"
#include "httpserver/answer.h"

namespace {

// An answer up to this size leaves in one piece: a copy costs less than a second call.
constexpr std::int64_t k_one_piece = 16 * 1024;

// Kept, so that an answer costs no allocation.
std::string& scratch() {
    thread_local std::string text;
    text.clear();
    return text;
}

std::string_view view(const char* text) {
    return text == nullptr ? std::string_view() : std::string_view(text);
}

// The system's calls count in 32 bits.
zStatus send_all(zSocket& socket, std::string_view bytes) {
    while (true) {
        const auto length = static_cast<std::int32_t>(
            std::min<std::size_t>(bytes.size(), std::numeric_limits<std::int32_t>::max()));
        const zStatus status = socket.Send(bytes.data(), length, 0, pennywort::k_send_timeout_ms);
        bytes.remove_prefix(static_cast<std::size_t>(length));
        if (status != pennywort::k_ok || bytes.empty()) return status;
    }
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

const char* cHttpHandler::ServerString() { return "Server: nimb_httpd/0.1.0\r\n"; }

zStatus cHttpHandler::SendString(zSocket* socket, const char* data) {
    if (socket == nullptr) return pennywort::k_failed;
    return send_all(*socket, view(data));
}

// Announced, so that head and body may leave as one piece. A body without its head would be taken
// for anything, so a connection that did not take the head ends.
void cHttpHandler::SendHeaders(zSocket* socket, std::int32_t contentLength,
                               const char* contentType) {
    if (socket == nullptr) return;
    std::string& head = scratch();
    pennywort::append_head(head, 200, pennywort::after_answer::keep_alive, view(contentType),
                           contentLength);
    if (contentLength > 0) socket->MoreFollows();
    if (send_all(*socket, head) != pennywort::k_ok) socket->Close();
}

void cHttpHandler::Send404(zSocket* socket) {
    const std::string_view page = pennywort::not_found_page();
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
    std::string& answer = scratch();
    pennywort::append_head(answer, status, pennywort::after_answer::keep_alive, view(contentType),
                           length);
    if (length <= k_one_piece) {
        answer.append(data, static_cast<std::size_t>(length));
        return send_all(*socket, answer);
    }
    const zStatus sent = send_all(*socket, answer);
    return sent != pennywort::k_ok ? sent : SendBytes(socket, data, length);
}
