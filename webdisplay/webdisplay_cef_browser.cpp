// webdisplay_cef_browser.cpp - the display whose page is shown by the browser runtime.
#include <algorithm>
#include <memory>
#include <utility>

#include "core/limits.h"
#include "core/statuses.h"
#include "loam/id_generator.h"
#include "loam/thread.h"
#include "loam/trace.h"
#include "webdisplay.h"
#include "webdisplay/cef/runtime.h"
#include "webdisplay/cef/text.h"
#include "webdisplay/live_browsers.h"
#include "webdisplay/message_pump.h"
#include "webdisplay/native_window.h"
#include "webdisplay/page_scripts.h"
#include "webdisplay/tick_ledger.h"
#include "webdisplay/webdisplay_browser_client.h"

namespace cef = pennywort::cef;
namespace live_browsers = pennywort::webdisplay::live_browsers;
namespace page_scripts = pennywort::webdisplay::page_scripts;
using pennywort::webdisplay::message_pump;
using pennywort::webdisplay::webdisplay_browser_client;
using pennywort::webdisplay::webdisplay_cef_state;

namespace {

namespace native_window = pennywort::webdisplay::native_window;
using browser_ref = cef::ref<cef_browser_t>;
using host_ref = cef::ref<cef_browser_host_t>;
using frame_ref = cef::ref<cef_frame_t>;

constexpr int k_smallest_side = 5;
constexpr std::uint32_t k_close_step_us = 2000;
constexpr cef_color_t k_windowed_background = 0xCC27282B;
constexpr cef_color_t k_transparent = 0x00000000;
constexpr cef_color_t k_opaque_black = 0xFF000000;

host_ref host_of(const browser_ref& browser) {
    return browser ? host_ref(browser->get_host(browser.get())) : host_ref();
}

frame_ref main_frame_of(const browser_ref& browser) {
    return browser ? frame_ref(browser->get_main_frame(browser.get())) : frame_ref();
}

cef_window_handle_t window_of(const host_ref& host) {
    return host ? host->get_window_handle(host.get()) : cef_window_handle_t{};
}

void load_url(const browser_ref& browser, const std::string& url) {
    const frame_ref frame = main_frame_of(browser);
    if (frame) frame->load_url(frame.get(), cef::utf16(url).get());
}

bool is_loading(const webdisplay_cef_state& state) {
    return state.browser->is_loading(state.browser.get()) != 0 &&
           !state.client->has_lost_its_page();
}

// The whole part of a rate that may be anything a host computed.
int whole_frames(double rate) {
    if (!(rate >= 0)) return 0;
    return static_cast<int>(std::min(rate, 1e6));
}

// A browser in a host's window goes with that window, where the system sees to that; any other one
// must be asked.
void close_unless_its_window_does(const browser_ref& browser) {
    const host_ref host = host_of(browser);
    const bool alone = window_of(host) == cef_window_handle_t{};
    if (host && (alone || !native_window::browser_goes_with_its_window())) {
        host->close_browser(host.get(), 1);
    }
}

void delete_cookies(const std::string& url) {
    using manager_ref = cef::ref<cef_cookie_manager_t>;
    const manager_ref manager(cef::api().cef_cookie_manager_get_global_manager(nullptr));
    const cef::utf16 address(url);
    const cef::utf16 every_name("");
    if (manager) manager->delete_cookies(manager.get(), address.get(), every_name.get(), nullptr);
}

}  // namespace

cWebDisplayCEFBrowser::cWebDisplayCEFBrowser(const zRecord& settings, double frameRate)
    : cWebDisplayBrowser(settings, frameRate),
      m_state_lock(zCritical::Factory(1)),
      m_close_signal(zSignal::Factory()) {}

cWebDisplayCEFBrowser::~cWebDisplayCEFBrowser() { cWebDisplayCEFBrowser::Close(); }

void cWebDisplayCEFBrowser::get_cef_state(webdisplay_cef_state& out) const {
    const zAutoCritical lock(m_state_lock.get());
    out = m_cef_state ? *m_cef_state : webdisplay_cef_state();
}

