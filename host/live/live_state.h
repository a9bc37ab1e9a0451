// host/live/live_state.h - what is on air and what becomes of the page: one state machine that is
// told what happens and when, and says what is to be done. It knows no browser and no clock.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <string>

namespace pennywort::host {

enum class live_phase {
    starting,   // the first page is on its way; nothing is on air yet
    on_air,     // the page that is shown is the one that was asked for
    loading,    // another page is on its way; the one before it is on air
    failed,     // the page that was asked for cannot be loaded; the last picture stays
    lost,       // the page's process has ended; the last picture stays
    reloading,  // the lost page is on its way again; the last picture stays
    closed,     // the page has closed itself; the last picture stays
};

// As it stands in the state that the control page reads.
const char* name_of(live_phase phase);

// The display's page at one look.
struct live_sight {
    enum class page { none, asked, loading, failed, lost, loaded };

    page phase = page::none;
    std::string url;            // the page that is shown
    std::string failed_url;     // the one that could not be loaded last
    std::string error;          // why not, or what became of a lost one
    std::uint32_t waiting = 0;  // URLs that the display has not given to its browser yet
};

// For the display thread.
class live_state {
public:
    using time_point = std::chrono::steady_clock::time_point;

    enum class action {
        none,
        load,    // the page of target()
        reopen,  // the display
        probe,   // ask the page whether it still answers
    };

    live_state(std::string first_url, time_point now);

    // --- what happens

    // The operator wants `url`, and the display has taken it.
    void asked(const std::string& url, time_point now);
    void seen(const live_sight& sight, time_point now);
    // A page could not be loaded. What `seen` knows of is told there; a page that the browser gives
    // up before it has anything of it leaves no mark.
    void told_of_failure(const std::string& url, const std::string& error, time_point now);
    // There is a browser with a page, or there is none.
    void page_is_there();
    void page_is_missing(time_point now);
    // A browser that hangs was put away for one that begins with the page asked for last.
    void renewed(time_point now);
    // The page has answered a probe.
    void answered() { m_probed = {}; }

    // --- what is to be done

    // At most one thing each time; it counts as done.
    action next(time_point now);
    const std::string& target() const { return m_target; }

    // --- what is told

    live_phase phase() const { return m_phase; }
    time_point since() const { return m_since; }
    // The page whose picture is on air; empty before the first.
    const std::string& on_air() const { return m_on_air; }
    // The page that is on its way, or that has failed; empty if that is the one on air.
    const std::string& wanted() const { return m_told; }
    // Why the page that was asked for is not shown; empty if it is.
    const std::string& error() const { return m_error; }
    // What has failed, and why, while nothing has been on air yet; else empty.
    std::string start_failure() const;
    // How often a lost page has been loaded again.
    std::uint64_t reloads() const { return m_reloads; }
    bool is_silent(time_point now) const;
    // The browser that stands in for a page which has closed itself paints an empty page, which
    // nobody wants on air, until another page has loaded there or has taken its time.
    bool holds_picture() const { return m_is_holding; }

private:
    void enter(live_phase phase, time_point now);
    void begun(const live_sight& sight, time_point now);
    void on_its_way(time_point now);
    void loaded(const live_sight& sight, time_point now);
    void failed(const live_sight& sight, time_point now);
    void lost(const live_sight& sight, time_point now);
    bool may_reload(time_point now);
    action begin_reload(time_point now);
    action begin_reopen(time_point now);
    bool is_probe_due(time_point now) const;

    live_phase m_phase = live_phase::starting;
    time_point m_since;
    std::string m_on_air;
    std::string m_wanted;  // asked for, and neither loaded nor failed yet
    std::string m_told;
    std::string m_lost;  // the page whose process has ended
    std::string m_error;
    std::string m_target;
    live_sight::page m_last_sight = live_sight::page::none;
    std::uint32_t m_waiting = 0;

    std::deque<time_point> m_reload_times;  // those that count against the bound
    std::uint64_t m_reloads = 0;
    bool m_is_reload_wanted = false;

    bool m_has_page = false;    // since the display was opened last
    bool m_can_answer = false;  // the page that is shown has loaded, and is there still
    bool m_is_missing = false;
    time_point m_opened;
    bool m_must_load = false;
    bool m_may_load_again =
        false;  // the page that was asked for has not begun, nor been tried again
    bool m_is_holding = false;
    time_point m_begun{};     // when the page that is loading was seen to; zero if none was
    bool m_is_blind = false;  // what is seen is the empty page that stands in for a closed one

    time_point m_probed{};  // of the probe that has not been answered; zero if there is none
    time_point m_last_probe{};
};

}  // namespace pennywort::host
