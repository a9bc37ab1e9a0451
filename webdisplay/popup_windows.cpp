// popup_windows.cpp - see the header for the contract.
#include "webdisplay/popup_windows.h"

#include "webdisplay/browser_calls.h"

namespace pennywort::webdisplay {

bool popup_windows::is_full(std::int32_t most) const {
    return most > 0 && m_windows.size() >= static_cast<std::size_t>(most);
}

void popup_windows::make_room() { m_windows.reserve(m_windows.size() + 1); }

void popup_windows::opened(cef_browser_t* browser) {
    m_windows.push_back(cef::ref<cef_browser_t>::shared(browser));
}

void popup_windows::closed(cef_browser_t* browser) {
    std::erase_if(m_windows,
                  [browser](const auto& other) { return cef::same_browser(other.get(), browser); });
}

void popup_windows::close_all() {
    const auto windows = m_windows;
    for (const auto& window : windows) close_soon(window.get());
}

}  // namespace pennywort::webdisplay
