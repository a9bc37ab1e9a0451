// loam/ascii.h - letters, digits and white space of ASCII, the same in every locale. Bytes above
// 127 are none of these.
//
// Threads: everything may be called from any thread at once.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace loam {

// What C calls white space, and the two bytes that header fields allow around a value.
inline constexpr std::string_view k_space = " \t\r\n\v\f";
inline constexpr std::string_view k_blank = " \t";

constexpr bool is_space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
constexpr bool is_blank(char c) { return c == ' ' || c == '\t'; }
constexpr bool is_digit(char c) { return c >= '0' && c <= '9'; }
// NUL, the other bytes below the space, and DEL.
constexpr bool is_control(char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; }

constexpr char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }
constexpr bool is_letter(char c) { return lower(c) >= 'a' && lower(c) <= 'z'; }

// 0 to 15, or -1 for a byte that is no hexadecimal digit.
constexpr int hex_value(char c) {
    if (is_digit(c)) return c - '0';
    const char letter = lower(c);
    return letter >= 'a' && letter <= 'f' ? letter - 'a' + 10 : -1;
}

inline std::string lower(std::string_view text) {
    std::string out(text);
    for (char& c : out) c = lower(c);
    return out;
}

constexpr bool equal_ignoring_case(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (lower(a[i]) != lower(b[i])) return false;
    }
    return true;
}

constexpr bool begins_ignoring_case(std::string_view text, std::string_view front) {
    return equal_ignoring_case(text.substr(0, front.size()), front);
}

// The text without the bytes of `around` at both ends.
constexpr std::string_view trimmed(std::string_view text, std::string_view around = k_space) {
    const std::size_t first = text.find_first_not_of(around);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(around) - first + 1);
}

}  // namespace loam
