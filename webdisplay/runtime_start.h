// runtime_start.h - starts the browser runtime after looking at everything that would make it end
// or hang the host.
#pragma once

#include <memory>
#include <vector>

#include "core/outcome.h"
#include "webdisplay/cache_folder.h"
#include "webdisplay/main_thread_timer.h"
#include "webdisplay/webdisplay_cef_app.h"

namespace pennywort::webdisplay {

// Starts the runtime on this thread. The folder that it keeps its data in must outlive it, and is
// given up with the object. A failure says what is wrong and what to do, and leaves nothing behind
// but a library that was opened.
//
// `on_request` gets the runtime's requests for work; null where nobody wants them.
outcome<std::unique_ptr<cache_folder>> start_runtime(
    const std::vector<command_line_switch>& switches,
    const std::shared_ptr<main_thread_timer>& on_request);

}  // namespace pennywort::webdisplay
