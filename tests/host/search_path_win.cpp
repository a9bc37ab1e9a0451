// tests/host/search_path_win.cpp - Windows half of tests/host/search_path.h. Linux half:
// tests/host/search_path_linux.cpp.
#include "tests/host/search_path.h"

#include <cstdlib>

namespace pennywort::host {

void set_search_path(const std::string& folders) { _putenv_s("PATH", folders.c_str()); }

}  // namespace pennywort::host
