// status.h - the words behind the status codes. No clock, no I/O.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace pennywort::http {

// "OK" for 200, and so on, as RFC 9110 has them; "Unknown" for a status that it does not name.
std::string_view reason_of(std::int32_t status);
// Bytes of the longest of them.
inline constexpr std::size_t k_longest_reason = 31;

// Whether an answer of this status ends with its head, whatever its headers say: 1xx, 204 and 304.
constexpr bool is_bodiless(std::int32_t status) {
    return (status >= 100 && status < 200) || status == 204 || status == 304;
}

}  // namespace pennywort::http
