// webdisplay_manager.cpp - starts, drives and ends the browser runtime, and makes displays.
#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/limits.h"
#include "core/run/guarded.h"
#include "loam/message_loop.h"
#include "loam/thread.h"
#include "loam/time.h"
#include "loam/trace.h"
#include "webdisplay.h"
#include "webdisplay/cache_folder.h"
#include "webdisplay/cef/runtime.h"
#include "webdisplay/live_browsers.h"
#include "webdisplay/message_pump.h"
#include "webdisplay/page_driver.h"
#include "webdisplay/runtime_start.h"
#include "webdisplay/webdisplay_cef_app.h"

using namespace pennywort;
using namespace pennywort::webdisplay;  // the parts that the manager puts together

namespace {

// A frame is over only when all of its own picture is drawn.
constexpr const char* k_exact_tick_switch = "run-all-compositor-stages-before-draw";
// Without it the display may draw before the page, by the order of their addresses, and every
// picture is a frame late.
constexpr const char* k_exact_tick_feature = "DisplaySchedulerAsClient";

// Beside those, of a page by its own clock: frames of other sites stay in the page's process, which
// has the one clock.
constexpr const char* k_page_clock_switches[] = {
    "disable-new-content-rendering-timeout",
    "disable-checker-imaging",
    "disable-threaded-animation",
    "disable-threaded-scrolling",
    "disable-image-animation-resync",
    "disable-site-isolation-trials",
    // The browser would put a page that moves on to another one aside as it is. Half way to that
    // one, with its time held for what it fetches, it would hold the time of the next one, too.
    "disable-back-forward-cache",
};

// Else the picture of a page from a server waits for its first text, half a second of its time.
constexpr const char* k_page_clock_refusal = "PaintHolding";

// What outlives a manager: settings made before one exists, and a runtime that was left running.
struct process_state {
    cWebDisplayCEFBrowserManager* manager = nullptr;
    cWebDisplayPacing pacing = cWebDisplayPacing::Timer;
    bool pacing_settled =
        false;  // by the first start: the runtime is asked to work in one way only
    std::vector<command_line_switch> switches;
    bool has_exact_ticks = false;
    std::string script_flags;  // of the page clock; empty without one
    std::string failure;
    std::unique_ptr<message_pump> kept_pump;  // of a manager that has gone without stopping it
    std::unique_ptr<cache_folder> cache;      // of a runtime that runs
    bool is_shutting_down = false;
};

// Never destroyed: the runtime's threads may still be there when the process's statics go. In a
// place of its own: a first use that finds no memory would throw out of whatever the host called.
process_state& process() {
    alignas(process_state) static std::byte place[sizeof(process_state)];
    static process_state& state = *new (place) process_state;
    return state;
}

std::shared_ptr<main_thread_timer> requests_of(const message_pump& pump) {
    return process().pacing == cWebDisplayPacing::OnRequest ? pump.timer() : nullptr;
}

// Puts `ours` into a list that a switch has for its value. Of equal switches the runtime takes the
// last one only, so that one more would undo the host's own, or the host's would undo it. What the
// host says comes last, and wins where the two say different things.
void join(std::vector<command_line_switch>& switches, const std::string& name,
          const std::string& ours, char between) {
    const auto hosts = std::find_if(switches.rbegin(), switches.rend(),
                                    [&](const auto& one) { return one.name == name; });
    if (hosts == switches.rend()) return switches.push_back({name, ours});
    hosts->value = hosts->value.empty() ? ours : ours + between + hosts->value;
}

std::vector<command_line_switch> all_switches() {
    std::vector<command_line_switch> all = process().switches;
    if (process().has_exact_ticks) {
        all.push_back({k_exact_tick_switch, ""});
        join(all, "enable-features", k_exact_tick_feature, ',');
    }
    if (process().script_flags.empty()) return all;
    for (const char* name : k_page_clock_switches) all.push_back({name, ""});
    join(all, "disable-features", k_page_clock_refusal, ',');
    join(all, "js-flags", process().script_flags, ' ');
    return all;
}

bool start_with(const message_pump& pump) {
    process().failure.clear();
    auto started = start_runtime(all_switches(), requests_of(pump));
    process().failure = started.text();
    if (!started) return false;
    process().cache = std::move(started).value();
    return true;
}

// The runtime must not end under a browser; one that a host forgot, or that is still on its way, is
// given the time that closing takes.
void close_what_is_open() {
    const std::int64_t end = zTime::MicroNow() + k_max_closing_us;
    while (live_browsers::any_can_close() && zTime::MicroNow() < end) {
        live_browsers::close_all();
        message_pump::work_once();
        // A windowed one closes by events of its window, which come through the thread's loop.
        if (live_browsers::any_in_window()) zMessageLoop::RunOnce(0);
        zThread::MicroSleep(1000);
    }
    live_browsers::forget_all();
}

}  // namespace

cWebDisplayCEFBrowserManager::cWebDisplayCEFBrowserManager() = default;

