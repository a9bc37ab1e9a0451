// limits.h - the maxima of whatever a page or a peer can drive, in one place.
#pragma once

#include <cstddef>
#include <cstdint>

namespace pennywort {

// Pages that script may open without a click live off screen and unseen; more are refused.
inline constexpr int k_max_popups = 8;

// Longest side of a page in pixels; the runtime cannot allocate larger textures.
inline constexpr long k_max_view_side = 16384;

// Windows walked up from a focused one in search of a page's.
inline constexpr int k_max_window_depth = 255;

// Bytes of a header's name; headers with longer ones are passed over.
inline constexpr std::size_t k_max_header_name = 254;

// Bytes of one request to the server, which counts them in 32 bits with a NUL behind.
inline constexpr std::int32_t k_max_request_bytes = 0x7ffffffe;

// Bytes that a peer whose request was refused may still send before its connection is cut off.
inline constexpr std::int64_t k_max_dropped_bytes = 1 << 20;

// Bytes of a long answer that are read and sent at once.
inline constexpr std::size_t k_http_piece_bytes = 256 * 1024;

// How long a handler's answer waits for a peer that takes nothing.
inline constexpr std::int32_t k_send_timeout_ms = 5000;

}  // namespace pennywort
