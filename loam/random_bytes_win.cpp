// loam/random_bytes_win.cpp - Windows half of loam/random_bytes.h. Linux half:
// random_bytes_linux.cpp.
#include <windows.h>
// After windows.h, whose types it needs.
#include <bcrypt.h>

#include "loam/random_bytes.h"

namespace loam {

bool fill_random(std::span<unsigned char> out) {
    return BCryptGenRandom(nullptr, out.data(), static_cast<ULONG>(out.size()),
                           BCRYPT_USE_SYSTEM_PREFERRED_RNG) >= 0;
}

}  // namespace loam
