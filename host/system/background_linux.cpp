// host/system/background_linux.cpp - Linux half of host/system/background.h. Windows half:
// host/system/background_win.cpp.
#include "host/system/background.h"

#include <sys/resource.h>
#include <unistd.h>

namespace pennywort::host {

namespace {

constexpr int k_priority = 10;

}  // namespace

// On this system the priority of a "process" is that of the thread with that number.
void work_in_background() {
    // Where this fails the work is done at the usual priority.
    static_cast<void>(::setpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()), k_priority));
}

}  // namespace pennywort::host
