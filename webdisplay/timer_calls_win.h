// timer_calls_win.h - the calls of the system's that main_thread_timer_win.cpp makes through
// pointers, so that a test can have them fail: neither a full queue nor a lack of timers can be had
// wherever tests run.
#pragma once

#include <windows.h>

namespace pennywort::webdisplay::timer_calls {

// Written by tests only, while no timer is there.
extern decltype(&PostMessageW) post_message;
extern decltype(&CreateWaitableTimerExW) create_waitable_timer;

}  // namespace pennywort::webdisplay::timer_calls
