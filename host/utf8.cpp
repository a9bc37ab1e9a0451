// host/utf8.cpp - see the header for the contract.
#include "host/utf8.h"

namespace pennywort::host {

namespace {

bool continues(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

}  // namespace

std::size_t utf8_sequence_length(std::string_view text) {
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

bool is_utf8(std::string_view text) {
    while (!text.empty()) {
        const std::size_t length = utf8_sequence_length(text);
        if (length == 0) return false;
        text.remove_prefix(length);
    }
    return true;
}

}  // namespace pennywort::host
