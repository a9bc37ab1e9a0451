// page_timeline_transitions.cpp - the part of page_timeline.h about a page that changes its view by
// a transition.
#include <nlohmann/json.hpp>
#include <utility>

#include "webdisplay/page_scripts.h"
#include "webdisplay/page_timeline.h"

namespace pennywort::webdisplay {

// The browser gives a page no turns until the script that changes its view has ended. That may wait
// for a timer, and the browser itself gives it up after 4 s of the page's time; so a frame of such
// a page is over without a turn, and its time goes on. A page that is busy with its turn answers
// when it has had it.
void page_timeline::ask_whether_held() {
    m_inspector.call("Runtime.evaluate",
                     {{"expression", page_scripts::k_held}, {"returnByValue", true}},
                     [this, turn = m_turn](const nlohmann::json& result) {
                         const bool is_held = message_part(result, "/result/value") == true;
                         if (turn != m_turn || m_phase != phase::turning) return;
                         m_is_held = is_held;
                         const bool is_due = m_has_films || m_patience == k_last_patience;
                         if (!is_held && is_due) let_film_show();
                     });
}

// A film that begins to show itself does so by a task of the page's, which does none while its time
// stands; the browser has the frame wait for that film, and the page then waits for ever. One that
// only shows its first picture is not known here.
void page_timeline::let_film_show() {
    let_next_page_come();
    if (!std::exchange(m_lets_film_show, true)) let_tasks_run();
}

}  // namespace pennywort::webdisplay
