// loam/number_text.cpp - see the header for the contract.
#include "loam/number_text.h"

#include <charconv>
#include <limits>
#include <system_error>

#include "loam/ascii.h"

namespace loam {
namespace {

// std::from_chars knows no plus sign, and "+-1" must not become a number by dropping one.
std::string_view without_plus(std::string_view text) {
    const bool has_plus = text.size() > 1 && text[0] == '+' && text[1] != '-';
    return has_plus ? text.substr(1) : text;
}

template <typename number>
std::optional<number> whole_number(std::string_view text) {
    text = without_plus(trimmed(text));
    number value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
    return value;
}

}  // namespace

std::int64_t leading_int64(std::string_view text) {
    text = without_plus(trimmed(text));
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc::result_out_of_range) return value;
    using limits = std::numeric_limits<std::int64_t>;
    return text.front() == '-' ? limits::min() : limits::max();
}

std::optional<std::int64_t> whole_int64(std::string_view text) {
    return whole_number<std::int64_t>(text);
}

std::optional<double> whole_double(std::string_view text) { return whole_number<double>(text); }

}  // namespace loam
