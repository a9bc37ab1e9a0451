// host/system/interrupt.h - hears that the user wants the program to end. The system's half is
// interrupt_linux.cpp or interrupt_win.cpp.
#pragma once

namespace pennywort::host {

// While one lives, the first Ctrl-C (or the system's polite request to end, or the loss of the
// terminal or the console window) is only noted, and the program completes its file; the second one
// ends it at once. A program that was started to outlive its terminal, by nohup for instance, goes
// on without it. Where a window was closed, Windows gives a program 5 s. One at a time.
class interrupt_watch {
public:
    interrupt_watch();
    ~interrupt_watch();
    interrupt_watch(const interrupt_watch&) = delete;
    interrupt_watch& operator=(const interrupt_watch&) = delete;

    // 0 as long as nothing was asked, else the exit status that says what was: 130 for Ctrl-C, 143
    // for the request to end, 129 for a terminal or a console window that is gone.
    int status() const;
};

}  // namespace pennywort::host
