// head_parser.h - reads the head of a request, of an answer or of a part as its bytes come in. No
// clock, no I/O.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "core/http/header_list.h"
#include "core/limits.h"

namespace pennywort::http {

// What a head may do beyond the grammar of RFC 9112, each by its name. Where somebody else reads
// the same bytes by other rules, a proxy for instance, each of them is a way to make the two
// disagree about where a message ends.
struct head_policy {
    // A line may end in LF alone.
    bool allows_bare_lf = false;
    // A line that begins with a blank goes on with the value before it; one space joins them.
    bool allows_folding = false;
    // Blanks may stand between a name and its colon; they are dropped.
    bool allows_blank_before_colon = false;
    // A line that is no header is passed over in place of refusing the head.
    bool skips_lines_that_are_no_headers = false;
    // Values may hold control bytes, but never CR, LF and NUL.
    bool allows_control_bytes = false;
    // "HTTP/1.1 200" may do without the space that ends it.
    bool allows_missing_reason = false;
    // Empty lines that may come before a request or an answer.
    std::size_t empty_lines_first = 0;

    std::size_t max_bytes = k_max_head_bytes;
    std::size_t max_headers = k_max_headers;
};

inline constexpr head_policy k_strictest_heads{};

// What servers in the field are known to send, and what a client cannot mistake for anything else
// on a connection that carries one answer at a time.
inline constexpr head_policy k_tolerant_answers{
    .allows_bare_lf = true,
    .allows_folding = true,
    .skips_lines_that_are_no_headers = true,
    .allows_missing_reason = true,
};

enum class head_kind {
    request,  // a request line, then headers
    answer,   // a status line, then headers
    headers   // headers alone: those of a part, or the ones behind a chunked body
};

// What a head says.
struct message_head {
    std::string method;       // of a request
    std::string target;       // of a request
    std::int32_t status = 0;  // of an answer
    std::string reason;       // of an answer
    std::int32_t minor = 1;   // the version is HTTP/1.minor
    header_list headers;
};

enum class head_fault {
    none,
    too_long,
    too_many_headers,
    bad_line_end,  // LF without CR, or CR without LF
    bad_method,    // also for bytes that cannot begin a request at all
    bad_target,
    bad_version,
    foreign_version,  // HTTP, but not HTTP/1
    bad_status,
    folded,
    no_name,  // no colon, or a name that is none
    blank_before_colon,
    bad_value
};

// In words, for a trace.
std::string_view words_of(head_fault fault);

// However the bytes are split, the result is the same. To be used again after reset().
class head_parser {
public:
    enum class state { need_more, complete, refused };

    explicit head_parser(head_kind kind, const head_policy& policy = k_strictest_heads)
        : m_policy(policy), m_kind(kind) {}

    // Takes bytes up to the end of the head, or up to what is wrong with it; returns their number.
    std::size_t feed(std::string_view bytes);
    void reset();

    state status() const { return m_state; }
    head_fault fault() const { return m_fault; }
    // Whole when complete.
    const message_head& head() const { return m_head; }
    // For what counts in place of a header that came.
    void set_header(std::string_view name, std::string_view value) {
        m_head.headers.set(name, value);
    }

private:
    std::size_t take(std::string_view bytes);
    std::size_t check_method(std::string_view bytes);
    void take_line(std::string_view line);
    void take_content(std::string_view line);
    void take_start(std::string_view line);
    void take_request_line(std::string_view line);
    void take_status_line(std::string_view line);
    void take_version(std::string_view text);
    void take_header(std::string_view line);
    void take_folded(std::string_view line);
    bool is_value_allowed(std::string_view value) const;
    void refuse(head_fault fault);

    const head_policy m_policy;
    const head_kind m_kind;
    state m_state = state::need_more;
    head_fault m_fault = head_fault::none;
    message_head m_head;
    std::string m_line;  // what has come of a line that came in several pieces
    std::size_t m_taken = 0;
    std::size_t m_empty_lines = 0;
    bool m_has_method = false;
    bool m_has_start = false;
    bool m_is_last_skipped = false;
};

}  // namespace pennywort::http
