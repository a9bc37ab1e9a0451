// page_timeline.h - moves the time of one page frame by frame: one state machine, which knows
// nothing of the browser, the display or the machine's clock.
//
// The page's clock is stopped by the inspector's protocol before the page is loaded, and then moved
// by as much as each frame asks for. A frame is: time moves, the page's timers run, the browser
// takes the frame with a stamp of that time, the page's script has its turn, the picture comes.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "core/run/clock.h"
#include "webdisplay/page_grain.h"
#include "webdisplay/page_hearing.h"
#include "webdisplay/page_inspector.h"
#include "webdisplay/page_samples.h"
#include "webdisplay/page_workers.h"

namespace pennywort::webdisplay {

// How one frame ended.
enum class frame_end {
    painted,
    unchanged,  // the page looks as it did before
    failed      // the page did not follow, or has gone
};

// When a page counts as loaded.
struct page_start {
    enum class at { load, dom, truth };

    at when = at::load;
    std::string expression;  // of `truth`: that has to be true
    // How long a fetch may hold the page's time, for each one in a row that does not end.
    std::chrono::milliseconds patience{30'000};

    // "load", "dom", or an expression; empty is load. One that does not wait for all of a page does
    // not wait long for its fetches either.
    static page_start of(const std::string& text);
};

// What a timeline needs of the browser that shows its page.
class timeline_port {
public:
    virtual ~timeline_port() = default;

    virtual void send_to_inspector(const std::string& message) = 0;
    // Begins a frame with that stamp of the monotonic clock. False where the frame before is still
    // under way and the browser has dropped this one.
    virtual bool begin_frame(std::int64_t nanoseconds) = 0;
    // The page's clock stands: the page may be loaded. Comes again where the browser has given the
    // page another process, with another clock.
    virtual void load_page() = 0;
    // The page has loaded and stands at its time 0; its tasks run.
    virtual void page_stands() = 0;
    // The page does not follow any more; why. Comes before its frames are told that they failed.
    virtual void page_fails(const std::string& why) = 0;
    // What the page sounds like for a while that is over. What was never told is silence; when a
    // frame is over, all is told but the last 4 ms before its moment.
    virtual void page_sounds(const page_samples& heard) = 0;
    // Whether anybody hears that. Where nobody does, nothing is fetched, decoded or waited for that
    // is only to be heard.
    virtual bool is_heard() { return true; }
    // The bytes of a file of this machine that the page plays; empty where it may have none.
    virtual std::string bytes_of_file(const std::string& url) = 0;
};

class page_timeline {
public:
    using time = run::monotonic_clock::time;
    using receiver = std::function<void(frame_end)>;
    using value_receiver = std::function<void(const std::string& value)>;

    // `day`: what the page's clocks say at its time 0, in seconds since 1970. `port` must outlive
    // the timeline.
    explicit page_timeline(timeline_port& port, double day, page_start start = {});
    page_timeline(const page_timeline&) = delete;
    page_timeline& operator=(const page_timeline&) = delete;

    // --- what the browser reports. Call step after each.

    void browser_arrived();
    void message_came(std::string_view message) { m_inspector.take(message); }
    void painted();
    void page_loaded();
    // The load has failed, or the page's process has ended. Frames that wait fail.
    void page_lost();

    // --- what the host asks for. Call step after each.

    // Another page is to be loaded: `load_page` comes when the clock stands. Frames that wait fail.
    void ask_load();
    // Why there can be no frame at that moment; null where there can.
    const char* refusal_of(std::int64_t microseconds) const;
    // Moves the page to `microseconds` after its beginning. `told` hears the end of that frame:
    // painted when the picture has been delivered and the page had its turn; unchanged when the
    // browser has taken the next frame, since only then nothing can come any more: what was painted
    // last, though not as the frame's picture, is its picture then. False, and `told` is dropped,
    // where there can be none.
    bool advance(std::int64_t microseconds, receiver told);
    // Asks the page for the value of an expression when the frames that were asked for before it
    // are over, and before the next one begins. `told` hears it as a text: empty where it has none,
    // or the page has gone. False, and `told` is dropped, where no page stands or
    // k_max_waiting_page_frames wait.
    bool ask(std::string expression, value_receiver told);

