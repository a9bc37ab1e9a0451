// host/app/browser_runtime.cpp - see the header for the contract.
#include "host/app/browser_runtime.h"

#include <cstdint>
#include <utility>

#include "webdisplay.h"

namespace pennywort::host {

namespace {

using manager = cWebDisplayCEFBrowserManager;

// What a machine needs that has neither a display nor a GPU: the runtime would look for an X server
// otherwise, and pages would have no WebGL.
constexpr std::pair<const char*, const char*> k_headless_switches[] = {
    {"ozone-platform", "headless"}, {"disable-gpu-compositing", nullptr},   {"use-gl", "angle"},
    {"use-angle", "swiftshader"},   {"enable-unsafe-swiftshader", nullptr},
};

}  // namespace

browser_runtime::browser_runtime(pump_pacing pacing, bool gpu, page_time time,
                                 const runtime_wishes& wishes) {
    manager::SetPacing(pacing == pump_pacing::timer ? cWebDisplayPacing::Timer
                                                    : cWebDisplayPacing::OnRequest);
    // Without it the runtime asks the user and not the client, whatever the client answers: it
    // waits for a prompt that needs a window, and a page that wants a password fails when its
    // display closes. With it the client is asked, refuses, and the page is shown.
    manager::AddCommandLineSwitch("disable-chrome-login-prompt", nullptr);
    if (time == page_time::its_own) manager::EnablePageClock(wishes.seed);
    // Without it a picture may show what the tick before it has set.
    if (time == page_time::ticks_of_ours) manager::EnableExactTicks();
    if (!gpu) {
        for (const auto& [name, value] : k_headless_switches)
            manager::AddCommandLineSwitch(name, value);
    }
    for (const auto& [name, value] : wishes.switches) {
        manager::AddCommandLineSwitch(name.c_str(), value.c_str());
    }
    m_pictures = find_picture_memory();
    m_failure = m_pictures.fault;
    if (!m_failure.empty()) return;
    if (m_pictures.is_in_files) manager::AddCommandLineSwitch("disable-dev-shm-usage", nullptr);
    m_is_up = manager::Startup("");
    if (m_is_up) return;
    zString text;
    manager::GetStartupFailure(text);
    m_failure = text.Empty() ? "the browser runtime does not start" : std::string(text.View());
}

browser_runtime::~browser_runtime() { manager::Shutdown(); }

}  // namespace pennywort::host
