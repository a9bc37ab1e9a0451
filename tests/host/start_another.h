// tests/host/start_another.h - a program that starts another one and does not wait for it. The
// system's half is start_another_linux.cpp or start_another_win.cpp.
#pragma once

// `arguments` ends with a null; the first is the program's path. The other one gets our input,
// output and error output.
bool start_another(const char* const* arguments);
