// hostile_page.h - what the tests of pages that mean no good share.
#pragma once

#include "harness.h"
#include "peer.h"

namespace pennywort::runtime_test {

class HostilePage : public RuntimeTest {
protected:
    void prepare() override {
        // Where the machine has no camera, pages would be refused for that reason only; and the
        // runtime's own guard against windows without a click stands before ours.
        cWebDisplayCEFBrowserManager::AddCommandLineSwitch("use-fake-device-for-media-stream", "");
        cWebDisplayCEFBrowserManager::AddCommandLineSwitch("disable-popup-blocking", "");
    }

    peer m_peer;
};

// One spare may stand by for the next page.
inline bool at_most_a_spare_renderer() {
    return wait_for([] { return processes_below("renderer").size() <= 1; });
}

inline constexpr std::string_view k_green_page = "<body style='margin:0;background:#0f0'>";

// `url` is that page, wherever it comes from.
inline void expect_to_show(shown_page& page, const std::string& url) {
    page->LoadUrl(url.c_str());
    EXPECT_TRUE(wait_for([&] { return page.events.has_loaded(url); }))
        << testing::PrintToString(page.events.failed);
    EXPECT_TRUE(page.wait_for_colour(k_green));
}

}  // namespace pennywort::runtime_test
