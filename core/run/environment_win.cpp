// environment_win.cpp - Windows half of environment.h. Linux half: environment_linux.cpp.
#include "core/run/environment.h"

#include "loam/environment_text.h"
#include "loam/trace.h"

namespace pennywort::run {

std::string environment_variable(const char* name) {
    DWORD error = 0;
    std::string value = loam::environment_text(name, error);
    if (error != 0) {
        zTraceManager::Default()->TraceNote("%s: GetEnvironmentVariableW failed (err=%lu)\n", name,
                                            error);
    }
    return value;
}

}  // namespace pennywort::run
