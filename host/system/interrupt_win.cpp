// host/system/interrupt_win.cpp - Windows half of host/system/interrupt.h. Linux half:
// host/system/interrupt_linux.cpp.
#include "host/system/interrupt.h"

#include <windows.h>

#include <atomic>
#include <system_error>

namespace pennywort::host {

namespace {

std::atomic<int> g_status{0};
std::atomic<bool> g_is_ending{false};  // a handler waits for the end of the process

bool is_typed(DWORD event) { return event == CTRL_C_EVENT || event == CTRL_BREAK_EVENT; }

// Called by the system on a thread of its own. FALSE leaves it to the system, which ends the
// process. Unless a key was typed it ends the process after this returns, whatever that says, and
// after some seconds in any case: without the wait the film would lose its end. Our own end ends
// the wait.
BOOL WINAPI note(DWORD event) {
    int none = 0;
    const int status = is_typed(event) ? 130 : (event == CTRL_CLOSE_EVENT ? 129 : 143);
    const bool is_first = g_status.compare_exchange_strong(none, status);
    if (!is_typed(event)) {
        g_is_ending = true;
        Sleep(INFINITE);
    }
    return is_first ? TRUE : FALSE;
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
    // The system holds its list of handlers while one of them runs.
    if (g_is_ending) return;
    // It fails only if the handler is not set any more.
    static_cast<void>(SetConsoleCtrlHandler(note, FALSE));
}

int interrupt_watch::status() const { return g_status; }

}  // namespace pennywort::host