// --- opening

// For a task, which gives it back also if the runtime ends and drops it without running it. Empty
// when the last reference has gone.
std::shared_ptr<cWebDisplayCEFBrowser> cWebDisplayCEFBrowser::another_reference() {
    if (!AddRefIfAlive()) return nullptr;
    return {this, [](cWebDisplayCEFBrowser* self) { self->Release(); }};
}

bool cWebDisplayCEFBrowser::Open() {
    m_open_wanted = true;
    const auto held = another_reference();
    if (!cef::on_ui_thread()) {
        return cef::post_to_ui([held] { held->create_cef_browser(nullptr); });
    }
    create_cef_browser(nullptr);
    return true;
}

void cWebDisplayCEFBrowser::create_cef_browser(zSignal* done) {
    const std::string start_url = PeekNextURL();
    const auto client = make_client(start_url);
    if (client && !start_browser(*client, cef::utf16(start_url))) {
        zTraceManager::Default()->TraceNote(
            "cWebDisplayCEFBrowser::Open: the runtime made no browser for %s\n", start_url.c_str());
    }
    if (done) done->Set();
}

// Empty if the display was opened twice, or closed before its turn came.
cef::own<webdisplay_browser_client> cWebDisplayCEFBrowser::make_client(
    const std::string& start_url) {
    const zAutoCritical lock(m_state_lock.get());
    if (m_cef_state || !m_open_wanted) return {};
    cef::own<webdisplay_browser_client> client(new webdisplay_browser_client(this, start_url));
    client->set_alive();
    m_cef_state = new webdisplay_cef_state{{}, client};
    if (m_close_signal) m_close_signal->Reset();
    return client;
}

bool cWebDisplayCEFBrowser::start_browser(webdisplay_browser_client& client,
                                          const cef::utf16& url) {
    long width = 0;
    long height = 0;
    GetSize(width, height);
    cef_window_info_t window{};
    window.size = sizeof window;
    window.runtime_style = CEF_RUNTIME_STYLE_ALLOY;
    window.bounds.width = static_cast<int>(std::max<long>(width, k_smallest_side));
    window.bounds.height = static_cast<int>(std::max<long>(height, k_smallest_side));
    cef_browser_settings_t settings{};
    settings.size = sizeof settings;
    if (m_windowless) {
        window.windowless_rendering_enabled = 1;
        window.external_begin_frame_enabled = m_host_clock ? 1 : 0;
        settings.windowless_frame_rate = whole_frames(m_frame_rate);
        settings.background_color = m_transparent ? k_transparent : k_opaque_black;
    } else {
        native_window::fill_child(window, m_parent_window, static_cast<int>(width),
                                  static_cast<int>(height));
        settings.background_color = k_windowed_background;
    }
    live_browsers::expect();
    const bool started =
        cef::api().cef_browser_host_create_browser(&window, client.counted_client(), url.get(),
                                                   &settings, nullptr, nullptr) != 0;
    if (!started) live_browsers::expect_no_more();
    return started;
}

// --- closing

void cWebDisplayCEFBrowser::Close() {
    m_open_wanted = false;
    webdisplay_cef_state state;
    get_cef_state(state);
    const bool asked = m_windowless && state.browser && ask_to_close(state);
    if (asked) wait_until_closed();
    if (state.client) state.client->detach();

    webdisplay_cef_state left;
    {
        const zAutoCritical lock(m_state_lock.get());
        if (m_cef_state) left = *m_cef_state;
        delete std::exchange(m_cef_state, nullptr);
    }
    // One in a window, which is not waited for, or one that arrived between the first look and the
    // parting, which has nobody else to close it.
    if (left.browser && !asked) ask_to_close(left);
}

// By a task in every case: a page without handlers of its own is destroyed within the call, and a
// callback of the runtime that we may stand in would go on using it.
bool cWebDisplayCEFBrowser::ask_to_close(const webdisplay_cef_state& state) {
    return cef::post_to_ui([state] {
        state.client->close_popups();
        close_unless_its_window_does(state.browser);
    });
}

