// host/utf8.h - what is UTF-8 and what is not.
#pragma once

#include <cstddef>
#include <string_view>

namespace pennywort::host {

// How many bytes the character at the front of `text`, which is not empty, has; 0 if it is none.
// Overlong forms, surrogates and numbers past U+10FFFF are none.
std::size_t utf8_sequence_length(std::string_view text);

bool is_utf8(std::string_view text);

}  // namespace pennywort::host
