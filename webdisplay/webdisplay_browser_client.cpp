// webdisplay_browser_client.cpp - see the header for the contract.
#include "webdisplay/webdisplay_browser_client.h"

#include <algorithm>
#include <cmath>
#include <mutex>
#include <utility>

#include "core/limits.h"
#include "core/run/guarded.h"
#include "loam/trace.h"
#include "webdisplay/cef/runtime.h"
#include "webdisplay/cef/text.h"
#include "webdisplay/client_owner_use.h"
#include "webdisplay/display_state.h"
#include "webdisplay/frame_looks.h"
#include "webdisplay/host_environment.h"
#include "webdisplay/live_browsers.h"
#include "webdisplay/message_pump.h"
#include "webdisplay/native_window.h"
#include "webdisplay/page_scripts.h"
#include "webdisplay/thread_mark.h"

namespace pennywort::webdisplay {

namespace {

constexpr int k_load_aborted = -3;
constexpr std::string_view k_type_error = "Uncaught TypeError";

// One for the process: keystrokes go to one place at a time.
std::atomic<bool> g_editable{false};

// Whether the calling thread stands in a frame that goes to a host.
thread_local bool t_is_painting = false;

bool is_popup(cef_browser_t* browser) { return browser->is_popup(browser) != 0; }

void execute(cef_frame_t* frame, std::string_view script) {
    if (frame == nullptr) return;
    const cef::utf16 code(script);
    const cef::utf16 no_url("");
    frame->execute_java_script(frame, code.get(), no_url.get(), 0);
}

void execute_on_page(cef_browser_t* browser, std::string_view script) {
    const cef::ref<cef_frame_t> frame(browser->get_main_frame(browser));
    execute(frame.get(), script);
}

// Later, since a page without handlers of its own is destroyed within the call, and the callback
// that we stand in goes on using it.
void close_soon(cef_browser_t* browser) {
    const cef::ref<cef_browser_host_t> host(browser->get_host(browser));
    if (host) cef::post_to_ui([host] { host->close_browser(host.get(), 1); });
}

// The display as it is before a page.
std::uint32_t background_of(bool is_transparent, std::uint32_t opaque) {
    return is_transparent ? k_clear_pixel : opaque;
}

// Of the page, so that its picture is none too large.
long largest_side(double scale) {
    return std::max(1L, static_cast<long>(static_cast<double>(k_max_view_side) / scale));
}

// A side of the picture, for one of the page.
long in_pixels(long side, double scale) {
    const double pixels = std::clamp(std::round(static_cast<double>(side) * scale), 1.0,
                                     static_cast<double>(k_max_view_side));
    return static_cast<long>(pixels);
}

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

void mute(cef_browser_t* browser) {
    const cef::ref<cef_browser_host_t> host(browser->get_host(browser));
    if (host) host->set_audio_muted(host.get(), 1);
}

// The runtime has a rule of its own for the sound of sites, which opens the sound of a page when it
// is shown: beside the call that is told of it, before or after that.
void keep_muted(cef_browser_t* browser) {
    mute(browser);
    const cef::ref<cef_browser_host_t> host(browser->get_host(browser));
    if (host) cef::post_to_ui([host] { host->set_audio_muted(host.get(), 1); });
}

zString text_of(const std::string& text) {
    return zString(text.data(), static_cast<std::uint32_t>(text.size()));
}

// The status that the server has sent the page with that the main frame shows; 0 without a server.
int sent_status(cef_browser_t* browser) {
    const cef::ref<cef_browser_host_t> host(browser->get_host(browser));
    if (!host) return 0;
    const cef::ref<cef_navigation_entry_t> entry(host->get_visible_navigation_entry(host.get()));
    return entry ? entry->get_http_status_code(entry.get()) : 0;
}

// Puts the runtime's question about a request, asked on its IO thread, to the host on the display
// thread, where all of the host's receivers are called.
class request_filter final : public cef::CefResourceRequestHandler {
public:
    explicit request_filter(cef::own<webdisplay_browser_client> client)
        : m_client(std::move(client)) {}

