// host/render/page_run.h - brings one page from its request to the moment when its frames count,
// and notices when it stops living afterwards.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "core/run/clock.h"

namespace pennywort::host {

// What a page run needs of the display that shows the page.
class page_port {
public:
    virtual ~page_port() = default;

    // Runs the body of a function in the page; what it returns arrives as text on the display
    // thread, later or, when the page has gone meanwhile, never.
    virtual void run_script(const std::string& body, std::function<void(std::string)> answer) = 0;
    // The same as a user's click: a page that stands still may open its select lists and pickers.
    virtual void run_users_script(const std::string& body,
                                  std::function<void(std::string)> answer) = 0;
    // Of a page that stands still: lets one frame's time pass in it, which is no output frame, and
    // asks it then for the value of an expression. Empty where it has none.
    virtual void ask_next_frame(const std::string& expression,
                                std::function<void(std::string)> answer) = 0;
    // Of a page that stands still, also while it loads: what an expression throws there. Empty
    // where it throws nothing.
    virtual void ask_fault(const std::string& expression,
                           std::function<void(std::string)> answer) = 0;
    // Asks for a picture even if nothing has changed.
    virtual void repaint() = 0;
    // Pictures painted so far.
    virtual std::uint64_t pictures() const = 0;
};

struct page_request {
    std::string url;
    std::string script;       // run once the page has loaded; none if empty
    std::string script_name;  // for messages
    std::string wait_for;     // expression to become true; none if empty
    std::chrono::milliseconds timeout{30'000};
    // The page's time stands until its frames are asked for one by one: it draws nothing before
    // that, and between two of them it runs no script. While it is asked for its condition, frames
    // that nobody sees take its time on.
    bool stands_still = false;
    // What else than all of the page its beginning waits for; empty if it waits for that.
    std::string start;
};

// The steps: loading, settling (fonts and style sheets), the script, the condition, some frames of
// the page's own, a picture that shows all of it. Then the page is ready, and only asked now and
// then whether it still lives. All on the display thread. No clock: the caller tells the time.
class page_run {
public:
    using time_point = run::monotonic_clock::time;

    // The page has been requested at `now`. `port` must outlive the run.
    page_run(page_port& port, page_request request, time_point now);
    ~page_run();
    page_run(const page_run&) = delete;
    page_run& operator=(const page_run&) = delete;

    // What the display reports. A page that loads another one by itself while it is being
    // prepared is prepared again.
    void page_loaded();
    // The page's main frame shows nothing of a page any more, only why: that ends the run at any
    // time, since the browser's own words must not get into a film.
    void page_failed(const std::string& url, const std::string& error);
    // The process of the page has ended, and nothing is painted any more.
    void page_lost();
    // There is no browser any more.
    void page_closed();
    // Something else did not load: a frame of the page, or a URL that the browser does not take.
    void load_failed(const std::string& url, const std::string& error);

    // Does what is due. Call it often: without it no wait of the run ever ends.
    void step(time_point now);

    // All frames of the page are taken. The run ends when the page has answered once more, which
    // proves that it painted to the end.
    void end(time_point now);

    bool is_ready() const { return m_state == state::ready; }
    // From when the user's script has run.
    bool takes_messages() const { return m_state >= state::waiting && m_state <= state::ready; }
    bool has_ended() const { return m_state == state::ended; }
    bool has_failed() const { return m_state == state::failed; }
    // Why, in one line.
    const std::string& failure() const { return m_failure; }
    // What the script returned.
    const std::string& script_result() const { return m_script_result; }

private:
    enum class state {
        loading,
        settling,
        scripting,
        waiting,
        drawing,
        painting,
        ready,
        ending,
        ended,
        failed
    };
    struct question;

    void enter(state next);
    void ask_for_picture();
    void fail(const std::string& text);
    static std::function<void(std::string)> taker_of(std::shared_ptr<question> sent);
    std::shared_ptr<question> send(const std::string& body);
    void ask(const std::string& body, time_point now);
    void ask_next_frame(const std::string& body, time_point now);
    void run_users_script(time_point now);
    void doubt_question(const std::string& name, const std::string& script, time_point now);
    bool ask_again(time_point now, std::chrono::milliseconds patience);
    bool take_answer(std::string& text);
    bool is_silent(time_point now) const;
    std::string probe(const std::string& condition) const;
    std::string timeout_text() const;
    std::string within() const;

    void step_settling(time_point now);
    void step_scripting(time_point now);
    void step_parsing(time_point now);
    void step_waiting(time_point now);
    bool has_condition_at_start() const;
    bool hears_of_start(time_point now);
    void step_drawing(time_point now);
    void step_painting();
    void step_living(time_point now);

    page_port& m_port;
    const page_request m_request;
    const time_point m_deadline;
    state m_state = state::loading;
    std::shared_ptr<question> m_question;
    std::shared_ptr<question> m_doubted;  // the question that may be no JavaScript
    std::shared_ptr<question> m_doubt;    // what was asked about it
    bool m_moves = false;                 // time passes in a page that stood still
    bool m_is_parsed = false;             // the condition, as far as the page lets it be
    bool m_is_evaluated = false;          // so the condition is JavaScript
    bool m_is_parsing = false;            // m_doubt is about its text
    time_point m_asked{};
    time_point m_answered{};
    std::uint64_t m_pictures_before = 0;
    int m_pictures_seen = 0;
    std::string m_thrown;  // by the condition, the last time
    std::string m_script_result;
    std::string m_failure;
};

}  // namespace pennywort::host
