// plugin.cpp - a library for the tests to load at run time.
#include "loam/export.h"

extern "C" LOAM_API int plugin_answer();
int plugin_answer() { return 42; }
