// loam/utf.cpp - see the header for the contract.
#include "loam/utf.h"

#include <cstddef>

#include "loam/utf8.h"

namespace loam {
namespace {

bool is_high_surrogate(char32_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool is_low_surrogate(char32_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

void append_wide(std::u16string& out, char32_t point) {
    if (point < 0x10000) {
        out.push_back(static_cast<char16_t>(point));
        return;
    }
    out.push_back(static_cast<char16_t>(0xD7C0 + (point >> 10)));
    out.push_back(static_cast<char16_t>(0xDC00 | (point & 0x3FF)));
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
        const utf8_piece next = first_character(text);
        if (!next.is_valid) return std::nullopt;
        append_wide(out, next.point);
        text.remove_prefix(next.bytes);
    }
    return out;
}

std::u16string wide_from_utf8_repaired(std::string_view text) {
    std::u16string out;
    out.reserve(text.size());
    while (!text.empty()) {
        const utf8_piece next = first_character(text);
        append_wide(out, next.point);
        text.remove_prefix(next.bytes);
    }
    return out;
}

}  // namespace loam
