// webdisplay_browser.cpp - the part of a display that does not depend on the browser engine.
#include <algorithm>
#include <atomic>
#include <mutex>
#include <new>
#include <utility>

#include "core/run/guarded.h"
#include "core/statuses.h"
#include "loam/observer.h"
#include "loam/time.h"
#include "loam/trace.h"
#include "webdisplay.h"
#include "webdisplay/display_state.h"

namespace run = pennywort::run;
using pennywort::webdisplay::load_policy;

namespace {

constexpr std::uint64_t k_what = 0x77686174;  // 'what'
constexpr char k_re_enterable = 1;

// A display without one of its locks is none: whoever makes it hears that memory is out.
std::unique_ptr<zCritical> new_lock() {
    std::unique_ptr<zCritical> lock(zCritical::Factory(k_re_enterable));
    if (lock == nullptr) throw std::bad_alloc();
    return lock;
}

load_policy policy_of(const zRecord& settings) {
    load_policy policy;
    policy.report_lost_page = settings.AsBool("web_report_lost_page", false);
    policy.keep_last_picture = settings.AsBool("web_keep_last_picture", false);
    policy.tell_every_load = settings.AsBool("web_tell_every_load", false);
    policy.fail_on_error_status = settings.AsBool("web_fail_on_error_status", false);
    return policy;
}

// Nothing that no screen has; 0 and what is no number are the default.
double scale_of(const zRecord& settings) {
    constexpr double k_smallest = 0.1;
    constexpr double k_largest = 16;
    const double scale = settings.AsDouble("web_scale", 0);
    return scale > 0 ? std::clamp(scale, k_smallest, k_largest) : 1;
}

// In the order of load_phase.
constexpr cWebDisplayPagePhase k_phases[] = {
    cWebDisplayPagePhase::None,   cWebDisplayPagePhase::Asked, cWebDisplayPagePhase::Loading,
    cWebDisplayPagePhase::Failed, cWebDisplayPagePhase::Lost,  cWebDisplayPagePhase::Loaded,
    cWebDisplayPagePhase::Closed};

std::unique_ptr<zRecord> record_with(long what) {
    auto record = std::make_unique<zRecord>();
    record->SetInt32(k_what, static_cast<std::int32_t>(what), 0);
    return record;
}

void post(long observer_id, std::unique_ptr<zRecord> payload) {
    zObserverHandler::PostNotification(static_cast<std::int32_t>(observer_id), payload.release(),
                                       0);
}

std::int32_t at_least_one_pixel(std::int32_t side) { return side > 1 ? side : 1; }

// What is known of the plug-in, for all displays of the process. The latches make each notice come
// at most once, in whatever order host and detection arrive and on whatever threads.
struct flash_state {
    std::atomic<bool> detection_run{false};
    std::atomic<bool> available{false};
    std::atomic<bool> notification_posted{false};
    std::atomic<bool> function_called{false};
    std::atomic<bool> inform_requested{false};
    std::mutex lock;  // guards the three below
    long observer_id = 0;
    long what = 0;
    std::function<void(bool)> missing_function;
};

flash_state& flash() {
    static flash_state state;
    return state;
}

void inform_by_notification(flash_state& state) {
    long observer_id = 0;
    long what = 0;
    {
        const std::lock_guard<std::mutex> guard(state.lock);
        observer_id = state.observer_id;
        what = state.what;
    }
    if (observer_id == 0 || what == 0 || state.notification_posted.exchange(true)) return;
    post(observer_id, record_with(what));
}

void inform_by_function(flash_state& state) {
    std::function<void(bool)> missing;
    {
        const std::lock_guard<std::mutex> guard(state.lock);
        missing = state.missing_function;
    }
    if (missing && !state.function_called.exchange(true)) missing(false);
}

void inform_if_missing() {
    flash_state& state = flash();
    if (!state.inform_requested || !state.detection_run || state.available) return;
    run::guarded("cWebDisplayBrowser", "Flash_InformUserIfMissing", [&] {
        inform_by_notification(state);
        inform_by_function(state);
    });
}

}  // namespace

cBrowserVideoRendererInterface::~cBrowserVideoRendererInterface() = default;

cBrowserAudioReceiverInterface::~cBrowserAudioReceiverInterface() = default;

cBrowserPageCallbackHandler::~cBrowserPageCallbackHandler() = default;
void cBrowserPageCallbackHandler::PageLoadFailed(const zString&, const zString&) {}
void cBrowserPageCallbackHandler::PageLoaded(const zString&) {}
bool cBrowserPageCallbackHandler::PageRequest(const zString&) { return true; }

