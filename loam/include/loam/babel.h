// loam/babel.h - zBabel converts text from its encoding to UTF-16.
#pragma once

#include <cstdint>

#include "loam/buffer.h"
#include "loam/export.h"
#include "loam/types.h"

class LOAM_API zBabel {
public:
    // 'utf8', its four characters packed big-endian.
    static constexpr std::uint32_t k_utf8 = 0x75746638u;

    // Replaces the content of `out` with the UTF-16 units of `text`, two bytes each in the
    // machine's order, without a terminating one. A negative length means up to the NUL; null
    // counts as empty. Returns -1 when the text is not valid in its encoding (for UTF-8 also:
    // overlong forms, surrogates, anything past U+10FFFF) or when the encoding is not one of those
    // above; `out` is empty then. From any thread.
    static zStatus ConvertToWide(zBuffer& out, const char* text, std::int32_t length,
                                 std::uint32_t encoding);
};
