// start_probe.cpp - a host of a few lines that tests run as another process, in a folder laid out
// as they want it. It starts the runtime and says what became of that; it shows a page, or goes on
// as a host does that has no pages; and it ends. With the argument "stay" it ends when it is
// killed, or when its standard input does.
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "harness.h"
#include "loam/message_loop.h"
#include "loam/trace.h"

namespace {

using namespace pennywort::runtime_test;
using manager = cWebDisplayCEFBrowserManager;

bool start(const char* which) {
    const bool started = manager::Startup("");
    zString failure;
    manager::GetStartupFailure(failure);
    std::printf("%s %d %d %s\n", which, started, manager::IsInitialized(), failure.CString());
    return started;
}

// Folders that a host keeps its data in only as long as it runs.
int private_folders() {
    int count = 0;
    for (const auto& entry :
         std::filesystem::directory_iterator(std::filesystem::temp_directory_path())) {
        if (entry.path().filename().string().starts_with("TarnhelmCache-")) ++count;
    }
    return count;
}

void show_a_page() {
    shown_page page({.url = colour_url("#0f0")});
    const bool painted = page.wait_for_colour(k_green);
    std::printf("painted %d\nprivate folders %d\n", painted, private_folders());
}

void go_on_without_pages() {
    kept_frames frames;
    cWebDisplayCEFBrowser* display = make_display({.url = animated_url(), .host_clock = true});
    display->SetVideoRenderer(&frames);
    const bool opened = display->Open();
    display->LoadUrl("http://host.example/");
    display->LoadNextUrl();
    display->SetSize(7, 7);
    display->SetVisibility(false);
    display->SetVisibility(true);
    display->Repaint();
    display->DeleteCookies("");
    const bool ticked = display->NextFrame();
    const long sent =
        display->ExecuteJavascript(zString("1"), 0, std::function<void(std::string)>());
    manager::SetCanRunCefMessageLoopFn([] { return true; });
    run_loop_for(100);
    const bool loading = display->IsLoading();
    display->Close();
    display->SetVideoRenderer(nullptr);
    const long left = display->Release();
    std::printf("opened %d ticked %d sent %ld loading %d frames %ld left %ld\n", opened, ticked,
                sent, loading, frames.count(), left);
}

}  // namespace

int main(int argc, char** argv) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    zTraceManager::Default()->SetSink([](const char* text) { std::printf("trace %s", text); });
    add_headless_switches();
    start("start") ? show_a_page() : go_on_without_pages();
    if (argc > 1 && std::strcmp(argv[1], "stay") == 0) {
        while (std::getchar() != EOF) {
        }
    }
    manager::Shutdown();
    start("again");
    manager::Shutdown();
    zTraceManager::Default()->SetSink({});
    std::printf("end\n");
    return 0;
}
