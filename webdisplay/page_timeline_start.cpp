// page_timeline_start.cpp - the part of page_timeline.h from the browser's arrival to a page that
// stands at its time 0.
#include <nlohmann/json.hpp>

#include "webdisplay/page_scripts.h"
#include "webdisplay/page_timeline.h"

namespace pennywort::webdisplay {

namespace {

using namespace std::chrono_literals;
using json = nlohmann::json;

constexpr int k_max_blanks = 100;
constexpr auto k_look_interval = 20ms;
constexpr int k_max_loads = 3;

std::string truth_of(const std::string& expression) { return "!!(" + expression + "\n)"; }

}  // namespace

// The display's own first frame may be over before it is drawn, so it is had before there is a
// page, at times before the page's.
void page_timeline::try_blank() {
    if (m_has_painted || ++m_blanks > k_max_blanks) return prepare();
    m_port.begin_frame(std::chrono::floor<std::chrono::microseconds>(m_now.time_since_epoch()) /
                       std::chrono::nanoseconds(1));
    await(phase::blank);
}

void page_timeline::prepare() {
    await(phase::preparing);
    call("Page.enable", json::object());
    call("Runtime.enable", json::object());
    call("Performance.enable", json::object());
    call("Fetch.enable", {{"patterns", {{{"resourceType", "Document"}}}}});
    call("Target.setAutoAttach",
         {{"autoAttach", true}, {"waitForDebuggerOnStart", false}, {"flatten", true}});
    call("Target.setDiscoverTargets", {{"discover", true}});
    call("Runtime.addBinding", {{"name", page_scripts::k_film_binding}});
    m_hearing.prepare();
    if (m_start.when == page_start::at::truth) check_start();
    // The empty page has its turns in the trials, too.
    call("Page.addScriptToEvaluateOnNewDocument",
         {{"source", page_scripts::k_turn_keeper}, {"runImmediately", true}});
    call("Page.addScriptToEvaluateOnNewDocument", {{"source", page_scripts::page_driver_script()}});
}

// What is no JavaScript never becomes true.
void page_timeline::check_start() {
    m_inspector.call(
        "Runtime.compileScript",
        {{"expression", truth_of(m_start.expression)}, {"sourceURL", ""}, {"persistScript", false}},
        [this](const json& result) {
            const std::string fault =
                message_text(result, "/exceptionDetails/exception/description");
            if (fault.empty() || m_phase == phase::failed) return;
            fail("the expression of the page's start is no JavaScript: " +
                 fault.substr(0, fault.find('\n')));
        });
}

// The page's clocks are rounded by a grid of their own, and would tremble otherwise. Its first
// point behind the lead: so the day is less than a step of it late, and its milliseconds are right
// at each other point.
void page_timeline::align() {
    m_clock = m_told;
    m_grain.restart();
    move_to(page_grain::first_moment(m_told, m_lead_us), phase::aligning);
}

void page_timeline::begin_trial() {
    if (!m_grain.begin()) {
        let_tasks_run();
        return load();
    }
    show_grain();
}

void page_timeline::show_grain() {
    m_tick_limit = m_now + k_trial_limit;
    ask_for_turn();
    try_grain();
}

void page_timeline::try_grain() {
    if (m_port.begin_frame(m_grain.stamp(m_clock) * 1000)) return await(phase::hearing);
    if (m_now >= m_tick_limit) return let();
    await(phase::trying);
}

void page_timeline::judge_grain() {
    switch (m_grain.judge(m_turn_ms)) {
        case page_grain::verdict::second_frame:
            return show_grain();
        case page_grain::verdict::fits:
            return let();
        case page_grain::verdict::next_moment:
            return try_next_grain();
    }
}

// Also where the page had no turn: it may be busy, or have been passed by.
void page_timeline::try_next_grain() { move_to(m_clock + page_grain::k_step_us, phase::aligning); }

// Heard before the page is asked for: a page gets an inspector of its own, which begins as the
// browser has heard of the last one, and would keep the tasks of the page back.
void page_timeline::let() {
    await(phase::letting);
    let_tasks_run();
}

void page_timeline::load() {
    await(phase::loading);
    m_has_begun = false;
    m_look_at = m_now;
    m_port.load_page();
}

// What the page before it says, or the empty one, is of no account.
void page_timeline::look_for_start() {
    if (m_start.when != page_start::at::truth || m_has_come) return;
    if (!m_is_looking && m_has_begun && m_now >= m_look_at) {
        m_is_looking = true;
        m_look_at = m_now + k_look_interval;
        m_inspector.call("Runtime.evaluate",
                         {{"expression", truth_of(m_start.expression)}, {"returnByValue", true}},
                         [this](const json& result) {
                             m_is_looking = false;
                             const bool is_true = message_part(result, "/result/value") == true;
                             if (m_phase == phase::loading && is_true) m_has_come = true;
                         });
    }
    m_due = m_now + k_look_interval;
}

// The page may have been given another process, whose clock has gone on for an unknown while: then
// it is loaded once more, in that process.
void page_timeline::stand() {
    const bool is_same_clock = m_told == m_clock;
    // Its day begins where that of the first process stood.
    m_lead_us = 0;
    if (!is_same_clock && ++m_loads < k_max_loads) return align();
    if (!is_same_clock) return fail("the page has another process after each load");
    await(phase::standing);
    let_tasks_run();
    m_port.page_stands();
}

// A page that draws nothing has no turns, and may be busy with a script or wait for what it is not
// drawn without. Only one that is not busy answers.
void page_timeline::doubt() {
    await(phase::doubting);
    m_blocked_by.clear();
    ++m_open_calls;
    m_inspector.call("Runtime.evaluate",
                     {{"expression", page_scripts::k_blocked_by}, {"returnByValue", true}},
                     [this](const json& result) {
                         --m_open_calls;
                         m_blocked_by = value_of_result(result);
                     });
}

void page_timeline::tell_doubt() {
    if (m_has_turned) return close_frame();
    if (m_blocked_by.empty()) {
        return fail("the page has had no turn to draw within 30 s, though no script of it is busy");
    }
    fail(
        "the page draws nothing before its style sheet is there, which has not come within 30 s: " +
        m_blocked_by);
}

}  // namespace pennywort::webdisplay
