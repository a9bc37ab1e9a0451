// tests/host/search_path.h - lets a test say where programs are looked for. The system's half is
// search_path_linux.cpp or search_path_win.cpp.
#pragma once

#include <string>

namespace pennywort::host {

void set_search_path(const std::string& folders);

}  // namespace pennywort::host
