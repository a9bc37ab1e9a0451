// loam/random_bytes_linux.cpp - Linux half of loam/random_bytes.h. Windows half:
// random_bytes_win.cpp.
#include <sys/random.h>

#include "loam/interrupted.h"
#include "loam/random_bytes.h"

namespace loam {

bool fill_random(std::span<unsigned char> out) {
    while (!out.empty()) {
        const auto got = unless_interrupted([&] { return ::getrandom(out.data(), out.size(), 0); });
        if (got <= 0) return false;
        out = out.subspan(static_cast<std::size_t>(got));
    }
    return true;
}

}  // namespace loam
