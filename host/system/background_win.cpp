// host/system/background_win.cpp - Windows half of host/system/background.h. Linux half:
// host/system/background_linux.cpp.
#include "host/system/background.h"

#include <windows.h>

namespace pennywort::host {

// Threads that it starts do not inherit this here; what they do is short.
void work_in_background() {
    // Where this fails the work is done at the usual priority.
    static_cast<void>(SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_BELOW_NORMAL));
}

}  // namespace pennywort::host
