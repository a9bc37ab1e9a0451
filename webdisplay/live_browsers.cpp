// live_browsers.cpp - see the header for the contract.
#include "webdisplay/live_browsers.h"

#include <algorithm>
#include <atomic>
#include <utility>
#include <vector>

#include "webdisplay/native_window.h"

namespace pennywort::webdisplay::live_browsers {

namespace {

std::atomic<int> g_count{0};

struct live_browser {
    cef::ref<cef_browser_t> browser;
    bool was_asked_to_close = false;
};

// Touched on the UI thread only. Never destroyed: a runtime that was left running may be gone when
// the process's statics go.
std::vector<live_browser>& browsers() {
    static auto& list = *new std::vector<live_browser>;
    return list;
}

cef_window_handle_t window_of(const live_browser& entry) {
    const cef::ref<cef_browser_host_t> host(entry.browser->get_host(entry.browser.get()));
    return host ? host->get_window_handle(host.get()) : cef_window_handle_t{};
}

bool window_went_unnoticed(const live_browser& entry) {
    if (native_window::browser_goes_with_its_window()) return false;
    const cef_window_handle_t window = window_of(entry);
    return window != cef_window_handle_t{} && !native_window::exists(window);
}

}  // namespace

void make_room(int more) { browsers().reserve(browsers().size() + static_cast<std::size_t>(more)); }

void expect() {
    make_room(g_count + 1);
    ++g_count;
}
void expect_no_more() { --g_count; }

void arrived(cef_browser_t* browser, bool is_popup) {
    browsers().push_back({cef::ref<cef_browser_t>::shared(browser)});
    if (is_popup) ++g_count;
}

void gone(cef_browser_t* browser) {
    auto& list = browsers();
    const auto found = std::find_if(list.begin(), list.end(), [browser](const auto& other) {
        return cef::same_browser(other.browser.get(), browser);
    });
    if (found == list.end()) return;
    list.erase(found);
    --g_count;
}

int count() { return g_count; }

void close_all() {
    // Collected first, since closing may take a browser out of the list at once.
    std::vector<cef::ref<cef_browser_t>> closing;
    for (auto& entry : browsers()) {
        if (!std::exchange(entry.was_asked_to_close, true)) closing.push_back(entry.browser);
    }
    for (const auto& browser : closing) {
        const cef::ref<cef_browser_host_t> host(browser->get_host(browser.get()));
        if (host) host->close_browser(host.get(), 1);
    }
}

bool any_can_close() {
    const auto lost = std::count_if(browsers().begin(), browsers().end(), window_went_unnoticed);
    return g_count > static_cast<int>(lost);
}

bool any_in_window() {
    return std::any_of(browsers().begin(), browsers().end(), [](const live_browser& entry) {
        return window_of(entry) != cef_window_handle_t{};
    });
}

void forget_all() {
    std::vector<live_browser>().swap(browsers());
    g_count = 0;
}

}  // namespace pennywort::webdisplay::live_browsers
