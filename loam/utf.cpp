// loam/utf.cpp - see the header for the contract.
#include "loam/utf.h"

#include <array>
#include <cstddef>

namespace loam {
namespace {

constexpr char32_t k_replacement = 0xFFFD;

bool is_high_surrogate(char32_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool is_low_surrogate(char32_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

void append_utf8(std::string& out, char32_t point) {
    const auto put = [&out](char32_t byte) { out.push_back(static_cast<char>(byte)); };
    if (point < 0x80) {
        put(point);
    } else if (point < 0x800) {
        put(0xC0 | (point >> 6));
        put(0x80 | (point & 0x3F));
    } else if (point < 0x10000) {
        put(0xE0 | (point >> 12));
        put(0x80 | ((point >> 6) & 0x3F));
        put(0x80 | (point & 0x3F));
    } else {
        put(0xF0 | (point >> 18));
        put(0x80 | ((point >> 12) & 0x3F));
        put(0x80 | ((point >> 6) & 0x3F));
        put(0x80 | (point & 0x3F));
    }
}

void append_wide(std::u16string& out, char32_t point) {
    if (point < 0x10000) {
        out.push_back(static_cast<char16_t>(point));
        return;
    }
    out.push_back(static_cast<char16_t>(0xD7C0 + (point >> 10)));
    out.push_back(static_cast<char16_t>(0xDC00 | (point & 0x3FF)));
}

// What a first byte says about its character: how many bytes follow, its own bits, and the range
// that the second byte must be in, which is where overlong forms, surrogates and points past
// U+10FFFF show.
struct lead {
    std::size_t followers;
    char32_t bits;
    unsigned char second_min;
    unsigned char second_max;
};

std::optional<lead> lead_of(unsigned char byte) {
    const auto bits = [byte](unsigned mask) { return static_cast<char32_t>(byte & mask); };
    if (byte < 0x80) return lead{0, byte, 0, 0};
    if (byte < 0xC2 || byte > 0xF4) return std::nullopt;
    if (byte < 0xE0) return lead{1, bits(0x1F), 0x80, 0xBF};
    if (byte == 0xE0) return lead{2, bits(0x0F), 0xA0, 0xBF};
    if (byte == 0xED) return lead{2, bits(0x0F), 0x80, 0x9F};
    if (byte < 0xF0) return lead{2, bits(0x0F), 0x80, 0xBF};
    if (byte == 0xF0) return lead{3, bits(0x07), 0x90, 0xBF};
    if (byte == 0xF4) return lead{3, bits(0x07), 0x80, 0x8F};
    return lead{3, bits(0x07), 0x80, 0xBF};
}

struct piece {
    std::size_t bytes;
    char32_t point;
    bool valid;
};

// The character, or the invalid piece, that a text which is not empty begins with.
piece first_piece(std::string_view text) {
    const auto first = lead_of(static_cast<unsigned char>(text[0]));
    if (!first) return {1, k_replacement, false};
    char32_t point = first->bits;
    unsigned char low = first->second_min;
    unsigned char high = first->second_max;
    for (std::size_t i = 1; i <= first->followers; ++i) {
        if (i == text.size()) return {i, k_replacement, false};
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte < low || byte > high) return {i, k_replacement, false};
        point = (point << 6) | (byte & 0x3Fu);
        low = 0x80;
        high = 0xBF;
    }
    return {first->followers + 1, point, true};
}

}  // namespace

std::string_view text_view(const char* text, std::int32_t length) {
    if (text == nullptr) return {};
    if (length < 0) return text;
    return {text, static_cast<std::size_t>(length)};
}

std::u16string_view wide_view(const char16_t* wide, std::int32_t length) {
    if (wide == nullptr) return {};
    if (length < 0) return wide;
    return {wide, static_cast<std::size_t>(length)};
}

std::string utf8_from_wide(std::u16string_view wide) {
    std::string out;
    out.reserve(wide.size());
    for (std::size_t i = 0; i < wide.size(); ++i) {
        const char32_t unit = wide[i];
        if (is_high_surrogate(unit) && i + 1 < wide.size() && is_low_surrogate(wide[i + 1])) {
            ++i;
            append_utf8(out, 0x10000 + ((unit & 0x3FF) << 10) + (wide[i] & 0x3FFu));
        } else if (is_high_surrogate(unit) || is_low_surrogate(unit)) {
            append_utf8(out, k_replacement);
        } else {
            append_utf8(out, unit);
        }
    }
    return out;
}

std::optional<std::u16string> wide_from_utf8(std::string_view text) {
    std::u16string out;
    out.reserve(text.size());
    while (!text.empty()) {
        const piece next = first_piece(text);
        if (!next.valid) return std::nullopt;
        append_wide(out, next.point);
        text.remove_prefix(next.bytes);
    }
    return out;
}

std::u16string wide_from_utf8_repaired(std::string_view text) {
    std::u16string out;
    out.reserve(text.size());
    while (!text.empty()) {
        const piece next = first_piece(text);
        append_wide(out, next.point);
        text.remove_prefix(next.bytes);
    }
    return out;
}

}  // namespace loam