    cef_return_value_t OnBeforeResourceLoad(cef_request_t* request,
                                            cef::ref<cef_callback_t> callback) override {
        const std::string url = cef::utf8_of(request->get_url(request));
        const bool posted = cef::post_to_ui([client = m_client, url, callback] {
            const bool allowed = client->may_request(url);
            allowed ? callback->cont(callback.get()) : callback->cancel(callback.get());
        });
        if (!posted) return RV_CONTINUE;
        // The request waits for the answer; the display thread is not to wait for its next tick.
        message_pump::wake();
        return RV_CONTINUE_ASYNC;
    }

private:
    const cef::own<webdisplay_browser_client> m_client;
};

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

bool webdisplay_browser_client::focused_element_is_editable() { return g_editable; }

// --- frames

void webdisplay_browser_client::GetViewRect(cef_browser_t*, cef_rect_t& rect) {
    long width = 1;
    long height = 1;
    if (is_alive()) {
        const owner_use owner(*this);
        if (owner) owner->GetSize(width, height);
    }
    // The runtime stops at an empty view, and cannot allocate a picture that is too large.
    const long most = largest_side(m_scale);
    rect = {0, 0, static_cast<int>(std::clamp(width, 1L, most)),
            static_cast<int>(std::clamp(height, 1L, most))};
}

bool webdisplay_browser_client::GetScreenInfo(cef_browser_t* browser, cef_screen_info_t& info) {
    if (m_scale == 1) return false;
    info.device_scale_factor = static_cast<float>(m_scale);
    info.depth = 24;
    info.depth_per_component = 8;
    info.is_monochrome = 0;
    GetViewRect(browser, info.rect);
    info.available_rect = info.rect;
    return true;
}

// A window that the page opened paints here too, since it shares the client; its frames are not the
// display's.
void webdisplay_browser_client::OnPaint(cef_browser_t* browser, cef_paint_element_type_t type,
                                        const void* buffer, int width, int height) {
    if (!is_alive() || is_popup(browser)) return;
    // What comes behind a page's own frame is the next one, which nobody may keep waiting.
    if (!m_driver) message_pump::frame_painted();
    const thread_mark painting(t_is_painting);
    const owner_use owner(*this);
    if (!owner) return;
    if (m_waits_for_calls) return;
    if (m_driver) {
        if (type == PET_VIEW) return take_page_frame(*owner, buffer, width, height);
        if (m_driver->shows_frame()) owner->BrowserPainted(buffer, width, height, true);
        return;
    }
    if (owner->m_state->loads.holds_picture() && holds_frame_back(*owner, buffer, width, height)) {
        return;
    }
    owner->BrowserPainted(buffer, width, height, type == PET_POPUP);
}

bool webdisplay_browser_client::is_painting() { return t_is_painting; }

bool webdisplay_browser_client::holds_frame_back(cWebDisplayCEFBrowser& owner, const void* buffer,
                                                 int width, int height) {
    const bool has_painted =
        shows_page(static_cast<const std::uint32_t*>(buffer), width, height,
                   background_of(owner.m_transparent, owner.m_state->background));
    const std::lock_guard<std::mutex> guard(owner.m_state->loads_lock);
    return !owner.m_state->loads.admits(has_painted);
}

// A page that is all background looks like one that has not painted yet. It says itself when it
// has, and is at rest then.
bool webdisplay_browser_client::take_paint_report(cef_browser_t* browser,
                                                  const std::string& command) {
    if (command != page_scripts::k_paint_report) return false;
    const owner_use owner(*this);
    if (!owner || !owner->m_state->loads.policy().keep_last_picture) return false;
    {
        const std::lock_guard<std::mutex> guard(owner->m_state->loads_lock);
        if (!owner->m_state->loads.release_picture()) return true;
    }
    const cef::ref<cef_browser_host_t> host(browser->get_host(browser));
    if (host) cef::post_to_ui([host] { host->invalidate(host.get(), PET_VIEW); });
    return true;
}

// What the host shows when there has never been a picture: the display as it is before a page.
void webdisplay_browser_client::paint_background(cWebDisplayCEFBrowser& owner) {
    long width = 0;
    long height = 0;
    owner.GetSize(width, height);
    width = in_pixels(width, m_scale);
    height = in_pixels(height, m_scale);
    const std::vector<std::uint32_t> pixels(
        static_cast<std::size_t>(width) * static_cast<std::size_t>(height),
        background_of(owner.m_transparent, owner.m_state->background));
    owner.BrowserPainted(pixels.data(), width, height, false);
}

// --- life of the browser

// A click on a link to a new window goes to the user's own browser. Windows that script opens by
// itself are left to the runtime: off screen and unseen where the page is.
bool webdisplay_browser_client::OnBeforePopup(cef_browser_t*, const std::string& target_url,
                                              bool user_gesture, cef_window_info_t& window_info,
                                              cef::ref<cef_dictionary_value_t>& extra_info) {
    if (user_gesture) {
        open_in_system(target_url);
        return true;
    }
    const owner_use owner(*this);
    if (!owner) return true;
    const std::int32_t most = owner->m_state->max_popups;
    if (most > 0 && m_popups.size() >= static_cast<std::size_t>(most)) return true;
    // It arrives without memory, or does not come at all.
    m_popups.reserve(m_popups.size() + 1);
    live_browsers::make_room(live_browsers::count() + 1);
    extra_info = told_to_page(owner->m_state->terms);
    if (owner->m_windowless) window_info.windowless_rendering_enabled = 1;
    return false;
}

void webdisplay_browser_client::popup_created(cef_browser_t* browser) {
    m_popups.push_back(cef::ref<cef_browser_t>::shared(browser));
    const owner_use owner(*this);
    if (!owner) return close_soon(browser);
    const cef::ref<cef_browser_host_t> host(browser->get_host(browser));
    if (host && owner->m_windowless) host->was_hidden(host.get(), 1);
}

void webdisplay_browser_client::popup_closed(cef_browser_t* browser) {
    std::erase_if(m_popups,
                  [browser](const auto& other) { return cef::same_browser(other.get(), browser); });
}

void webdisplay_browser_client::close_popups() {
    const auto popups = m_popups;
    for (const auto& popup : popups) close_soon(popup.get());
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
    if (is_popup(browser)) return popup_closed(browser);
    m_alive.CompareAndSet(1, 0);
    if (m_driver) m_driver->close();
    m_driver = {};
    end_sound();
    drop_line();
    m_life.end();
    run::guarded("cWebDisplayCEFBrowser", "Close", [&] { close_popups(); });
    // Without a reference of its own: the display may be waiting for this in its destructor.
    const std::lock_guard<std::recursive_mutex> guard(m_owner_lock);
    if (m_owner != nullptr) m_owner->browser_destroyed();
}

// --- loads

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
    {
        const bool is_status_asked = owner->m_state->loads.policy().fail_on_error_status;
        const int status = is_status_asked ? sent_status(browser) : 0;
        const std::lock_guard<std::mutex> guard(owner->m_state->loads_lock);
        if (owner->m_state->loads.begin(url, status)) return;
        error = owner->m_state->loads.error();
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

// --- requests and drags

cef::own<cef::CefResourceRequestHandler> webdisplay_browser_client::GetResourceRequestHandler(
    cef_frame_t* frame) {
    if (!is_alive() || frame == nullptr || !*m_has_page_receiver) return {};
    if (frame->is_main(frame) == 0) return {};
    return cef::own<cef::CefResourceRequestHandler>(
        new request_filter(cef::own<webdisplay_browser_client>::shared(this)));
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

// --- the bridge

bool webdisplay_browser_client::OnProcessMessageReceived(cef_browser_t* browser, cef_frame_t* frame,
                                                         cef_process_message_t* message) {
    const std::string name = cef::utf8_of(message->get_name(message));
    if (name == k_dropped_message) return note_dropped_calls(message);
    if (name != "execute") return false;
    const cef::ref<cef_list_value_t> arguments(message->get_argument_list(message));
    std::string command;
    std::string argument;
    if (arguments) {
        command = cef::utf8_of(arguments->get_string(arguments.get(), 0));
        argument = cef::utf8_of(arguments->get_string(arguments.get(), 1));
    }
    dispatch(browser, command, argument);
    if (arguments && arguments->get_size(arguments.get()) > 2) tell_handled(frame);
    return true;
}

// Without a bound the message is somebody else's, like every other that the bridge does not know.
bool webdisplay_browser_client::note_dropped_calls(cef_process_message_t* message) {
    const owner_use owner(*this);
    if (!owner || owner->m_state->terms.max_waiting_calls <= 0) return false;
    const cef::ref<cef_list_value_t> arguments(message->get_argument_list(message));
    const int calls = arguments ? arguments->get_int(arguments.get(), 0) : 0;
    if (calls > 0) owner->m_state->dropped_calls += static_cast<std::uint64_t>(calls);
    return true;
}

// A page whose calls are bounded makes no more of them until it hears of those that are done.
void webdisplay_browser_client::tell_handled(cef_frame_t* frame) {
    const std::uint32_t calls = m_page_calls.handled(cef::utf8_of(frame->get_identifier(frame)));
    if (calls == 0) return;
    cef::ref<cef_process_message_t> message(
        cef::api().cef_process_message_create(cef::utf16(k_handled_message).get()));
    const cef::ref<cef_list_value_t> list(message->get_argument_list(message.get()));
    list->set_int(list.get(), 0, static_cast<int>(calls));
    frame->send_process_message(frame, PID_RENDERER, message.release());
}

void webdisplay_browser_client::dispatch(cef_browser_t* browser, const std::string& command,
                                         const std::string& argument) {
    if (command == "LoadNextUrl") {
        const owner_use owner(*this);
        if (owner) owner->LoadNextUrl();
    } else if (command == "HasFlash") {
        zTraceManager::Default()->TraceNote("Flash Plugin Detected: %s\n", argument.c_str());
        cWebDisplayBrowser::Flash_SetAvailability(argument == "1");
    } else if (command == "Focus") {
        g_editable.exchange(argument == "1");
    } else if (command.starts_with(page_scripts::k_result_command)) {
        deliver_result(command, argument);
    } else if (!command.starts_with(k_type_error) &&  // pages throw these all the time
               !take_tick_report(command, argument) && !take_paint_report(browser, command)) {
        run_page_command(browser, command, argument);
    }
}

bool webdisplay_browser_client::take_tick_report(const std::string& command,
                                                 const std::string& argument) {
    if (command != page_scripts::k_tick_report) return false;
    const owner_use owner(*this);
    if (!owner || !owner->m_state->is_on_host_clock) return false;
    const std::int64_t frames = text_of(argument).AsInt64();
    if (frames > 0) owner->m_state->ticks.page_had(static_cast<std::uint64_t>(frames));
    return true;
}

void webdisplay_browser_client::deliver_result(const std::string& command,
                                               const std::string& result) {
    zString prefix = text_of(command);
    zString id;
    prefix.SplitAtFirst(&id, ":");
    const owner_use owner(*this);
    if (owner) owner->received_javascript_exec_result(id, text_of(result));
}

void webdisplay_browser_client::run_page_command(cef_browser_t* browser, const std::string& command,
                                                 const std::string& argument) {
    zString result;
    {
        const owner_use owner(*this);
        if (owner) owner->handle_javascript_callback(text_of(command), text_of(argument), result);
    }
    execute_on_page(browser, page_scripts::host_callback(command, result.View()));
}

}  // namespace pennywort::webdisplay
