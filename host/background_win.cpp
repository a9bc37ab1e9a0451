// host/background_win.cpp - Windows half of host/background.h. Linux half:
// host/background_linux.cpp.
#include "host/background.h"

#include <windows.h>

namespace pennywort {

// Threads that it starts do not inherit this here; what they do is short.
void work_in_background() { SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_BELOW_NORMAL); }

}  // namespace pennywort
