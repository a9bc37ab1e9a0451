// page_timeline_moves.cpp - the part of page_timeline.h about a page that moves on to another one.
#include <cmath>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "webdisplay/page_scripts.h"
#include "webdisplay/page_timeline.h"

namespace pennywort::webdisplay {

namespace {

using namespace std::chrono_literals;
using json = nlohmann::json;

// So often, and for so long, a page may move on to another one within one frame.
constexpr int k_most_moves = 100;
constexpr auto k_moves_limit = 60'000ms;
constexpr double k_read_ms = 0.1;
// For so long it is not given time while it fetches something.
constexpr auto k_read_patience = 1'000ms;
constexpr std::size_t k_longest_told_url = 500;

}  // namespace

// Where it comes to no page, that has stopped.
void page_timeline::hear_of_next(const std::string& method, const json& params) {
    const bool is_asked = method == "Page.frameRequestedNavigation";
    if (!is_asked && method != "Page.frameStoppedLoading") return;
    if (message_text(params, "/frameId") != m_frame) return;
    m_next_page = is_asked ? message_text(params, "/url").substr(0, k_longest_told_url) : "";
}

// What a page draws before it moves on may come to the display behind the next one's arrival, and
// is lost then. So that one is fetched when the frame's picture is there. Where the page moves on
// before the frame's moment there is no such picture, and its time stands until the next one comes.
// Films do not come to their place in a page that waits for the next one.
void page_timeline::hear_of_document(const json& params) {
    // What else is paused there is the host's.
    if (message_text(params, "/resourceType") != "Document") return;
    const std::string request = message_text(params, "/requestId");
    if (message_text(params, "/frameId") != m_frame) return let_come(request);
    let_next_page_come();
    if (m_has_films || m_comes_late || !is_in_frame()) return let_come(request);
    m_next_request = request;
    m_inspector.call("Performance.getMetrics", json::object(),
                     [this, held = m_next_request](const json& result) {
                         const std::int64_t behind = m_told;
                         read_clock(result);
                         const bool is_early = std::exchange(m_told, behind) < m_zero + m_frame_us;
                         if (held == m_next_request && is_early) let_next_page_come();
                     });
}

bool page_timeline::is_in_frame() const {
    const bool is_moving_on = m_phase == phase::meeting || m_phase == phase::reading;
    return m_phase >= phase::moving && m_phase < phase::failed && !is_moving_on && !is_unseen();
}

// Behind a frame in which nothing came so far.
void page_timeline::hold_next_page() {
    if (m_next_request.empty()) return;
    if (!m_has_taken) return let_next_page_come();
    m_due = m_limit = m_now + k_picture_patience;
}

void page_timeline::let_come(const std::string& request) {
    m_inspector.call("Fetch.continueRequest", {{"requestId", request}});
}

void page_timeline::let_next_page_come() {
    if (m_next_request.empty()) return;
    let_come(std::exchange(m_next_request, {}));
    if (m_phase == phase::between) await(phase::between);
}

// Each of them may move on to the next, or to itself.
void page_timeline::meet() {
    const bool is_endless = ++m_moves > k_most_moves || m_now > m_frame_began + k_moves_limit;
    if (is_endless) return fail("the page moves on to another one, or to itself, without an end");
    stop_clock(phase::meeting);
}

// The page has moved on to another one, of which neither the turn was asked nor anything told: but
// where the page before was to rest, that may have come to this one.
void page_timeline::meet_next_page() {
    if (!m_is_read) {
        m_tick_limit = m_now + k_move_limit;
        return read_on();
    }
    m_is_met = true;
    follow_clock();
    tell_page(page_scripts::k_no_rest);
    ask_for_turn();
    m_wakes = 0;
    await_wish();
}

// A page that comes while the clock is stopped is not read, and would never have its turn. The
// browser goes on with that only where time moves; so it moves by next to nothing. Where it moves
// whatever is being fetched, the browser gives the page 10 ms, which is the last resort.
void page_timeline::read_on() {
    await(phase::reading);
    const bool is_held = m_now >= m_tick_limit - k_move_limit + k_read_patience;
    call("Emulation.setVirtualTimePolicy",
         {{"policy", is_held ? "advance" : "pauseIfNetworkFetchesPending"},
          {"budget", k_read_ms},
          {"initialVirtualTime", day_here()}});
}

// Also where a script of it has not come for so long.
void page_timeline::meet_again() {
    m_is_read = true;
    stop_clock(phase::meeting);
}

// In the same process the browser gives the next page the time anew that was left for the move, and
// the clock is ahead by that: the next frame finds it so. Another process has another clock, by
// which the page goes on where it was; no frame has been stamped by that one yet.
void page_timeline::follow_clock() {
    const std::int64_t ahead = m_told - m_clock;
    m_clock = m_told;
    if (std::abs(ahead) <= m_moved_us) return;
    m_zero += ahead;
    m_last_stamp = 0;
}

}  // namespace pennywort::webdisplay
