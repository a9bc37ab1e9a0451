// loam/wide_text.h - between our UTF-8 and the wide texts of Windows' own calls. It exists on
// Windows only, where a wide character is a UTF-16 unit.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "loam/string.h"
#include "loam/wide_string.h"

namespace loam {

// What is not valid UTF-8 becomes U+FFFD.
inline std::wstring wide_text(std::string_view text) {
    const zWideStr wide(text.data(), static_cast<std::int32_t>(text.size()));
    return {wide.WideStr(), wide.WideStr() + wide.Length()};
}

inline std::string utf8_text(std::wstring_view wide) {
    const std::u16string units(wide.begin(), wide.end());
    const zString text(units.c_str(), static_cast<std::int32_t>(units.size()));
    return std::string(text.View());
}

}  // namespace loam
