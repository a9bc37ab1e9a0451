// loam/wide_path.h - a path in the form of Windows' own calls; only loam's Windows twins use it.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "loam/utf.h"

namespace loam {

// Nothing when the text is not valid UTF-8: no file has such a name, and none should be made under
// a repaired one.
inline std::optional<std::wstring> wide_path(std::string_view path) {
    const auto wide = wide_from_utf8(path);
    if (!wide) return std::nullopt;
    return std::wstring(wide->begin(), wide->end());
}

}  // namespace loam
