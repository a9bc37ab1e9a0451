// host/app/main.cpp - the pennywort program.
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "host/app/command_line.h"
#include "host/live/live.h"
#include "host/render/render.h"
#include "host/system/console.h"

namespace {

using pennywort::host::command_line;

int run(const std::vector<std::string>& arguments) {
    const auto line = pennywort::host::parse_command_line(arguments);
    if (line.what == command_line::verdict::say) {
        std::fputs(line.text.c_str(), stdout);
        return std::fflush(stdout) == 0 ? pennywort::host::k_exit_fine
                                        : pennywort::host::k_exit_failed;
    }
    if (line.what == command_line::verdict::refuse) {
        std::fprintf(stderr, "pennywort: %s (pennywort COMMAND --help lists the options)\n",
                     line.text.c_str());
        return pennywort::host::k_exit_usage;
    }
    using others = pennywort::host::console::others;
    const bool verbose = line.options.verbose || line.live.verbose;
    const pennywort::host::console out(verbose ? others::heard : others::quiet);
    if (line.what == command_line::verdict::live) return pennywort::host::live(line.live, out);
    return pennywort::host::render(line.options, out);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(std::vector<std::string>(argv + 1, argv + argc));
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "pennywort: %s\n", problem.what());
        return pennywort::host::k_exit_failed;
    }
}
