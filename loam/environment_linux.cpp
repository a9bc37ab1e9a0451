// loam/environment_linux.cpp - Linux half of loam/environment.h. Windows half: environment_win.cpp.
#include <cstdlib>

#include "loam/environment.h"

namespace loam {

std::string environment_variable(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

}  // namespace loam