// The thread that drives the runtime must go on doing so, or it would wait for nothing. In a
// callback of the runtime it cannot: nothing closes until the callback returns, and the browser
// then closes behind us, with a client that has no owner any more.
void cWebDisplayCEFBrowser::wait_until_closed() {
    if (message_pump::inside_work() || !m_close_signal) return;
    const bool drives = cef::on_ui_thread();
    for (int round = 0; round < pennywort::k_close_rounds; ++round) {
        if (drives ? drive_until_closed() : m_close_signal->Wait(pennywort::k_close_round_us) == 0)
            return;
    }
    zTraceManager::Default()->TraceNote(
        "cWebDisplayCEFBrowser::Close: the runtime did not close the page in time\n");
}

// One round of the wait, in short steps: the pump is due more often than a round is long.
bool cWebDisplayCEFBrowser::drive_until_closed() {
    for (std::uint32_t waited = 0; waited < pennywort::k_close_round_us;
         waited += k_close_step_us) {
        message_pump::work_once();
        if (m_close_signal->Wait(k_close_step_us) == 0) return true;
    }
    return false;
}

void cWebDisplayCEFBrowser::browser_destroyed() {
    browser_ref gone;
    {
        const zAutoCritical lock(m_state_lock.get());
        if (m_cef_state) gone = std::exchange(m_cef_state->browser, {});
    }
    if (m_close_signal) m_close_signal->Set();
}

// --- pages and scripts

void cWebDisplayCEFBrowser::LoadNextUrl() {
    if (!has_next_url()) return;
    webdisplay_cef_state state;
    {
        const zAutoCritical lock(m_state_lock.get());
        if (m_cef_state) state = *m_cef_state;
        // The client loads it when the browser appears.
        if (!state.browser) m_load_pending = true;
    }
    if (state.browser && !cef::on_ui_thread()) return load_next_on_ui_thread();
    // A page that is being loaded asks for the next one itself when it has finished.
    if (!state.browser || is_loading(state)) return;
    const std::string url = PopNextURL();
    if (url.empty()) return;
    state.client->page_asked_for(url);
    load_url(state.browser, url);
}

// Elsewhere a load that has just been asked for does not show as loading yet, and the next URL
// would replace it.
void cWebDisplayCEFBrowser::load_next_on_ui_thread() {
    const auto held = another_reference();
    if (held) cef::post_to_ui([held] { held->LoadNextUrl(); });
}

bool cWebDisplayCEFBrowser::IsLoading() const {
    webdisplay_cef_state state;
    get_cef_state(state);
    return state.browser && is_loading(state);
}

long cWebDisplayCEFBrowser::ExecuteJavascript(const zString& script, unsigned long timeoutMs,
                                              std::function<void(std::string)> onResult) {
    std::string code(script.View());
    if (onResult) {
        zString id;
        zIDGenerator::GenerateUUID(id);
        code = page_scripts::with_result(code, id.View());
        add_observer(id.CString(), std::move(onResult), timeoutMs);
    }
    webdisplay_cef_state state;
    get_cef_state(state);
    const frame_ref frame = main_frame_of(state.browser);
    if (!frame) return pennywort::k_failed;
    const cef::utf16 text(code);
    const cef::utf16 no_url("");
    frame->execute_java_script(frame.get(), text.get(), no_url.get(), 0);
    return pennywort::k_ok;
}

void cWebDisplayCEFBrowser::DeleteCookies(const char* url) {
    if (!url) return;
    // The runtime takes a text without a scheme for no URL at all, and would delete every cookie.
    const std::string address = url;
    if (!address.empty() && address.find(':') == std::string::npos) return;
    cef::post_to_ui([address] { delete_cookies(address); });
}

// --- size, visibility, frames

void cWebDisplayCEFBrowser::SetSize(long width, long height) {
    {
        const std::lock_guard<std::mutex> guard(m_size_lock);
        m_size.Set(static_cast<std::int32_t>(width), static_cast<std::int32_t>(height));
    }
    webdisplay_cef_state state;
    get_cef_state(state);
    const host_ref host = host_of(state.browser);
    if (!host) return;
    if (m_windowless) return host->was_resized(host.get());
    native_window::resize(window_of(host), width, height);
}

