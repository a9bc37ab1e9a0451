// loam/wide_string.h - zWideStr, the UTF-16 form of a UTF-8 text for as long as the object lives.
#pragma once

#include <cstdint>
#include <string>

#include "loam/export.h"

class LOAM_API zWideStr {
public:
    // A negative length means up to the NUL; null counts as empty. Each run of bytes that is not
    // UTF-8 becomes U+FFFD.
    explicit zWideStr(const char* text, std::int32_t length = -1);
    zWideStr(const zWideStr&) = delete;
    zWideStr& operator=(const zWideStr&) = delete;
    ~zWideStr();

    // Never null, with a terminating NUL.
    const char16_t* WideStr() const;
    // In UTF-16 units, without the NUL.
    std::uint32_t Length() const;

private:
    std::u16string m_wide;
};
