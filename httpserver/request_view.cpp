// httpserver/request_view.cpp - cHttpRequest and cHttpAnswer of include/httpserver.h.
#include "httpserver/request_view.h"

#include <array>

#include "core/http/bytes.h"
#include "core/run/guarded.h"
#include "core/statuses.h"
#include "core/text/ascii.h"

namespace pennywort::httpserver {
namespace {

constexpr http::head_policy k_lenient{
    .allows_bare_lf = true,
    .allows_folding = true,
    .allows_blank_before_colon = true,
    .skips_lines_that_are_no_headers = true,
    .allows_control_bytes = true,
};

// These the server writes itself: two of them would contradict each other.
constexpr std::array<std::string_view, 5> k_own = {"Connection", "Content-Length", "Date", "Server",
                                                   "Transfer-Encoding"};

bool is_own(std::string_view name) {
    for (const std::string_view own : k_own) {
        if (text::equal_ignoring_case(own, name)) return true;
    }
    return false;
}

}  // namespace

// The request line was read by other rules already and need not be one by these.
const http::message_head& request_view::head() {
    if (strict_head != nullptr) return *strict_head;
    if (m_parser == nullptr) {
        auto parser = std::make_unique<http::head_parser>(http::head_kind::headers, k_lenient);
        const std::string_view whole(text, body_offset);
        const std::size_t line_end = whole.find('\n');
        if (line_end != std::string_view::npos) parser->feed(whole.substr(line_end + 1));
        m_parser = std::move(parser);
    }
    return m_parser->head();
}

std::int64_t answer_parts::length() {
    if (body != nullptr) return body->Size();
    return static_cast<std::int64_t>(shared != nullptr ? shared->size() : text.size());
}

}  // namespace pennywort::httpserver

using pennywort::k_failed;
using pennywort::k_ok;
using pennywort::httpserver::is_own;
using pennywort::run::guarded_or;

std::int32_t cHttpRequest::Method() const { return m_view.method; }

std::string_view cHttpRequest::MethodName() const {
    if (m_view.strict_head != nullptr) return m_view.strict_head->method;
    const std::string_view text(m_view.text, m_view.body_offset);
    return text.substr(0, text.find_first_of(" \t\r\n"));
}

const zString& cHttpRequest::Path() const { return m_view.names->path; }

const zString& cHttpRequest::Extension() const { return m_view.names->extension; }

const zString& cHttpRequest::Query() const { return m_view.names->query; }

std::int32_t cHttpRequest::HeaderCount() const {
    return guarded_or(0, "cHttpRequest", "reading the headers",
                      [&] { return static_cast<std::int32_t>(m_view.head().headers.size()); });
}

std::string_view cHttpRequest::HeaderName(std::int32_t index) const {
    if (index < 0 || index >= HeaderCount()) return {};
    return m_view.head().headers[static_cast<std::size_t>(index)].name;
}

std::string_view cHttpRequest::HeaderValue(std::int32_t index) const {
    if (index < 0 || index >= HeaderCount()) return {};
    return m_view.head().headers[static_cast<std::size_t>(index)].value;
}

bool cHttpRequest::HasHeader(const char* name) const {
    if (name == nullptr || HeaderCount() == 0) return false;
    return m_view.head().headers.find(name).has_value();
}

std::string_view cHttpRequest::Header(const char* name) const {
    if (name == nullptr || HeaderCount() == 0) return {};
    return m_view.head().headers.find(name).value_or(std::string_view());
}

std::string_view cHttpRequest::Body() const { return m_view.body(); }

const char* cHttpRequest::Text() const { return m_view.text; }

bool cHttpRequest::IsStrict() const { return m_view.strict_head != nullptr; }

zSocket* cHttpRequest::Socket() const { return m_view.socket; }

void cHttpAnswer::SetStatus(std::int32_t status) {
    m_parts.status = status;
    m_parts.is_set = true;
}

zStatus cHttpAnswer::SetHeader(const char* name, const char* value) {
    if (name == nullptr) return k_failed;
    const std::string_view text = value == nullptr ? std::string_view() : std::string_view(value);
    if (!pennywort::http::is_token(name) || !pennywort::http::is_value(text)) return k_failed;
    m_parts.headers.remove(name);
    return AddHeader(name, value);
}

zStatus cHttpAnswer::AddHeader(const char* name, const char* value) {
    if (name == nullptr) return k_failed;
    const std::string_view text = value == nullptr ? std::string_view() : std::string_view(value);
    if (!pennywort::http::is_token(name) || !pennywort::http::is_value(text)) return k_failed;
    m_parts.is_set = true;
    if (!is_own(name)) m_parts.headers.add(name, text);
    return k_ok;
}

void cHttpAnswer::SetText(const char* contentType, std::string_view text) {
    if (contentType != nullptr) SetHeader("Content-Type", contentType);
    m_parts.text = text;
    m_parts.shared.reset();
    m_parts.body.reset();
    m_parts.is_set = true;
}

void cHttpAnswer::SetShared(const char* contentType, std::shared_ptr<const std::string> text) {
    SetText(contentType, {});
    m_parts.shared = std::move(text);
}

void cHttpAnswer::SetBody(const char* contentType, std::unique_ptr<cHttpBody> body) {
    SetText(contentType, {});
    m_parts.body = std::move(body);
}

void cHttpAnswer::SetWhole(std::unique_ptr<cHttpBody> answer) {
    m_parts.whole = std::move(answer);
    m_parts.is_set = true;
}

void cHttpAnswer::CloseAfter() { m_parts.is_last = true; }

void cHttpAnswer::SetTrusted() { m_parts.is_trusted = true; }
