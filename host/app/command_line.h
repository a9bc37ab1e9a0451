// host/app/command_line.h - reads the program's arguments.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/app/command.h"

namespace pennywort::host {

struct command_line {
    enum class verdict {
        run,    // `chosen` has taken its arguments
        say,    // print `text` and end: help, or the version
        refuse  // print `text` as an error and end
    };
    verdict what = verdict::refuse;
    std::string text;                 // one line where it is an error
    std::unique_ptr<command> chosen;  // null unless it is to run
};

// `arguments` without the program's name. Nothing has begun yet when something is missing.
command_line parse_command_line(const std::vector<std::string>& arguments);

}  // namespace pennywort::host
