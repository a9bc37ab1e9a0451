// host/live/live_state.cpp - see the header for the contract.
#include "host/live/live_state.h"

#include <utility>

#include "core/limits.h"

namespace pennywort::host {

namespace {

// A page that ends its process as soon as it runs is not to keep the machine busy: after the last
// of these reloads it stays lost until the operator acts.
constexpr std::chrono::seconds k_reload_window{60};

// The display needs a moment to put the old page away, and it may have a page to show by itself.
constexpr std::chrono::milliseconds k_reload_pause{200};

// A page that loads for longer after another has closed itself is shown as far as it has come.
constexpr std::chrono::seconds k_longest_hold{2};

// How often the page is probed, and after what time without a result it is reported as silent.
constexpr std::chrono::seconds k_probe_interval{1};
constexpr std::chrono::seconds k_probe_patience{3};
// The result may have been lost on the way, so the probe is repeated.
constexpr std::chrono::seconds k_probe_again{10};

}  // namespace

const char* name_of(live_phase phase) {
    switch (phase) {
        case live_phase::starting:
            return "starting";
        case live_phase::on_air:
            return "on_air";
        case live_phase::loading:
            return "loading";
        case live_phase::failed:
            return "failed";
        case live_phase::lost:
            return "lost";
        case live_phase::reloading:
            return "reloading";
        case live_phase::closed:
            break;
    }
    return "closed";
}

live_state::live_state(std::string first_url, time_point now)
    : m_since(now), m_wanted(std::move(first_url)), m_told(m_wanted), m_opened(now) {}

void live_state::enter(live_phase phase, time_point now) {
    if (m_phase == phase) return;
    m_phase = phase;
    m_since = now;
}

void live_state::asked(const std::string& url, time_point now) {
    m_wanted = url;
    m_told = url;
    m_error.clear();
    m_is_reload_wanted = false;
    m_reload_times.clear();
    m_must_load = false;
    m_may_load_again = true;
    m_is_blind = false;
    m_probed = {};
    m_last_sight = live_sight::page::none;
    m_since = now;
    m_phase = m_on_air.empty() ? live_phase::starting : live_phase::loading;
}

void live_state::seen(const live_sight& sight, time_point now) {
    m_waiting = sight.waiting;
    // It may have come and gone between two looks.
    if (sight.url == m_wanted && m_wanted != m_on_air) m_may_load_again = false;
    if (m_is_blind || m_is_missing) return;
    switch (sight.phase) {
        case live_sight::page::none:
            break;
        case live_sight::page::asked:
            on_its_way(now);
            break;
        case live_sight::page::loading:
            begun(sight, now);
            break;
        case live_sight::page::loaded:
            loaded(sight, now);
            break;
        case live_sight::page::failed:
            failed(sight, now);
            break;
        case live_sight::page::lost:
            lost(sight, now);
            break;
    }
    m_last_sight = sight.phase;
}

// The page before it has gone, and returns no probe any more.
void live_state::begun(const live_sight& sight, time_point now) {
    if (m_last_sight != live_sight::page::loading) m_begun = now;
    if (sight.waiting == 0) m_may_load_again = false;
    if (now - m_begun >= k_longest_hold) m_is_holding = false;
    m_can_answer = false;
    m_probed = {};
    on_its_way(now);
}

void live_state::on_its_way(time_point now) {
    m_is_reload_wanted = false;
    if (m_phase == live_phase::reloading || m_phase == live_phase::starting) return;
    // Whoever follows a link leaves a page that failed behind.
    if (m_phase != live_phase::loading) {
        m_error.clear();
        m_told = m_wanted;
    }
    enter(m_on_air.empty() ? live_phase::starting : live_phase::loading, now);
}

void live_state::loaded(const live_sight& sight, time_point now) {
    if (m_last_sight != live_sight::page::loaded) m_probed = {};
    m_on_air = sight.url;
    m_is_holding = false;
    m_has_page = true;
    m_can_answer = true;
    // The one that was asked for comes after this.
    if (sight.waiting > 0) return enter(live_phase::loading, now);
    m_wanted.clear();
    m_told.clear();
    m_error.clear();
    enter(live_phase::on_air, now);
}

void live_state::failed(const live_sight& sight, time_point now) {
    m_can_answer = false;
    m_probed = {};
    if (sight.waiting > 0 || m_phase == live_phase::failed) return;
    m_wanted.clear();
    m_told = sight.failed_url;
    m_error = sight.error;
    enter(live_phase::failed, now);
}

// With a page on air that one is seen again, and is what the operator has. Without one the start
// would seem to go on for ever.
void live_state::told_of_failure(const std::string& url, const std::string& error, time_point now) {
    const bool has_nothing = m_last_sight == live_sight::page::none && m_on_air.empty();
    if (m_phase != live_phase::starting || !has_nothing || url != m_wanted) return;
    m_wanted.clear();
    m_error = error;
    enter(live_phase::failed, now);
}

void live_state::lost(const live_sight& sight, time_point now) {
    // With a page waiting the display goes on by itself.
    if (sight.waiting > 0) m_is_reload_wanted = false;
    m_can_answer = false;
    m_probed = {};
    if (m_last_sight == live_sight::page::lost || sight.waiting > 0) return;
    m_error = sight.error.empty() ? "the page's process has ended" : sight.error;
    if (m_told.empty()) m_told = m_on_air;
    // A page that was asked for, and that the browser took no notice of, is not the one to load.
    m_lost = sight.url.empty() ? m_told : sight.url;
    m_is_reload_wanted = !m_lost.empty();
    m_phase = live_phase::reloading;  // so that each loss begins anew
    enter(live_phase::lost, now);
}

void live_state::page_is_there() {
    m_has_page = true;
    m_is_missing = false;
}

// Every page may close itself, and the display would stay shut for all that come after it. One that
// does so at once may have gone before it was ever seen.
void live_state::page_is_missing(time_point now) {
    const bool is_coming = !m_has_page && now - m_opened < k_max_page_opening;
    if (m_is_missing || is_coming) return;
    m_is_missing = true;
    m_can_answer = false;
    m_is_holding = true;
    m_probed = {};
    m_error = m_has_page ? "the page has closed itself" : "there was no page";
    enter(live_phase::closed, now);
}

void live_state::renewed(time_point now) {
    m_has_page = false;
    m_can_answer = false;
    m_is_missing = false;
    m_is_holding = true;
    m_probed = {};
    m_opened = now;
}

bool live_state::may_reload(time_point now) {
    while (!m_reload_times.empty() && now - m_reload_times.front() > k_reload_window) {
        m_reload_times.pop_front();
    }
    return m_reload_times.size() < k_max_page_reloads;
}

live_state::action live_state::begin_reload(time_point now) {
    m_is_reload_wanted = false;
    if (!may_reload(now)) {
        m_error += ", " + std::to_string(k_max_page_reloads) +
                   " times within a minute; it is not loaded again by itself";
        return action::none;
    }
    m_reload_times.push_back(now);
    ++m_reloads;
    m_target = m_lost;
    m_told = m_target;
    m_wanted = m_target;
    m_last_sight = live_sight::page::none;
    enter(live_phase::reloading, now);
    return action::load;
}

live_state::action live_state::begin_reopen(time_point now) {
    m_is_missing = false;
    m_has_page = false;
    m_opened = now;
    // The display begins with what waits. What its old browser had been given has gone with that.
    m_is_blind = m_waiting == 0;
    m_must_load = m_is_blind && !m_wanted.empty() && m_may_load_again;
    // A page that closes itself each time that it begins is not loaded for ever.
    m_may_load_again = false;
    if (m_is_blind && !m_must_load) m_wanted.clear();
    return action::reopen;
}

// A page that hangs also keeps the next one of its site from coming, so it is asked until that has
// begun.
bool live_state::is_probe_due(time_point now) const {
    if (!m_can_answer) return false;
    if (m_phase != live_phase::on_air && m_phase != live_phase::loading) return false;
    const bool is_answered = m_probed == time_point{};
    return now - m_last_probe >= (is_answered ? k_probe_interval : k_probe_again);
}

live_state::action live_state::next(time_point now) {
    if (m_is_missing) return begin_reopen(now);
    if (!m_has_page) return action::none;
    if (std::exchange(m_must_load, false)) {
        m_target = m_wanted;
        m_is_blind = false;
        return action::load;
    }
    if (m_is_reload_wanted && now - m_since >= k_reload_pause) return begin_reload(now);
    if (!is_probe_due(now)) return action::none;
    m_last_probe = now;
    if (m_probed == time_point{}) m_probed = now;
    return action::probe;
}

std::string live_state::start_failure() const {
    if (m_phase != live_phase::failed || !m_on_air.empty()) return {};
    return m_told + ": " + m_error;
}

bool live_state::is_silent(time_point now) const {
    return m_probed != time_point{} && now - m_probed >= k_probe_patience;
}

}  // namespace pennywort::host
