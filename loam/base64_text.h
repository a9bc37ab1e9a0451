// loam/base64_text.h - base64 to and from strings of bytes.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace loam {

std::string base64_from(std::string_view bytes);

// Nothing for what is no base64. White space may stand anywhere; padding must be there.
std::optional<std::string> bytes_from_base64(std::string_view text);

}  // namespace loam
