// page_driver.cpp - see the header for the contract.
#include "webdisplay/page_driver.h"

#include <atomic>
#include <chrono>
#include <utility>

#include "core/run/guarded.h"
#include "webdisplay/cef/runtime.h"
#include "webdisplay/cef/text.h"
#include "webdisplay/page_clock.h"
#include "webdisplay/page_file.h"
#include "webdisplay/thread_mark.h"

namespace pennywort::webdisplay {

namespace {

// Nothing is due that late; the timer wants a period.
constexpr int k_nothing_due_ms = 1000;

std::atomic<bool> g_is_allowed{false};

thread_local bool t_is_stepping = false;

}  // namespace

page_driver::page_driver(double day, page_start start, page_driver_events events,
                         const run::monotonic_clock& clock)
    : m_events(std::move(events)),
      m_clock(clock),
      m_timer(main_thread_timer::make([this] { step(); })),
      m_timeline(*this, day, std::move(start)) {
    if (m_timer != nullptr) m_timer->start_on_request(k_nothing_due_ms);
}

void page_driver::allow() { g_is_allowed = true; }

outcome<> page_driver::prepare() {
    if (!g_is_allowed) return failure{k_failed, "EnablePageClock was not called before Startup"};
    static const outcome<> led =
        lead_clock_of(reinterpret_cast<const void*>(cef::api().cef_do_message_loop_work));
    return led;
}

void page_driver::browser_arrived(cef_browser_t* browser) {
    m_host = cef::ref<cef_browser_host_t>(browser->get_host(browser));
    m_browser = cef::ref<cef_browser_t>::shared(browser);
    if (!m_host) return;
    m_registration = cef::ref<cef_registration_t>(
        m_host->add_dev_tools_message_observer(m_host.get(), counted_observer()));
    m_timeline.browser_arrived();
    step_soon();
}

void page_driver::painted() {
    m_timeline.painted();
    step_soon();
}

// Kept for the case that it has to be loaded once more.
void page_driver::page_loaded(const std::string& url) {
    m_loaded_url = url;
    m_timeline.page_loaded();
    step_soon();
}

void page_driver::page_lost() {
    m_timeline.page_lost();
    step_soon();
}

void page_driver::close() {
    m_events = {};
    m_timeline.page_lost();
    if (m_timer != nullptr) m_timer->stop();
    m_registration = {};
    m_browser = {};
    m_host = {};
}

bool page_driver::may_load() {
    if (m_timeline.is_loadable()) return true;
    m_timeline.ask_load();
    step_soon();
    return false;
}

void page_driver::advance(std::int64_t microseconds, page_timeline::receiver told) {
    const char* const refusal = m_timeline.refusal_of(microseconds);
    if (refusal != nullptr) {
        if (m_events.refused) m_events.refused(refusal);
        return told ? told(frame_end::failed) : void();
    }
    m_timeline.advance(microseconds, std::move(told));
    step_soon();
}

void page_driver::ask(std::string expression, page_timeline::value_receiver told) {
    if (!m_timeline.ask(std::move(expression), told) && told) return told({});
    step_soon();
}

void page_driver::OnDevToolsMessage(std::string_view message) {
    m_timeline.message_came(message);
    step_soon();
}

// --- for the timeline

void page_driver::send_to_inspector(const std::string& message) {
    if (m_host) m_host->send_dev_tools_message(m_host.get(), message.data(), message.size());
}

bool page_driver::begin_frame(std::int64_t nanoseconds) {
    if (!m_host) return false;
    const page_moment moment(nanoseconds);
    m_host->send_external_begin_frame(m_host.get());
    return moment.was_read();
}

void page_driver::load_page() {
    if (m_timeline.is_loading_again()) return load_again();
    if (m_events.load_next) m_events.load_next();
}

// By the frame as it is now: with the process it has changed, too.
void page_driver::load_again() {
    if (!m_browser) return;
    const cef::ref<cef_frame_t> frame(m_browser->get_main_frame(m_browser.get()));
    if (frame) frame->load_url(frame.get(), cef::utf16(m_loaded_url).get());
}

void page_driver::page_stands() {
    if (m_events.page_stands) m_events.page_stands();
}

void page_driver::page_fails(const std::string& why) {
    if (m_events.failed) m_events.failed(why);
}

void page_driver::page_sounds(const page_samples& heard) {
    if (m_events.sounds) m_events.sounds(heard);
}

// A page of a site may not have this machine's files.
std::string page_driver::bytes_of_file(const std::string& url) {
    return m_loaded_url.compare(0, 5, "file:") == 0 ? bytes_of_file_url(url) : std::string();
}

// Not within the runtime's callback, in which frames could not begin.
void page_driver::step_soon() {
    if (std::exchange(m_is_step_posted, true)) return;
    const auto held = cef::own<page_driver>::shared(this);
    const bool is_posted = run::guarded_or(false, "cWebDisplayCEFBrowser", "AdvancePage", [&] {
        return cef::post_to_ui([held] { held->step(); });
    });
    // Memory is out: the timer's next tick does it.
    if (!is_posted) m_is_step_posted = false;
}

bool page_driver::is_stepping() { return t_is_stepping; }

void page_driver::step() {
    const thread_mark stepping(t_is_stepping);
    m_is_step_posted = false;
    const auto held = cef::own<page_driver>::shared(this);
    run::guarded("cWebDisplayCEFBrowser", "AdvancePage",
                 [this] { m_timeline.step(m_clock.now()); });
    const auto due = m_timeline.due();
    if (m_timer == nullptr || due == run::monotonic_clock::time::max()) return;
    m_timer->request_in(due - m_clock.now());
}

}  // namespace pennywort::webdisplay
