// webdisplay_browser_client_inspector.cpp - what a client does for a host that calls its page's
// inspector.
#include <utility>
#include <vector>

#include "webdisplay/client_owner_use.h"
#include "webdisplay/display_state.h"

namespace pennywort::webdisplay {

// Before the page: what the host has asked for so far stands when it is loaded.
void webdisplay_browser_client::make_line(cef_browser_t* browser) {
    std::vector<inspector_call> kept;
    {
        const owner_use owner(*this);
        if (!owner || !owner->m_state->has_inspector) return;
        kept = owner->m_state->calls.take();
    }
    m_line = cef::own<inspector_line>(
        new inspector_line([this](const std::string& method, const std::string& parameters) {
            const owner_use owner(*this);
            if (owner) owner->handle_inspector_event(method.c_str(), parameters.c_str());
        }));
    m_line->browser_arrived(browser);
    m_keeps_calls = is_before_page();
    for (const inspector_call& asked : kept) call_inspector(asked);
}

void webdisplay_browser_client::empty_page_loaded(cef_browser_t* browser) {
    send_first_calls();
    if (m_driver) m_driver->browser_arrived(browser);
}

void webdisplay_browser_client::send_first_calls() {
    m_keeps_calls = false;
    const auto calls = std::exchange(m_first_calls, {});
    m_open_first_calls += calls.size();
    for (const inspector_call& asked : calls) {
        m_line->call({asked.method, asked.parameters, [this, told = asked.told](const auto& text) {
                          if (told) told(text);
                          first_call_answered();
                      }});
    }
}

void webdisplay_browser_client::first_call_answered() {
    if (--m_open_first_calls > 0 || !is_alive()) return;
    if (!std::exchange(m_waits_for_calls, false)) return;
    const owner_use owner(*this);
    if (owner) owner->LoadNextUrl();
}

void webdisplay_browser_client::drop_line() {
    {
        const owner_use owner(*this);
        if (owner) owner->m_state->calls.browser_gone();
    }
    for (const inspector_call& asked : std::exchange(m_first_calls, {})) {
        if (asked.told) asked.told({});
    }
    if (m_line) m_line->close();
    m_line = {};
}

// What the browser begins with has no page yet that could answer, and what was asked for first goes
// out first.
void webdisplay_browser_client::call_inspector(const inspector_call& asked) {
    if (m_line && m_keeps_calls) return m_first_calls.push_back(asked);
    if (m_line) return m_line->call(asked);
    if (asked.told) asked.told({});
}

}  // namespace pennywort::webdisplay
