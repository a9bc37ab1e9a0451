// page_loads.cpp - see the header for the contract.
#include "webdisplay/page_loads.h"

#include <utility>

namespace pennywort::webdisplay {

namespace {

// Many more than of the page before can be on their way.
constexpr int k_certain_frames = 10;

constexpr int k_first_error_status = 400;

}  // namespace

void page_loads::start_over() {
    m_is_empty = m_phase == load_phase::closed;
    m_phase = m_phase_before = load_phase::none;
    m_holds_picture = m_doubts_picture = m_shows_failure = false;
    if (m_is_empty) hold_picture();
    for (std::string* text : {&m_asked_url, &m_url, &m_failed_url, &m_error}) text->clear();
}

void page_loads::close() {
    m_phase = load_phase::closed;
    m_asked_url.clear();
}

unsigned page_loads::ask(std::string url) {
    m_asked_url = std::move(url);
    m_stirred = false;
    m_is_start = false;
    if (m_phase != load_phase::asked) {
        m_phase_before = m_is_empty ? load_phase::none : m_phase.load();
    }
    m_is_empty = false;
    m_phase = load_phase::asked;
    return ++m_ticket;
}

unsigned page_loads::ask_at_start(std::string url) {
    const unsigned ticket = ask(std::move(url));
    m_is_start = true;
    return ticket;
}

// The runtime may paint the empty document before the page, above all on a busy machine.
bool page_loads::begin(std::string url, int status) {
    if (m_policy.fail_on_error_status && status >= k_first_error_status) {
        fail(std::move(url), "the server answered with status " + std::to_string(status));
        return false;
    }
    if (!m_url.empty()) hold_picture();
    // Before it has painted, the next one may begin.
    if (std::exchange(m_shows_failure, false)) m_doubts_picture = m_policy.keep_last_picture;
    m_url = std::move(url);
    m_asked_url.clear();
    m_failed_url.clear();
    m_phase = load_phase::on_its_way;
    return true;
}

bool page_loads::end(const std::string& url) {
    if (!m_failed_url.empty() && m_failed_url == url) return !m_policy.tell_every_load;
    m_url = url;
    // Another page may have been asked for in the meantime; that one is still to come.
    if (m_phase == load_phase::asked) {
        m_phase_before = load_phase::loaded;
    } else {
        m_phase = load_phase::loaded;
    }
    return true;
}

void page_loads::fail(std::string url, std::string error) {
    m_failed_url = std::move(url);
    m_error = std::move(error);
    m_url = m_failed_url;
    m_asked_url.clear();
    m_phase = load_phase::failed;
    m_shows_failure = true;
    hold_picture();
}

bool page_loads::give_up(unsigned ticket) {
    if (ticket != m_ticket || m_phase != load_phase::asked) return false;
    m_asked_url.clear();
    m_phase = m_phase_before;
    return true;
}

bool page_loads::is_ignored(unsigned ticket, bool is_loading) {
    if (!m_policy.tell_every_load) return false;
    if (ticket != m_ticket || m_phase != load_phase::asked || m_stirred || is_loading) return false;
    give_up(ticket);
    return true;
}

void page_loads::lose() {
    if (!m_policy.minds_lost_page()) return;
    m_phase = load_phase::lost;
    hold_picture();
}

std::string page_loads::take_lost_load() {
    if (!is_lost() || m_is_start) return {};
    return std::exchange(m_asked_url, {});
}

bool page_loads::has_page_to_show() const {
    const load_phase shown = m_phase == load_phase::asked ? m_phase_before : m_phase.load();
    if (m_is_empty) return false;
    return shown == load_phase::on_its_way || shown == load_phase::loaded;
}

bool page_loads::admits(bool has_painted) {
    if (!m_holds_picture) return true;
    const bool is_of_page = has_painted && has_page_to_show();
    if (is_of_page && ++m_painted_frames >= k_certain_frames) {
        m_holds_picture = m_doubts_picture = false;
    }
    m_has_held_back = !is_of_page || m_doubts_picture;
    return !m_has_held_back;
}

bool page_loads::release_picture() {
    if (!has_page_to_show()) return false;
    m_holds_picture = m_doubts_picture = false;
    return std::exchange(m_has_held_back, false);
}

void page_loads::hold_picture() {
    if (!m_policy.keep_last_picture) return;
    m_holds_picture = true;
    m_has_held_back = false;
    m_painted_frames = 0;
}

}  // namespace pennywort::webdisplay
