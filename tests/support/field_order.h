// field_order.h - the places of a class's fields, private ones too: hosts that were built with an
// earlier library have them where they were.
#pragma once

#include <cstddef>
#include <cstring>
#include <vector>

namespace pennywort::tests {

// In the ABI of GCC a pointer to a field is its place in bytes.
template <typename field>
std::ptrdiff_t place_of(field pointer) {
    std::ptrdiff_t place = 0;
    static_assert(sizeof pointer == sizeof place);
    std::memcpy(&place, &pointer, sizeof place);
    return place;
}

// An explicit instantiation may name what is private. For a type `mine` of the test's own, all of
// it in this namespace:
//   std::vector<std::ptrdiff_t> places(mine);
//   template struct fields<mine, &cClass::m_first, &cClass::m_second>;
template <typename tag, auto... members>
struct fields {
    friend std::vector<std::ptrdiff_t> places(tag) { return {place_of(members)...}; }
};

}  // namespace pennywort::tests