    // Does what is due.
    void step(time now);
    // When step is due without an event; time::max() for never.
    time due() const { return m_due; }

    // Whether the browser may be given a page now.
    bool is_loadable() const { return m_phase == phase::loading; }
    // Whether what the browser shows is not the host's page yet.
    bool is_preparing() const { return m_phase < phase::loading; }
    // Whether it is because of another process of the page that it is to be loaded.
    bool is_loading_again() const { return m_loads > 0; }
    // Whether the browser is at a frame that was asked for; and whether what it paints now is that
    // frame's picture.
    bool is_at_frame() const { return m_has_taken || m_round == round::fence; }
    bool shows_frame() const { return m_has_taken && !m_is_hidden; }

private:
    // Nearly in the order in which they follow each other; `failed` is the end of all.
    enum class phase {
        nothing,    // no browser yet
        blank,      // frames by the machine's clock, until the browser shows anything at all
        preparing,  // the inspector is switched on
        stopping,   // the clock is stopped
        aligning,   // and moved to a tenth of a millisecond, 2 ms ahead at least
        resting,    // until the machine's clock has passed it
        trying,     // the browser is to take a frame that shows how the page rounds its time
        hearing,    // what the page takes its time to be
        letting,    // tasks of the page are to run while no time passes
        loading,    // they do, and the page comes
        checking,   // whether the page still has the same clock
        standing,   // loaded, as while loading
        freezing,   // the clock is stopped for the first frame
        settling,   // what the first frame has asked for comes: fonts, images
        returning,  // the clock is stopped again
        between,    // no frame is under way
        asking,     // nor is one, and the page is asked for values
        moving,     // the clock moves to the frame's time
        waking,     // workers find their timers due
        quieting,   // the page is to have no turns in frames that nobody sees
        clearing,   // the browser is to take such a frame: the one before it has been drawn
        placing,    // films are put to the frame's time, and what was heard until then comes
        showing,    // their pictures come to the display, in frames that nobody sees
        holding,    // the clock is stopped again
        meeting,    // the same, for the page that has moved on to another one
        reading,    // that one is read
        ticking,    // the browser is to take the frame
        turning,    // the page is to have its turn
        repeating,  // and rests in the next one, which is for the same moment
        doubting,   // it has had none, and is asked for what it waits
        naming,     // it is asked which of its films does not follow
        failed
    };
    // What ends a phase.
    enum class wait { nothing, time, answers, event, wishes, turn, pictures };
    // What the browser draws for one frame.
    enum class round { own, again, fence };
    struct row;
    struct frame {
        std::int64_t microseconds = 0;
        receiver told;
    };
    struct question {
        std::string expression;
        value_receiver told;
        std::uint64_t behind = 0;  // so many frames
        std::string value;
    };

    // A new page's first frame may be over before it is drawn, and what it shows may have to be
    // fetched first. So there are frames before it that nobody sees.
    static constexpr int k_unseen = 4;
    // Times must rise, so those are stamped with the microseconds before the page's time 0, which
    // the page rounds up to it: one for each time that the browser takes one.
    static constexpr int k_unseen_us = page_grain::k_unseen_us;
    // Frames that nobody sees before the first of a page that the page has moved on to: on a busy
    // machine its first pictures came a frame late in some films without them.
    static constexpr int k_unmet = 2;
    static constexpr std::chrono::seconds k_call_limit{20};
    static constexpr std::chrono::seconds k_move_limit{30};
    static constexpr std::chrono::seconds k_turn_limit{30};
    static constexpr std::chrono::seconds k_doubt_limit{2};
    // For as long a page may be busy with its turn without being asked whether it is; then twice
    // that, and so on, to the other.
    static constexpr std::chrono::milliseconds k_first_patience{100};
    static constexpr std::chrono::milliseconds k_last_patience{2000};
    // For the picture of a page that is about to move on, and may have drawn nothing.
    static constexpr std::chrono::milliseconds k_picture_patience{500};
    // For a frame that shows how the page rounds its time.
    static constexpr std::chrono::milliseconds k_trial_limit{200};

