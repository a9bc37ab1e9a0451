// core/http/head_parser.cpp - see the header for the contract.
#include "core/http/head_parser.h"

#include <algorithm>

#include "core/http/bytes.h"
#include "core/text/ascii.h"
#include "core/text/numbers.h"

namespace pennywort::http {
namespace {

// Takes the front of `text` up to `mark` off it, and the mark with it.
std::string_view cut(std::string_view& text, char mark) {
    const std::size_t at = std::min(text.find(mark), text.size());
    const std::string_view front = text.substr(0, at);
    text.remove_prefix(std::min(text.size(), at + 1));
    return front;
}

// A target holds no byte beyond ASCII: whoever reads those by another character set sees another
// target.
bool is_target(std::string_view text) {
    return !text.empty() &&
           std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c < 0x7f; });
}

}  // namespace

std::string_view words_of(head_fault fault) {
    switch (fault) {
        case head_fault::none:
            return "no fault";
        case head_fault::too_long:
            return "the head is too long";
        case head_fault::too_many_headers:
            return "there are too many headers";
        case head_fault::bad_line_end:
            return "a line does not end in CR LF";
        case head_fault::bad_method:
            return "there is no method";
        case head_fault::bad_target:
            return "there is no target";
        case head_fault::bad_version:
            return "there is no version";
        case head_fault::foreign_version:
            return "the version is not HTTP/1";
        case head_fault::bad_status:
            return "there is no status";
        case head_fault::folded:
            return "a header is folded";
        case head_fault::no_name:
            return "a header has no name";
        case head_fault::blank_before_colon:
            return "a blank stands before a colon";
        case head_fault::bad_value:
            return "a value holds a control byte";
    }
    return "";
}

std::size_t head_parser::feed(std::string_view bytes) {
    std::size_t used = 0;
    while (m_state == state::need_more && used < bytes.size()) used += take(bytes.substr(used));
    return used;
}

void head_parser::reset() {
    m_state = state::need_more;
    m_fault = head_fault::none;
    m_head.method.clear();
    m_head.target.clear();
    m_head.status = 0;
    m_head.reason.clear();
    m_head.minor = 1;
    m_head.headers.clear();
    m_line.clear();
    m_taken = 0;
    m_empty_lines = 0;
    m_has_method = false;
    m_has_start = false;
    m_is_last_skipped = false;
}

std::size_t head_parser::take(std::string_view bytes) {
    const std::size_t room = m_policy.max_bytes - m_taken;
    if (room == 0) {
        refuse(head_fault::too_long);
        return 0;
    }
    bytes = bytes.substr(0, room);
    const std::size_t good = check_method(bytes);
    if (m_state == state::refused) return good;
    const std::size_t end = bytes.find('\n');
    const std::size_t used = end == std::string_view::npos ? bytes.size() : end + 1;
    m_taken += used;
    if (end == std::string_view::npos) {
        m_line.append(bytes);
    } else if (m_line.empty()) {
        take_line(bytes.substr(0, end));
    } else {
        m_line.append(bytes.substr(0, end));
        take_line(m_line);
        m_line.clear();
    }
    return used;
}

// Whoever speaks another protocol may wait for an answer before it ends a line.
std::size_t head_parser::check_method(std::string_view bytes) {
    if (m_kind != head_kind::request || m_has_method || m_has_start) return 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const char c = bytes[i];
        const bool is_end = c == '\r' || c == '\n' || (c == ' ' && i + m_line.size() > 0);
        if (is_end) {
            m_has_method = true;
            return i;
        }
        if (is_token_byte(c)) continue;
        refuse(head_fault::bad_method);
        return i;
    }
    return bytes.size();
}

void head_parser::take_line(std::string_view line) {
    const bool has_cr = !line.empty() && line.back() == '\r';
    if (has_cr) line.remove_suffix(1);
    const bool is_bare = line.find('\r') != std::string_view::npos;
    if (is_bare || (!has_cr && !m_policy.allows_bare_lf)) return refuse(head_fault::bad_line_end);
    take_content(line);
}

