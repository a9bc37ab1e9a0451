// runtime.h - the browser runtime's functions, bound by name when the library is found.
#pragma once

#include <string>
#include <vector>

#include "cef_abi.h"
#include "core/outcome.h"
#include "webdisplay/cef/functions.h"
#include "webdisplay/cef/ref.h"

namespace pennywort::cef {

struct function_table {
#define PENNYWORT_CEF_MEMBER(name) cef_function::name* name = nullptr;
    PENNYWORT_CEF_FUNCTIONS(PENNYWORT_CEF_MEMBER)
#undef PENNYWORT_CEF_MEMBER
};

// The bound functions; all null while no runtime is loaded.
const function_table& api() noexcept;

// Whether a runtime is bound.
bool loaded() noexcept;

// Opens the runtime's library in the first of `folders` that has one and binds its functions, all
// or none. The library stays loaded until the process ends, since its threads outlive its
// shut-down. A failure says what is wrong and what to do. Successful at once when a runtime is
// bound.
outcome<> load(const std::vector<std::string>& folders);

// Where to look, in this order: the folder that CEF_ROOT names, if it is set, and beside the
// program.
std::vector<std::string> folders(const std::string& program_folder);

// Starts the runtime, at most once in a process: it cannot be initialised a second time. Afterwards
// the process's signal handlers are as they were, and the runtime's sources that would keep a loop
// of the host spinning are gone.
outcome<> start(cef_settings_t& settings, ref<cef_app_t> app);

// For the application's first call from within `start`: the host's handlers of a wish to end, which
// the runtime has taken away by then, are back until it sets its own.
void hear_wishes_meanwhile();

// Ends the runtime. Harmless if it does not run, or twice.
void stop();

// Whether start was successful and stop has not been called since.
bool running() noexcept;

// One step of the runtime's message loop; nothing if there is no runtime. Display thread.
void work();

// Whether the calling thread is the runtime's UI thread, which is the display thread.
bool on_ui_thread() noexcept;

// Runs the runtime's helper process to its end and returns its exit code; -1 in the main process.
int run_helper(int argc, char** argv, cef_app_t* app);

}  // namespace pennywort::cef