cBrowserInspectorHandler::~cBrowserInspectorHandler() = default;
void cBrowserInspectorHandler::InspectorEvent(const zString&, const zString&) {}

cBrowserJavascriptCallbackHandler::~cBrowserJavascriptCallbackHandler() = default;
void cBrowserJavascriptCallbackHandler::JavascriptCallback(const zString&, const zString&,
                                                           zString&) {}

cWebDisplayBrowser::cWebDisplayBrowser(const zRecord& settings, double frameRate)
    : m_video_renderer_lock(new_lock()),
      m_page_receiver_lock(new_lock()),
      m_javascript_receiver_lock(new_lock()),
      m_frame_rate(frameRate),
      m_observer_lock(new_lock()),
      m_state(std::make_unique<pennywort::webdisplay::display_state>(policy_of(settings))) {
    const std::int32_t width = settings.AsInt32("web_width", 0);
    const std::int32_t height = settings.AsInt32("web_height", 0);
    m_size.Set(at_least_one_pixel(width), at_least_one_pixel(height));
    std::string url = settings.AsString("web_url", {});
    if (!url.empty()) m_url_queue.push_back(std::move(url));
    m_transparent = settings.AsBool("web_transparent", false);
    m_css_override = settings.AsString("web_override_css", {});
    m_state->is_on_host_clock = settings.AsBool("web_host_clock", false);
    m_state->is_on_page_clock = settings.AsBool("web_page_clock", false);
    m_state->page_day = settings.AsDouble("web_page_day", 0);
    m_state->page_start = settings.AsString("web_page_start", {});
    const std::int32_t background = settings.AsInt32("web_background", 0);
    m_state->background |= static_cast<std::uint32_t>(background);
    m_state->scale = scale_of(settings);
    m_state->has_inspector = settings.AsBool("web_inspector", false);
    m_state->inspector_receiver_lock = new_lock();
    m_state->refuses_downloads = settings.AsBool("web_refuse_downloads", false);
    m_state->max_popups = settings.AsInt32("web_max_popups", 0);
    m_state->merges_widgets = settings.AsBool("web_merge_widgets", false);
    m_state->terms.max_waiting_calls = settings.AsInt32("web_max_waiting_calls", 0);
    m_state->terms.refuses_printing = settings.AsBool("web_refuse_printing", false);
    m_state->is_muted = settings.AsBool("web_muted", false);
    if (settings.AsBool("web_sound", false)) {
        m_state->sound = std::make_shared<pennywort::webdisplay::sound_port>();
    }
}

cWebDisplayBrowser::~cWebDisplayBrowser() {
    SetVideoRenderer(nullptr);
    SetPageCallbackReceiver(nullptr);
    SetJavascriptCallbackReceiver(nullptr);
    SetAudioReceiver(nullptr);
    SetInspectorReceiver(nullptr);
    const zAutoCritical lock(m_observer_lock.get());
    m_observers.clear();
}

bool cWebDisplayBrowser::AreWebDisplaySizeSettingsEqual(const zRecord& a, const zRecord& b) {
    return a.AsInt32("web_width", 0) == b.AsInt32("web_width", 0) &&
           a.AsInt32("web_height", 0) == b.AsInt32("web_height", 0);
}

bool cWebDisplayBrowser::IsWebDisplaySettingsEqual(const zRecord& a, const zRecord& b) {
    return run::guarded_or(false, "cWebDisplayBrowser", "IsWebDisplaySettingsEqual", [&] {
        return a.AsString("web_url", {}) == b.AsString("web_url", {}) &&
               a.AsString("web_override_css", {}) == b.AsString("web_override_css", {}) &&
               a.AsBool("web_transparent", false) == b.AsBool("web_transparent", false);
    });
}

// --- scripts

long cWebDisplayBrowser::ExecuteJavascript(unsigned long, unsigned long,
                                           std::function<void(std::string)>) {
    return pennywort::k_failed;
}

long cWebDisplayBrowser::ExecuteJavascript(unsigned long, unsigned long, long, unsigned long) {
    return pennywort::k_failed;
}

long cWebDisplayBrowser::CacheScriptToBrowser(const zString&, unsigned long,
                                              std::function<void(std::string)>) {
    return pennywort::k_failed;
}

long cWebDisplayBrowser::ExecuteJavascript(const zString& script, unsigned long what,
                                           long observerId, unsigned long timeoutMs) {
    if (observerId == 0) return ExecuteJavascript(script, 0, std::function<void(std::string)>());
    return run::guarded_or<long>(
        pennywort::k_failed, "cWebDisplayBrowser", "ExecuteJavascript", [&] {
            return ExecuteJavascript(
                script, timeoutMs, [observerId, what](const std::string& result) {
                    std::unique_ptr<zRecord> payload = record_with(static_cast<long>(what));
                    payload->SetString("script_result", result);
                    post(observerId, std::move(payload));
                });
        });
}

