// webdisplay_cef_browser.cpp - the display whose page is shown by the browser runtime.
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <utility>

#include "core/limits.h"
#include "core/run/guarded.h"
#include "core/statuses.h"
#include "loam/id_generator.h"
#include "webdisplay.h"
#include "webdisplay/browser_calls.h"
#include "webdisplay/cef/runtime.h"
#include "webdisplay/cef/text.h"
#include "webdisplay/display_engine.h"
#include "webdisplay/display_state.h"
#include "webdisplay/inspector_line.h"
#include "webdisplay/native_window.h"
#include "webdisplay/page_scripts.h"

namespace cef = pennywort::cef;
namespace native_window = pennywort::webdisplay::native_window;
namespace run = pennywort::run;
using pennywort::webdisplay::display_engine;
using pennywort::webdisplay::frame_end;
using pennywort::webdisplay::inspector_call;
using pennywort::webdisplay::inspector_line;
using pennywort::webdisplay::page_timeline;
using pennywort::webdisplay::webdisplay_browser_client;
using pennywort::webdisplay::webdisplay_cef_state;

namespace {

constexpr char k_class[] = "cWebDisplayBrowser";

using browser_ref = cef::ref<cef_browser_t>;
using host_ref = cef::ref<cef_browser_host_t>;
using frame_ref = cef::ref<cef_frame_t>;

host_ref host_of(const browser_ref& browser) {
    return browser ? host_ref(browser->get_host(browser.get())) : host_ref();
}

frame_ref main_frame_of(const browser_ref& browser) {
    return browser ? frame_ref(browser->get_main_frame(browser.get())) : frame_ref();
}

cef_window_handle_t window_of(const host_ref& host) {
    return host ? host->get_window_handle(host.get()) : cef_window_handle_t{};
}

bool run_in_page(const browser_ref& browser, const std::string& script) {
    const frame_ref frame = main_frame_of(browser);
    pennywort::webdisplay::execute(frame.get(), script);
    return static_cast<bool>(frame);
}

bool run_on_ui(const std::function<void()>& work) {
    if (!cef::on_ui_thread()) return cef::post_to_ui(work);
    work();
    return true;
}

page_timeline::receiver frame_receiver(std::function<void(cWebDisplayPageFrame)> told) {
    return [told = std::move(told)](frame_end how) {
        if (!told) return;
        // What a host throws must not keep the browser's end from being told.
        run::guarded(k_class, "a frame's receiver",
                     [&] { told(static_cast<cWebDisplayPageFrame>(how)); });
    };
}

page_timeline::value_receiver value_receiver(std::function<void(const zString&)> told) {
    return [told = std::move(told)](const std::string& value) {
        if (!told) return;
        run::guarded(k_class, "a value's receiver", [&] { told(zString(value)); });
    };
}

void delete_cookies(const std::string& url) {
    using manager_ref = cef::ref<cef_cookie_manager_t>;
    const manager_ref manager(cef::api().cef_cookie_manager_get_global_manager(nullptr));
    const cef::utf16 address(url);
    const cef::utf16 every_name("");
    if (manager) manager->delete_cookies(manager.get(), address.get(), every_name.get(), nullptr);
}

bool has_window(const host_ref& host) { return window_of(host) != cef_window_handle_t{}; }

// The page paints its own background.
bool erases_background(const host_ref& host, LRESULT& result) {
    if (!has_window(host)) return false;
    result = 0;
    return true;
}

void set_focus(const host_ref& host, bool is_focused) {
    if (host) host->set_focus(host.get(), is_focused ? 1 : 0);
}

void follow_size(cWebDisplayCEFBrowser& display, const host_ref& host, HWND window,
                 WPARAM size_type) {
    if (!has_window(host)) return;
    long width = 0;
    long height = 0;
    if (size_type != SIZE_MINIMIZED && native_window::client_size(window, width, height)) {
        display.SetSize(width, height);
    }
    host->notify_move_or_resize_started(host.get());
}

}  // namespace

cWebDisplayCEFBrowser::cWebDisplayCEFBrowser(const zRecord& settings, double frameRate)
    : cWebDisplayBrowser(settings, frameRate),
      m_state_lock(zCritical::Factory(1)),
      m_close_signal(zSignal::Factory()),
      m_engine(std::make_unique<display_engine>(*this)) {
    if (m_state_lock == nullptr || m_close_signal == nullptr) throw std::bad_alloc();
}

cWebDisplayCEFBrowser::~cWebDisplayCEFBrowser() { cWebDisplayCEFBrowser::Close(); }

void cWebDisplayCEFBrowser::get_cef_state(webdisplay_cef_state& out) const {
    out = m_engine->state();
}

// --- opening, closing, pages

bool cWebDisplayCEFBrowser::Open() {
    return run::guarded_or(false, "cWebDisplayCEFBrowser", "Open",
                           [&] { return m_engine->open(); });
}

void cWebDisplayCEFBrowser::create_cef_browser(zSignal* done) {
    run::guarded("cWebDisplayCEFBrowser", "Open", [&] { m_engine->create(); });
    if (done != nullptr) done->Set();
}

void cWebDisplayCEFBrowser::Close() {
    run::guarded("cWebDisplayCEFBrowser", "Close", [&] { m_engine->close(); });
}

void cWebDisplayCEFBrowser::browser_destroyed() { m_engine->browser_destroyed(); }

void cWebDisplayCEFBrowser::LoadNextUrl() {
    run::guarded("cWebDisplayCEFBrowser", "LoadNextUrl", [&] { m_engine->load_next(); });
}

bool cWebDisplayCEFBrowser::IsLoading() const { return m_engine->is_loading(); }

// --- scripts and cookies

