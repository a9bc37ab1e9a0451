// loam/utf8.h - reads and writes UTF-8, one character at a time. Overlong forms, surrogates and
// numbers past U+10FFFF are not valid.
//
// Threads: everything may be called from any thread at once.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace loam {

// Stands for what is not valid.
inline constexpr char32_t k_replacement = 0xFFFD;
inline constexpr std::string_view k_replacement_text = "\xEF\xBF\xBD";

// What a text begins with: a character, or a piece that is not valid, whose point is k_replacement.
// Such a piece is the longest beginning of a character, or a single byte that begins none.
struct utf8_piece {
    std::size_t bytes;
    char32_t point;
    bool is_valid;
};

// What a first byte says about its character: how many bytes follow, its own bits, and the range
// that the second byte must be in, which is where overlong forms, surrogates and points past
// U+10FFFF show. A byte that begins no character has no bits at all.
struct utf8_lead {
    std::size_t followers = 0;
    char32_t bits = 0;
    unsigned char second_min = 0x80;
    unsigned char second_max = 0xBF;
    bool is_valid = true;
};

constexpr utf8_lead utf8_lead_of(unsigned char byte) {
    const auto bits = [byte](unsigned mask) { return static_cast<char32_t>(byte & mask); };
    if (byte < 0x80) return {0, byte};
    if (byte < 0xC2 || byte > 0xF4) return {0, 0, 0, 0, false};
    if (byte < 0xE0) return {1, bits(0x1F)};
    if (byte == 0xE0) return {2, bits(0x0F), 0xA0};
    if (byte == 0xED) return {2, bits(0x0F), 0x80, 0x9F};
    if (byte < 0xF0) return {2, bits(0x0F)};
    if (byte == 0xF0) return {3, bits(0x07), 0x90};
    if (byte == 0xF4) return {3, bits(0x07), 0x80, 0x8F};
    return {3, bits(0x07)};
}

// Reads the front of `text`. Of an empty text: 0 bytes, not valid.
constexpr utf8_piece first_character(std::string_view text) {
    if (text.empty()) return {0, k_replacement, false};
    const utf8_lead lead = utf8_lead_of(static_cast<unsigned char>(text[0]));
    if (!lead.is_valid) return {1, k_replacement, false};
    char32_t point = lead.bits;
    for (std::size_t i = 1; i <= lead.followers; ++i) {
        if (i == text.size()) return {i, k_replacement, false};
        const auto byte = static_cast<unsigned char>(text[i]);
        const unsigned char low = i == 1 ? lead.second_min : 0x80;
        const unsigned char high = i == 1 ? lead.second_max : 0xBF;
        if (byte < low || byte > high) return {i, k_replacement, false};
        point = (point << 6) | (byte & 0x3Fu);
    }
    return {lead.followers + 1, point, true};
}

constexpr bool is_utf8(std::string_view text) {
    while (!text.empty()) {
        const utf8_piece next = first_character(text);
        if (!next.is_valid) return false;
        text.remove_prefix(next.bytes);
    }
    return true;
}

// Half a surrogate pair, or a number past U+10FFFF, is written as U+FFFD.
inline void append_utf8(std::string& out, char32_t point) {
    const bool is_character = point < 0xD800 || (point > 0xDFFF && point <= 0x10FFFF);
    if (!is_character) point = k_replacement;
    const auto put = [&out](char32_t byte) { out.push_back(static_cast<char>(byte)); };
    const auto put_tail = [&](int shift) { put(0x80 | ((point >> shift) & 0x3F)); };
    if (point < 0x80) {
        put(point);
        return;
    }
    if (point < 0x800) {
        put(0xC0 | (point >> 6));
    } else if (point < 0x10000) {
        put(0xE0 | (point >> 12));
        put_tail(6);
    } else {
        put(0xF0 | (point >> 18));
        put_tail(12);
        put_tail(6);
    }
    put_tail(0);
}

}  // namespace loam