void cWebDisplayBrowser::add_observer(const char* key, std::function<void(std::string)> callback,
                                      unsigned long timeoutMs) {
    const zAutoCritical lock(m_observer_lock.get());
    const std::int64_t now = zTime::MicroNow();
    // The product wraps at 32 bits; hosts have tuned their time-outs to that.
    const std::uint32_t microseconds = static_cast<std::uint32_t>(timeoutMs) * 1000u;
    observer_entry& entry = m_observers[key != nullptr ? key : ""];
    entry.callback = std::move(callback);
    entry.expiry = timeoutMs == 0 ? 0 : now + microseconds;
    std::erase_if(m_observers, [now](const auto& item) {
        return item.second.expiry > 0 && item.second.expiry < now;
    });
}

void cWebDisplayBrowser::received_javascript_exec_result(const zString& key,
                                                         const zString& result) {
    const zAutoCritical lock(m_observer_lock.get());
    // Copied before anything is lost: without memory for it the result is still awaited.
    std::string text(result.View());
    // Taken out of the table first, so that a callback that runs another script cannot have its own
    // entry swept away underneath it.
    const auto entry = m_observers.extract(std::string(key.View()));
    if (entry) entry.mapped().callback(std::move(text));
}

const char* cWebDisplayBrowser::get_css_override() const { return m_css_override.c_str(); }

// --- receivers

void cWebDisplayBrowser::SetVideoRenderer(cBrowserVideoRendererInterface* renderer) {
    const zAutoCritical lock(m_video_renderer_lock.get());
    m_video_renderer = renderer;
}

void cWebDisplayBrowser::SetPageCallbackReceiver(cBrowserPageCallbackHandler* receiver) {
    const zAutoCritical lock(m_page_receiver_lock.get());
    m_page_receiver = receiver;
    *m_state->has_page_receiver = receiver != nullptr;
}

void cWebDisplayBrowser::SetJavascriptCallbackReceiver(
    cBrowserJavascriptCallbackHandler* receiver) {
    const zAutoCritical lock(m_javascript_receiver_lock.get());
    m_javascript_receiver = receiver;
}

void cWebDisplayBrowser::SetAudioReceiver(cBrowserAudioReceiverInterface* receiver) {
    if (m_state->sound) m_state->sound->set_receiver(receiver);
}

void cWebDisplayBrowser::SetInspectorReceiver(cBrowserInspectorHandler* receiver) {
    const zAutoCritical lock(m_state->inspector_receiver_lock.get());
    m_state->inspector_receiver = receiver;
}

void cWebDisplayBrowser::BrowserPainted(const void* pixels, long width, long height, bool isPopup) {
    if (!isPopup) m_state->ticks.painted();
    const zAutoCritical lock(m_video_renderer_lock.get());
    if (m_video_renderer != nullptr)
        m_video_renderer->BrowserPainted(pixels, width, height, isPopup);
}

bool cWebDisplayBrowser::handle_page_request(const char* url) {
    const zAutoCritical lock(m_page_receiver_lock.get());
    return m_page_receiver != nullptr ? m_page_receiver->PageRequest(url) : true;
}

void cWebDisplayBrowser::handle_page_loaded(const char* url) {
    {
        const std::lock_guard<std::mutex> guard(m_state->url_lock);
        m_last_loaded_url = url != nullptr ? url : "";
    }
    const zAutoCritical lock(m_page_receiver_lock.get());
    if (m_page_receiver != nullptr) m_page_receiver->PageLoaded(url);
    LoadNextUrl();
}

void cWebDisplayBrowser::handle_page_load_failed(const char* url, const char* error) {
    zTraceManager::Default()->TraceNote(
        "cWebDisplayBrowser: page load failed:\nurl: %s\nerror: %s\n", url != nullptr ? url : "",
        error != nullptr ? error : "");
    const zAutoCritical lock(m_page_receiver_lock.get());
    if (m_page_receiver != nullptr) m_page_receiver->PageLoadFailed(url, error);
    LoadNextUrl();
}

void cWebDisplayBrowser::handle_inspector_event(const zString& method, const zString& parameters) {
    const zAutoCritical lock(m_state->inspector_receiver_lock.get());
    if (m_state->inspector_receiver != nullptr)
        m_state->inspector_receiver->InspectorEvent(method, parameters);
}

