// loam/format_text.cpp - see the header for the contract.
#include "loam/format_text.h"

#include <array>
#include <cstddef>
#include <cstdio>

namespace loam {

std::string format_text(const char* format, std::va_list arguments) {
    std::array<char, 1024> most;
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(most.data(), most.size(), format, arguments);
    std::string text;
    if (length >= static_cast<int>(most.size())) {
        text.resize(static_cast<std::size_t>(length));
        std::vsnprintf(text.data(), text.size() + 1, format, again);
    } else if (length > 0) {
        text.assign(most.data(), static_cast<std::size_t>(length));
    }
    va_end(again);
    return text;
}

}  // namespace loam
