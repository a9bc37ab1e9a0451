// host/system/interrupt_win.cpp - Windows half of host/system/interrupt.h. Linux half:
// host/system/interrupt_linux.cpp.
#include "host/system/interrupt.h"

#include <windows.h>

#include <atomic>
#include <system_error>

namespace pennywort::host {

namespace {

std::atomic<int> g_status{0};

// Called by the system on a thread of its own. FALSE leaves it to the system, which ends the
// process.
BOOL WINAPI note(DWORD event) {
    int none = 0;
    const int status = event == CTRL_C_EVENT || event == CTRL_BREAK_EVENT ? 130 : 143;
    return g_status.compare_exchange_strong(none, status) ? TRUE : FALSE;
}

}  // namespace

interrupt_watch::interrupt_watch() {
    g_status = 0;
    if (SetConsoleCtrlHandler(note, TRUE)) return;
    const auto error = static_cast<int>(GetLastError());
    // Without the handler Ctrl-C would cut off the file that is being written.
    throw std::system_error(error, std::system_category(), "cannot hear Ctrl-C");
}

interrupt_watch::~interrupt_watch() {
    // It fails only if the handler is not set any more.
    static_cast<void>(SetConsoleCtrlHandler(note, FALSE));
}

int interrupt_watch::status() const { return g_status; }

}  // namespace pennywort::host
