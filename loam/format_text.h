// loam/format_text.h - printf-style formatting into a string of its own.
#pragma once

#include <cstdarg>
#include <string>

#include "loam/export.h"

namespace loam {

// Empty when the format cannot be followed. Uses `arguments` up.
LOAM_PRINTF(1, 0)
std::string format_text(const char* format, std::va_list arguments);

}  // namespace loam
