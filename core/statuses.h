// statuses.h - the library's own statuses. Those of loam pass through unchanged.
#pragma once

#include "loam/types.h"

namespace pennywort {

inline constexpr zStatus k_ok = 0;
// Missing object, bad argument, not found, malformed input.
inline constexpr zStatus k_failed = -1;

// The range that is registered under the library's label. The library's codes lie below it; hosts
// know both, so neither moves.
inline constexpr zStatus k_registered_first = -21000;
inline constexpr zStatus k_registered_last = -8999;

}  // namespace pennywort
