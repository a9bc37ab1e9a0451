// host/system/background.h - lets a thread give way to the others. The system's half is
// background_linux.cpp or background_win.cpp.
#pragma once

namespace pennywort::host {

// The calling thread, and threads that it starts from then on, run below the usual priority: for
// work that can wait, beside a page that cannot. Where the system refuses, nothing changes.
void work_in_background();

}  // namespace pennywort::host
