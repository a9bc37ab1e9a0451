// message_pump.cpp - see the header for the contract.
#include "webdisplay/message_pump.h"

#include <atomic>
#include <cstdint>
#include <utility>

#include "loam/time.h"
#include "webdisplay/cef/counted.h"
#include "webdisplay/cef/runtime.h"

namespace pennywort {

namespace {

constexpr int k_period_ms = 15;
// The runtime may have work without asking for it again, so it is never left alone for longer.
constexpr int k_idle_ms = 30;
// The runtime leaves off after so much work and keeps the rest for the next step. It takes that
// step for granted: it neither asks for it nor, while it waits for it, for anything else.
constexpr std::int64_t k_slice_us = 10'000;

// The runtime dispatches messages of the loop inside its own work, and a tick that arrives then
// must not enter it again.
std::atomic<std::int64_t> g_depth{0};
thread_local bool t_inside_work = false;
thread_local bool t_inside_tick = false;

}  // namespace

message_pump::message_pump() : m_timer(main_thread_timer::make([this] { tick(); })) {}

message_pump::~message_pump() {
    if (m_timer) m_timer->stop();
}

void message_pump::start_by_timer() {
    if (m_timer) m_timer->start_periodic(k_period_ms);
}

void message_pump::start_on_request() {
    if (m_timer) m_timer->start_on_request(k_idle_ms);
}

void message_pump::set_can_run(std::function<bool()> can_run) {
    m_can_run =
        can_run ? std::make_shared<const std::function<bool()>>(std::move(can_run)) : nullptr;
}

void message_pump::tick() {
    const bool nested = std::exchange(t_inside_tick, true);
    const auto can_run = m_can_run;
    if (!can_run || guarded(false, "SetCanRunCefMessageLoopFn", *can_run)) work_and_go_on();
    t_inside_tick = nested;
}

void message_pump::work_and_go_on() {
    const std::int64_t begin = zTime::MicroNow();
    work_once();
    if (zTime::MicroNow() - begin >= k_slice_us) m_timer->request(0);
}

void message_pump::work_once() {
    if (g_depth.fetch_add(1) == 0) {
        t_inside_work = true;
        cef_work();
        t_inside_work = false;
    }
    g_depth.fetch_sub(1);
}

bool message_pump::inside_work() { return t_inside_work; }
bool message_pump::inside_tick() { return t_inside_tick || t_inside_work; }

}  // namespace pennywort