void cWebDisplayBrowser::handle_javascript_callback(const zString& name, const zString& argument,
                                                    zString& result) {
    const zAutoCritical lock(m_javascript_receiver_lock.get());
    if (m_javascript_receiver != nullptr)
        m_javascript_receiver->JavascriptCallback(name, argument, result);
}

// --- size, queue and counts

void cWebDisplayBrowser::GetSize(long& width, long& height) const {
    const std::lock_guard<std::mutex> guard(m_state->size_lock);
    width = m_size.X();
    height = m_size.Y();
}

void cWebDisplayBrowser::LoadUrl(const char* url) {
    if (url == nullptr) return;
    run::guarded("cWebDisplayBrowser", "LoadUrl", [&] {
        {
            const std::lock_guard<std::mutex> guard(m_state->url_lock);
            m_url_queue.emplace_back(url);
        }
        LoadNextUrl();
    });
}

std::string cWebDisplayBrowser::PeekNextURL() {
    const std::lock_guard<std::mutex> guard(m_state->url_lock);
    return m_url_queue.empty() ? std::string() : m_url_queue.front();
}

std::string cWebDisplayBrowser::PopNextURL() {
    const std::lock_guard<std::mutex> guard(m_state->url_lock);
    if (m_url_queue.empty()) return {};
    std::string url = std::move(m_url_queue.front());
    m_url_queue.pop_front();
    return url;
}

void cWebDisplayBrowser::put_back_url(const std::string& url) {
    const std::lock_guard<std::mutex> guard(m_state->url_lock);
    m_url_queue.push_front(url);
}

bool cWebDisplayBrowser::has_next_url() const {
    const std::lock_guard<std::mutex> guard(m_state->url_lock);
    return !m_url_queue.empty();
}

void cWebDisplayBrowser::GetUrlForLastPageLoaded(zString& out) const {
    run::guarded("cWebDisplayBrowser", "GetUrlForLastPageLoaded", [&] {
        const std::lock_guard<std::mutex> guard(m_state->url_lock);
        out = m_last_loaded_url;
    });
}

void cWebDisplayBrowser::GetFrameCounts(cWebDisplayFrameCounts& out) const {
    out.painted = m_state->ticks.pictures();
    out.ticks = m_state->ticks.ticks();
    out.ticks_missed = m_state->ticks.missed();
}

void cWebDisplayBrowser::GetPageStatus(cWebDisplayPageStatus& out) const {
    run::guarded("cWebDisplayBrowser", "GetPageStatus", [&] {
        {
            const std::lock_guard<std::mutex> guard(m_state->loads_lock);
            const pennywort::webdisplay::page_loads& loads = m_state->loads;
            out.phase = k_phases[static_cast<int>(loads.phase())];
            out.url = loads.url();
            out.asked = loads.asked_url();
            out.error = loads.error();
            out.frameFault = m_state->frame_fault;
        }
        out.droppedCalls = m_state->dropped_calls;
        out.isWidgetOpening = m_state->widget_is_opening;
        const std::lock_guard<std::mutex> guard(m_state->url_lock);
        out.waiting = static_cast<std::uint32_t>(m_url_queue.size());
    });
}

bool cWebDisplayBrowser::AdvancePage(std::int64_t, std::function<void(cWebDisplayPageFrame)>) {
    return false;
}

bool cWebDisplayBrowser::AskPage(const zString&, std::function<void(const zString&)>) {
    return false;
}

bool cWebDisplayBrowser::CallInspector(const zString&, const zString&,
                                       std::function<void(const zString&)>) {
    return false;
}

bool cWebDisplayBrowser::NextFrame() { return false; }

// --- plug-in availability

bool cWebDisplayBrowser::HaveRunFlashDetection() { return flash().detection_run; }
void cWebDisplayBrowser::SetHaveRunFlashDetection(bool run) { flash().detection_run = run; }

void cWebDisplayBrowser::Flash_SetAvailability(bool available) {
    flash().available = available;
    inform_if_missing();
}

void cWebDisplayBrowser::Flash_ConfigureMissingCallback(long observerId, long what) {
    {
        const std::lock_guard<std::mutex> guard(flash().lock);
        flash().observer_id = observerId;
        flash().what = what;
    }
    inform_if_missing();
}

void cWebDisplayBrowser::Flash_ConfigureMissingFunction(std::function<void(bool)> fn) {
    {
        const std::lock_guard<std::mutex> guard(flash().lock);
        flash().missing_function = std::move(fn);
    }
    inform_if_missing();
}

void cWebDisplayBrowser::Flash_InformUserIfMissing() {
    flash().inform_requested.exchange(true);
    inform_if_missing();
}
