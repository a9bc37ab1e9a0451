// slot_of.h - the place of a virtual operation among those of its class: hosts that were built with
// an earlier library call it by that.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace pennywort::tests {

// In the ABI of GCC a pointer to a virtual operation holds 1 more than its place in bytes.
template <typename operation>
std::size_t slot_of(operation pointer) {
    std::uintptr_t parts[2] = {};
    static_assert(sizeof pointer == sizeof parts);
    std::memcpy(parts, &pointer, sizeof parts);
    return (parts[0] - 1) / sizeof(void*);
}

}  // namespace pennywort::tests
