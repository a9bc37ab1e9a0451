// limits.h - the maxima of whatever a page or a peer can drive, in one place.
#pragma once

namespace pennywort {

// Pages that script may open without a click live off screen and unseen; more are refused.
inline constexpr int k_max_popups = 8;

// Longest side of a page in pixels; the runtime cannot allocate larger textures.
inline constexpr long k_max_view_side = 16384;

// Windows walked up from a focused one in search of a page's.
inline constexpr int k_max_window_depth = 255;

}  // namespace pennywort
