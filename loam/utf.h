// loam/utf.h - conversions between UTF-8 and UTF-16. No clock, no I/O, no platform header.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace loam {

// The text up to `length`, or up to the NUL when `length` is negative; null counts as empty.
std::string_view text_view(const char* text, std::int32_t length);
std::u16string_view wide_view(const char16_t* wide, std::int32_t length);

// Half a surrogate pair without its other half becomes U+FFFD.
std::string utf8_from_wide(std::u16string_view wide);

// Nothing when the text is not valid UTF-8.
std::optional<std::u16string> wide_from_utf8(std::string_view text);

// Every piece that is not valid becomes one U+FFFD: a piece is the longest beginning of a
// character, or a single byte that begins none.
std::u16string wide_from_utf8_repaired(std::string_view text);

}  // namespace loam
