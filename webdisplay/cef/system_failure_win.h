// system_failure_win.h - a failure of one of the system's calls, told in a trace. For Windows
// halves.
#pragma once

#include <windows.h>

#include "loam/trace.h"

namespace pennywort::cef {

// `error` is read at once: every call in between, a destructor's too, may change it.
inline void trace_failure(const char* call, DWORD error) {
    zTraceManager::Default()->TraceNote("cWebDisplayCEFBrowserManager: %s - failed (err=%lu)\n",
                                        call, error);
}

// For a call that has just returned.
inline void check(bool is_done, const char* call) {
    if (is_done) return;
    const DWORD error = GetLastError();
    trace_failure(call, error);
}

}  // namespace pennywort::cef
