// bytes.h - which bytes may stand where in a head, by RFC 9110 section 5.6. No clock, no I/O.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

#include "core/text/ascii.h"

namespace pennywort::http {

constexpr std::array<bool, 256> make_token_bytes() {
    std::array<bool, 256> bytes{};
    for (std::size_t i = '!'; i < 0x7f; ++i) bytes[i] = true;
    for (const char c : std::string_view("\"(),/:;<=>?@[\\]{}")) {
        bytes[static_cast<unsigned char>(c)] = false;
    }
    return bytes;
}

inline constexpr std::array<bool, 256> k_token_bytes = make_token_bytes();

// Of methods and of the names of headers.
constexpr bool is_token_byte(char c) { return k_token_bytes[static_cast<unsigned char>(c)]; }

inline bool is_token(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), is_token_byte);
}

// Of a header's value. A control byte would be the end of a header for one reader and not for the
// next.
constexpr bool is_value_byte(char c) { return !text::is_control(c) || c == '\t'; }

inline bool is_value(std::string_view text) {
    return std::all_of(text.begin(), text.end(), is_value_byte);
}

// What stands around a value without belonging to it.
constexpr std::string_view trimmed_value(std::string_view text) {
    return text::trimmed(text, text::k_blank);
}

}  // namespace pennywort::http
