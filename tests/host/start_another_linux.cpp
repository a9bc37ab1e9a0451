// tests/host/start_another_linux.cpp - Linux half of start_another.h. Windows half:
// start_another_win.cpp.
#include "tests/host/start_another.h"

#include <spawn.h>

extern char** environ;

bool start_another(const char* const* arguments) {
    pid_t other = 0;
    return posix_spawn(&other, arguments[0], nullptr, nullptr, const_cast<char* const*>(arguments),
                       environ) == 0;
}
