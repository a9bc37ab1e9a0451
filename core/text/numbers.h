// numbers.h - numbers in text, read strictly: the whole text is the number or there is none. No
// white space, no plus sign, the same in every locale.
#pragma once

#include <charconv>
#include <cmath>
#include <concepts>
#include <optional>
#include <string_view>
#include <system_error>

#include "core/text/ascii.h"

namespace pennywort::text {

// Decimal, or of another base up to 16 in either case of its letters; a minus sign for signed types
// only. Nothing where it does not fit.
template <std::integral number>
std::optional<number> whole(std::string_view text, int base = 10) {
    number value{};
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value, base);
    if (text.empty() || error != std::errc() || stop != end) return std::nullopt;
    return value;
}

// The same between two bounds, both of which count as within.
template <std::integral number>
std::optional<number> whole_between(std::string_view text, number lowest, number highest) {
    const auto value = whole<number>(text);
    return value && *value >= lowest && *value <= highest ? value : std::nullopt;
}

// Digits alone, as a length in a header must be: "-0" is none.
template <std::integral number>
std::optional<number> digits(std::string_view text) {
    return !text.empty() && is_digit(text.front()) ? whole<number>(text) : std::nullopt;
}

// Decimal with or without a point and an exponent. Infinity and what is not a number are none.
inline std::optional<double> decimal(std::string_view text) {
    double value = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (text.empty() || error != std::errc() || stop != end) return std::nullopt;
    return std::isfinite(value) ? std::optional(value) : std::nullopt;
}

inline std::optional<double> decimal_between(std::string_view text, double lowest, double highest) {
    const auto value = decimal(text);
    return value && *value >= lowest && *value <= highest ? value : std::nullopt;
}

}  // namespace pennywort::text
