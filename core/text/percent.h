// percent.h - the percent coding of URLs, RFC 3986 section 2.1. No clock, no I/O.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace pennywort::text {

// Each %XX becomes its byte, once; "+" stays. Nothing for a "%" without two hexadecimal digits: a
// request with one is refused, since two readers may repair it differently.
std::optional<std::string> percent_decoded(std::string_view text);

// The same, but a "%" without two hexadecimal digits stays as it is, as browsers read an address.
std::string percent_decoded_as_browsers_do(std::string_view text);

// Letters, digits, "-", ".", "_" and "~" stay, and so do the bytes of `kept`; every other byte
// becomes %XX with upper-case digits.
std::string percent_encoded(std::string_view text, std::string_view kept = {});

// What a path may hold as it is, beside what always stays.
inline constexpr std::string_view k_path_bytes = "/!$&'()*+,;=:@";

}  // namespace pennywort::text