void cWebDisplayCEFBrowser::SetVisibility(bool visible) {
    webdisplay_cef_state state;
    get_cef_state(state);
    const host_ref host = host_of(state.browser);
    if (!m_windowless || !host) return;
    m_tick_ledger->interrupted();
    host->was_hidden(host.get(), visible ? 0 : 1);
}

void cWebDisplayCEFBrowser::Repaint() {
    webdisplay_cef_state state;
    get_cef_state(state);
    const host_ref host = host_of(state.browser);
    // By a task: the runtime paints within the call, and a renderer that repaints would not come
    // back.
    if (m_windowless && host) cef::post_to_ui([host] { host->invalidate(host.get(), PET_VIEW); });
}

bool cWebDisplayCEFBrowser::NextFrame() {
    if (!m_host_clock || !m_windowless) return false;
    webdisplay_cef_state state;
    get_cef_state(state);
    const host_ref host = host_of(state.browser);
    if (!host) return false;
    m_tick_ledger->ticked();
    host->send_external_begin_frame(host.get());
    return true;
}

// --- windowed mode

void cWebDisplayCEFBrowser::SetParentWindow(HWND parent) {
    m_parent_window = parent;
    m_windowless = parent == nullptr;
}

void cWebDisplayCEFBrowser::notify_move_or_resize() {
    webdisplay_cef_state state;
    get_cef_state(state);
    const host_ref host = host_of(state.browser);
    if (host) host->notify_move_or_resize_started(host.get());
}

bool cWebDisplayCEFBrowser::HandleWindowMessage(HWND window, UINT message, WPARAM wparam, LPARAM,
                                                LRESULT& result) {
    switch (message) {
        case WM_PAINT:
            native_window::validate(window);
            result = 0;
            return true;
        case WM_ERASEBKGND:
            return erase_background(result);
        case WM_SETFOCUS:
        case WM_KILLFOCUS:
            result = 0;
            set_focus(message == WM_SETFOCUS);
            return true;
        case WM_SIZE:
            follow_size(window, wparam);
            return false;
        case WM_MOVE:
        case WM_MOVING:
            result = 0;
            notify_move_or_resize();
            return true;
        case WM_PARENTNOTIFY:
            notify_move_or_resize();
            return false;
        case WM_MOUSEWHEEL:
            // Closes the page's pop-ups (select lists) and is still passed on.
            result = 0;
            notify_move_or_resize();
            return false;
        default:
            return false;
    }
}

bool cWebDisplayCEFBrowser::erase_background(LRESULT& result) {
    webdisplay_cef_state state;
    get_cef_state(state);
    // The page paints its own background.
    if (window_of(host_of(state.browser)) == cef_window_handle_t{}) return false;
    result = 0;
    return true;
}

void cWebDisplayCEFBrowser::set_focus(bool focused) {
    webdisplay_cef_state state;
    get_cef_state(state);
    const host_ref host = host_of(state.browser);
    if (host) host->set_focus(host.get(), focused ? 1 : 0);
}

void cWebDisplayCEFBrowser::follow_size(HWND window, WPARAM size_type) {
    webdisplay_cef_state state;
    get_cef_state(state);
    if (window_of(host_of(state.browser)) == cef_window_handle_t{}) return;
    long width = 0;
    long height = 0;
    if (size_type != SIZE_MINIMIZED && native_window::client_size(window, width, height)) {
        SetSize(width, height);
    }
    notify_move_or_resize();
}

bool cWebDisplayCEFBrowser::IsCurrentFocusedElementEditableInHWND(HWND window) {
    for (int depth = 0; window && depth < pennywort::k_max_window_depth; ++depth) {
        if (native_window::class_name(window).starts_with("CefBrowserWindow")) {
            return webdisplay_browser_client::focused_element_is_editable();
        }
        window = native_window::parent(window);
    }
    return false;
}
