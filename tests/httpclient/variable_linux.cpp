// variable_linux.cpp - Linux half of variable.h. Windows half: variable_win.cpp.
#include "tests/httpclient/variable.h"

#include <cstdlib>

void set_variable(const char* name, const char* value) {
    if (value == nullptr) {
        ::unsetenv(name);
    } else {
        ::setenv(name, value, 1);
    }
}
