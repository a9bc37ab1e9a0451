// page_timeline_workers.cpp - the part of page_timeline.h about the workers of a page, which are
// woken before each of its frames.
#include <nlohmann/json.hpp>
#include <utility>

#include "webdisplay/page_timeline.h"

namespace pennywort::webdisplay {

namespace {

using namespace std::chrono_literals;

// The first wakes a worker, and its timers come after that message.
constexpr int k_wakes = 2;
// Others answer in a few milliseconds.
constexpr auto k_closing_after = 250ms;

}  // namespace

void page_timeline::wake() {
    // Before the next one: what the page is let do may begin with it.
    if (std::exchange(m_lets_workers_end, false)) {
        await(phase::waking);
        return call("Emulation.setVirtualTimePolicy", pause());
    }
    if (m_workers.is_empty() || m_wakes == k_wakes) return place();
    ++m_wakes;
    await(phase::waking);
    m_due = m_limit = m_now + k_closing_after;
    m_workers.wake();
}

// A worker that has closed itself answers no more, and is there until the page has ended it: that
// is a task of the page's, which does none while its time stands.
void page_timeline::doubt_workers() {
    let_next_page_come();
    const bool is_first = !std::exchange(m_lets_workers_end, true);
    m_due = m_limit = m_now + k_call_limit;
    if (is_first) return let_tasks_run();
    if (m_workers.leave()) m_hearing.worker_left();
}

}  // namespace pennywort::webdisplay
