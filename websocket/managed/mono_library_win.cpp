// mono_library_win.cpp - Windows half of mono_library.h. Linux half: mono_library_linux.cpp.
#include "websocket/managed/mono_library.h"

namespace pennywort::websocket {

// The second is where Mono's own installer puts it.
std::vector<const char*> mono_library_names() {
    return {"mono-2.0-sgen.dll", "C:\\Program Files\\Mono\\bin\\mono-2.0-sgen.dll"};
}

void show_mono_names(const char*) {}

}  // namespace pennywort::websocket
