// host/live/live_handler.cpp - see the header for the contract.
#include "host/live/live_handler.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "host/app/json.h"
#include "host/live/live_page.h"

namespace pennywort::host {

namespace {

// Sent by the server as its peer takes it, the head too: to send that on the spot would wait for a
// peer that takes nothing.
class whole_answer : public cHttpBody {
public:
    whole_answer(std::string head, std::shared_ptr<const std::string> text)
        : m_head(std::move(head)), m_text(std::move(text)) {}
    std::int64_t Size() override {
        return static_cast<std::int64_t>(m_head.size() + text().size());
    }
    std::int32_t ReadAt(std::int64_t offset, char* into, std::int32_t size) override {
        auto passed_over = static_cast<std::size_t>(offset);
        const auto room = static_cast<std::size_t>(size);
        std::size_t count = 0;
        for (std::string_view part : {std::string_view(m_head), text()}) {
            const auto front = std::min(passed_over, part.size());
            passed_over -= front;
            count += part.substr(front).copy(into + count, room - count);
        }
        return static_cast<std::int32_t>(count);
    }

private:
    std::string_view text() const { return m_text ? std::string_view(*m_text) : ""; }

    const std::string m_head;
    const std::shared_ptr<const std::string> m_text;
};

const char* reason_of(int status) {
    switch (status) {
        case 200:
            return "OK";
        case 204:
            return "No Content";
        case 400:
            return "Bad Request";
        case 401:
            return "Unauthorized";
        case 403:
            return "Forbidden";
        case 405:
            return "Method Not Allowed";
        case 503:
            return "Service Unavailable";
        default:
            return "Not Found";
    }
}

// No page of another origin may frame this one, and nothing of it is kept anywhere.
constexpr const char* k_headers =
    "Cache-Control: no-store\r\n"
    "X-Content-Type-Options: nosniff\r\n"
    "X-Frame-Options: DENY\r\n"
    "Referrer-Policy: no-referrer\r\n"
    "Cross-Origin-Resource-Policy: same-origin\r\n"
    "Content-Security-Policy: default-src 'self'; img-src 'self' data: blob:; "
    "frame-ancestors 'none'; base-uri 'none'; form-action 'none'\r\n";

std::string head_of(const live_answer& answer) {
    std::string head =
        "HTTP/1.1 " + std::to_string(answer.status) + " " + reason_of(answer.status) + "\r\n";
    head += cHttpHandler::ServerString();
    head += "Connection: Keep-Alive\r\n";
    head += k_headers;
    if (answer.picture != 0) head += "X-Picture: " + std::to_string(answer.picture) + "\r\n";
    if (answer.status != 204) {
        head += "Content-Type: " + answer.type + "\r\n";
        head += "Content-Length: " + std::to_string(answer.body ? answer.body->size() : 0) + "\r\n";
    }
    return head + "\r\n";
}

std::unique_ptr<cHttpBody> sent(const live_answer& answer) {
    return std::make_unique<whole_answer>(head_of(answer), answer.body);
}

live_answer refused(int status, const char* why) {
    live_answer answer;
    answer.status = status;
    answer.body = std::make_shared<const std::string>(json_text({{"error", why}}));
    return answer;
}

live_answer refusal_with(int status) {
    return status == 401 ? refused(status,
                                   "the token is missing or wrong; it stands in the address that "
                                   "the program printed")
                         : refused(status, "a foreign page or name may not ask here");
}

}  // namespace

live_handler::live_handler(live_control& control, live_guard guard)
    : m_control(control), m_guard(std::move(guard)) {}

bool live_handler::CanHandle(std::int32_t, const zString&, const zString&, const zString& query,
                             const char* request) {
    m_caller = live_caller::of(request, query.View());
    return true;
}

live_answer live_handler::answer(const live_request& request) const {
    const live_page_file* file = find_live_page_file(request.path);
    // Style and script of the page hold no secret, and their links cannot carry the token.
    const bool open = file && request.path != "/";
    const int refusal = m_guard.refusal(m_caller);
    if (refusal == 403 || (refusal != 0 && !open)) return refusal_with(refusal);
    if (!file || request.method != live_request::verb::get) return m_control.answer(request);
    live_answer page;
    page.type = file->type;
    page.body = std::make_shared<const std::string>(file->text);
    return page;
}

std::unique_ptr<cHttpBody> live_handler::HandleInPieces(zSocket*, std::int32_t method,
                                                        const zString& path, const zString&,
                                                        const zString& query, const char* body,
                                                        zStatus& status) {
    status = 0;
    if (method == k_put) return sent(refused(405, "there is nothing to PUT"));
    live_request request;
    request.method = method == k_post ? live_request::verb::post : live_request::verb::get;
    request.path = path.View();
    request.query = query.View();
    if (method == k_post && body) request.body = body;
    return sent(answer(request));
}

bool live_start_handler::CanHandle(std::int32_t, const zString&, const zString&, const zString&,
                                   const char*) {
    return !m_is_over;
}

std::unique_ptr<cHttpBody> live_start_handler::HandleInPieces(zSocket*, std::int32_t,
                                                              const zString&, const zString&,
                                                              const zString&, const char*,
                                                              zStatus& status) {
    status = 0;
    return sent(refused(503, "the program is still starting"));
}

}  // namespace pennywort::host
