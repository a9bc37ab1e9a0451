// timer_calls_win.h - the call of the system's that main_thread_timer_win.cpp makes through a
// pointer, so that a test can have it fail: a full queue cannot be had wherever tests run.
#pragma once

#include <windows.h>

namespace pennywort::webdisplay::timer_calls {

// Written by tests only, while no timer is there.
extern decltype(&PostMessageW) post_message;

}  // namespace pennywort::webdisplay::timer_calls
