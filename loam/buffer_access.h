// loam/buffer_access.h - the inside of a buffer, for code of this library that has its bytes
// already.
#pragma once

#include <cstddef>
#include <memory>

#include "loam/buffer.h"

namespace loam {

struct buffer_access {
    // Replaces what the buffer holds. At most as many bytes as a buffer can have.
    static void give(zBuffer& buffer, std::unique_ptr<char[]> bytes, std::size_t length,
                     std::size_t capacity);
};

}  // namespace loam
