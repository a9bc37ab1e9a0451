// core/http/chunked_body.cpp - see the header for the contract.
#include "core/http/chunked_body.h"

#include <algorithm>

#include "core/http/bytes.h"
#include "core/limits.h"
#include "core/text/ascii.h"

namespace pennywort::http {
namespace {

// Of any length that a machine could hold; leading zeros count too.
constexpr std::size_t k_most_digits = 15;

}  // namespace

std::size_t chunked_body::feed(std::string_view bytes, std::string_view& content) {
    content = {};
    std::size_t used = 0;
    while (m_state == state::need_more && used < bytes.size() && content.empty()) {
        const std::string_view rest = bytes.substr(used);
        if (m_place == place::content) {
            used += take_content(rest, content);
        } else if (m_place == place::trailers) {
            used += take_trailers(rest);
        } else {
            take_byte(rest.front());
            if (m_state == state::need_more) ++used;
        }
    }
    return used;
}

void chunked_body::reset() {
    m_state = state::need_more;
    m_place = place::size;
    m_left = 0;
    m_digits = 0;
    m_has_extension = false;
    m_extension_bytes = 0;
    m_trailers.reset();
}

std::size_t chunked_body::take_content(std::string_view bytes, std::string_view& content) {
    content =
        bytes.substr(0, static_cast<std::size_t>(std::min<std::uint64_t>(m_left, bytes.size())));
    m_left -= content.size();
    if (m_left == 0) m_place = place::content_cr;
    return content.size();
}

std::size_t chunked_body::take_trailers(std::string_view bytes) {
    const std::size_t used = m_trailers.feed(bytes);
    if (m_trailers.status() == head_parser::state::complete) m_state = state::complete;
    if (m_trailers.status() == head_parser::state::refused) refuse();
    return used;
}

void chunked_body::take_byte(char c) {
    switch (m_place) {
        case place::size:
            return take_size(c);
        case place::extension:
            return take_extension(c);
        case place::size_lf:
            if (c != '\n') return refuse();
            return begin_chunk();
        case place::content_cr:
            return expect(c, '\r', place::content_lf);
        case place::content_lf:
            return expect(c, '\n', place::size);
        case place::content:
        case place::trailers:
            return;
    }
}

void chunked_body::take_size(char c) {
    const int digit = text::hex_value(c);
    if (digit >= 0) {
        if (++m_digits > k_most_digits) return refuse();
        m_left = m_left * 16 + static_cast<std::uint64_t>(digit);
        return;
    }
    const bool is_end = c == '\r' || c == ';' || text::is_blank(c);
    if (m_digits == 0 || !is_end) return refuse();
    m_place = place::extension;
    take_extension(c);
}

// What it says is passed over, as RFC 9112 asks for; only its end matters.
void chunked_body::take_extension(char c) {
    if (c == '\r') {
        m_place = place::size_lf;
        return;
    }
    if (c == ';') m_has_extension = true;
    // Of "3 5" one reader would take 3 for the size and another one 35.
    const bool is_fine = m_has_extension ? is_value_byte(c) : text::is_blank(c);
    if (!is_fine || ++m_extension_bytes > k_max_chunk_extension_bytes) refuse();
}

void chunked_body::expect(char c, char wanted, place next) {
    if (c != wanted) return refuse();
    m_place = next;
}

void chunked_body::begin_chunk() {
    m_place = m_left == 0 ? place::trailers : place::content;
    m_digits = 0;
    m_has_extension = false;
}

}  // namespace pennywort::http