long cWebDisplayCEFBrowser::ExecuteJavascript(const zString& script, unsigned long timeoutMs,
                                              std::function<void(std::string)> onResult) {
    return run::guarded_or<long>(
        pennywort::k_failed, "cWebDisplayCEFBrowser", "ExecuteJavascript", [&] {
            std::string code(script.View());
            if (onResult) {
                zString id;
                zIDGenerator::GenerateUUID(id);
                code = pennywort::webdisplay::page_scripts::with_result(code, id.View());
                add_observer(id.CString(), std::move(onResult), timeoutMs);
            }
            return run_in_page(m_engine->state().browser, code) ? pennywort::k_ok
                                                                : pennywort::k_failed;
        });
}

void cWebDisplayCEFBrowser::DeleteCookies(const char* url) {
    if (url == nullptr) return;
    run::guarded("cWebDisplayCEFBrowser", "DeleteCookies", [&] {
        // The runtime takes a text without a scheme for no URL at all, and would delete every
        // cookie.
        const std::string address = url;
        if (!address.empty() && address.find(':') == std::string::npos) return;
        cef::post_to_ui([address] { delete_cookies(address); });
    });
}

// --- size, visibility, frames

void cWebDisplayCEFBrowser::SetSize(long width, long height) {
    {
        const std::lock_guard<std::mutex> guard(m_state->size_lock);
        m_size.Set(static_cast<std::int32_t>(width), static_cast<std::int32_t>(height));
    }
    const host_ref host = host_of(m_engine->state().browser);
    if (!host) return;
    if (m_windowless) return host->was_resized(host.get());
    native_window::resize(window_of(host), width, height);
}

void cWebDisplayCEFBrowser::SetVisibility(bool visible) {
    const host_ref host = host_of(m_engine->state().browser);
    if (!m_windowless || !host) return;
    m_state->ticks.interrupted();
    host->was_hidden(host.get(), visible ? 0 : 1);
}

void cWebDisplayCEFBrowser::Repaint() {
    const host_ref host = host_of(m_engine->state().browser);
    if (!m_windowless || !host) return;
    if (!webdisplay_browser_client::is_painting()) return host->invalidate(host.get(), PET_VIEW);
    // The runtime paints within the call, and a renderer that repaints would not come back.
    run::guarded("cWebDisplayCEFBrowser", "Repaint",
                 [&] { cef::post_to_ui([host] { host->invalidate(host.get(), PET_VIEW); }); });
}

bool cWebDisplayCEFBrowser::NextFrame() {
    if (!m_state->is_on_host_clock || !m_windowless) return false;
    const host_ref host = host_of(m_engine->state().browser);
    if (!host) return false;
    m_state->ticks.ticked();
    host->send_external_begin_frame(host.get());
    return true;
}

bool cWebDisplayCEFBrowser::AdvancePage(std::int64_t microseconds,
                                        std::function<void(cWebDisplayPageFrame)> onFrame) {
    if (!m_state->is_on_page_clock || !m_windowless) return false;
    const webdisplay_cef_state state = m_engine->state();
    if (!state.browser) return false;
    return run::guarded_or(false, "cWebDisplayCEFBrowser", "AdvancePage", [&] {
        return run_on_ui(
            [client = state.client, microseconds, told = frame_receiver(std::move(onFrame))] {
                client->advance_page(microseconds, told);
            });
    });
}

bool cWebDisplayCEFBrowser::AskPage(const zString& expression,
                                    std::function<void(const zString&)> onValue) {
    if (!m_state->is_on_page_clock || !m_windowless) return false;
    const webdisplay_cef_state state = m_engine->state();
    if (!state.browser) return false;
    return run::guarded_or(false, "cWebDisplayCEFBrowser", "AskPage", [&] {
        return run_on_ui(
            [client = state.client, text = std::string(expression.View()),
             told = value_receiver(std::move(onValue))] { client->ask_page(text, told); });
    });
}

bool cWebDisplayCEFBrowser::CallInspector(const zString& method, const zString& parameters,
                                          std::function<void(const zString&)> onResult) {
    if (!m_state->has_inspector || method.Empty()) return false;
    return run::guarded_or(false, "cWebDisplayCEFBrowser", "CallInspector", [&] {
        inspector_call asked{std::string(method.View()), std::string(parameters.View()),
                             value_receiver(std::move(onResult))};
        if (!inspector_line::is_object(asked.parameters)) return false;
        if (m_state->calls.keep(asked)) return true;
        const webdisplay_cef_state state = m_engine->state();
        if (!state.client) return false;
        return run_on_ui([client = state.client, asked] { client->call_inspector(asked); });
    });
}

// --- windowed mode

void cWebDisplayCEFBrowser::SetParentWindow(HWND parent) {
    m_parent_window = parent;
    m_windowless = parent == nullptr;
}

void cWebDisplayCEFBrowser::notify_move_or_resize() {
    const host_ref host = host_of(m_engine->state().browser);
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
            return erases_background(host_of(m_engine->state().browser), result);
        case WM_SETFOCUS:
        case WM_KILLFOCUS:
            result = 0;
            set_focus(host_of(m_engine->state().browser), message == WM_SETFOCUS);
            return true;
        case WM_SIZE:
            follow_size(*this, host_of(m_engine->state().browser), window, wparam);
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

bool cWebDisplayCEFBrowser::IsCurrentFocusedElementEditableInHWND(HWND window) {
    for (int depth = 0; window && depth < pennywort::k_max_window_depth; ++depth) {
        if (native_window::class_name(window).starts_with("CefBrowserWindow")) {
            return webdisplay_browser_client::focused_element_is_editable();
        }
        window = native_window::parent(window);
    }
    return false;
}
