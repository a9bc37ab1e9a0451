// tests/host/search_path_linux.cpp - Linux half of tests/host/search_path.h. Windows half:
// tests/host/search_path_win.cpp.
#include "tests/host/search_path.h"

#include <cstdlib>

namespace pennywort::host {

void set_search_path(const std::string& folders) { setenv("PATH", folders.c_str(), 1); }

}  // namespace pennywort::host
