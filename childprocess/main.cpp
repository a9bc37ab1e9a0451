// main.cpp - CEFChildProcess: the browser runtime starts it for its renderer and other processes.
#include <cstdio>
#include <string>

#include "childprocess/page_bridge.h"
#include "core/run/folders.h"
#include "webdisplay/cef/runtime.h"
#include "webdisplay/helper_trial.h"

namespace {

namespace cef = pennywort::cef;
using pennywort::childprocess::child_app;

// The host tries its helper before it starts the runtime, which would end the host if the helper
// failed. It hears of a failure by these words and not by the status, which is not ours to choose:
// a host may have a helper of its own.
int fail(bool is_tried, const std::string& why) {
    if (is_tried) {
        std::printf("%s%s\n", pennywort::webdisplay::k_self_check_failed.data(), why.c_str());
    } else {
        std::fprintf(stderr, "CEFChildProcess: %s\n", why.c_str());
    }
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    const bool is_tried = argc == 2 && argv[1] == pennywort::webdisplay::k_self_check;
    const auto loaded = cef::load(cef::folders(pennywort::run::program_folder()));
    if (!loaded) return fail(is_tried, loaded.text());
    if (is_tried) return 0;
    const cef::own<child_app> app(new child_app);
    const int code = cef::run_helper(argc, argv, app->counted_app());
    if (code >= 0) return code;
    return fail(false, "it is started by the browser runtime, not by hand");
}
