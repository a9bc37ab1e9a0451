// httpserver/request_progress.cpp - see the header for the contract.
#include "httpserver/request_progress.h"

#include <algorithm>
#include <limits>

#include "core/text/ascii.h"
#include "httpserver/request_line.h"

namespace pennywort::httpserver {
namespace {

constexpr std::size_t k_method_known_from = 4;
constexpr std::string_view k_blank_line = "\r\n\r\n";
// Without its colon, which is what is searched for: it is rarer than any letter.
constexpr std::string_view k_length_name = "content-length";

// Beyond any 32-bit number the exact value makes no difference.
constexpr std::int64_t k_number_ceiling = std::int64_t{1} << 40;

}  // namespace

bool request_progress::look(std::string_view text) {
    look_for_method(text);
    if (m_method == 0) return false;
    if (m_body_offset == 0) look_for_blank_line(text);
    look_for_length(text);
    if (m_body_offset == 0) return false;
    const auto size = static_cast<std::int64_t>(text.size());
    return size - static_cast<std::int64_t>(m_body_offset) >= content_length();
}

void request_progress::reset() {
    const std::uint64_t examined = m_bytes_examined;
    *this = {};
    m_bytes_examined = examined;
}

std::int32_t request_progress::content_length() const {
    using limits = std::numeric_limits<std::int32_t>;
    const std::int64_t number = m_is_negative ? -m_number : m_number;
    return static_cast<std::int32_t>(
        std::clamp<std::int64_t>(number, limits::min(), limits::max()));
}

void request_progress::look_for_method(std::string_view text) {
    if (m_method != 0 || m_is_hopeless || text.size() < k_method_known_from) return;
    m_method = method_of(text);
    m_is_hopeless = m_method == 0;
    m_bytes_examined += k_method_known_from;
}

void request_progress::look_for_blank_line(std::string_view text) {
    const std::size_t found = text.find(k_blank_line, m_searched_for_blank_line);
    const bool is_there = found != std::string_view::npos;
    const std::size_t end = is_there ? found + k_blank_line.size() : text.size();
    m_bytes_examined += end - m_searched_for_blank_line;
    if (is_there) m_body_offset = end;
    // It may have begun in the last bytes.
    m_searched_for_blank_line = end - std::min(end, k_blank_line.size() - 1);
}

void request_progress::look_for_length(std::string_view text) {
    const std::size_t from = m_searched_for_length;
    while (m_number_state == number_state::absent && m_searched_for_length < text.size()) {
        const std::size_t colon = text.find(':', m_searched_for_length);
        const std::size_t end = std::min(colon, text.size());
        m_searched_for_length = colon == std::string_view::npos ? end : end + 1;
        if (end == text.size() || end < k_length_name.size()) continue;
        m_bytes_examined += k_length_name.size();
        if (text::begins_ignoring_case(text.substr(end - k_length_name.size()), k_length_name)) {
            m_number_state = number_state::before;
        }
    }
    if (m_number_state != number_state::absent) read_number(text);
    m_bytes_examined += m_searched_for_length - from;
}

void request_progress::read_number(std::string_view text) {
    while (m_number_state != number_state::done && m_searched_for_length < text.size()) {
        const char c = text[m_searched_for_length];
        m_number_state = next_state(c);
        if (m_number_state == number_state::done) return;
        if (c == '-') m_is_negative = true;
        if (m_number_state == number_state::digits) take_digit(c);
        ++m_searched_for_length;
    }
}

request_progress::number_state request_progress::next_state(char c) const {
    if (text::is_digit(c)) return number_state::digits;
    if (m_number_state != number_state::before) return number_state::done;
    if (text::is_space(c)) return number_state::before;
    return c == '-' || c == '+' ? number_state::signed_ : number_state::done;
}

void request_progress::take_digit(char c) {
    m_number = std::min(m_number * 10 + (c - '0'), k_number_ceiling);
}

}  // namespace pennywort::httpserver
