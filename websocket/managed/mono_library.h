// mono_library.h - under which names the managed runtime is found. Twins: mono_library_linux.cpp,
// mono_library_win.cpp.
#pragma once

#include <vector>

namespace pennywort::websocket {

// In the order in which they are tried.
std::vector<const char*> mono_library_names();

// Lets the native half of the runtime's own libraries find the runtime's names, where the system
// does not do so by itself. After the library has been loaded under that name.
void show_mono_names(const char* name);

}  // namespace pennywort::websocket