cWebDisplayCEFBrowserManager::~cWebDisplayCEFBrowserManager() {
    Stop();
    // Where the runtime goes on, or never started, the timer goes on ticking without a manager. The
    // host's predicate does not: its code may go now.
    if (m_timer_loop == nullptr) return;
    m_timer_loop->set_can_run({});
    process().kept_pump = std::move(m_timer_loop);
}

bool cWebDisplayCEFBrowserManager::Startup(const char* arg) {
    if (process().manager != nullptr) return true;
    const bool had_pump = process().kept_pump != nullptr;
    const bool is_made = run::guarded("cWebDisplayCEFBrowserManager", "Startup", [arg] {
        process().manager = new cWebDisplayCEFBrowserManager;
        process().manager->Start(arg);
    });
    if (is_made) return process().manager->Initialized();
    // Memory ran out on the way: no manager is left, so that the next call starts anew.
    process().failure = "out of memory";
    if (process().manager != nullptr && !had_pump) process().manager->m_timer_loop.reset();
    delete std::exchange(process().manager, nullptr);
    return false;
}

void cWebDisplayCEFBrowserManager::Shutdown() {
    if (process().manager == nullptr) return;
    // While browsers close, the host's own events are dispatched, and one of them may come back
    // here: the end that has begun goes on, under what it stands on.
    const bool is_called_back = message_pump::inside_tick() || page_driver::is_stepping();
    if (is_called_back || process().is_shutting_down) {
        zTraceManager::Default()->TraceNote(
            "cWebDisplayCEFBrowserManager::Shutdown: called from a callback of a display or from "
            "within itself, ignored\n");
        return;
    }
    process().is_shutting_down = true;
    process().manager->Stop();
    delete std::exchange(process().manager, nullptr);
    process().is_shutting_down = false;
}

cWebDisplayCEFBrowserManager& cWebDisplayCEFBrowserManager::Default() { return *process().manager; }

bool cWebDisplayCEFBrowserManager::IsInitialized() {
    return process().manager != nullptr && process().manager->Initialized();
}

bool cWebDisplayCEFBrowserManager::Initialized() const { return m_initialized; }

bool cWebDisplayCEFBrowserManager::Start(const char* arg) {
    if (m_initialized) return true;
    m_start_flag = arg != nullptr && *arg != '\0';
    process().pacing_settled = true;
    m_timer_loop = std::exchange(process().kept_pump, nullptr);
    if (m_timer_loop == nullptr) m_timer_loop = std::make_unique<message_pump>();
    m_initialized = cef::running() || start_with(*m_timer_loop);
    if (process().pacing == cWebDisplayPacing::OnRequest) {
        m_timer_loop->start_on_request();
    } else {
        m_timer_loop->start_by_timer();
    }
    return m_initialized;
}

// The flag stays set, so that Shutdown and the destructor both ask the runtime to end; it takes the
// second request as nothing.
void cWebDisplayCEFBrowserManager::Stop() {
    if (!m_initialized || m_start_flag) return;
    if (m_timer_loop != nullptr) close_what_is_open();
    m_timer_loop.reset();
    cef::stop();
    process().cache.reset();
}

cWebDisplayBrowser* cWebDisplayCEFBrowserManager::CreateBrowser(const zRecord& settings,
                                                                double frameRate) {
    return run::guarded_or<cWebDisplayBrowser*>(
        nullptr, "cWebDisplayCEFBrowserManager", "CreateBrowser",
        [&] { return new cWebDisplayCEFBrowser(settings, frameRate); });
}

void cWebDisplayCEFBrowserManager::SetCanRunCefMessageLoopFn(std::function<bool()> fn) {
    cWebDisplayCEFBrowserManager* manager = process().manager;
    if (manager != nullptr && manager->m_timer_loop != nullptr)
        manager->m_timer_loop->set_can_run(std::move(fn));
}

void cWebDisplayCEFBrowserManager::SetPacing(cWebDisplayPacing pacing) {
    if (!process().pacing_settled) process().pacing = pacing;
}

void cWebDisplayCEFBrowserManager::AddCommandLineSwitch(const char* name, const char* value) {
    if (name == nullptr || *name == '\0') return;
    process().switches.push_back({name, value != nullptr ? value : ""});
}

void cWebDisplayCEFBrowserManager::EnableExactTicks() { process().has_exact_ticks = true; }

// To the script engine 0 is a wish for dice that nobody can foresee; in its place stands a number
// that few would choose.
void cWebDisplayCEFBrowserManager::EnablePageClock(std::uint32_t randomSeed) {
    constexpr std::uint32_t k_in_place_of_0 = 1u << 31;
    const std::uint32_t seed = randomSeed != 0 ? randomSeed : k_in_place_of_0;
    process().script_flags = "--random-seed=" + std::to_string(seed);
    EnableExactTicks();
    page_driver::allow();
}

void cWebDisplayCEFBrowserManager::GetStartupFailure(zString& out) { out = process().failure; }
