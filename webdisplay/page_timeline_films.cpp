// page_timeline_films.cpp - the part of page_timeline.h about films and sounds, which are put to
// the moment of each frame.
#include <nlohmann/json.hpp>
#include <utility>

#include "webdisplay/page_scripts.h"
#include "webdisplay/page_timeline.h"

namespace pennywort::webdisplay {

namespace {

using json = nlohmann::json;

}  // namespace

// The frames that nobody sees tell the page's driver where its time begins.
void page_timeline::place() {
    if (!m_has_films && !is_unseen() && !std::exchange(m_is_met, false)) return tick();
    await(phase::placing);
    m_is_hurried = false;
    let_tasks_run();
    place_films();
}

void page_timeline::place_films() {
    ++m_open_calls;
    m_inspector.call("Runtime.evaluate",
                     {{"expression", page_scripts::films_at(m_frame_us, m_port.is_heard())},
                      {"awaitPromise", true},
                      {"returnByValue", true}},
                     [this](const json& result) {
                         const bool has_thrown = result.contains("exceptionDetails");
                         if (has_thrown && m_has_films) m_hearing.driver_threw();
                         m_hearing.take(value_of_result(result), m_is_hurried,
                                        [this] { --m_open_calls; });
                     });
}

// What a film or a sound is waited for may never come. Asked for once more, they go on without it.
void page_timeline::hurry() {
    place_films();
    m_due = m_limit = m_now + k_move_limit;
}

}  // namespace pennywort::webdisplay