    static const row& row_of(phase which);
    void await(phase next);
    bool go_on();
    bool is_over(wait what) const;
    bool is_late() const { return m_now >= m_limit; }
    void late(const row& current);
    void fail(const std::string& why);
    void drop_wishes();
    void settle(frame_end how);
    receiver take_end();
    bool has_page() const { return m_phase >= phase::standing && m_phase < phase::failed; }

    void hear(const std::string& method, const nlohmann::json& params);
    void page_begins(const std::string& main_frame);
    void fence_clock();
    void read_clock(const nlohmann::json& result);
    double day_here() const;
    void answer_dialog(const std::string& suggested);
    void call(const char* method, const nlohmann::json& params);
    nlohmann::json pause();
    void stop_clock(phase next);
    void stop();
    void ask_clock();
    void let_tasks_run();
    void move_to(std::int64_t microseconds, phase next);
    void evaluate(const char* expression);
    void forget_calls();
    void ask_for_turn();
    bool is_unseen() const { return m_unseen < k_unseen; }
    // In the last one of those the page's scripts draw nothing. A film's own picture may come to
    // the display after that of the page beside it, which is then drawn a frame late, and so is
    // each one behind it: until a frame comes in which the page has nothing new.
    bool is_at_rest() const { return m_unseen == k_unseen - 1; }

    // page_timeline_start.cpp
    void try_blank();
    void prepare();
    void align();
    void rest() { await(phase::resting); }
    void begin_trial();
    void show_grain();
    void try_grain();
    void judge_grain();
    void try_next_grain();
    void let();
    void load();
    void check_start();
    void look_for_start();
    void check() { stop_clock(phase::checking); }
    void stand();
    void doubt();
    void tell_doubt();

    // page_timeline.cpp
    void freeze() { stop_clock(phase::freezing); }
    void start();
    void open_frame();
    void await_wish();
    void ask_page();
    bool has_question() const;
    void tell_values();
    void hold() { stop_clock(phase::holding); }
    void return_to_frames();

    // page_timeline_rounds.cpp
    void tick();
    void try_tick();
    void await_turn();
    void tick_again();
    void close_frame();
    bool comes_late() const { return m_comes_late && !is_unseen(); }
    void next_round();
    void end_rounds();
    std::int64_t stamp() const;
    bool begin_frame(std::int64_t microseconds);
    void tell_page(const char* expression);

    // page_timeline_films.cpp
    void films_begin(const nlohmann::json& called);
    void ask_driver(std::int64_t context, std::string expression,
                    page_inspector::receiver answered);
    void ask_drivers_apart(const std::string& expression, const page_inspector::receiver& answered);
    void place();
    void quiet();
    void clear();
    void try_clear();
    void put();
    void place_films();
    void hurry();
    void show();
    void ask_shown();
    void await_pictures();
    void show_again(const char* hangs);
    void end_quiet();
    void end_rest();
    void ask_stalled();
    void tell_stalled();
    std::int64_t unseen_moment() const;
    bool has_unseen_moment() const { return unseen_moment() < m_zero + m_frame_us; }

    // page_timeline_workers.cpp
    void wake();
    void doubt_workers();

    // page_timeline_transitions.cpp
    void ask_whether_held();
    void let_film_show();

    // page_timeline_moves.cpp
    void hear_of_next(const std::string& method, const nlohmann::json& params);
    void meet();
    void meet_next_page();
    void read_on();
    void meet_again();
    void follow_clock();
    void hear_of_document(const nlohmann::json& params);
    bool is_in_frame() const;
    void hold_next_page();
    void let_come(const std::string& request);
    void let_next_page_come();

    timeline_port& m_port;
    const double m_day;
    const page_start m_start;
    std::int64_t m_lead_us;  // from where the clock stops to the page's time 0, at least
    page_inspector m_inspector;
    page_hearing m_hearing;
    page_workers m_workers;
    phase m_phase = phase::nothing;
    std::string m_fault;  // why it has failed
    time m_now{};
    time m_limit = time::max();
    time m_due = time::max();
    time m_tick_limit{};

