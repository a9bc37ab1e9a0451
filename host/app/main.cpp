// host/app/main.cpp - the pennywort program.
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/app/command_line.h"
#include "host/app/exit_status.h"
#include "host/system/console.h"
#include "loam/trace.h"

namespace {

using pennywort::host::command_line;
using pennywort::host::console;

int say(const std::string& text) {
    const bool is_written = std::fputs(text.c_str(), stdout) >= 0;
    if (std::fflush(stdout) == 0 && is_written) return pennywort::host::k_exit_fine;
    std::fputs("pennywort: standard output takes nothing\n", stderr);
    return pennywort::host::k_exit_failed;
}

// What the library finds out of a plug-in that no browser has any more.
constexpr std::string_view k_of_no_use = "Flash Plugin Detected";

// While it lives, traces go to standard error. A user who has named a file for them looks there
// instead.
class heard_traces {
public:
    explicit heard_traces(std::FILE* errors) {
        zTraceManager::Default()->SetSink([errors](const char* message) {
            const std::string_view text(message);
            if (text.starts_with(k_of_no_use)) return;
            std::fputs(message, errors);
            if (!text.ends_with('\n')) std::fputc('\n', errors);
        });
    }
    ~heard_traces() { zTraceManager::Default()->SetSink({}); }
    heard_traces(const heard_traces&) = delete;
    heard_traces& operator=(const heard_traces&) = delete;
};

int run(const std::vector<std::string>& arguments) {
    const auto line = pennywort::host::parse_command_line(arguments);
    if (line.what == command_line::verdict::say) return say(line.text);
    if (line.what == command_line::verdict::refuse) {
        std::fprintf(stderr, "pennywort: %s\n", line.text.c_str());
        return pennywort::host::k_exit_usage;
    }
    using others = console::others;
    const console out(line.chosen->hears_browser() ? others::heard : others::quiet);
    std::optional<heard_traces> traces;
    const bool has_place = std::getenv("LOAM_TRACE") != nullptr;
    if (line.chosen->is_verbose() && !has_place) traces.emplace(out.errors());
    return line.chosen->run(out);
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
