// message_pump.cpp - see the header for the contract.
#include "webdisplay/message_pump.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <utility>

#include "core/run/guarded.h"
#include "loam/message_loop.h"
#include "webdisplay/cef/counted.h"
#include "webdisplay/cef/runtime.h"

namespace pennywort::webdisplay {

namespace {

constexpr int k_period_ms = 15;
// The runtime may have work without asking for it again, so it is never left alone for longer.
constexpr int k_idle_ms = 30;
// The runtime leaves off after 10 ms of work and keeps the rest for the next step. It takes that
// step for granted: it neither asks for it nor, while it waits for it, for anything else. It also
// stays that long when it only waits for something due soon, and to go on then would have it wait
// again: so only a step that was clearly kept by work is followed by the next at once.
constexpr std::chrono::milliseconds k_kept_by_work{15};
// What a frame sets going comes in pieces. Taken together a little later, they cost fewer steps.
constexpr std::int64_t k_rest_after_frame_us = 1000;

// The runtime dispatches messages of the loop inside its own work, and a tick that arrives then
// must not enter it again.
std::atomic<std::int64_t> g_depth{0};
thread_local bool t_inside_work = false;
thread_local bool t_inside_tick = false;
thread_local bool t_frame_painted = false;

// Where a pump can be woken, while there is one.
struct wake_target {
    std::mutex lock;  // guards the loop
    std::shared_ptr<zMessageLoop> loop;
    std::atomic<bool> is_woken{false};
    message_pump* pump = nullptr;  // display thread
};

// Never destroyed: the runtime's threads may still ask when the process's statics go.
wake_target& target() {
    static wake_target& one = *new wake_target;
    return one;
}

void set_target(message_pump* pump) {
    // Before anything points to the pump: it may find no memory.
    auto loop = pump != nullptr ? zMessageLoop::Current() : nullptr;
    target().pump = pump;
    const std::lock_guard<std::mutex> guard(target().lock);
    std::swap(target().loop, loop);
    target().is_woken = false;
}

}  // namespace

message_pump::message_pump(const run::monotonic_clock& clock)
    : m_clock(clock), m_timer(main_thread_timer::make([this] { tick(); })) {
    set_target(this);
}

message_pump::~message_pump() {
    set_target(nullptr);
    if (m_timer != nullptr) m_timer->stop();
}

void message_pump::start_by_timer() {
    if (m_timer != nullptr) m_timer->start_periodic(k_period_ms);
}

void message_pump::start_on_request() {
    if (m_timer != nullptr) m_timer->start_on_request(k_idle_ms);
}

void message_pump::set_can_run(std::function<bool()> can_run) {
    m_can_run =
        can_run ? std::make_shared<const std::function<bool()>>(std::move(can_run)) : nullptr;
}

void message_pump::tick() {
    const bool is_nested = std::exchange(t_inside_tick, true);
    const auto can_run = m_can_run;
    if (can_run == nullptr || run::guarded_or(false, "cWebDisplayCEFBrowserManager",
                                              "SetCanRunCefMessageLoopFn", *can_run)) {
        work_and_go_on();
    }
    t_inside_tick = is_nested;
}

void message_pump::work_and_go_on() {
    const auto begin = m_clock.now();
    t_frame_painted = false;
    work_once();
    if (m_timer == nullptr) return;  // the system had none to give, and the tick was a wake
    if (m_clock.now() - begin >= k_kept_by_work) {
        m_timer->request(0);
    } else if (t_frame_painted) {
        m_timer->rest(k_rest_after_frame_us);
    }
}

void message_pump::work_once() {
    if (g_depth.fetch_add(1) == 0) {
        t_inside_work = true;
        cef::work();
        t_inside_work = false;
    }
    g_depth.fetch_sub(1);
}

void message_pump::wake() {
    std::shared_ptr<zMessageLoop> loop;
    {
        const std::lock_guard<std::mutex> guard(target().lock);
        loop = target().loop;
    }
    // One that is on its way serves all who ask.
    if (loop == nullptr || target().is_woken.exchange(true)) return;
    const auto tick_now = [] {
        target().is_woken = false;
        if (target().pump != nullptr) target().pump->tick();
    };
    if (!run::guarded_or(false, "cWebDisplayCEFBrowserManager", "a wake",
                         [&] { return loop->Post(tick_now) == 0; })) {
        target().is_woken = false;
    }
}

void message_pump::frame_painted() { t_frame_painted = true; }
bool message_pump::inside_work() { return t_inside_work; }
bool message_pump::inside_tick() { return t_inside_tick || t_inside_work; }

}  // namespace pennywort::webdisplay
