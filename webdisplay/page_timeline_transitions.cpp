// page_timeline_transitions.cpp - the part of page_timeline.h about a page that changes its view by
// a transition.
#include <nlohmann/json.hpp>

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
                         if (turn == m_turn && m_phase == phase::turning) m_is_held = is_held;
                     });
}

}  // namespace pennywort::webdisplay
