// http_date.h - moments as HTTP writes them, RFC 9110 section 5.6.7. No clock, no I/O.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace pennywort::http {

// "Sun, 06 Nov 1994 08:49:37 GMT" for seconds since 1970, of the years 1970 to 9999.
std::string date_text(std::int64_t seconds);

// Seconds since 1970, from that form and from the two older ones that must be understood too. A
// year of two digits is the one nearest to `now` that is not more than 50 years ahead of it.
// Nothing for what is no date.
std::optional<std::int64_t> date_from(std::string_view text, std::int64_t now);

}  // namespace pennywort::http
