// host/fetch/fetch.h - "pennywort fetch": one HTTP request, its body to a file or standard output.
#pragma once

#include "host/fetch/fetch_options.h"
#include "host/system/console.h"

namespace pennywort::host {

// Returns the exit status; what went wrong has been told in one line by then.
int fetch(const fetch_options& options, const console& out);

}  // namespace pennywort::host
