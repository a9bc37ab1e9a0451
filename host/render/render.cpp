// host/render/render.cpp - see the header for the contract.
#include "host/render/render.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "core/limits.h"
#include "core/run/clock.h"
#include "host/app/browser_runtime.h"
#include "host/app/exit_status.h"
#include "host/output/stream_writers.h"
#include "host/output/writer_thread.h"
#include "host/render/page_display.h"
#include "host/render/page_language.h"
#include "host/render/page_lines.h"
#include "host/render/page_part.h"
#include "host/render/page_run.h"
#include "host/render/page_sayings.h"
#include "host/render/page_setup.h"
#include "host/render/progress.h"
#include "host/render/recorder.h"
#include "host/render/render_report.h"
#include "host/render/ticker.h"
#include "host/system/interrupt.h"
#include "host/system/picture_memory.h"
#include "host/ws/page_feed.h"
#include "host/ws/ws_feed.h"
#include "loam/message_loop.h"
#include "webdisplay.h"

namespace pennywort::host {

namespace {

using time_point = run::monotonic_clock::time;

// How long the loop waits for something to do before it looks at the time.
constexpr std::uint32_t k_loop_microseconds = 10'000;

page_time time_of(page_clock clock) {
    if (clock == page_clock::own) return page_time::its_own;
    return clock == page_clock::host ? page_time::ticks_of_ours : page_time::the_days;
}

class render_session {
public:
    render_session(const render_options& options, const console& out)
        : m_options(options),
          m_console(out),
          m_progress(out.errors(), columns()),
          m_lines(m_progress, options.verbose, options.format.has_sound) {}

    int run();

private:
    int columns() const { return m_options.verbose ? 0 : m_console.terminal_columns(); }
    bool open_output();
    void show_pages();
    void begin_page(page_display& display, std::size_t number);
    void follow_page(page_display& display);
    bool has_waited_for_reason();
    void leave_page(page_display& display);
    void tick(page_display& display, time_point now, std::uint64_t due);
    void fast_forward(page_display& display);
    bool is_exact() const { return m_options.clock == page_clock::own; }
    void run_loop(page_display& display);
    void mind_room();
    void wait_for_sound();
    void tell_of_sound();
    void open_feed();
    void follow_feed(page_display& display);
    bool has_feed() const { return m_feed == nullptr || m_feed->has_opened(); }
    void ask_frames(page_display& display);
    bool has_part(page_display& display);
    bool has_late_part();
    bool show_part(page_display& display);
    void tell_of_part();
    void take_late_part(page_display& display);
    void begin_frames(const page_display& display);
    void begin_counting_at(std::uint64_t over);
    std::uint64_t frames_to_move() const;
    bool has_all_of_page() const;
    void frame_ended(page_display& display, bool is_there);
    std::string frame_fault_text(const std::string& why) const;
    void complete_output();
    void discard_output();
    const char* doing() const;
    void show_progress(const char* doing);
    bool is_running_up() const { return m_is_moving && !m_is_counting; }
    void hear_page(const page_saying& said);
    void mind_sayings();
    render_result result() const;
    void print_json(const render_result& result);
    void fail(const std::string& text);
    bool is_over() const;
    bool is_drained() const;
    int report();

