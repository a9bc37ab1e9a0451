// host/json_line.cpp - see the header for the contract.
#include "host/json_line.h"

#include <charconv>
#include <cmath>

namespace pennywort {

namespace {

constexpr std::string_view k_replacement = "\xEF\xBF\xBD";

bool continues(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

// How many bytes the UTF-8 sequence at the front has; 0 if it is none. Overlong forms, surrogates
// and numbers past U+10FFFF are none.
std::size_t sequence_length(std::string_view text) {
    const auto first = static_cast<unsigned char>(text[0]);
    const auto second = text.size() > 1 ? static_cast<unsigned char>(text[1]) : 0;
    if (first < 0x80) return 1;
    std::size_t length = 0;
    if (first >= 0xC2 && first <= 0xDF) length = 2;
    if (first >= 0xE0 && first <= 0xEF) length = 3;
    if (first >= 0xF0 && first <= 0xF4) length = 4;
    if (length == 0 || text.size() < length) return 0;
    for (std::size_t i = 1; i < length; ++i) {
        if (!continues(text[i])) return 0;
    }
    const bool too_low = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
    const bool too_high = (first == 0xED && second > 0x9F) || (first == 0xF4 && second > 0x8F);
    return too_low || too_high ? 0 : length;
}

std::string escaped(char c) {
    constexpr std::string_view hex = "0123456789abcdef";
    switch (c) {
        case '"':
            return "\\\"";
        case '\\':
            return "\\\\";
        case '\n':
            return "\\n";
        case '\r':
            return "\\r";
        case '\t':
            return "\\t";
        default:
            break;
    }
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte != 0x7F) return {c};
    return std::string("\\u00") + hex[byte >> 4] + hex[byte & 15];
}

}  // namespace

std::string json_quoted(std::string_view text) {
    std::string out = "\"";
    while (!text.empty()) {
        const std::size_t length = sequence_length(text);
        if (length == 1) {
            out += escaped(text[0]);
        } else {
            out += length == 0 ? k_replacement : text.substr(0, length);
        }
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return out + "\"";
}

void json_line::begin_member(std::string_view name) {
    if (m_members.size() > 1) m_members += ",";
    m_members += json_quoted(name) + ":";
}

json_line& json_line::add(std::string_view name, std::string_view text) {
    begin_member(name);
    m_members += json_quoted(text);
    return *this;
}

json_line& json_line::add(std::string_view name, std::uint64_t number) {
    begin_member(name);
    m_members += std::to_string(number);
    return *this;
}

json_line& json_line::add(std::string_view name, double number, int decimals) {
    begin_member(name);
    char digits[400];  // the largest double has 309 digits before its point
    const auto end =
        std::to_chars(digits, digits + sizeof digits, number, std::chars_format::fixed, decimals);
    const bool fits = std::isfinite(number) && end.ec == std::errc();
    m_members += fits ? std::string(digits, end.ptr) : "null";
    return *this;
}

}  // namespace pennywort