void head_parser::take_content(std::string_view line) {
    if (m_kind != head_kind::headers && !m_has_start) return take_start(line);
    if (line.empty()) {
        m_state = state::complete;
    } else if (text::is_blank(line.front())) {
        take_folded(line);
    } else {
        take_header(line);
    }
}

void head_parser::take_start(std::string_view line) {
    const bool is_request = m_kind == head_kind::request;
    if (line.empty() && m_empty_lines < m_policy.empty_lines_first) {
        ++m_empty_lines;
        m_has_method = false;
        return;
    }
    m_has_start = true;
    return is_request ? take_request_line(line) : take_status_line(line);
}

void head_parser::take_request_line(std::string_view line) {
    const std::string_view method = cut(line, ' ');
    const std::string_view target = cut(line, ' ');
    if (!is_token(method)) return refuse(head_fault::bad_method);
    if (!is_target(target)) return refuse(head_fault::bad_target);
    m_head.method = method;
    m_head.target = target;
    take_version(line);
}

void head_parser::take_status_line(std::string_view line) {
    const std::string_view version = line.substr(0, line.find(' '));
    take_version(version);
    if (m_state == state::refused) return;
    line.remove_prefix(std::min(line.size(), version.size() + 1));
    const auto status = text::digits<std::int32_t>(line.substr(0, 3));
    const bool has_space = line.size() > 3 && line[3] == ' ';
    const bool is_short = line.size() == 3 && m_policy.allows_missing_reason;
    if (!status || *status < 100 || !(has_space || is_short)) {
        return refuse(head_fault::bad_status);
    }
    const std::string_view reason = line.substr(std::min<std::size_t>(line.size(), 4));
    if (!is_value_allowed(reason)) return refuse(head_fault::bad_status);
    m_head.status = *status;
    m_head.reason = reason;
}

void head_parser::take_version(std::string_view text) {
    const bool is_version = text.size() == 8 && text.substr(0, 5) == "HTTP/" &&
                            text::is_digit(text[5]) && text[6] == '.' && text::is_digit(text[7]);
    if (!is_version) return refuse(head_fault::bad_version);
    if (text[5] != '1') return refuse(head_fault::foreign_version);
    m_head.minor = text[7] - '0';
}

void head_parser::take_header(std::string_view line) {
    const std::size_t colon = line.find(':');
    std::string_view name = line.substr(0, std::min(colon, line.size()));
    const bool is_blank_before =
        colon != std::string_view::npos && !name.empty() && text::is_blank(name.back());
    if (is_blank_before && m_policy.allows_blank_before_colon) name = trimmed_value(name);
    m_is_last_skipped = colon == std::string_view::npos || !is_token(name);
    if (m_is_last_skipped) {
        if (m_policy.skips_lines_that_are_no_headers) return;
        return refuse(is_blank_before ? head_fault::blank_before_colon : head_fault::no_name);
    }
    const std::string_view value = trimmed_value(line.substr(colon + 1));
    if (!is_value_allowed(value)) return refuse(head_fault::bad_value);
    if (m_head.headers.size() == m_policy.max_headers) return refuse(head_fault::too_many_headers);
    m_head.headers.add(name, value);
}

// The rest of a line that was passed over goes with it.
void head_parser::take_folded(std::string_view line) {
    if (!m_policy.allows_folding) return refuse(head_fault::folded);
    if (m_is_last_skipped) return;
    if (m_head.headers.is_empty()) return refuse(head_fault::folded);
    const std::string_view more = trimmed_value(line);
    if (!is_value_allowed(more)) return refuse(head_fault::bad_value);
    m_head.headers.extend_last(" ");
    m_head.headers.extend_last(more);
}

bool head_parser::is_value_allowed(std::string_view value) const {
    if (!m_policy.allows_control_bytes) return is_value(value);
    return value.find('\0') == std::string_view::npos;
}

void head_parser::refuse(head_fault fault) {
    m_fault = fault;
    m_state = state::refused;
}

}  // namespace pennywort::http