    const run::monotonic_clock& m_clock = run::monotonic_clock::system();
    const render_options& m_options;
    const console& m_console;
    progress m_progress;
    page_lines m_lines;
    interrupt_watch m_interrupt;
    std::unique_ptr<writer_thread> m_writer;
    std::unique_ptr<recorder> m_recorder;
    std::unique_ptr<page_run> m_page;
    std::unique_ptr<page_part> m_part;
    std::unique_ptr<page_feed> m_feed;
    std::size_t m_page_number = 0;
    bool m_has_told_of_sound = false;
    bool m_is_counting = false;  // output frames
    bool m_is_moving = false;    // an exact page: frames are asked for, output or not
    std::uint64_t m_asked = 0;   // frames of an exact page, and those of them that are over
    std::uint64_t m_over = 0;
    bool m_is_forwarding = false;
    std::uint64_t m_lived = 0;  // frames of an exact page before those
    std::string m_frame_fault;  // of the first of them that failed
    time_point m_frame_failed{};
    bool m_has_shown_all = false;
    std::uint64_t m_missed = 0;
    std::uint64_t m_missed_before = 0;
    time_point m_started{};
    std::string m_failure;
    bool m_is_refused = false;  // by its arguments, which it takes another program to judge
    picture_memory m_pictures;
    bool m_has_page_faults = false;
};

void render_session::fail(const std::string& text) {
    if (m_failure.empty()) m_failure = text;
}

void render_session::hear_page(const page_saying& said) {
    if (said.kind == saying_kind::unheard) return tell_of_sound();
    m_lines.of_page(said);
}

// The film is whole, and the user wants to hear whether its pages were.
void render_session::mind_sayings() {
    if (m_options.is_strict && m_lines.counts().faults() > 0 && m_failure.empty()) {
        m_has_page_faults = true;
        m_progress.say("pennywort: --strict: " + m_lines.counts().text() + " of the page");
    }
}

bool render_session::open_output() {
    if (m_options.output.kind == output_kind::none) return true;
    if (m_options.output.to_standard_output() && !m_console.has_output()) {
        fail("standard output is closed");
        return false;
    }
    auto writer = make_page_writer(m_options.output, m_options.key ? &*m_options.key : nullptr,
                                   m_options.format, m_console.output());
    const auto begun = writer->begin();
    if (begun.ok()) {
        m_writer = std::make_unique<writer_thread>(std::move(writer));
    } else {
        fail(begun.text());
        m_is_refused = begun.what() == outcome::kind::refused;
    }
    return begun.ok();
}

bool render_session::is_over() const {
    return m_has_shown_all || !m_failure.empty() || m_interrupt.status() != 0 ||
           m_recorder->has_no_memory() || (m_writer && m_writer->has_failed());
}

// Whether the writer has written all frames so far. The next page is loaded only then: otherwise
// the pictures of the last page would take the memory that its own need.
bool render_session::is_drained() const {
    return !m_writer || m_writer->written() >= m_recorder->counts().frames;
}

void render_session::tick(page_display& display, time_point now, std::uint64_t due) {
    // The page gets one tick however many are due: its clock is the time of day, so it cannot paint
    // the moments that the machine was too late for.
    for (std::uint64_t i = 0; i < due; ++i) m_recorder->tick(now);
    if (m_options.clock == page_clock::host) display.tick();
}

void render_session::begin_page(page_display& display, std::size_t number) {
    const page_request request{m_options.urls[number], m_options.script,  m_options.script_name,
                               m_options.wait_for,     m_options.timeout, is_exact(),
                               m_options.page.start};
    auto page = std::make_unique<page_run>(display, request, m_clock.now());
    if (!display.show(request.url, *page)) fail("the display cannot be opened");
    m_page = std::move(page);
    m_page_number = number;
    m_is_counting = m_is_moving = false;
}

void render_session::follow_page(page_display& display) {
    m_page->step(m_clock.now());
    display.look_whether_closed();
    if (m_page->has_failed()) return fail(m_page->failure());
    if (!display.refused().empty()) return fail(display.refused() + ": not known to the browser");
    if (is_exact() && !m_page->is_ready() && m_frame_fault.empty())
        m_frame_fault = display.frame_fault();
    if (has_waited_for_reason()) return fail(m_options.urls[m_page_number] + ": " + m_frame_fault);
    if (m_page->is_ready() && !m_is_counting && !m_is_moving && has_feed() && has_part(display)) {
        if (!m_page->script_result().empty()) {
            m_lines.news("script: " + m_page->script_result());
        }
        begin_frames(display);
    } else if (m_page->is_ready() && has_late_part()) {
        take_late_part(display);
    } else if (m_page->is_ready() && m_is_counting && has_all_of_page()) {
        m_missed += display.missed() - m_missed_before;
        m_missed_before = display.missed();
        m_page->end(m_clock.now());
    } else if (m_page->has_ended()) {
        leave_page(display);
    }
}

// Whether it is known what of the page the picture shows.
bool render_session::has_part(page_display& display) {
    if (!m_part->is_wanted()) return true;
    if (!m_part->look()) return false;
    if (m_part->is_late()) return true;
    tell_of_part();
    return show_part(display);
}

// Whether the page has come to the picture's frame, and what it shows is known.
bool render_session::has_late_part() {
    return m_part->is_late() && is_running_up() && m_asked > m_options.first_frame &&
           m_over >= m_options.first_frame && m_part->look_late(m_over);
}

// From now on pictures show it. False where there is none.
bool render_session::show_part(page_display& display) {
    const area_finder& found = m_part->found();
    if (!found.failure().empty()) fail(found.failure());
    if (!m_failure.empty()) return false;
    m_recorder->resize(found.area().width, found.area().height);
    display.set_area(found.area());
    return true;
}

void render_session::tell_of_part() {
    const std::string& note = m_part->found().note();
    if (!note.empty()) m_progress.say("pennywort: " + note);
}

// The picture of one frame more, of which it is known when it is there: two runs have the same.
void render_session::take_late_part(page_display& display) {
    if (!m_part->found().failure().empty()) return fail(m_part->found().failure());
    tell_of_part();
    m_part->take();
    display.advance_unseen([this, &display](bool is_there) {
        if (!is_there) m_frame_fault = frame_fault_text(display.frame_fault());
        if (!is_there || !show_part(display)) return;
        m_recorder->begin(1, m_lived + m_options.first_frame);
        m_is_counting = true;
        m_recorder->tick(m_clock.now());
    });
    display.show_unseen([](bool) {});
}

void render_session::begin_frames(const page_display& display) {
    m_missed_before = display.missed();
    m_asked = m_over = 0;
    m_lived = display.advanced();
    m_is_moving = is_exact();
    begin_counting_at(0);
}

// What was drawn tiny is drawn anew within the last frames before the film.
void render_session::fast_forward(page_display& display) {
    constexpr std::uint64_t k_drawn = 5;
    const bool is_unseen = m_asked + k_drawn < m_options.first_frame;
    if (!m_options.is_fast_forward || is_unseen == m_is_forwarding) return;
    m_is_forwarding = is_unseen;
    if (is_unseen) {
        return display.fast_forward({m_options.page_width, m_options.page_height});
    }
    display.end_fast_forward([this](const char* kept) {
        if (kept == nullptr) return;
        m_progress.say(std::string("pennywort: --fast-forward: the page keeps parts as they were "
                                   "first drawn (") +
                       kept + "), which may look otherwise than in the whole film");
    });
}

// `over`: the page's frames before it. The one at which output begins shows what the page does
// then, changed by it or not.
void render_session::begin_counting_at(std::uint64_t over) {
    if (over != m_options.first_frame) return;
    m_recorder->begin(m_options.frames_per_page, m_lived + over);
    m_is_counting = true;
}

// One more frame than the film has, since the end of one at which nothing changes is known with the
// next. And two more for the sound of the last, which the page tells when they come.
std::uint64_t render_session::frames_to_move() const {
    if (m_part->is_late()) return m_options.first_frame + 1;
    const std::uint64_t last = m_options.first_frame + m_options.frames_per_page;
    return last + (m_options.format.has_sound ? 3 : 1);
}

bool render_session::has_all_of_page() const {
    const bool is_heard = !is_exact() || !m_options.format.has_sound;
    return m_recorder->is_done() && (is_heard || m_over + 1 >= frames_to_move());
}

bool render_session::has_waited_for_reason() {
    constexpr auto k_longest = std::chrono::seconds(1);
    if (m_frame_fault.empty()) return false;
    const auto now = m_clock.now();
    if (m_frame_failed == time_point{}) m_frame_failed = now;
    return now - m_frame_failed >= k_longest;
}

void render_session::leave_page(page_display& display) {
    if (m_page_number + 1 == m_options.urls.size()) {
        m_has_shown_all = true;
    } else if (is_drained()) {
        begin_page(display, m_page_number + 1);
    }
}

void render_session::show_pages() {
    m_recorder = std::make_unique<recorder>(m_options.format.width, m_options.format.height,
                                            m_options.format.rate, m_writer.get(), is_exact(),
                                            m_options.format.has_sound, m_options.first_frame);
    page_display display(
        m_options, *m_recorder, m_clock, [this](const std::string& line) { m_lines.news(line); },
        [this](const page_saying& said) { hear_page(said); });
    m_part = std::make_unique<page_part>(m_options, display);
    begin_page(display, 0);
    if (is_exact()) {
        run_loop(display);
    } else {
        const ticker ticks(
            m_options.format.rate,
            [&](time_point now, std::uint64_t due) { tick(display, now, due); }, m_clock);
        run_loop(display);
        wait_for_sound();
    }
    m_recorder->end();
    m_recorder->end_sound();
    if (m_recorder->has_no_memory()) fail(outcome::no_memory().text());
    complete_output();
    display.close();
    m_feed.reset();
    m_page.reset();
    m_part.reset();
}

void render_session::run_loop(page_display& display) {
    while (!is_over()) {
        zMessageLoop::RunOnce(k_loop_microseconds);
        mind_room();
        follow_page(display);
        follow_feed(display);
        ask_frames(display);
        if (display.has_sounded()) tell_of_sound();
        show_progress(doing());
    }
}

// Others may fill the disk in the middle of a film.
void render_session::mind_room() {
    const picture_size page = m_part->window();
    const double scale = m_options.page.scale;
    const double pixels = scale * scale * static_cast<double>(page.width * page.height);
    const std::string fault =
        picture_memory_fault(m_pictures, 4 * static_cast<std::uintmax_t>(pixels));
    if (!fault.empty()) fail(fault);
}

// The last frames may be written before their sound has come.
void render_session::wait_for_sound() {
    constexpr auto k_longest = std::chrono::milliseconds(300);
    if (!m_has_shown_all) return;
    const auto begun = m_clock.now();
    while (m_recorder->is_waiting_for_sound() && m_clock.now() - begun < k_longest) {
        zMessageLoop::RunOnce(k_loop_microseconds);
    }
}

// Tells the user what the film lacks.
void render_session::tell_of_sound() {
    const bool is_measured = m_options.output.kind == output_kind::none;
    const bool is_wanted = !m_options.is_muted && !m_options.format.has_sound && !is_measured;
    if (!is_wanted || std::exchange(m_has_told_of_sound, true)) return;
    m_progress.say("pennywort: the page has sound, and " + m_options.output.path +
                   " holds none (--mute hides this line)");
}

const char* render_session::doing() const {
    if (m_is_counting) return "page ";
    return is_running_up() ? "running up to --from, page " : "loading page ";
}

// Before the browser, which takes longer to start than a feed to open.
void render_session::open_feed() {
    if (m_options.feed.url.empty()) return;
    auto socket = make_feed(ws_transport::managed);
    if (socket == nullptr) return fail(outcome::no_memory().text());
    m_feed = std::make_unique<page_feed>(m_options.feed, feed_kind::once, std::move(socket),
                                         [this](page_feed::saying what, const std::string& line) {
                                             if (what == page_feed::saying::connection)
                                                 return m_progress.say(line);
                                             m_lines.once(line);
                                         });
    m_feed->open();
}

void render_session::follow_feed(page_display& display) {
    if (m_feed == nullptr) return;
    m_feed->step(m_clock.now(), m_page->takes_messages(),
                 [&display](const std::string& body, auto answered) {
                     display.run_script(body, std::move(answered));
                     return true;
                 });
    if (m_feed->has_failed()) fail(m_feed->failure());
}

// No further ahead than the writer is behind, so that none has to be left out.
void render_session::ask_frames(page_display& display) {
    if (!m_is_moving || !m_page->is_ready()) return;
    constexpr std::uint64_t k_ahead = 2;
    while (m_asked < frames_to_move() && m_asked < m_over + k_ahead && m_recorder->has_room() &&
           m_failure.empty() && m_frame_fault.empty()) {
        fast_forward(display);
        ++m_asked;
        display.advance([this, &display](bool is_there) { frame_ended(display, is_there); });
    }
}

void render_session::frame_ended(page_display& display, bool is_there) {
    // The one behind the last fails when its page is left.
    if (!m_is_moving || (m_is_counting && has_all_of_page())) return;
    // Nor does the film need more than its sound of those behind it.
    if (!is_there && m_is_counting && m_recorder->is_done()) return void(m_over = frames_to_move());
    // The page itself may have more to say of it, a moment later.
    if (!is_there && m_frame_fault.empty()) m_frame_fault = frame_fault_text(display.frame_fault());
    if (!is_there) return;
    ++m_over;
    m_recorder->tick(m_clock.now());
    if (!m_is_counting && !m_part->is_late()) begin_counting_at(m_over);
    ask_frames(display);
}

// The place, so that the user finds what the page does there.
std::string render_session::frame_fault_text(const std::string& why) const {
    const auto at = std::chrono::duration<double>(m_options.format.rate.time_of(m_over)).count();
    char place[64];
    std::snprintf(place, sizeof place,
                  "frame %llu, at %.3f s: ", static_cast<unsigned long long>(m_over), at);
    return place + why;
}

void render_session::complete_output() {
    if (!m_writer) return;
    m_writer->request_finish();
    while (!m_writer->has_finished()) {
        zMessageLoop::RunOnce(k_loop_microseconds);
        if (m_writer->written() > 0) show_progress("writing page ");
    }
    const auto finished = m_writer->finish();
    output_end end;
    end.is_empty = m_writer->written() == 0;
    end.is_endless = m_options.frames_per_page == render_options::k_endless;
    end.is_told = !m_failure.empty() || m_interrupt.status() != 0;
    fail(output_fault(finished, end));
}

// Nothing was shown: what was there stays.
void render_session::discard_output() {
    if (m_writer) static_cast<void>(m_writer->finish());
}

void render_session::show_progress(const char* doing) {
    if (m_options.is_quiet) return;
    const auto counts = m_recorder->counts();
    progress_state state;
    // Of the same frames: the writer is behind what has been handed to it. Asked for in this order,
    // the second is never more than the first.
    state.repeated = m_writer ? m_writer->repeated() : counts.repeated;
    state.frames = m_writer ? m_writer->written() : counts.frames;
    const bool endless = m_options.frames_per_page == render_options::k_endless;
    state.total = endless ? 0 : m_options.frames_per_page * m_options.urls.size();
    state.dropped = counts.dropped;
    state.seconds = static_cast<double>(state.frames) / m_options.format.rate.value();
    state.doing =
        doing + std::to_string(m_page_number + 1) + " of " + std::to_string(m_options.urls.size());
    if (is_running_up()) {
        const double rate = m_options.format.rate.value();
        state.doing += run_up_text(m_over, m_options.first_frame, rate);
    }
    m_progress.show(state, m_clock.now());
}

render_result render_session::result() const {
    render_result result;
    if (m_recorder) {
        result.counts = m_recorder->counts();
        result.intervals = m_recorder->intervals();
        result.width = m_recorder->width();
        result.height = m_recorder->height();
        if (m_recorder->pictures() > 0)
            result.first_frame = m_recorder->first_picture() - m_started;
    }
    result.missed = m_missed;
    result.sayings = m_lines.counts();
    result.failure = m_failure;
    return result;
}

void render_session::print_json(const render_result& result) {
    std::FILE* const to =
        m_options.output.to_standard_output() ? m_console.errors() : m_console.output();
    const bool is_written = std::fprintf(to, "%s\n", json_report(m_options, result).c_str()) >= 0;
    if (std::fflush(to) == 0 && is_written) return;
    const std::string lost = "standard output does not take the line that --json asks for";
    if (m_failure.empty()) m_progress.say("pennywort: " + lost);
    fail(lost);
}

int render_session::report() {
    const int interrupted = m_interrupt.status();
    if (!m_failure.empty()) {
        m_progress.say("pennywort: " + m_failure);
    } else if (interrupted != 0) {
        m_progress.say("pennywort: interrupted");
    }
    const render_result told = result();
    for (const auto& line : summary_lines(m_options, told)) m_progress.say(line);
    mind_sayings();
    if (m_options.json) print_json(told);
    if (!m_failure.empty()) return m_is_refused ? k_exit_usage : k_exit_failed;
    if (interrupted != 0) return interrupted;
    return m_has_page_faults ? k_exit_page_faults : k_exit_fine;
}

int render_session::run() {
    const std::string unspoken = speak_as(m_options.page.locale);
    if (!unspoken.empty()) m_progress.say("pennywort: " + unspoken);
    if (!open_output()) return report();
    m_started = m_clock.now();
    open_feed();
    {
        const browser_runtime browser(m_options.pacing, m_options.gpu, time_of(m_options.clock),
                                      {m_options.page.seed, browser_switches(m_options.page)});
        if (browser.up()) {
            m_pictures = browser.pictures();
            show_pages();
        } else {
            fail(browser.failure());
            discard_output();
        }
    }
    return report();
}

}  // namespace

int render(const render_options& options, const console& out) {
    render_session session(options, out);
    return session.run();
}

}  // namespace pennywort::host
