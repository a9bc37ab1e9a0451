// live_browsers.cpp - see the header for the contract.
#include "webdisplay/live_browsers.h"

#include <algorithm>
#include <atomic>
#include <vector>

namespace pennywort::live_browsers {

namespace {

std::atomic<int> g_count{0};

// Touched on the UI thread only.
std::vector<cef_ref<cef_browser_t>>& browsers() {
    static std::vector<cef_ref<cef_browser_t>> list;
    return list;
}

}  // namespace

void expect() { ++g_count; }
void expect_no_more() { --g_count; }

void arrived(cef_browser_t* browser, bool is_popup) {
    if (is_popup) ++g_count;
    browsers().push_back(cef_ref<cef_browser_t>::shared(browser));
}

void gone(cef_browser_t* browser) {
    auto& list = browsers();
    const auto found = std::find_if(list.begin(), list.end(), [browser](const auto& other) {
        // The runtime takes over the reference of an argument.
        return other->is_same(other.get(), cef_ref<cef_browser_t>::shared(browser).release()) != 0;
    });
    if (found == list.end()) return;
    list.erase(found);
    --g_count;
}

int count() { return g_count; }

void close_all() {
    // A copy, since closing may take a browser out of the list at once.
    const auto list = browsers();
    for (const auto& browser : list) {
        const cef_ref<cef_browser_host_t> host(browser->get_host(browser.get()));
        if (host) host->close_browser(host.get(), 1);
    }
}

}  // namespace pennywort::live_browsers
