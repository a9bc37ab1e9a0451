// close_codes.h - the status codes of RFC 6455 section 7.4 that this family speaks of.
#pragma once

#include <cstdint>

namespace pennywort::websocket {

inline constexpr std::uint16_t k_close_normal = 1000;
inline constexpr std::uint16_t k_close_protocol_error = 1002;
inline constexpr std::uint16_t k_close_no_status = 1005;  // never sent: the peer gave none
inline constexpr std::uint16_t k_close_abnormal = 1006;   // never sent: there was no close
inline constexpr std::uint16_t k_close_bad_payload = 1007;
inline constexpr std::uint16_t k_close_too_big = 1009;
inline constexpr std::uint16_t k_close_last = 4999;

}  // namespace pennywort::websocket
