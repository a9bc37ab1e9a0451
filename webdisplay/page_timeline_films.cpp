// page_timeline_films.cpp - the part of page_timeline.h about films and sounds, which are put to
// the moment of each frame.
#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "webdisplay/page_scripts.h"
#include "webdisplay/page_timeline.h"

namespace pennywort::webdisplay {

namespace {

using namespace std::chrono_literals;
using json = nlohmann::json;

// For so long a picture is waited for in a frame; in the next one twice as long, and so on.
constexpr auto k_first_pause = 1ms;

}  // namespace

void page_timeline::films_begin(const json& called) {
    const std::string payload = message_text(called, "/payload");
    let_next_page_come();
    m_comes_late |= payload == page_scripts::k_film_stands;
    if (payload == page_scripts::k_film_stands) return;
    m_has_films = true;
    const json& context = message_part(called, "/executionContextId");
    if (payload == page_scripts::k_film_moves) m_has_moving_films = m_will_move = true;
    if (payload == page_scripts::k_film_apart && context.is_number_integer()) {
        m_apart.push_back(context.get<std::int64_t>());
    }
}

// That of the page, or of one of its frames.
void page_timeline::ask_driver(std::int64_t context, std::string expression,
                               page_inspector::receiver answered) {
    json asked{
        {"expression", std::move(expression)}, {"awaitPromise", true}, {"returnByValue", true}};
    if (context != 0) asked["contextId"] = context;
    m_inspector.call("Runtime.evaluate", asked, std::move(answered));
}

// A frame that has gone, or moved on to another page, is asked no more.
void page_timeline::ask_drivers_apart(const std::string& expression,
                                      const page_inspector::receiver& answered) {
    for (const std::int64_t context : std::vector(m_apart)) {
        ask_driver(context, expression, [this, context, answered](const json& result) {
            if (result.is_null()) std::erase(m_apart, context);
            answered(result);
        });
    }
}

// The frames that nobody sees tell the page's driver where its time begins. Where films move, each
// frame has some of its own before it: a film is put to its place between two frames, or the one
// before could have its picture too, and its picture comes to the display with a frame. So has a
// page that the page has moved on to.
void page_timeline::place() {
    const bool is_met = std::exchange(m_is_met, false);
    m_round = round::own;
    if (!m_has_films && !is_unseen() && !is_met) return tick();
    m_is_put = false;
    m_unmet = is_met ? k_unmet : 0;
    m_is_quiet = (is_met || m_has_moving_films) && !is_unseen() && has_unseen_moment();
    if (m_is_drawn && !m_is_quiet) end_rest();
    m_pause = k_first_pause;
    if (!m_is_quiet || m_is_drawn) return put();
    tell_page(page_scripts::k_rest);
    quiet();
}

// The answer shows that the page rests, and has the wish for its turn.
void page_timeline::quiet() {
    await(phase::quieting);
    evaluate("0");
}

void page_timeline::clear() {
    m_tick_limit = m_now + k_call_limit;
    try_clear();
}

// As in try_tick.
void page_timeline::try_clear() {
    if (m_has_moved_on) return hold();
    if (!begin_frame(unseen_moment())) {
        if (m_now >= m_tick_limit) return fail("the browser takes no frame");
        return await(phase::clearing);
    }
    const receiver before = take_end();
    if (m_unmet > 0) --m_unmet;
    if (std::exchange(m_is_put, true)) {
        await_pictures();
    } else {
        put();
    }
    if (before) before(frame_end::unchanged);
}

void page_timeline::put() {
    await(phase::placing);
    m_is_hurried = false;
    let_tasks_run();
    place_films();
}

void page_timeline::place_films() {
    m_open_calls += 1 + static_cast<int>(m_apart.size());
    ask_driver(
        0, page_scripts::films_at(m_frame_us, m_port.is_heard()), [this](const json& result) {
            const bool has_thrown = result.contains("exceptionDetails");
            if (has_thrown && m_has_films) m_hearing.driver_threw();
            m_hearing.take(value_of_result(result), m_is_hurried, [this] { --m_open_calls; });
        });
    ask_drivers_apart(page_scripts::films_at(m_frame_us, false), [this](const json& result) {
        if (result.contains("exceptionDetails")) m_hearing.driver_threw();
        --m_open_calls;
    });
}

// What a film or a sound is waited for may never come. Asked for once more, they go on without it.
void page_timeline::hurry() {
    m_is_hurried = true;
    place_films();
    m_due = m_limit = m_now + k_move_limit;
}

// What was asked before is not answered any more. A page that does not answer this either has no
// name to tell.
void page_timeline::ask_stalled() {
    forget_calls();
    await(phase::naming);
    m_stalled.clear();
    m_open_calls += 1 + static_cast<int>(m_apart.size());
    const auto name = [this](const json& result) {
        --m_open_calls;
        if (m_stalled.empty()) m_stalled = value_of_result(result);
    };
    ask_driver(0, page_scripts::k_stalled, name);
    ask_drivers_apart(page_scripts::k_stalled, name);
}

void page_timeline::tell_stalled() {
    const char* const fault = "a film of the page does not follow";
    fail(m_stalled.empty() ? fault : std::string(fault) + ": " + m_stalled);
}

// One that has been given up may be answered all the same, and not for a later frame.
void page_timeline::show() {
    if (!m_is_quiet) return hold();
    ask_shown();
    await_pictures();
    m_due = m_limit = m_now;
    // No frame is under way that could bring them.
    if (std::exchange(m_is_drawn, false)) m_is_put = m_has_turned = true;
}

// A driver that says nothing of what is to come may have more of it; a frame that has gone has not.
void page_timeline::ask_shown() {
    m_unshown = 1 + m_apart.size();
    m_will_move = false;
    const auto tell = [this, shown = ++m_shown](bool moves) {
        if (shown != m_shown) return;
        m_will_move |= moves;
        if (--m_unshown == 0 && !m_will_move) m_has_moving_films = false;
    };
    const auto value_of = [](const json& result) { return message_part(result, "/result/value"); };
    ask_driver(0, page_scripts::k_shown,
               [=](const json& result) { tell(value_of(result) != false); });
    ask_drivers_apart(page_scripts::k_shown,
                      [=](const json& result) { tell(value_of(result) == true); });
}

void page_timeline::await_pictures() {
    await(phase::showing);
    m_due = m_limit = m_now + m_pause;
    m_patience = k_first_patience;
    m_again_at = m_now + m_patience;
    m_tick_limit = m_now + k_turn_limit;
}

// A film may have no picture, and is not waited for beyond the last moment before the frame's. As
// in tick_again, such a frame may pass the page by.
void page_timeline::show_again(const char* hangs) {
    m_due = m_limit = m_now + m_pause;
    if (m_has_turned) {
        if (!has_unseen_moment()) return end_quiet();
        m_pause *= 2;
        ask_for_turn();
        return quiet();
    }
    if (m_now >= m_tick_limit) return fail(hangs);
    if (m_now < m_again_at) return;
    m_patience = std::min<std::chrono::milliseconds>(2 * m_patience, k_last_patience);
    m_again_at = m_now + m_patience;
    if (has_unseen_moment()) begin_frame(unseen_moment());
}

void page_timeline::end_quiet() {
    if (!m_has_moved_on) end_rest();
    hold();
}

void page_timeline::end_rest() {
    m_is_drawn = false;
    tell_page(page_scripts::k_no_rest);
    ask_for_turn();
}

std::int64_t page_timeline::unseen_moment() const {
    return std::max(m_zero + m_frame_us - k_unseen_us, m_last_stamp + 1);
}

}  // namespace pennywort::webdisplay
