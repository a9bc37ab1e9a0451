// core/text/percent.cpp - see the header for the contract.
#include "core/text/percent.h"

#include "core/text/ascii.h"

namespace pennywort::text {
namespace {

// The byte that the three bytes at the front stand for, or -1.
int coded_byte(std::string_view text) {
    if (text.size() < 3 || text[0] != '%') return -1;
    const int high = hex_value(text[1]);
    const int low = hex_value(text[2]);
    return high < 0 || low < 0 ? -1 : high * 16 + low;
}

bool always_stays(char c) {
    return is_letter(c) || is_digit(c) || c == '-' || c == '.' || c == '_' || c == '~';
}

}  // namespace

std::optional<std::string> percent_decoded(std::string_view text) {
    std::string decoded;
    decoded.reserve(text.size());
    while (!text.empty()) {
        const int byte = coded_byte(text);
        if (byte < 0 && text.front() == '%') return std::nullopt;
        decoded += byte < 0 ? text.front() : static_cast<char>(byte);
        text.remove_prefix(byte < 0 ? 1 : 3);
    }
    return decoded;
}

std::string percent_decoded_as_browsers_do(std::string_view text) {
    std::string decoded;
    decoded.reserve(text.size());
    while (!text.empty()) {
        const int byte = coded_byte(text);
        decoded += byte < 0 ? text.front() : static_cast<char>(byte);
        text.remove_prefix(byte < 0 ? 1 : 3);
    }
    return decoded;
}

std::string percent_encoded(std::string_view text, std::string_view kept) {
    constexpr std::string_view k_digits = "0123456789ABCDEF";
    std::string encoded;
    encoded.reserve(text.size());
    for (const char c : text) {
        if (always_stays(c) || kept.find(c) != std::string_view::npos) {
            encoded += c;
            continue;
        }
        const auto byte = static_cast<unsigned char>(c);
        encoded += {'%', k_digits[byte >> 4], k_digits[byte & 15]};
    }
    return encoded;
}

}  // namespace pennywort::text
