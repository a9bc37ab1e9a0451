// strict_request.h - reads requests as RFC 9110 and 9112 ask for, as their bytes come in, and knows
// the status to refuse one with. No clock, no I/O.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "core/http/body_length.h"
#include "core/http/chunked_body.h"
#include "core/http/head_parser.h"

namespace pennywort::httpserver {

// However the bytes are split, the result is the same.
class strict_request {
public:
    enum class state { need_more, complete, refused };

    // Of one request, head and body as they are given to handlers.
    explicit strict_request(std::int64_t max_bytes) : m_max_bytes(max_bytes) {}

    // Takes bytes up to the end of the request; returns their number.
    std::size_t feed(std::string_view bytes);
    void reset();

    state status() const { return m_state; }
    // 400, 413, 414, 417, 431, 501 or 505, when refused.
    std::int32_t refusal() const { return m_refusal; }
    // Whether anything has come of a request.
    bool has_begun() const { return m_has_begun; }
    // Whether the peer waits for "100 Continue" before it sends the body. True once.
    bool takes_continue();

    const http::message_head& head() const { return m_head.head(); }
    bool is_head() const { return head().method == "HEAD"; }
    // What handlers know the method by; HEAD is GET.
    std::uint32_t method() const { return m_method; }
    // The path, perhaps with a query: what the target holds behind scheme and host.
    std::string_view resource() const { return m_resource; }
    // The head as it came, and the body without its coding; a NUL follows.
    const std::string& text() const { return m_text; }
    std::size_t body_offset() const { return m_body_offset; }
    std::string_view body() const { return std::string_view(m_text).substr(m_body_offset); }
    bool is_persistent() const { return http::is_persistent(head()); }
    // Memory that it keeps for the next request.
    std::size_t capacity() const { return m_text.capacity(); }

private:
    std::size_t feed_head(std::string_view bytes);
    std::size_t feed_counted(std::string_view bytes);
    std::size_t feed_chunked(std::string_view bytes);
    void check_head();
    std::int32_t refusal_of_method();
    std::int32_t refusal_of_host() const;
    std::int32_t refusal_of_target();
    std::int32_t refusal_of_body();
    std::int32_t refusal_of_expectation();
    void refuse(std::int32_t status);

    static constexpr http::head_policy k_policy{.empty_lines_first = 1};

    const std::int64_t m_max_bytes;
    state m_state = state::need_more;
    std::int32_t m_refusal = 0;
    std::uint32_t m_method = 0;
    bool m_has_begun = false;
    bool m_wants_continue = false;
    std::string m_resource;
    std::string m_text;
    std::size_t m_body_offset = 0;
    std::uint64_t m_left = 0;  // of a counted body
    http::body_kind m_body = http::body_kind::none;
    http::head_parser m_head{http::head_kind::request, k_policy};
    http::chunked_body m_chunks;
};

}  // namespace pennywort::httpserver
