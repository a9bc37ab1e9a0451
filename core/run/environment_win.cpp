// environment_win.cpp - Windows half of environment.h. Linux half: environment_linux.cpp.
#include "core/run/environment.h"

#include <windows.h>

#include "loam/trace.h"
#include "loam/wide_text.h"

namespace pennywort::run {

std::string environment_variable(const char* name) {
    const std::wstring wide_name = loam::wide_text(name);
    std::wstring value;
    ::SetLastError(ERROR_SUCCESS);  // one that is empty leaves it alone
    DWORD length = ::GetEnvironmentVariableW(wide_name.c_str(), nullptr, 0);
    const DWORD error = length == 0 ? ::GetLastError() : ERROR_SUCCESS;
    if (error != ERROR_SUCCESS && error != ERROR_ENVVAR_NOT_FOUND) {
        zTraceManager::Default()->TraceNote("%s: GetEnvironmentVariableW failed (err=%lu)\n", name,
                                            error);
    }
    // For what is too long the system returns the size to come back with; another thread may
    // lengthen it in between.
    while (length > value.size()) {
        value.resize(length);
        length = ::GetEnvironmentVariableW(wide_name.c_str(), value.data(), length);
    }
    return loam::utf8_text({value.data(), length});
}

}  // namespace pennywort::run
