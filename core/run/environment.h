// environment.h - the process's environment variables, as the system has them: the C library's copy
// on Windows knows the user's code page only, and nothing of what was set since the start.
#pragma once

#include <string>

namespace pennywort::run {

// In UTF-8; empty when there is none of that name. That one cannot be had is traced.
std::string environment_variable(const char* name);

}  // namespace pennywort::run
