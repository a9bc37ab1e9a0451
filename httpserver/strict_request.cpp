// httpserver/strict_request.cpp - see the header for the contract.
#include "httpserver/strict_request.h"

#include <algorithm>

#include "core/http/url.h"
#include "core/text/ascii.h"
#include "httpserver.h"

namespace pennywort::httpserver {
namespace {

using head_state = http::head_parser::state;
using http::head_fault;

std::int32_t refusal_of(head_fault fault, bool has_target) {
    switch (fault) {
        case head_fault::too_long:
            return has_target ? 431 : 414;
        case head_fault::too_many_headers:
            return 431;
        case head_fault::foreign_version:
            return 505;
        default:
            return 400;
    }
}

}  // namespace

std::size_t strict_request::feed(std::string_view bytes) {
    std::size_t used = 0;
    if (!bytes.empty()) m_has_begun = true;
    while (m_state == state::need_more && used < bytes.size()) {
        const std::string_view rest = bytes.substr(used);
        if (m_body_offset == 0) {
            used += feed_head(rest);
        } else if (m_body == http::body_kind::chunked) {
            used += feed_chunked(rest);
        } else {
            used += feed_counted(rest);
        }
    }
    return used;
}

void strict_request::reset() {
    m_state = state::need_more;
    m_refusal = 0;
    m_method = 0;
    m_has_begun = false;
    m_wants_continue = false;
    m_resource.clear();
    m_text.clear();
    m_body_offset = 0;
    m_left = 0;
    m_body = http::body_kind::none;
    m_head.reset();
    m_chunks.reset();
}

bool strict_request::takes_continue() {
    const bool is_waiting = m_wants_continue && m_state == state::need_more && body().empty();
    m_wants_continue = false;
    return is_waiting;
}

std::size_t strict_request::feed_head(std::string_view bytes) {
    const std::size_t used = m_head.feed(bytes);
    m_text.append(bytes.substr(0, used));
    if (m_head.status() == head_state::refused) {
        refuse(refusal_of(m_head.fault(), !head().target.empty()));
    } else if (static_cast<std::int64_t>(m_text.size()) > m_max_bytes) {
        refuse(431);
    } else if (m_head.status() == head_state::complete) {
        m_body_offset = m_text.size();
        check_head();
    }
    return used;
}

void strict_request::check_head() {
    std::int32_t refusal = refusal_of_method();
    if (refusal == 0) refusal = refusal_of_host();
    if (refusal == 0) refusal = refusal_of_target();
    if (refusal == 0) refusal = refusal_of_body();
    if (refusal == 0) refusal = refusal_of_expectation();
    if (refusal != 0) return refuse(refusal);
    if (m_body != http::body_kind::chunked && m_left == 0) m_state = state::complete;
}

// Letters of another case make another method.
std::int32_t strict_request::refusal_of_method() {
    const std::string& method = head().method;
    if (method == "GET" || method == "HEAD") m_method = cHttpHandler::k_get;
    if (method == "POST") m_method = cHttpHandler::k_post;
    if (method == "PUT") m_method = cHttpHandler::k_put;
    return m_method == 0 ? 501 : 0;
}

std::int32_t strict_request::refusal_of_host() const {
    const auto host = head().headers.find("Host");
    if (!host) return head().minor == 0 ? 0 : 400;
    const bool is_one = head().headers.count("Host") == 1;
    return is_one && http::is_authority(*host) ? 0 : 400;
}

// A proxy's form of a target names scheme and host too, and every server must understand it. That
// host counts, and not the header: a handler that looks at the other one would be deceived.
std::int32_t strict_request::refusal_of_target() {
    const std::string& target = head().target;
    if (target.find('#') != std::string::npos) return 400;
    if (target.front() == '/') {
        m_resource = target;
        return 0;
    }
    const http::parsed_url parsed = http::parse_url(target);
    const bool is_http = parsed.value.scheme == "http" || parsed.value.scheme == "https";
    if (!parsed.is_ok() || !is_http) return 400;
    m_resource = parsed.value.target();
    m_head.set_header("Host", parsed.value.authority());
    return 0;
}

std::int32_t strict_request::refusal_of_body() {
    const http::body_plan plan = http::body_of_request(head());
    if (plan.fault == http::body_fault::unknown_coding) return 501;
    if (plan.fault != http::body_fault::none) return 400;
    m_body = plan.kind;
    m_left = plan.length;
    const auto room = static_cast<std::uint64_t>(m_max_bytes) - m_body_offset;
    return plan.length > room ? 413 : 0;
}

std::int32_t strict_request::refusal_of_expectation() {
    const auto& headers = head().headers;
    if (!headers.find("Expect") || head().minor == 0) return 0;
    if (!text::equal_ignoring_case(headers.joined("Expect"), "100-continue")) return 417;
    m_wants_continue = true;
    return 0;
}

std::size_t strict_request::feed_counted(std::string_view bytes) {
    bytes =
        bytes.substr(0, static_cast<std::size_t>(std::min<std::uint64_t>(m_left, bytes.size())));
    m_text.append(bytes);
    m_left -= bytes.size();
    if (m_left == 0) m_state = state::complete;
    return bytes.size();
}

std::size_t strict_request::feed_chunked(std::string_view bytes) {
    std::string_view content;
    const std::size_t used = m_chunks.feed(bytes, content);
    const auto room = static_cast<std::uint64_t>(m_max_bytes) - m_text.size();
    // A chunk is too long as soon as it tells its size.
    if (content.size() > room || m_chunks.left_of_chunk() > room - content.size()) {
        refuse(413);
        return used;
    }
    m_text.append(content);
    if (m_chunks.status() == http::chunked_body::state::complete) m_state = state::complete;
    if (m_chunks.status() == http::chunked_body::state::refused) refuse(400);
    return used;
}

void strict_request::refuse(std::int32_t status) {
    m_refusal = status;
    m_state = state::refused;
}

}  // namespace pennywort::httpserver
