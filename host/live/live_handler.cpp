// host/live/live_handler.cpp - see the header for the contract.
#include "host/live/live_handler.h"

#include <memory>
#include <string>
#include <utility>

#include "host/app/json.h"
#include "host/live/live_page.h"

namespace pennywort::host {

namespace {

// No page of another origin may frame this one, and nothing of it is kept anywhere.
constexpr std::pair<const char*, const char*> k_headers[] = {
    {"Cache-Control", "no-store"},
    {"X-Content-Type-Options", "nosniff"},
    {"X-Frame-Options", "DENY"},
    {"Referrer-Policy", "no-referrer"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
    {"Content-Security-Policy",
     "default-src 'self'; img-src 'self' data: blob:; frame-ancestors 'none'; base-uri 'none'; "
     "form-action 'none'"},
};

// The server sends it as its peer takes it, so that a peer which takes nothing blocks nobody.
void give(const live_answer& from, cHttpAnswer& to) {
    to.SetStatus(from.status);
    for (const auto& [name, value] : k_headers) to.SetHeader(name, value);
    if (from.picture != 0) to.SetHeader("X-Picture", std::to_string(from.picture).c_str());
    if (!from.cookie.empty()) to.SetHeader("Set-Cookie", from.cookie.c_str());
    to.SetShared(from.type.c_str(), from.body);
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

bool live_handler::CanHandleRequest(const cHttpRequest&) { return true; }

live_answer live_handler::answer_to(const cHttpRequest& request, const live_caller& caller) const {
    if (request.Method() == cHttpHandler::k_put) return refused(405, "there is nothing to PUT");
    live_request asked;
    asked.method = request.Method() == cHttpHandler::k_post ? live_request::verb::post
                                                            : live_request::verb::get;
    asked.path = request.Path().View();
    asked.query = request.Query().View();
    asked.body = request.Body();
    const live_page_file* file = find_live_page_file(asked.path);
    if (file == nullptr || asked.method != live_request::verb::get) return m_control.answer(asked);
    live_answer page;
    page.type = file->type;
    page.cookie = m_guard.cookie_for(caller);
    page.body = std::make_shared<const std::string>(file->text);
    return page;
}

zStatus live_handler::HandleRequest(const cHttpRequest& request, cHttpAnswer& answer) {
    const auto caller = live_caller::of(request);
    const auto path = request.Path().View();
    // Style and script of the page hold no secret, and their links cannot carry the token.
    const bool is_open = path != "/" && find_live_page_file(path) != nullptr;
    const int refusal = m_guard.refusal(caller);
    // Without this, connections that show no token would keep the operator out.
    if (refusal == 0) answer.SetTrusted();
    const bool is_refused = refusal == 403 || (refusal != 0 && !is_open);
    give(is_refused ? refusal_with(refusal) : answer_to(request, caller), answer);
    return 0;
}

bool live_start_handler::CanHandleRequest(const cHttpRequest&) { return !m_is_over; }

zStatus live_start_handler::HandleRequest(const cHttpRequest&, cHttpAnswer& answer) {
    give(refused(503, "the program is still starting"), answer);
    return 0;
}

}  // namespace pennywort::host
