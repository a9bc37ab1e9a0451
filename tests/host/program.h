// program.h - runs the host program as its user does, from a shell. Linux only: program_linux.cpp.
#pragma once

#include <cstdlib>
#include <string>

#include "tests/host/temporary_folder.h"

namespace pennywort::host {

struct program_run {
    int status = -1;
    std::string output;
    std::string errors;
};

// What a shell says of how a command ended, from what std::system returned.
int exit_status(int system_result);

// The last line that is not empty.
inline std::string last_line_of(std::string text) {
    while (!text.empty() && text.back() == '\n') text.pop_back();
    return text.substr(text.find_last_of('\n') + 1);
}

// A folder to run in, and the command "pennywort" in it.
class program_folder : public temporary_folder {
public:
    // `script` is for bash. Its output and error output are caught.
    program_run run(const std::string& script) const {
        write("script", "set -o pipefail\ncd '" + path() +
                            "'\npennywort() { '" PENNYWORT_PROGRAM "' \"$@\"; }\n" + script + "\n");
        const std::string command =
            "bash '" + path("script") + "' >'" + path("out.txt") + "' 2>'" + path("err.txt") + "'";
        program_run result;
        result.status = exit_status(std::system(command.c_str()));
        result.output = read("out.txt");
        result.errors = read("err.txt");
        return result;
    }
};

}  // namespace pennywort::host
