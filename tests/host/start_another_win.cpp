// tests/host/start_another_win.cpp - Windows half of start_another.h. Linux half:
// start_another_linux.cpp.
#include "tests/host/start_another.h"

#include <process.h>

bool start_another(const char* const* arguments) {
    return _spawnv(_P_NOWAIT, arguments[0], arguments) != -1;
}
