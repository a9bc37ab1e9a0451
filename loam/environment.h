// loam/environment.h - the process's environment variables. Twins: environment_linux.cpp,
// environment_win.cpp.
#pragma once

#include <string>

namespace loam {

// In UTF-8; empty when there is none of that name.
std::string environment_variable(const char* name);

}  // namespace loam
