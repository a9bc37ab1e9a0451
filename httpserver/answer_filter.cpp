// httpserver/answer_filter.cpp - see the header for the contract.
#include "httpserver/answer_filter.h"

#include <algorithm>

#include "core/http/body_length.h"
#include "core/limits.h"
#include "core/text/ascii.h"

namespace pennywort::httpserver {
namespace {

constexpr std::string_view k_end_of_head = "\r\n\r\n";

// An answer that passes unchanged is kept up to this length, and its head is looked for in it when
// somebody asks. That costs less than to look for it each time, since only a handler that has
// failed makes anybody ask.
constexpr std::size_t k_kept_unread = 2048;

// The server writes Connection itself, and a 204 has no length.
bool is_replaced(std::string_view name, std::int32_t status) {
    using text::equal_ignoring_case;
    if (equal_ignoring_case(name, "Connection")) return true;
    return status == 204 && (equal_ignoring_case(name, "Content-Length") ||
                             equal_ignoring_case(name, "Transfer-Encoding"));
}

}  // namespace

void answer_filter::begin() {
    m_has_begun = false;
    m_is_head_whole = false;
    m_is_head_read = false;
    m_ends_connection = false;
    m_terms = {};
    m_place = place::head;
    m_left = 0;
    m_passed = 0;
    m_searched = 0;
    m_head.clear();
    m_out.clear();
}

void answer_filter::begin_plain() {
    begin();
    m_is_strict = false;
}

void answer_filter::begin_strict(const answer_terms& terms) {
    begin();
    m_is_strict = true;
    m_terms = terms;
    m_chunks.reset();
}

std::string_view answer_filter::pass(std::string_view bytes) {
    if (bytes.empty()) return bytes;
    m_has_begun = true;
    if (!m_is_strict) {
        watch(bytes);
        return bytes;
    }
    const std::size_t of_head = m_is_head_whole ? 0 : take_head(bytes);
    const std::string_view body = bytes.substr(of_head);
    if (!m_is_head_whole) return {};
    if (of_head == 0) return pass_body(body);
    rewrite_head();
    m_out += pass_body(body);
    return m_out;
}

void answer_filter::watch(std::string_view bytes) {
    m_passed += bytes.size();
    if (m_is_head_whole) return;
    if (m_head.size() + bytes.size() <= k_kept_unread) {
        m_head.append(bytes);
        return;
    }
    look_for_end();
    if (!m_is_head_whole) take_head(bytes);
}

// Takes the bytes up to the head's end. Nearly all heads come whole: those are searched once, and
// what comes behind them is not copied.
std::size_t answer_filter::take_head(std::string_view bytes) {
    const std::size_t before = m_head.size();
    const std::size_t end = before == 0 ? bytes.find(k_end_of_head) : std::string_view::npos;
    if (end != std::string_view::npos) {
        m_head.assign(bytes, 0, end + k_end_of_head.size());
        m_is_head_whole = true;
    } else {
        m_head.append(bytes);
        look_for_end();
    }
    return m_head.size() - before;
}

// Of the bytes that were searched before only those are searched again in which the end may begin.
void answer_filter::look_for_end() {
    const std::size_t from = m_searched - std::min(m_searched, k_end_of_head.size() - 1);
    const std::size_t found = m_head.find(k_end_of_head, from);
    m_searched = m_head.size();
    m_is_head_whole = found != std::string::npos || m_head.size() > k_max_head_bytes;
    if (found != std::string::npos) m_head.resize(found + k_end_of_head.size());
}

void answer_filter::read_head() {
    m_is_head_read = true;
    m_parser.reset();
    m_parser.feed(m_head);
    if (m_parser.status() == http::head_parser::state::complete) {
        set_place(m_parser.head());
    } else {
        m_place = place::unlimited;
    }
}

// Another head follows one of 1xx; it passes unchanged.
void answer_filter::set_place(const http::message_head& head) {
    if (head.status < 200) {
        m_place = place::unlimited;
        return;
    }
    const http::body_plan plan = http::body_of_answer(head, m_terms.is_head ? "HEAD" : "GET");
    m_left = plan.length;
    switch (plan.kind) {
        case http::body_kind::none:
            m_place = plan.fault == http::body_fault::none ? place::done : place::unlimited;
            return;
        case http::body_kind::counted:
            m_place = plan.length == 0 ? place::done : place::counted;
            return;
        case http::body_kind::chunked:
            m_place = place::chunked;
            return;
        case http::body_kind::until_close:
            m_place = place::unlimited;
    }
}

// Bytes that are no head go out as they are, and the connection ends behind them.
void answer_filter::rewrite_head() {
    read_head();
    m_ends_connection = m_place == place::unlimited;
    m_out.clear();
    if (m_parser.status() != http::head_parser::state::complete) {
        m_out = m_head;
        return;
    }
    const http::message_head& head = m_parser.head();
    const bool is_last =
        m_terms.is_last || m_ends_connection || head.headers.has_token("Connection", "close");
    m_ends_connection = is_last;
    m_out.append(m_head, 0, m_head.find("\r\n") + 2);
    m_out += is_last ? "Connection: close\r\n" : "Connection: Keep-Alive\r\n";
    const bool has_date = head.headers.find("Date").has_value();
    if (!has_date) m_out.append("Date: ").append(m_terms.date).append("\r\n");
    for (std::size_t i = 0; i < head.headers.size(); ++i) {
        const http::header one = head.headers[i];
        if (is_replaced(one.name, head.status)) continue;
        m_out.append(one.name).append(": ").append(one.value).append("\r\n");
    }
    m_out += "\r\n";
}

std::string_view answer_filter::pass_body(std::string_view bytes) {
    switch (m_place) {
        case place::counted:
            bytes = bytes.substr(
                0, static_cast<std::size_t>(std::min<std::uint64_t>(m_left, bytes.size())));
            m_left -= bytes.size();
            if (m_left == 0) m_place = place::done;
            return bytes;
        case place::chunked:
            return bytes.substr(0, watch_body(bytes));
        case place::unlimited:
            return bytes;
        case place::head:
        case place::done:
            return {};
    }
    return {};
}

// How many of the bytes belong to the body.
std::size_t answer_filter::watch_body(std::string_view bytes) {
    std::string_view content;
    std::size_t used = 0;
    while (used < bytes.size() && m_chunks.status() == http::chunked_body::state::need_more) {
        used += m_chunks.feed(bytes.substr(used), content);
    }
    if (m_chunks.status() == http::chunked_body::state::complete) m_place = place::done;
    if (m_chunks.status() == http::chunked_body::state::refused) m_ends_connection = true;
    return used;
}

bool answer_filter::is_complete() {
    if (!m_is_head_whole) look_for_end();
    if (!m_is_head_whole) return false;
    if (!m_is_head_read) read_head();
    if (m_is_strict) return m_place == place::done;
    return m_place == place::done ||
           (m_place == place::counted && m_passed - m_head.size() >= m_left);
}

}  // namespace pennywort::httpserver
