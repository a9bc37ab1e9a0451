// host/system/standard_input.h - the program's standard input as bytes. The system's half is
// standard_input_linux.cpp or standard_input_win.cpp.
#pragma once

#include <cstdio>

namespace pennywort::host {

// Nothing is changed on its way in, and no byte is its end.
std::FILE* standard_input();

}  // namespace pennywort::host
