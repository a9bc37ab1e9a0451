// host/live/json_line.cpp - see the header for the contract.
#include "host/live/json_line.h"

#include <charconv>
#include <cmath>

#include "host/utf8.h"

namespace pennywort::host {

namespace {

constexpr std::string_view k_replacement = "\xEF\xBF\xBD";

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
        const std::size_t length = utf8_sequence_length(text);
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

}  // namespace pennywort::host
