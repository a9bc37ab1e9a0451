// webdisplay_browser_client_loads.cpp - what a client's page loads, and what becomes of that.
#include <mutex>
#include <utility>

#include "loam/trace.h"
#include "webdisplay/browser_calls.h"
#include "webdisplay/cef/text.h"
#include "webdisplay/client_owner_use.h"
#include "webdisplay/display_state.h"
#include "webdisplay/page_scripts.h"

namespace pennywort::webdisplay {

namespace {

constexpr int k_load_aborted = -3;

}  // namespace

// `pending` is what the host has asked for while the browser was on its way; it may be the page
// that the browser begins with.
void webdisplay_browser_client::load_first_page(cef_browser_t* browser,
                                                const std::string& pending) {
    if (!m_start_url.empty()) look_whether_ignored(start_asked_for());
    const cef::ref<cef_frame_t> frame(browser->get_main_frame(browser));
    if (!frame || pending.empty() || pending == m_start_url) return;
    if (pending == cef::utf8_of(frame->get_url(frame.get()))) return;
    const unsigned ticket = page_asked_for(pending);
    frame->load_url(frame.get(), cef::utf16(pending).get());
    look_whether_ignored(ticket);
}

unsigned webdisplay_browser_client::page_asked_for(const std::string& url) {
    m_has_refused_download = false;
    const owner_use owner(*this);
    if (!owner) return 0;
    const std::lock_guard<std::mutex> guard(owner->m_state->loads_lock);
    return owner->m_state->loads.ask(url);
}

unsigned webdisplay_browser_client::start_asked_for() {
    const owner_use owner(*this);
    if (!owner) return 0;
    const std::lock_guard<std::mutex> guard(owner->m_state->loads_lock);
    return owner->m_state->loads.ask_at_start(m_start_url);
}

// The next URL is asked for through the page, so that the scripts of the page that has just
// finished run first.
void webdisplay_browser_client::OnLoadingStateChange(cef_browser_t* browser, bool is_loading) {
    if (m_is_muted) keep_muted(browser);
    if (is_popup(browser) || is_before_page()) return;
    const owner_use owner(*this);
    if (!owner) return;
    if (is_loading) {
        const std::lock_guard<std::mutex> guard(owner->m_state->loads_lock);
        return owner->m_state->loads.stir();
    }
    if (!owner->has_next_url()) return;
    webdisplay_cef_state state;
    owner->get_cef_state(state);
    if (state.browser) execute_on_page(state.browser.get(), page_scripts::k_next_url);
}

// Not called for what the runtime shows in the place of a page that failed, though OnLoadEnd is.
void webdisplay_browser_client::OnLoadStart(cef_browser_t* browser, cef_frame_t* frame) {
    if (m_is_muted && frame->is_main(frame)) keep_muted(browser);
    if (!frame->is_main(frame) || is_popup(browser) || is_before_page()) return;
    m_has_scripts = false;
    const owner_use owner(*this);
    if (!owner) return;
    const std::string url = cef::utf8_of(frame->get_url(frame));
    if (m_driver) m_driver->page_begun(url);
    std::string error;
    bool is_doubted = false;
    {
        const bool is_status_asked = owner->m_state->loads.policy().fail_on_error_status;
        const int status = is_status_asked ? sent_status(browser) : 0;
        const std::lock_guard<std::mutex> guard(owner->m_state->loads_lock);
        if (!owner->m_state->loads.begin(url, status)) error = owner->m_state->loads.error();
        is_doubted = owner->m_state->loads.doubts_picture();
    }
    if (error.empty()) {
        // It may take long to load, or for ever.
        if (is_doubted) execute_on_page(browser, page_scripts::k_paint_watch);
        return;
    }
    if (m_driver) m_driver->page_lost();
    show_something(*owner);
    owner->handle_page_load_failed(url.c_str(), error.c_str());
}

void webdisplay_browser_client::OnLoadEnd(cef_browser_t* browser, cef_frame_t* frame) {
    if (!is_alive() || !frame->is_main(frame) || is_popup(browser)) return;
    if (is_before_page()) return empty_page_loaded(browser);
    std::string css;
    bool is_on_host_clock = false;
    {
        const owner_use owner(*this);
        if (!owner) return;
        css = owner->get_css_override();
        is_on_host_clock = owner->m_state->is_on_host_clock;
        const std::string url = cef::utf8_of(frame->get_url(frame));
        m_driver ? m_driver->page_loaded(url) : report_end(*owner, browser, url);
    }
    inject_scripts(frame, css, is_on_host_clock);
}

void webdisplay_browser_client::report_end(cWebDisplayCEFBrowser& owner, cef_browser_t* browser,
                                           const std::string& url) {
    {
        const std::lock_guard<std::mutex> guard(owner.m_state->loads_lock);
        if (!owner.m_state->loads.end(url)) return;
    }
    if (owner.m_state->loads.holds_picture()) execute_on_page(browser, page_scripts::k_paint_watch);
    owner.handle_page_loaded(url.c_str());
}

void webdisplay_browser_client::inject_scripts(cef_frame_t* frame, const std::string& css,
                                               bool is_on_host_clock) {
    if (m_driver && std::exchange(m_has_scripts, true)) return;
    if (!css.empty()) execute(frame, page_scripts::style_sheet(css));
    if (!cWebDisplayBrowser::HaveRunFlashDetection()) {
        cWebDisplayBrowser::SetHaveRunFlashDetection(true);
        execute(frame, page_scripts::k_flash_probe);
    }
    std::string listeners(page_scripts::k_focus_listener);
    listeners += page_scripts::k_blur_listener;
    listeners += page_scripts::k_error_hook;
    execute(frame, listeners);
    if (is_on_host_clock) execute(frame, page_scripts::k_tick_counter);
}

void webdisplay_browser_client::OnLoadError(cef_browser_t* browser, cef_frame_t* frame,
                                            int error_code, const std::string& error_text,
                                            const std::string& failed_url) {
    if (is_popup(browser)) return;
    if (error_code == k_load_aborted) {
        if (frame->is_main(frame)) forget_load_soon();
        return;
    }
    if (frame->is_main(frame) && m_driver) m_driver->page_lost();
    const owner_use owner(*this);
    if (!owner) return;
    if (frame->is_main(frame)) {
        {
            const std::lock_guard<std::mutex> guard(owner->m_state->loads_lock);
            owner->m_state->loads.fail(failed_url, error_text);
        }
        show_something(*owner);
    }
    owner->handle_page_load_failed(failed_url.c_str(), error_text.c_str());
}

// Where the picture is held before there was one, the host gets that of the background.
void webdisplay_browser_client::show_something(cWebDisplayCEFBrowser& owner) {
    const bool has_no_picture = owner.m_state->ticks.pictures() == 0;
    if (owner.m_state->loads.holds_picture() && has_no_picture) paint_background(owner);
}

// Not at once: a process that ends aborts the load, and is told after that or before it.
void webdisplay_browser_client::forget_load_soon() {
    const owner_use owner(*this);
    if (!owner) return;
    const auto client = cef::own<webdisplay_browser_client>::shared(this);
    const std::lock_guard<std::mutex> guard(owner->m_state->loads_lock);
    cef::post_to_ui(
        [client, ticket = owner->m_state->loads.abort()] { client->give_up_load(ticket); });
}

// With no page there is nothing that could ask for the next one, and the queue would stand.
void webdisplay_browser_client::give_up_load(unsigned ticket) {
    const owner_use owner(*this);
    if (!owner) return;
    std::string url;
    bool is_given_up = false;
    {
        const std::lock_guard<std::mutex> guard(owner->m_state->loads_lock);
        url = owner->m_state->loads.asked_url();
        is_given_up = owner->m_state->loads.give_up(ticket);
    }
    if (!owner->m_state->loads.policy().tell_every_load) return;
    if (is_given_up && !owner->IsLoading()) return report_given_up(*owner, url);
    if (owner->m_state->loads.phase() == load_phase::none) owner->LoadNextUrl();
}

// The browser says no more of it than that it has ended, while the host waits for a page. One that
// loads another page instead has been led there by the page itself.
void webdisplay_browser_client::report_given_up(cWebDisplayCEFBrowser& owner,
                                                const std::string& url) {
    const bool is_download = std::exchange(m_has_refused_download, false);
    owner.handle_page_load_failed(
        url.c_str(), is_download ? "it is a download and no page"
                                 : "the browser has given it up: the server has no page to show "
                                   "(status 204 or 205), or the request was cancelled");
}

void webdisplay_browser_client::look_whether_ignored(unsigned ticket, int turns) {
    const auto client = cef::own<webdisplay_browser_client>::shared(this);
    cef::post_to_ui([client, ticket, turns] {
        if (turns > 1) return client->look_whether_ignored(ticket, turns - 1);
        client->report_if_ignored(ticket);
    });
}

void webdisplay_browser_client::report_if_ignored(unsigned ticket) {
    const owner_use owner(*this);
    if (!owner) return;
    webdisplay_cef_state state;
    owner->get_cef_state(state);
    if (!state.browser) return;
    const bool is_loading = state.browser->is_loading(state.browser.get()) != 0;
    std::string url;
    {
        const std::lock_guard<std::mutex> guard(owner->m_state->loads_lock);
        url = owner->m_state->loads.asked_url();
        if (!owner->m_state->loads.is_ignored(ticket, is_loading)) return;
    }
    owner->handle_page_load_failed(url.c_str(), "the browser does not take this URL");
}

// Without a word of the host's own that it minds, nothing happens.
void webdisplay_browser_client::OnRenderProcessTerminated(cef_browser_t* browser) {
    if (is_popup(browser)) return;
    if (m_driver) m_driver->page_lost();
    const owner_use owner(*this);
    if (!owner || !owner->m_state->loads.policy().minds_lost_page()) return;
    zTraceManager::Default()->TraceNote("cWebDisplayBrowser: the page's process has ended\n");
    {
        const std::lock_guard<std::mutex> guard(owner->m_state->loads_lock);
        owner->m_state->loads.lose();
    }
    const cef::ref<cef_frame_t> frame(browser->get_main_frame(browser));
    std::string url = frame ? cef::utf8_of(frame->get_url(frame.get())) : std::string();
    if (url.empty()) url = m_start_url;  // it was on its way
    // Within this call the runtime has not put the old page away yet.
    const auto client = cef::own<webdisplay_browser_client>::shared(this);
    cef::post_to_ui([client, url] { client->page_lost(url); });
}

void webdisplay_browser_client::page_lost(const std::string& url) {
    const owner_use owner(*this);
    if (!owner) return;
    std::string lost_load;
    {
        const std::lock_guard<std::mutex> guard(owner->m_state->loads_lock);
        lost_load = owner->m_state->loads.take_lost_load();
    }
    if (!lost_load.empty()) {
        owner->put_back_url(lost_load);
        owner->LoadNextUrl();
    }
    if (owner->m_state->loads.policy().report_lost_page) {
        owner->handle_page_load_failed(url.c_str(), "the page's process has ended");
    }
}

}  // namespace pennywort::webdisplay
