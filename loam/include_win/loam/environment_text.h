// loam/environment_text.h - a variable of the process's environment, as Windows has it. The C
// library's getenv knows the user's code page only, which holds few of the names that a folder may
// have, and nothing of what was set since the start.
#pragma once

#include <windows.h>

#include <string>

#include "loam/wide_text.h"

namespace loam {

// In UTF-8; empty when there is none of that name, or when it cannot be had: `error` says why then,
// and is 0 else. Tests put a call of their own in the place of the system's.
inline std::string environment_text(
    const char* name, DWORD& error,
    decltype(&::GetEnvironmentVariableW) read = &::GetEnvironmentVariableW) {
    const std::wstring wide_name = wide_text(name);
    std::wstring value;
    DWORD length = 0;
    // For what is too long the system returns the size to come back with. Another thread may
    // lengthen the variable in between, or remove it.
    do {
        value.resize(length);
        ::SetLastError(ERROR_SUCCESS);  // one that is empty leaves it alone
        length = read(wide_name.c_str(), value.data(), static_cast<DWORD>(value.size()));
        error = length == 0 ? ::GetLastError() : ERROR_SUCCESS;
    } while (length > value.size());
    if (error == ERROR_ENVVAR_NOT_FOUND) error = ERROR_SUCCESS;
    return utf8_text({value.data(), length});
}

}  // namespace loam
