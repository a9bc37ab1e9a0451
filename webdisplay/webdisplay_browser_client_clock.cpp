// webdisplay_browser_client_clock.cpp - what a client does for a page that lives by its own clock.
#include <chrono>
#include <mutex>
#include <utility>

#include "core/run/guarded.h"
#include "loam/trace.h"
#include "webdisplay/cef/text.h"
#include "webdisplay/client_owner_use.h"
#include "webdisplay/display_state.h"

namespace pennywort::webdisplay {

namespace {

// In seconds: scripts know no later one.
constexpr double k_last_day = 8.64e12;

}  // namespace

double webdisplay_browser_client::page_day() const {
    using seconds = std::chrono::duration<double>;
    if (m_page_day > 0 && m_page_day < k_last_day) return m_page_day;
    return seconds(std::chrono::system_clock::now().time_since_epoch()).count();
}

void webdisplay_browser_client::make_driver() {
    if (!m_is_on_page_clock) return;
    page_driver_events events;
    events.load_next = [this] {
        end_sound();
        const owner_use owner(*this);
        if (owner) owner->LoadNextUrl();
    };
    events.page_stands = [this] { page_stands(); };
    events.failed = [this](const std::string& why) { page_stopped(why); };
    events.refused = [this](const std::string& why) { note_fault(why); };
    if (m_own_sound) {
        events.sounds = [this](const page_samples& heard) { page_sounds(heard); };
        events.is_heard = [this] { return m_own_sound->has_receiver(); };
    }
    m_driver = cef::own<page_driver>(
        new page_driver(page_day(), page_start::of(m_page_start), std::move(events)));
}

// Only now: before that the browser may have shown it in a process that it has left again.
void webdisplay_browser_client::page_stands() {
    const owner_use owner(*this);
    webdisplay_cef_state state;
    if (owner) owner->get_cef_state(state);
    if (!state.browser) return;
    const cef::ref<cef_frame_t> frame(state.browser->get_main_frame(state.browser.get()));
    if (!frame) return;
    inject_scripts(frame.get(), owner->get_css_override(), false);
    report_end(*owner, state.browser.get(), cef::utf8_of(frame->get_url(frame.get())));
}

// What kept the page before from its frames says nothing of the next one.
bool webdisplay_browser_client::may_load() {
    if (m_driver) note_fault({});
    return !m_waits_for_calls && (!m_driver || m_driver->may_load());
}

void webdisplay_browser_client::advance_page(std::int64_t microseconds,
                                             page_timeline::receiver told) {
    if (!m_driver) {
        note_fault("the browser has gone");
        return told ? told(frame_end::failed) : void();
    }
    m_driver->advance(microseconds, [this, told = std::move(told)](frame_end how) {
        if (how == frame_end::unchanged && show_unseen()) how = frame_end::painted;
        if (told) told(how);
    });
}

void webdisplay_browser_client::ask_page(std::string expression,
                                         page_timeline::value_receiver told) {
    if (!m_driver) return told ? told({}) : void();
    m_driver->ask(std::move(expression), std::move(told));
}

// What is painted before the first frame is kept: a page that stands still paints no other.
void webdisplay_browser_client::take_page_frame(cWebDisplayCEFBrowser& owner, const void* buffer,
                                                int width, int height) {
    if (m_driver->shows_frame()) {
        m_unseen.forget();
        show_frame(owner, buffer, width, height);
    } else {
        m_unseen.keep(buffer, width, height);
    }
    m_driver->painted();
}

bool webdisplay_browser_client::show_unseen() {
    const owner_use owner(*this);
    if (!owner) return false;
    return m_unseen.show([&](const void* buffer, int width, int height) {
        show_frame(*owner, buffer, width, height);
    });
}

void webdisplay_browser_client::page_sounds(const page_samples& heard) {
    constexpr long k_sides = 2;
    constexpr long k_rate = k_page_samples_of_a_millisecond * 1000;
    const float* const sides[k_sides] = {heard.left(), heard.right()};
    if (!std::exchange(m_is_sounding, true)) m_own_sound->started(k_sides, k_rate);
    m_own_sound->packet(sides, static_cast<long>(heard.frames()), heard.milliseconds);
}

void webdisplay_browser_client::end_sound() {
    if (!std::exchange(m_is_sounding, false)) return;
    // What a host throws must not keep the browser's end from being told.
    run::guarded("cWebDisplayBrowser", "AudioStopped", [this] { m_own_sound->stopped(); });
}

void webdisplay_browser_client::page_stopped(const std::string& why) {
    zTraceManager::Default()->TraceNote("cWebDisplayBrowser: the page stands still: %s\n",
                                        why.c_str());
    note_fault(why);
}

void webdisplay_browser_client::note_fault(const std::string& why) {
    const owner_use owner(*this);
    if (!owner) return;
    const std::lock_guard<std::mutex> guard(owner->m_state->loads_lock);
    owner->m_state->frame_fault = why;
}

}  // namespace pennywort::webdisplay
