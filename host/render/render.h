// host/render/render.h - "pennywort render": shows pages, takes their frames, writes them.
#pragma once

#include "host/render/render_options.h"
#include "host/system/console.h"

namespace pennywort::host {

// One run from beginning to end, on the calling thread, which becomes the display thread. Returns
// the exit status; what went wrong has been told in one line on the console by then. Once in a
// process, since the browser runtime cannot be started twice.
int render(const render_options& options, const console& out);

}  // namespace pennywort::host
