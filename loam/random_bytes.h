// loam/random_bytes.h - random bytes of the system, good enough for keys. Twins:
// random_bytes_linux.cpp, random_bytes_win.cpp.
#pragma once

#include <span>

namespace loam {

// False, with `out` in no particular state, when the system has none to give.
bool fill_random(std::span<unsigned char> out);

}  // namespace loam
