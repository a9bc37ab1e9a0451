// mono_library_linux.cpp - Linux half of mono_library.h. Windows half: mono_library_win.cpp.
#include "websocket/managed/mono_library.h"

#include <dlfcn.h>

#include "loam/trace.h"

namespace pennywort::websocket {

std::vector<const char*> mono_library_names() {
    return {"libmonosgen-2.0.so.1", "libmonosgen-2.0.so"};
}

// It is there already and stays; this only widens who sees it.
void show_mono_names(const char* name) {
    if (::dlopen(name, RTLD_NOW | RTLD_GLOBAL) == nullptr) {
        zTraceManager::Default()->TraceNote("cWebSocket_Sharp: dlopen failed (%s)\n", ::dlerror());
    }
}

}  // namespace pennywort::websocket
