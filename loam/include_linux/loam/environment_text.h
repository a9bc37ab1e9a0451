// loam/environment_text.h - a variable of the process's environment, as Linux has it. Windows has a
// header of the same name.
#pragma once

#include <cstdlib>
#include <string>

namespace loam {

// Empty when there is none of that name. `error` is 0: here none fails.
inline std::string environment_text(const char* name, unsigned long& error) {
    error = 0;
    const char* const value = std::getenv(name);
    return value == nullptr ? "" : value;
}

}  // namespace loam
