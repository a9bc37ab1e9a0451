// environment_linux.cpp - Linux half of environment.h. Windows half: environment_win.cpp.
#include "core/run/environment.h"

#include <cstdlib>

namespace pennywort::run {

std::string environment_variable(const char* name) {
    const char* const value = std::getenv(name);
    return value == nullptr ? "" : value;
}

}  // namespace pennywort::run
