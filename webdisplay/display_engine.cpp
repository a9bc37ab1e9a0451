// display_engine.cpp - see the header for the contract.
#include "webdisplay/display_engine.h"

#include <algorithm>
#include <new>
#include <utility>

#include "core/limits.h"
#include "core/run/guarded.h"
#include "loam/trace.h"
#include "webdisplay/cef/runtime.h"
#include "webdisplay/cef/text.h"
#include "webdisplay/display_state.h"
#include "webdisplay/live_browsers.h"
#include "webdisplay/message_pump.h"
#include "webdisplay/native_window.h"
#include "webdisplay/page_calls.h"

namespace pennywort::webdisplay {

namespace {

using browser_ref = cef::ref<cef_browser_t>;
using host_ref = cef::ref<cef_browser_host_t>;
using frame_ref = cef::ref<cef_frame_t>;

constexpr int k_page_clock_rate = 60;
constexpr const char* k_empty_page = "about:blank";
constexpr int k_smallest_side = 5;
constexpr cef_color_t k_windowed_background = 0xCC27282B;
constexpr cef_color_t k_transparent = 0x00000000;

// The whole part of a rate that may be anything a host computed.
int whole_frames(double rate) {
    if (!(rate >= 0)) return 0;
    return static_cast<int>(std::min(rate, 1e6));
}

// A browser in a host's window goes with that window, where the system sees to that; any other one
// must be asked.
void close_unless_its_window_does(const browser_ref& browser) {
    const host_ref host(browser->get_host(browser.get()));
    if (!host) return;
    const bool is_alone = host->get_window_handle(host.get()) == cef_window_handle_t{};
    if (is_alone || !native_window::browser_goes_with_its_window()) {
        host->close_browser(host.get(), 1);
    }
}

void close_now(const webdisplay_cef_state& state) {
    run::guarded("cWebDisplayCEFBrowser", "Close", [&] { state.client->close_popups(); });
    close_unless_its_window_does(state.browser);
}

// Nothing closes until the callback has returned.
bool is_inside_callback() {
    return message_pump::inside_work() || sound_port::is_telling() || page_driver::is_stepping();
}

// A page without handlers of its own is destroyed within the call. Inside a callback the runtime
// would go on using it, so there the page closes in a task.
bool closes_at_once() { return cef::on_ui_thread() && !is_inside_callback(); }

bool ask_to_close_soon(const webdisplay_cef_state& state) {
    return run::guarded_or(false, "cWebDisplayCEFBrowser", "Close",
                           [&] { return cef::post_to_ui([state] { close_now(state); }); });
}

bool ask_to_close(const webdisplay_cef_state& state) {
    if (!closes_at_once()) return ask_to_close_soon(state);
    close_now(state);
    return true;
}

}  // namespace

webdisplay_cef_state display_engine::state() const {
    const zAutoCritical lock(m_display.m_state_lock.get());
    return m_display.m_cef_state != nullptr ? *m_display.m_cef_state : webdisplay_cef_state();
}

// --- opening

// For a task, which gives it back also if the runtime ends and drops it without running it. Empty
// when the last reference has gone.
std::shared_ptr<cWebDisplayCEFBrowser> display_engine::another_reference() {
    if (!m_display.AddRefIfAlive()) return nullptr;
    return {&m_display, [](cWebDisplayCEFBrowser* display) { display->Release(); }};
}

bool display_engine::open() {
    {
        const zAutoCritical lock(m_display.m_state_lock.get());
        m_is_open_wanted = true;
    }
    if (m_display.m_state->is_on_page_clock && !can_have_page_clock()) return false;
    const auto held = another_reference();
    if (!cef::on_ui_thread()) {
        return cef::post_to_ui([held] { held->create_cef_browser(nullptr); });
    }
    m_display.create_cef_browser(nullptr);
    return true;
}

void display_engine::create() {
    part_from_gone();
    const bool is_empty = begins_empty();
    const std::string start_url = is_empty ? std::string() : m_display.PeekNextURL();
    const client_ref client = make_client(start_url);
    if (!client) return;
    if (is_empty) client->begin_empty();
    const std::string url = is_empty ? k_empty_page : start_url;
    const bool is_started = run::guarded_or(false, "cWebDisplayCEFBrowser", "Open",
                                            [&] { return start_browser(*client, url); });
    if (is_started) return;
    // Without this, the display would take the browser for one on its way, and never ask again.
    client->life().end();
    part_from(client);
    zTraceManager::Default()->TraceNote(
        "cWebDisplayCEFBrowser::Open: the runtime made no browser for %s\n", start_url.c_str());
}

// A page by its own clock is loaded when that stands, and one whose inspector was called first when
// it has answered: what it was told would not reach a page that is on its way already.
bool display_engine::begins_empty() const {
    const display_state& state = *m_display.m_state;
    if (state.is_on_page_clock && m_display.m_windowless) return true;
    return state.has_inspector && state.calls.has_kept();
}

// A page that closed itself has left its client behind. The runtime, and tasks that wait, may hold
// that one longer than the display lives, so it must not go on naming the display as its owner.
void display_engine::part_from_gone() {
    const webdisplay_cef_state left = state();
    if (left.client && left.client->life().is_gone()) part_from(left.client);
}

bool display_engine::can_have_page_clock() {
    const outcome<> prepared = page_driver::prepare();
    if (prepared) return true;
    zTraceManager::Default()->TraceNote("cWebDisplayCEFBrowser::Open: no clock of the page: %s\n",
                                        prepared.text().c_str());
    return false;
}

// Empty if the display was opened twice, or closed before its turn came.
display_engine::client_ref display_engine::make_client(const std::string& start_url) {
    const zAutoCritical lock(m_display.m_state_lock.get());
    webdisplay_cef_state*& holder = m_display.m_cef_state;
    if (!m_is_open_wanted || holder != nullptr) return {};
    std::shared_ptr<zSignal> ended(zSignal::Factory());
    if (!ended) throw std::bad_alloc();
    client_ref client(new webdisplay_browser_client(&m_display, start_url, ended));
    auto fresh = std::make_unique<webdisplay_cef_state>(webdisplay_cef_state{{}, client});
    client->set_alive();
    holder = fresh.release();
    m_display.m_close_signal = std::move(ended);
    const std::lock_guard<std::mutex> guard(m_display.m_state->loads_lock);
    m_display.m_state->loads.start_over();
    return client;
}

bool display_engine::start_browser(webdisplay_browser_client& client, const std::string& url) {
    long width = 0;
    long height = 0;
    m_display.GetSize(width, height);
    cef_window_info_t window{};
    window.size = sizeof window;
    window.runtime_style = CEF_RUNTIME_STYLE_ALLOY;
    window.bounds.width = static_cast<int>(std::max<long>(width, k_smallest_side));
    window.bounds.height = static_cast<int>(std::max<long>(height, k_smallest_side));
    cef_browser_settings_t settings{};
    settings.size = sizeof settings;
    if (m_display.m_windowless) {
        window.windowless_rendering_enabled = 1;
        window.external_begin_frame_enabled =
            m_display.m_state->is_on_host_clock || m_display.m_state->is_on_page_clock ? 1 : 0;
        // For a page by its own clock it counts for nothing: the runtime says of each frame that is
        // asked for that it lasts a sixtieth of a second, and an animated picture runs ahead by
        // that.
        settings.windowless_frame_rate = m_display.m_state->is_on_page_clock
                                             ? k_page_clock_rate
                                             : whole_frames(m_display.m_frame_rate);
        settings.background_color =
            m_display.m_transparent ? k_transparent : m_display.m_state->background;
    } else {
        native_window::fill_child(window, m_display.m_parent_window, static_cast<int>(width),
                                  static_cast<int>(height));
        settings.background_color = k_windowed_background;
    }
    const cef::utf16 address(url);
    cef::ref<cef_dictionary_value_t> told = told_to_page(m_display.m_state->terms);
    live_browsers::expect();
    const bool is_started =
        cef::api().cef_browser_host_create_browser(&window, client.counted_client(), address.get(),
                                                   &settings, told.release(), nullptr) != 0;
    if (!is_started) live_browsers::expect_no_more();
    return is_started;
}

// --- closing

// Whoever closes first asks the browser to go, and everybody waits for the one end of it. In a
// callback of the runtime nobody can wait: nothing closes until the callback returns, and the
// browser then closes behind us, with a client that has no owner any more.
void display_engine::close() {
    webdisplay_cef_state state;
    const close_step step = begin_closing(state);
    if (!state.client) return;
    const bool is_windowless = m_display.m_windowless;
    const bool has_to_ask = step == close_step::ask;
    bool is_asked = step == close_step::join;
    if (has_to_ask && is_windowless) is_asked = ask_to_close(state);
    if (is_windowless && (has_to_ask || is_asked)) wait_until_closed(state, is_asked);
    part_from(state.client);
    // One in a window is not waited for.
    if (has_to_ask && !is_windowless) ask_to_close_soon(state);
}

close_step display_engine::begin_closing(webdisplay_cef_state& state) {
    const zAutoCritical lock(m_display.m_state_lock.get());
    m_is_open_wanted = false;
    if (m_display.m_cef_state == nullptr) return close_step::nothing;
    state = *m_display.m_cef_state;
    return state.client->life().close();
}

// From here on the client finds no owner. Only this client's holder goes: another thread may have
// opened the display again.
void display_engine::part_from(const client_ref& client) {
    client->detach();
    const zAutoCritical lock(m_display.m_state_lock.get());
    webdisplay_cef_state*& holder = m_display.m_cef_state;
    if (holder == nullptr || holder->client.get() != client.get()) return;
    const std::unique_ptr<webdisplay_cef_state> left(std::exchange(holder, nullptr));
    m_display.m_state->calls.browser_gone();
    const std::lock_guard<std::mutex> guard(m_display.m_state->loads_lock);
    m_display.m_state->loads.close();
}

// The thread that drives the runtime must go on doing so, or it would wait for nothing.
void display_engine::wait_until_closed(const webdisplay_cef_state& state, bool is_asked) {
    if (is_inside_callback() || !cef::running()) return;
    shared_life& life = state.client->life();
    for (int round = 0; round < k_close_rounds; ++round) {
        const bool is_gone = life.wait(k_close_round_us);
        if (!is_gone && !is_asked) is_asked = ask_to_close(state);  // memory was out
        if (cef::on_ui_thread()) message_pump::work_once();
        if (is_gone) return;
    }
    zTraceManager::Default()->TraceNote(
        "cWebDisplayCEFBrowser::Close: the runtime did not close the page in time\n");
}

void display_engine::browser_destroyed() {
    browser_ref gone;
    std::shared_ptr<zSignal> ended;
    {
        const zAutoCritical lock(m_display.m_state_lock.get());
        if (m_display.m_cef_state != nullptr)
            gone = std::exchange(m_display.m_cef_state->browser, {});
        ended = m_display.m_close_signal;
    }
    if (ended) ended->Set();
    const std::lock_guard<std::mutex> guard(m_display.m_state->loads_lock);
    m_display.m_state->loads.close();
}

// --- pages

void display_engine::load_next() {
    if (!m_display.has_next_url()) return;
    webdisplay_cef_state state;
    {
        const zAutoCritical lock(m_display.m_state_lock.get());
        if (m_display.m_cef_state != nullptr) state = *m_display.m_cef_state;
        // The client loads it when the browser appears.
        if (!state.browser) m_display.m_load_pending = true;
    }
    if (state.browser && !cef::on_ui_thread()) return load_next_on_ui_thread();
    // A page that is being loaded asks for the next one itself when it has finished.
    if (!state.browser || is_loading(state)) return;
    const frame_ref frame(state.browser->get_main_frame(state.browser.get()));
    if (!frame || !state.client->may_load()) return;
    // One URL a call, and nothing for an empty one, unless the host wants to hear of each.
    const bool passes_over = m_display.m_state->loads.policy().tell_every_load;
    while (!load(*state.client, *frame.get(), m_display.PeekNextURL()) && passes_over &&
           m_display.has_next_url()) {
    }
}

// Elsewhere a load that has just been asked for does not show as loading yet, and the next URL
// would replace it.
void display_engine::load_next_on_ui_thread() {
    const auto held = another_reference();
    if (held) cef::post_to_ui([held] { held->LoadNextUrl(); });
}

// False where there was nothing to load.
bool display_engine::load(webdisplay_browser_client& client, cef_frame_t& frame,
                          const std::string& url) {
    const cef::utf16 address(url);
    const unsigned ticket = url.empty() ? 0 : client.page_asked_for(url);
    // Taken out last, so that the URL is still there if memory was out before.
    m_display.PopNextURL();
    if (url.empty()) return false;
    frame.load_url(&frame, address.get());
    client.look_whether_ignored(ticket);
    return true;
}

bool display_engine::is_loading() const {
    const webdisplay_cef_state now = state();
    return now.browser && is_loading(now);
}

// A page whose process has ended finishes no load, though the runtime may go on calling it loading.
bool display_engine::is_loading(const webdisplay_cef_state& state) const {
    return state.browser->is_loading(state.browser.get()) != 0 &&
           !m_display.m_state->loads.is_lost();
}

}  // namespace pennywort::webdisplay
