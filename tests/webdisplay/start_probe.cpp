// start_probe.cpp - a host of a few lines that tests run as another process: it starts the fake
// runtime, says what became of that, and ends. With the argument "abandon" it ends without a word
// to the runtime, as a host that crashes does.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "tests/fakes/fake_cef.h"
#include "webdisplay.h"

int main(int argc, char** argv) {
    const bool started = cWebDisplayCEFBrowserManager::Startup("");
    zString failure;
    cWebDisplayCEFBrowserManager::GetStartupFailure(failure);
    const fake_cef_settings settings = fake_cef_control()->settings();
    std::printf("started %d\n", started);
    std::printf("initialised %d\n", cWebDisplayCEFBrowserManager::IsInitialized());
    std::printf("failure %s\n", failure.CString());
    std::printf("cache %s\n", settings.cache_path.c_str());
    std::printf("cache exists %d\n", std::filesystem::is_directory(settings.cache_path));
    std::fflush(stdout);
    if (argc > 1 && std::strcmp(argv[1], "abandon") == 0) std::_Exit(0);

    cWebDisplayBrowser* display = cWebDisplayCEFBrowserManager::CreateBrowser({}, 25);
    std::printf("display %d\n", display != nullptr);
    std::printf("opened %d\n", display && display->Open());
    if (display) display->Release();
    cWebDisplayCEFBrowserManager::Shutdown();
    for (const auto& rule : fake_cef_control()->violations())
        std::printf("broken %s\n", rule.c_str());
    std::printf("leaks %s\n", fake_cef_control()->leaks().c_str());
    return 0;
}
