// runtime_system.h - what of starting the browser runtime differs by system.
// Twins: runtime_system_win.cpp, runtime_system_linux.cpp.
#pragma once

#include <memory>
#include <string>

#include "cef_abi.h"

namespace pennywort::cef {

// File name of the runtime's library.
const char* library_name() noexcept;

// How a user of this system installs the runtime in a folder that was named just before: the words
// that follow "install it".
const char* how_to_install() noexcept;

// `path` with links followed, since the runtime looks for its data beside the file that was opened;
// empty when there is no such file.
std::string real_file(const std::string& path);

// The main arguments of this program.
cef_main_args_t main_args() noexcept;

// The same for a helper process, with the command line that it was started with.
cef_main_args_t main_args(int argc, char** argv) noexcept;

// Whether the runtime's own message pump must be kept out even where work is done by a timer: on
// Linux it would dispatch the host's event sources within the runtime's work.
bool uses_external_pump() noexcept;

// Keeps what the runtime's start changes in the process and the host relies on: made before it,
// and `restore` called after it. Signal handlers and the thread's blocked signals go back, a wish
// to end that the runtime kept to itself is passed on to them, and event sources that would spin
// the host's loop go away. The environment is prepared so that no other thread moves it.
class startup_guard {
public:
    static std::unique_ptr<startup_guard> make();
    virtual ~startup_guard() = default;
    // The runtime has taken the process's handlers away and lets each signal through, and sets its
    // own handlers only a tenth of a second later; a wish to end that comes in between would end
    // the process at once. Called as early as the runtime lets us: the threads that the runtime
    // makes from here on hold back what the host's thread does.
    virtual void hear_meanwhile() = 0;
    virtual void restore(bool is_started) = 0;
};

}  // namespace pennywort::cef
