// loam/number_text.h - decimal numbers in text, the same in every locale.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace loam {

// The number at the front after white space and a sign; 0 where there is none, the nearest one
// that fits where it does not fit.
std::int64_t leading_int64(std::string_view text);

// The whole text but for white space around it, or nothing when it is not a number or does not fit.
std::optional<std::int64_t> whole_int64(std::string_view text);
std::optional<double> whole_double(std::string_view text);

}  // namespace loam