    std::deque<frame> m_waiting;
    receiver m_taken;  // of the frame that the browser took last, while its end is not known
    std::vector<question> m_questions;
    std::vector<question> m_asked;  // those that the page has been asked
    std::uint64_t m_begun = 0;      // frames that the browser has taken
    bool m_has_taken = false;
    bool m_has_painted = false;
    bool m_has_turned = false;
    bool m_is_held = false;    // the page has no turn in this frame, and waits for its time
    bool m_was_held = false;   // so it was in the frame before
    std::uint64_t m_turn = 0;  // the one that was asked for last
    double m_turn_ms = 0;      // the time that the page was told in its turn; NaN for none
    time m_again_at{};  // when the browser is to take the frame once more, without a turn by then
    std::chrono::milliseconds m_patience{};
    int m_repeats = 0;  // how often it has, of one frame

    bool m_has_day = false;     // whether the page has, in its first process
    int m_open_calls = 0;       // answers that the phase waits for
    bool m_has_come = false;    // the event that the phase waits for
    bool m_is_forced = false;   // time goes on without what the page fetches
    bool m_was_forced = false;  // so it has been for this page
    bool m_has_begun = false;   // the page is the one that was asked for
    bool m_is_looking = false;  // whether it has come to its start
    time m_look_at{};           // again
    // All in microseconds of the page's own monotonic clock, which is as fine as that.
    std::int64_t m_clock = 0;     // where it stands
    std::int64_t m_told = 0;      // the same, as the page has said last
    std::int64_t m_zero = 0;      // the same at the page's time 0
    std::int64_t m_moved_us = 0;  // by how much it was moved last
    std::int64_t m_frame_us = 0;  // of the frame under way
    std::int64_t m_last_us = -1;
    int m_unseen = 0;     // how many of those have been
    int m_unseen_us = 0;  // and how many stamps they took
    int m_blanks = 0;
    int m_loads = 0;
    page_grain m_grain;
    int m_wakes = 0;
    // The page does what it has to do, by no time: so that it ends workers that have closed
    // themselves, or that a film of it shows itself.
    bool m_lets_workers_end = false;
    bool m_lets_film_show = false;
    bool m_has_moved_on = false;  // the page has, to another one
    std::string m_frame;          // the page's own: the inspector's name for it
    std::string m_next_page;      // where it is about to go; empty if nowhere
    std::string m_next_request;   // the request for that one, which waits for the frame's picture
    int m_moves = 0;              // how often it has in this frame
    time m_frame_began{};
    bool m_is_read = false;  // all that it begins with is there
    bool m_is_met = false;   // that one is yet to be told where its time stands
    bool m_has_films = false;
    bool m_has_moving_films = false;    // some of them have pictures, which move
    bool m_is_quiet = false;            // the page rests, for the films of the frame
    bool m_is_put = false;              // they are at its time
    round m_round = round::own;         // of the frame under way
    bool m_comes_late = false;          // what scripts draw may come to the display a frame late
    bool m_is_hidden = false;           // so what comes now is not the frame's picture
    bool m_is_drawn = false;            // the frame before is on the display, and the page rests
    int m_unmet = 0;                    // so many unseen frames the page needs that has come
    std::size_t m_unshown = 0;          // so many drivers have not shown their pictures yet
    bool m_will_move = false;           // one of them has more to come
    std::uint64_t m_shown = 0;          // how often that was asked
    std::vector<std::int64_t> m_apart;  // frames of other sites that have films
    std::chrono::milliseconds m_pause{};
    std::int64_t m_last_stamp = 0;  // in microseconds, of a frame that the browser has taken
    bool m_is_hurried = false;      // they are not to wait for what is still to come
    std::string m_blocked_by;       // what the page draws nothing without
    std::string m_stalled;          // the film that does not follow
};

}  // namespace pennywort::webdisplay
