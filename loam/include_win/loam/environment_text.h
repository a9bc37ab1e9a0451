// loam/environment_text.h - a variable of the process's environment, as Windows has it. The C
// library's getenv knows the user's code page only, which holds few of the names that a folder may
// have, and nothing of what was set since the start.
#pragma once

#include <windows.h>

#include <string>

#include "loam/wide_text.h"

namespace loam {

// In UTF-8; empty when there is none of that name, or when it cannot be had: `error` says why then,
// and is 0 else.
inline std::string environment_text(const char* name, DWORD& error) {
    const std::wstring wide_name = wide_text(name);
    std::wstring value;
    ::SetLastError(ERROR_SUCCESS);  // one that is empty leaves it alone
    DWORD length = ::GetEnvironmentVariableW(wide_name.c_str(), nullptr, 0);
    error = length == 0 ? ::GetLastError() : ERROR_SUCCESS;
    if (error == ERROR_ENVVAR_NOT_FOUND) error = ERROR_SUCCESS;
    // For what is too long the system returns the size to come back with; another thread may
    // lengthen it in between.
    while (length > value.size()) {
        value.resize(length);
        length = ::GetEnvironmentVariableW(wide_name.c_str(), value.data(), length);
    }
    return utf8_text({value.data(), length});
}

}  // namespace loam
