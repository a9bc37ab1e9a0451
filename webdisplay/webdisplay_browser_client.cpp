// webdisplay_browser_client.cpp - a client from its browser's arrival to its end, and what its page
// is not let do. What else it does stands in files of their own, webdisplay_browser_client_*.cpp.
#include "webdisplay/webdisplay_browser_client.h"

#include <mutex>
#include <utility>

#include "core/run/guarded.h"
#include "loam/trace.h"
#include "webdisplay/browser_calls.h"
#include "webdisplay/client_owner_use.h"
#include "webdisplay/display_state.h"
#include "webdisplay/host_environment.h"
#include "webdisplay/live_browsers.h"
#include "webdisplay/native_window.h"
#include "webdisplay/request_filter.h"

namespace pennywort::webdisplay {

namespace {

// Of a silent page nobody hears anything.
std::shared_ptr<sound_port> port_of(const display_state& state) {
    return state.is_muted ? nullptr : state.sound;
}

// What of a page by its own clock sounds by the machine's belongs nowhere, least of all into the
// room.
cef::own<page_sound> sound_of(const display_state& state) {
    auto port = port_of(state);
    if (port != nullptr && state.is_on_page_clock) port = std::make_shared<sound_port>();
    return cef::own<page_sound>(port != nullptr ? new page_sound(std::move(port)) : nullptr);
}

}  // namespace

webdisplay_browser_client::webdisplay_browser_client(cWebDisplayCEFBrowser* owner,
                                                     std::string start_url,
                                                     std::shared_ptr<zSignal> ended)
    : m_owner(owner),
      m_start_url(std::move(start_url)),
      m_refuses_downloads(owner->m_state->refuses_downloads),
      m_is_muted(owner->m_state->is_muted),
      m_sound(sound_of(*owner->m_state)),
      m_life(std::move(ended)),
      m_has_page_receiver(owner->m_state->has_page_receiver),
      m_is_on_page_clock(owner->m_state->is_on_page_clock && owner->m_windowless),
      m_page_day(owner->m_state->page_day),
      m_page_start(owner->m_state->page_start),
      m_scale(owner->m_state->scale),
      m_merges_widgets(owner->m_state->merges_widgets),
      m_own_sound(port_of(*owner->m_state)) {
    // As in shared_life. Tried first: the display's own lock is held here, and elsewhere that comes
    // behind this one. Nobody else has this one yet, so only for want of memory it cannot be had.
    const std::unique_lock<std::recursive_mutex> made(m_owner_lock, std::try_to_lock);
    if (!made) m_owner_lock.lock();
}

void webdisplay_browser_client::begin_empty() { m_waits_for_calls = !m_is_on_page_clock; }

void webdisplay_browser_client::set_alive() { m_alive.CompareAndSet(0, 1); }

void webdisplay_browser_client::detach() {
    const std::lock_guard<std::recursive_mutex> guard(m_owner_lock);
    m_owner = nullptr;
}

// A click on a link to a new window goes to the user's own browser. Windows that script opens by
// itself are left to the runtime: off screen and unseen where the page is. A page by its own clock
// has no user: what it does as one it does for the host's inspector.
bool webdisplay_browser_client::OnBeforePopup(cef_browser_t*, const std::string& target_url,
                                              bool user_gesture, cef_window_info_t& window_info,
                                              cef::ref<cef_dictionary_value_t>& extra_info) {
    if (user_gesture && !m_is_on_page_clock) {
        open_in_system(target_url);
        return true;
    }
    const owner_use owner(*this);
    if (!owner) return true;
    if (m_popups.is_full(owner->m_state->max_popups)) return true;
    // It arrives without memory, or does not come at all.
    m_popups.make_room();
    live_browsers::make_room(live_browsers::count() + 1);
    extra_info = told_to_page(owner->m_state->terms);
    if (owner->m_windowless) window_info.windowless_rendering_enabled = 1;
    return false;
}

void webdisplay_browser_client::popup_created(cef_browser_t* browser) {
    m_popups.opened(browser);
    const owner_use owner(*this);
    if (!owner) return close_soon(browser);
    const cef::ref<cef_browser_host_t> host(browser->get_host(browser));
    if (host && owner->m_windowless) host->was_hidden(host.get(), 1);
}

// The URL that the browser was created with still stands at the front of the queue; popping it
// here, whether it must be loaded or not, is what takes it out.
bool webdisplay_browser_client::take_over_browser(cWebDisplayCEFBrowser& owner,
                                                  cef_browser_t* browser, std::string& url) {
    const zAutoCritical lock(owner.m_state_lock.get());
    if (!m_life.arrive()) return false;
    if (owner.m_cef_state != nullptr && !owner.m_cef_state->browser) {
        owner.m_cef_state->browser = cef::ref<cef_browser_t>::shared(browser);
    }
    if (m_driver || m_waits_for_calls) return true;
    const bool is_pending = std::exchange(owner.m_load_pending, false);
    const std::string popped = owner.PopNextURL();
    if (is_pending) url = popped;
    return true;
}

void webdisplay_browser_client::OnAfterCreated(cef_browser_t* browser) {
    live_browsers::arrived(browser, is_popup(browser));
    if (m_is_muted) mute(browser);
    if (is_popup(browser)) return popup_created(browser);

    std::string url;
    make_driver();
    make_line(browser);
    {
        const owner_use owner(*this);
        // The display was closed while the browser was on its way.
        if (!owner || !take_over_browser(*owner, browser, url)) return close_soon(browser);
    }
    if (!m_driver) load_first_page(browser, url);
    const owner_use owner(*this);
    if (!owner) return;
    long width = 0;
    long height = 0;
    owner->GetSize(width, height);
    owner->SetSize(width, height);
    if (!owner->m_windowless) {
        const cef::ref<cef_browser_host_t> host(browser->get_host(browser));
        if (host) native_window::mark_browser(host->get_window_handle(host.get()));
    }
}

void webdisplay_browser_client::OnBeforeClose(cef_browser_t* browser) {
    live_browsers::gone(browser);
    if (is_popup(browser)) return m_popups.closed(browser);
    m_alive.CompareAndSet(1, 0);
    if (m_driver) m_driver->close();
    m_driver = {};
    end_sound();
    drop_line();
    m_life.end();
    run::guarded("cWebDisplayCEFBrowser", "Close", [&] { m_popups.close_all(); });
    // Without a reference of its own: the display may be waiting for this in its destructor.
    const std::lock_guard<std::recursive_mutex> guard(m_owner_lock);
    if (m_owner != nullptr) m_owner->browser_destroyed();
}

cef::own<cef::CefResourceRequestHandler> webdisplay_browser_client::GetResourceRequestHandler(
    cef_frame_t* frame) {
    if (!is_alive() || frame == nullptr || !*m_has_page_receiver) return {};
    if (frame->is_main(frame) == 0) return {};
    return cef::own<cef::CefResourceRequestHandler>(
        new request_filter(cef::own<webdisplay_browser_client>::shared(this)));
}

bool webdisplay_browser_client::may_request(const std::string& url) {
    if (!is_alive()) return true;
    const owner_use owner(*this);
    return owner ? owner->handle_page_request(url.c_str()) : true;
}

bool webdisplay_browser_client::OnDragEnter(cef_browser_t*) { return true; }

// Unasked, the runtime saves a file among the user's own, without a click or a word.
bool webdisplay_browser_client::CanDownload(cef_browser_t*) {
    zTraceManager::Default()->TraceNote("cWebDisplayBrowser: a download by the page was refused\n");
    m_has_refused_download = true;
    return false;
}

}  // namespace pennywort::webdisplay
