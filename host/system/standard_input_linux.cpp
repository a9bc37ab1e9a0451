// host/system/standard_input_linux.cpp - Linux half of host/system/standard_input.h. Windows half:
// standard_input_win.cpp.
#include "host/system/standard_input.h"

namespace pennywort::host {

std::FILE* standard_input() { return stdin; }

}  // namespace pennywort::host
