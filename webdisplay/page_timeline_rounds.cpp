// page_timeline_rounds.cpp - the part of page_timeline.h about what the browser draws for one
// frame.
#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "webdisplay/page_scripts.h"
#include "webdisplay/page_timeline.h"

namespace pennywort::webdisplay {

void page_timeline::tick() {
    if (m_round == round::own && std::exchange(m_has_moved_on, false)) return meet();
    m_repeats = 0;
    m_tick_limit = m_now + k_call_limit;
    try_tick();
}

// Once it is taken, the frame before it is over. That is told last: a host may ask for another page
// then, or for this one to be closed.
void page_timeline::try_tick() {
    if (m_round != round::own && (m_has_moved_on || !m_has_taken)) return end_rounds();
    if (!begin_frame(stamp())) {
        if (m_now >= m_tick_limit) return fail("the browser takes no frame");
        return await(phase::ticking);
    }
    m_is_hidden = m_round == round::own && comes_late();
    const receiver before = m_round == round::again ? receiver{} : take_end();
    await_turn();
    m_has_painted = false;
    if (is_unseen()) {
        ++m_unseen_us;
    } else if (m_round == round::own) {
        ++m_begun;
        m_has_taken = true;
        m_taken = std::move(m_waiting.front().told);
        m_waiting.pop_front();
    }
    if (before) before(frame_end::unchanged);
}

// Of two frames for one moment the last one has it to the microsecond, since a page's animations
// see the one behind as up to a tenth of a millisecond later.
std::int64_t page_timeline::stamp() const {
    if (is_unseen()) return m_zero - k_unseen_us + m_unseen_us;
    const bool is_first_of_two = comes_late() && m_round == round::own;
    return std::max(m_zero + m_frame_us + m_repeats - (is_first_of_two ? 1 : 0), m_last_stamp + 1);
}

bool page_timeline::begin_frame(std::int64_t microseconds) {
    if (!m_port.begin_frame(microseconds * 1000)) return false;
    m_last_stamp = microseconds;
    return true;
}

void page_timeline::await_turn() {
    await(phase::turning);
    m_patience = k_first_patience;
    m_due = m_again_at = m_now + m_patience;
    if (m_was_held) ask_whether_held();
}

// A frame that was begun while the page was not yet on the browser's list, or was taken off it, is
// over without a turn of the page. The browser takes another only where that is so: while the page
// is busy, it takes none.
void page_timeline::tick_again() {
    if (m_now < m_again_at) return;
    ask_whether_held();
    m_patience = std::min<std::chrono::milliseconds>(2 * m_patience, k_last_patience);
    m_due = m_again_at = m_now + m_patience;
    // Each frame that is still to come needs a moment of its own.
    if (is_unseen() && m_unseen_us >= k_unseen_us - (k_unseen - m_unseen)) return;
    ++m_repeats;
    const bool is_taken = begin_frame(stamp());
    if (is_taken && is_unseen()) ++m_unseen_us;
    if (!is_taken) --m_repeats;
}

void page_timeline::tell_page(const char* expression) {
    m_inspector.call("Runtime.evaluate", {{"expression", expression}});
}

void page_timeline::close_frame() {
    m_was_held = !m_has_turned;
    if (std::exchange(m_lets_film_show, false)) call("Emulation.setVirtualTimePolicy", pause());
    if (is_at_rest()) tell_page(page_scripts::k_no_rest);
    if (is_unseen() && ++m_unseen == 1) {
        await(phase::settling);
        let_tasks_run();
        const bool waits_for_all = m_start.when == page_start::at::load;
        return evaluate(waits_for_all ? page_scripts::k_settled : page_scripts::k_settled_so_far);
    }
    const bool has_more = m_is_hidden || m_round == round::again;
    if (has_more && !m_was_held) return next_round();
    end_rounds();
}

// Beside a film, a picture of the page may come to the display with the next frame only. So there
// is one for the same moment, in which the page rests; where that brings no picture, a third one
// shows that none can come.
void page_timeline::next_round() {
    const bool is_known = m_round == round::again && m_has_painted;
    if (is_known || m_has_moved_on || !m_has_taken) return end_rounds();
    if (m_round == round::own) tell_page(page_scripts::k_rest);
    m_round = m_round == round::own ? round::again : round::fence;
    ask_for_turn();
    await(phase::repeating);
    evaluate("0");
}

// Where films move, the page goes on resting while they are put to the next frame's time.
void page_timeline::end_rounds() {
    const bool has_rested = m_round != round::own && !m_has_moved_on;
    m_is_drawn = has_rested && m_has_moving_films && !m_was_held;
    if (has_rested && !m_is_drawn) tell_page(page_scripts::k_no_rest);
    await(phase::between);
    if (!m_has_painted) {
        m_is_hidden = false;
    } else {
        settle(std::exchange(m_is_hidden, false) ? frame_end::unchanged : frame_end::painted);
    }
    hold_next_page();
}

}  // namespace pennywort::webdisplay
