// variable_win.cpp - Windows half of variable.h. Linux half: variable_linux.cpp.
#include "tests/httpclient/variable.h"

#include <windows.h>

// Not by the C library, which would have a copy of its own.
void set_variable(const char* name, const char* value) { ::SetEnvironmentVariableA(name, value); }
