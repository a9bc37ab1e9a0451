// main.cpp - CEFChildProcess: the browser runtime starts it for its renderer and other processes.
#include <cstdio>
#include <cstring>
#include <string>

#include "childprocess/page_bridge.h"
#include "webdisplay/cef/runtime.h"
#include "webdisplay/host_environment.h"

int main(int argc, char** argv) {
    namespace cef = pennywort::cef;
    using pennywort::childprocess::child_app;
    std::string failure;
    if (!cef::load(cef::folders(pennywort::webdisplay::program_folder()), failure)) {
        std::fprintf(stderr, "CEFChildProcess: %s\n", failure.c_str());
        return 1;
    }
    // The host asks before it starts the runtime, which would end the host if the helper failed.
    if (argc == 2 && std::strcmp(argv[1], "--self-check") == 0) return 0;
    const cef::own<child_app> app(new child_app);
    const int code = cef::run_helper(argc, argv, app->counted_app());
    if (code >= 0) return code;
    std::fprintf(stderr, "CEFChildProcess: it is started by the browser runtime, not by hand\n");
    return 2;
}
