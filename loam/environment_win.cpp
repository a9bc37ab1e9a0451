// loam/environment_win.cpp - Windows half of loam/environment.h. Linux half: environment_linux.cpp.
// The C library's getenv knows the user's code page only, which holds few of the names that a
// folder may have.
#include <windows.h>

#include "loam/environment.h"
#include "loam/wide_text.h"

namespace loam {

std::string environment_variable(const char* name) {
    const std::wstring wide_name = wide_text(name);
    std::wstring value;
    DWORD length = GetEnvironmentVariableW(wide_name.c_str(), nullptr, 0);
    // For what is too long the system returns the size to come back with; another thread may
    // lengthen it in between.
    while (length > value.size()) {
        value.resize(length);
        length = GetEnvironmentVariableW(wide_name.c_str(), value.data(), length);
    }
    return utf8_text({value.data(), length});
}

}  // namespace loam
