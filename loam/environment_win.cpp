// loam/environment_win.cpp - Windows half of loam/environment.h. Linux half: environment_linux.cpp.
#include "loam/environment.h"

#include "loam/environment_text.h"

namespace loam {

// Without a trace of a failure: traces ask here where they are to go.
std::string environment_variable(const char* name) {
    DWORD error = 0;
    return environment_text(name, error);
}

}  // namespace loam
