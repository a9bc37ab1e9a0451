// page_timeline.cpp - see the header for the contract.
#include "webdisplay/page_timeline.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <limits>
#include <nlohmann/json.hpp>
#include <utility>

#include "core/limits.h"
#include "webdisplay/page_scripts.h"

namespace pennywort::webdisplay {

namespace {

using namespace std::chrono_literals;
using json = nlohmann::json;

constexpr auto k_blank_interval = 20ms;
// A load's beginning is stamped by the browser's own process, with the machine's clock.
constexpr auto k_rest = 5ms;
// The browser says nothing when it becomes ready to take a frame. To ask costs some microseconds,
// and a whole frame of a light page takes two milliseconds.
constexpr auto k_tick_interval = 200us;
constexpr auto k_settle_limit = 10'000ms;
constexpr auto k_short_patience = 500ms;
// Behind a fetch that has not ended, such as one that is meant to stay open.
constexpr auto k_forced_patience = 20ms;
constexpr auto k_forced_limit = 5'000ms;
// From the moment at which the clock stops to the page's time 0, at least.
constexpr std::int64_t k_lead_us = 2000;
constexpr double k_lead_s = 0.002;
// The browser cuts a budget off to whole microseconds; no rounding is to cost one.
constexpr double k_spare_ms = 0.0001;
constexpr double k_fence_ms = 0.001;
// How often a page that is not read yet is given some time.
constexpr auto k_read_interval = 20ms;
// Thirty years. Stamps are nanoseconds, and those of a little more than nine times that have no
// room in their number.
constexpr std::int64_t k_last_moment_us = 1'000'000'000'000'000;

// Also where a timer's script holds the page's time.
constexpr const char* k_hangs =
    "the page hangs: one of its scripts has not come to an end within 30 s";

}  // namespace

page_start page_start::of(const std::string& text) {
    if (text.empty() || text == "load") return {};
    if (text == "dom") return {at::dom, {}, k_short_patience};
    return {at::truth, text, k_short_patience};
}

page_timeline::page_timeline(timeline_port& port, double day, page_start start)
    : m_port(port),
      m_day(day),
      m_start(std::move(start)),
      m_lead_us(k_lead_us),
      m_inspector(
          [&port](const std::string& message) { port.send_to_inspector(message); },
          [this](const std::string& method, const json& params, const std::string& session) {
              hear(method, params);
              m_workers.hear(method, params, session);
          }),
      m_hearing(m_inspector, port),
      m_workers(m_inspector) {}

// --- what comes

void page_timeline::browser_arrived() {
    if (m_phase == phase::nothing) await(phase::blank);
}

void page_timeline::painted() {
    m_has_painted = true;
    // The frame before is over with its picture; else that is found out by trying.
    if (m_phase == phase::ticking || m_phase == phase::clearing) m_due = m_limit = m_now;
    // In its turn it is not over; later, that of the next frame may have been asked for already.
    if (m_phase != phase::turning && !m_is_hidden) settle(frame_end::painted);
    if (m_phase == phase::between && !m_has_taken) let_next_page_come();
}

void page_timeline::page_loaded() {
    if (m_phase == phase::loading && m_start.when != page_start::at::truth) m_has_come = true;
}

void page_timeline::page_lost() {
    if (m_phase >= phase::loading) fail("the page is lost");
}

void page_timeline::hear(const std::string& method, const json& params) {
    m_hearing.hear(method, params);
    if (method == "Emulation.virtualTimeBudgetExpired") {
        if (m_phase == phase::aligning || m_phase == phase::moving) m_has_come = true;
        if (m_phase == phase::loading) let_tasks_run();
    } else if (method == "Runtime.bindingCalled") {
        if (message_text(params, "/name") == page_scripts::k_film_binding) films_begin(params);
    } else if (method == "Page.frameNavigated") {
        if (message_part(params, "/frame/parentId").is_null()) {
            page_begins(message_text(params, "/frame/id"));
        }
    } else if (method == "Runtime.executionContextsCleared") {
        m_apart.clear();
    } else if (method == "Page.domContentEventFired") {
        m_is_read = true;
        const bool is_start = m_start.when == page_start::at::dom && m_has_begun;
        if (m_phase == phase::loading && is_start) m_has_come = true;
        if (m_phase == phase::reading) m_has_come = true;
    } else if (method == "Fetch.requestPaused") {
        hear_of_document(params);
    } else if (method == "Page.javascriptDialogOpening") {
        answer_dialog(message_text(params, "/defaultPrompt"));
    } else {
        hear_of_next(method, params);
    }
}

// The one that was asked for, or one that the page in the film has moved on to.
void page_timeline::page_begins(const std::string& main_frame) {
    let_next_page_come();
    m_frame = main_frame;
    m_next_page.clear();
    if (m_phase != phase::loading && !has_page()) return;
    (m_phase == phase::loading ? m_has_begun : m_has_moved_on) = true;
    m_has_films = m_has_moving_films = m_was_forced = false;
    m_comes_late = m_is_drawn = false;
    m_is_read = false;
    m_inspector.call("Performance.getMetrics", json::object(), [this](const json& result) {
        read_clock(result);
        const bool is_another = std::abs(m_told - m_clock) > m_moved_us;
        if (is_another && (m_phase == phase::loading || has_page())) return fence_clock();
        if (m_phase == phase::loading) let_tasks_run();
    });
}

// In another process the page lives in the day's time until it is told, and without a budget that
// it has used up its time would run from timer to timer.
void page_timeline::fence_clock() {
    m_inspector.call("Emulation.setVirtualTimePolicy", {{"policy", "pauseIfNetworkFetchesPending"},
                                                        {"budget", k_fence_ms},
                                                        {"initialVirtualTime", day_here()}});
}

// There is nobody who could say yes, and the browser by itself says no.
void page_timeline::answer_dialog(const std::string& suggested) {
    m_inspector.call("Page.handleJavaScriptDialog", {{"accept", true}, {"promptText", suggested}});
}

// --- what is asked for

// The frames that wait hear of it last: a host that asks for the next one then is refused.
void page_timeline::ask_load() {
    forget_calls();
    m_unseen = m_unseen_us = 0;
    m_last_us = -1;
    m_frame_us = 0;
    m_loads = 0;
    m_lead_us = k_lead_us;
    m_has_films = m_has_moving_films = false;
    m_comes_late = m_is_drawn = false;
    m_apart.clear();
    m_has_moved_on = m_is_met = false;
    m_was_forced = false;
    m_workers.next_page();
    if (m_phase == phase::failed) {
        // A process that has ended has no clock to stop. The next one's will be found to be
        // another.
        m_grain.skip();
        rest();
    } else if (m_phase >= phase::loading) {
        stop();
    }
    // Before that it is loaded in its turn.
    drop_wishes();
}

const char* page_timeline::refusal_of(std::int64_t microseconds) const {
    if (m_phase == phase::failed) return m_fault.c_str();
    if (!has_page()) return "a frame was asked for before its page had loaded";
    if (microseconds <= m_last_us) return "a frame does not lie behind the one before";
    if (microseconds > k_last_moment_us) return "a frame lies more than 30 years ahead";
    if (m_waiting.size() >= k_max_waiting_page_frames)
        return "too many frames were asked for at once";
    return nullptr;
}

bool page_timeline::advance(std::int64_t microseconds, receiver told) {
    if (refusal_of(microseconds) != nullptr) return false;
    m_waiting.push_back({microseconds, std::move(told)});
    m_last_us = microseconds;
    return true;
}

bool page_timeline::ask(std::string expression, value_receiver told) {
    if (!has_page() || m_questions.size() >= k_max_waiting_page_frames) return false;
    m_questions.push_back({std::move(expression), std::move(told), m_begun + m_waiting.size(), {}});
    return true;
}

// --- the inspector

void page_timeline::call(const char* method, const json& params) {
    ++m_open_calls;
    m_inspector.call(method, params, [this](const json&) { --m_open_calls; });
}

// No time passes, unless the policy has a budget of it.
void page_timeline::let_tasks_run() {
    call("Emulation.setVirtualTimePolicy",
         {{"policy", "pauseIfNetworkFetchesPending"}, {"initialVirtualTime", day_here()}});
}

// The page's day is that of its time 0 from the first one on.
json page_timeline::pause() {
    json policy{{"policy", "pause"}, {"initialVirtualTime", day_here()}};
    m_has_day = true;
    return policy;
}

// And asks where it stands: on the page's own monotonic clock, which frames are stamped with.
void page_timeline::stop_clock(phase next) {
    await(next);
    call("Emulation.setVirtualTimePolicy", pause());
    ask_clock();
}

// For the first time. A clock that runs by the machine's may do so for a while after it was asked,
// and has to stop before it is looked at.
void page_timeline::stop() {
    await(phase::stopping);
    ++m_open_calls;
    m_inspector.call("Emulation.setVirtualTimePolicy", pause(), [this](const json&) {
        --m_open_calls;
        ask_clock();
    });
}

void page_timeline::ask_clock() {
    ++m_open_calls;
    m_inspector.call("Performance.getMetrics", json::object(), [this](const json& result) {
        --m_open_calls;
        read_clock(result);
    });
}

void page_timeline::read_clock(const json& result) {
    for (const auto& metric : message_part(result, "/metrics")) {
        const auto& seconds = message_part(metric, "/value");
        const bool is_clock = message_text(metric, "/name") == "Timestamp";
        if (is_clock && seconds.is_number()) m_told = std::llround(seconds.get<double>() * 1e6);
    }
}

// With each call, since a process that the page comes to gets what was said last. One that has a
// clock of the page's takes no notice.
double page_timeline::day_here() const {
    return m_has_day ? m_day + static_cast<double>(m_frame_us) / 1e6 : m_day - k_lead_s;
}

void page_timeline::move_to(std::int64_t microseconds, phase next) {
    await(next);
    m_is_forced = false;
    m_moved_us = microseconds - m_clock;
    m_inspector.call("Emulation.setVirtualTimePolicy",
                     {{"policy", "pauseIfNetworkFetchesPending"},
                      {"budget", static_cast<double>(microseconds - m_clock) / 1000 + k_spare_ms},
                      {"maxVirtualTimeTaskStarvationCount", k_max_starved_tasks},
                      {"initialVirtualTime", day_here()}});
    m_clock = microseconds;
    if (next != phase::moving) return;
    m_due = m_limit = m_now + (m_was_forced ? k_forced_patience : m_start.patience);
}

void page_timeline::forget_calls() {
    let_next_page_come();
    m_inspector.forget();
    m_workers.forget();
    m_lets_workers_end = m_lets_film_show = false;
    m_open_calls = 0;
    m_is_looking = false;
}

void page_timeline::evaluate(const char* expression) {
    call("Runtime.evaluate", {{"expression", expression}, {"awaitPromise", true}});
}

// Asked for before the clock moves, so that it stands in the page before the frame begins. One that
// was given up may come all the same, and is not that of a later frame.
void page_timeline::ask_for_turn() {
    m_has_turned = m_is_held = false;
    m_turn_ms = std::numeric_limits<double>::quiet_NaN();
    m_inspector.call("Runtime.evaluate",
                     {{"expression", page_scripts::k_turn}, {"awaitPromise", true}},
                     [this, turn = ++m_turn](const json& result) {
                         if (turn != m_turn) return;
                         m_has_turned = true;
                         const json& told = message_part(result, "/result/value");
                         if (told.is_number()) m_turn_ms = told.get<double>();
                     });
}

// --- phases

struct page_timeline::row {
    wait what;
    std::chrono::microseconds limit;
    const char* fault;
    void (page_timeline::*next)();
};

const page_timeline::row& page_timeline::row_of(phase which) {
    using self = page_timeline;
    constexpr auto k_ever = std::chrono::microseconds::max();
    static constexpr row k_rows[] = {
        {wait::nothing, k_ever, "", nullptr},
        {wait::time, k_blank_interval, "", &self::try_blank},
        {wait::answers, k_call_limit, "the page's inspector does not answer", &self::stop},
        {wait::answers, k_call_limit, "the page's clock does not stop", &self::align},
        {wait::event, k_move_limit, "the page's clock does not move", &self::rest},
        {wait::time, k_rest, "", &self::begin_trial},
        {wait::time, k_tick_interval, "", &self::try_grain},
        {wait::turn, k_trial_limit, "", &self::judge_grain},
        {wait::answers, k_call_limit, "the page's inspector does not answer", &self::load},
        {wait::event, k_ever, "", &self::check},
        {wait::answers, k_call_limit, "the page's clock does not stop", &self::stand},
        {wait::wishes, k_ever, "", &self::freeze},
        {wait::answers, k_call_limit, "the page's clock does not stop", &self::start},
        {wait::answers, k_settle_limit, "", &self::return_to_frames},
        {wait::answers, k_call_limit, "the page's clock does not stop", &self::open_frame},
        {wait::wishes, k_ever, "", &self::open_frame},
        {wait::answers, k_call_limit, "the page does not say what it was asked",
         &self::tell_values},
        {wait::event, k_move_limit, k_hangs, &self::wake},
        {wait::answers, k_call_limit, "the page's inspector does not answer", &self::wake},
        {wait::answers, k_turn_limit, k_hangs, &self::clear},
        {wait::time, k_tick_interval, "", &self::try_clear},
        {wait::answers, k_move_limit, "", &self::show},
        {wait::pictures, k_ever, k_hangs, &self::end_quiet},
        {wait::answers, k_call_limit, "the page's clock does not stop", &self::tick},
        {wait::answers, k_call_limit, "the page's clock does not stop", &self::meet_next_page},
        {wait::event, k_read_interval, "", &self::meet_again},
        {wait::time, k_tick_interval, "", &self::try_tick},
        {wait::turn, k_turn_limit, k_hangs, &self::close_frame},
        {wait::answers, k_turn_limit, k_hangs, &self::tick},
        {wait::answers, k_doubt_limit, k_hangs, &self::tell_doubt},
        {wait::answers, k_doubt_limit, "", &self::tell_stalled},
        {wait::nothing, k_ever, "", nullptr},
    };
    return k_rows[static_cast<std::size_t>(which)];
}

void page_timeline::await(phase next) {
    m_phase = next;
    m_has_come = false;
    const auto limit = row_of(next).limit;
    m_due = m_limit = limit == std::chrono::microseconds::max() ? time::max() : m_now + limit;
}

void page_timeline::step(time now) {
    m_now = now;
    if (m_phase == phase::loading) look_for_start();
    if (m_phase == phase::turning && !m_has_turned) tick_again();
    while (go_on()) {
    }
}

// One phase on. False where there is something to wait for.
bool page_timeline::go_on() {
    const row& current = row_of(m_phase);
    if (is_over(current.what)) {
        (this->*current.next)();
        return true;
    }
    if (!is_late() || current.what == wait::nothing) return false;
    late(current);
    return true;
}

bool page_timeline::is_over(wait what) const {
    switch (what) {
        case wait::answers:
            return m_open_calls == 0 && m_workers.are_awake();
        case wait::event:
            return m_has_come;
        case wait::turn:
            return m_has_turned || m_is_held;
        case wait::time:
            return m_phase == phase::blank ? m_has_painted || is_late() : is_late();
        case wait::wishes:
            return m_next_request.empty() && (!m_waiting.empty() || has_question());
        case wait::pictures:
            return (m_unshown == 0 && m_unmet == 0 && m_has_turned) || m_has_moved_on;
        case wait::nothing:
            break;
    }
    return false;
}

// A fetch that never ends holds the page's time; it is let go on without it. Of what a page's first
// frame asks for, not all may ever come.
void page_timeline::late(const row& current) {
    if (m_phase == phase::settling) {
        forget_calls();
        return (this->*current.next)();
    }
    if (m_phase == phase::hearing) return try_next_grain();
    if (m_phase == phase::between) return let_next_page_come();
    if (m_phase == phase::turning) return doubt();
    if (m_phase == phase::waking && !m_workers.are_awake()) return doubt_workers();
    if (m_phase == phase::reading) return m_now < m_tick_limit ? read_on() : meet_again();
    if (m_phase == phase::placing) return m_is_hurried ? ask_stalled() : hurry();
    if (m_phase == phase::naming) return tell_stalled();
    if (m_phase == phase::showing) return show_again(current.fault);
    if (m_phase == phase::moving) let_next_page_come();
    const bool is_next_late = m_phase == phase::moving && m_is_forced && !m_next_page.empty();
    if (is_next_late) {
        return fail("the page moves on to another one, which does not come: " + m_next_page);
    }
    if (m_phase != phase::moving || std::exchange(m_is_forced, true)) return fail(current.fault);
    if (!std::exchange(m_was_forced, true)) m_hearing.fetch_left(m_start.patience);
    m_inspector.call("Emulation.setVirtualTimePolicy", {{"policy", "advance"}});
    m_due = m_limit = m_now + k_forced_limit;
}

void page_timeline::fail(const std::string& why) {
    let_next_page_come();
    await(phase::failed);
    m_fault = why;
    m_port.page_fails(why);
    drop_wishes();
}

void page_timeline::drop_wishes() {
    settle(frame_end::failed);
    auto unanswered = std::exchange(m_asked, {});
    for (question& one : std::exchange(m_questions, {})) unanswered.push_back(std::move(one));
    const auto dropped = std::exchange(m_waiting, {});
    for (const frame& one : dropped) {
        if (one.told) one.told(frame_end::failed);
    }
    for (const question& one : unanswered) {
        if (one.told) one.told({});
    }
}

void page_timeline::settle(frame_end how) {
    const receiver told = take_end();
    if (told) told(how);
}

// Of the frame that the browser has taken last, if that is not over.
page_timeline::receiver page_timeline::take_end() {
    m_has_taken = false;
    return std::exchange(m_taken, {});
}

// --- frames

void page_timeline::start() {
    m_zero = m_clock = m_told;
    m_last_stamp = 0;
    open_frame();
}

void page_timeline::return_to_frames() { stop_clock(phase::returning); }

void page_timeline::open_frame() {
    if (has_question()) return ask_page();
    if (m_waiting.empty()) return await(phase::between);
    if (is_at_rest()) tell_page(page_scripts::k_rest);
    ask_for_turn();
    m_wakes = 0;
    m_moves = 0;
    m_frame_began = m_now;
    m_frame_us = is_unseen() ? 0 : m_waiting.front().microseconds;
    const std::int64_t target = m_zero + m_frame_us;
    if (target > m_clock) return move_to(target, phase::moving);
    await_wish();
}

// The answer shows that the page has the wish for its turn. Where the clock moves, that does.
void page_timeline::await_wish() {
    await(phase::waking);
    evaluate("0");
}

bool page_timeline::has_question() const {
    return !m_questions.empty() && m_questions.front().behind <= m_begun;
}

void page_timeline::ask_page() {
    await(phase::asking);
    const auto later = std::find_if(m_questions.begin(), m_questions.end(),
                                    [this](const question& one) { return one.behind > m_begun; });
    m_asked.assign(std::make_move_iterator(m_questions.begin()), std::make_move_iterator(later));
    m_questions.erase(m_questions.begin(), later);
    for (std::size_t i = 0; i < m_asked.size(); ++i) {
        ++m_open_calls;
        m_inspector.call("Runtime.evaluate",
                         {{"expression", m_asked[i].expression}, {"returnByValue", true}},
                         [this, i](const json& result) {
                             --m_open_calls;
                             if (i < m_asked.size()) m_asked[i].value = value_of_result(result);
                         });
    }
}

// What they do may be the next wish, or another page.
void page_timeline::tell_values() {
    await(phase::between);
    for (const question& one : std::exchange(m_asked, {})) {
        if (one.told) one.told(one.value);
    }
}

}  // namespace pennywort::webdisplay
