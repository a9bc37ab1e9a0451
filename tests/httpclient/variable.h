// variable.h - sets a variable of the environment where the system keeps it. Twins:
// variable_linux.cpp, variable_win.cpp.
#pragma once

// Null takes it away.
void set_variable(const char* name, const char* value);
