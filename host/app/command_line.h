// host/app/command_line.h - reads the program's arguments.
#pragma once

#include <string>
#include <vector>

#include "host/live/live.h"
#include "host/render/render_options.h"

namespace pennywort::host {

// The exit statuses of the program. An interrupted run ends with 128 and the signal's number.
enum exit_status : int {
    k_exit_fine = 0,
    k_exit_failed = 1,
    k_exit_usage = 2,
};

struct command_line {
    enum class verdict {
        render,
        live,
        say,    // print `text` and end: help, or the version
        refuse  // print `text` as an error and end
    };
    verdict what = verdict::refuse;
    std::string text;  // one line where it is an error
    render_options options;
    live_options live;
};

// `arguments` without the program's name. Also reads the files that the options name, and looks for
// the pages that are files, so that nothing has begun yet when something is missing.
command_line parse_command_line(const std::vector<std::string>& arguments);

}  // namespace pennywort::host
