// page_loads.h - what becomes of the pages that a display asks its browser for: one state machine,
// which knows nothing of the browser or of its own owner.
#pragma once

#include <atomic>
#include <string>

namespace pennywort::webdisplay {

enum class load_phase {
    none,        // nothing was asked for yet
    asked,       // given to the browser, which has not begun to show it
    on_its_way,  // the browser shows what it has of it
    failed,      // it could not be loaded; the browser shows a page of its own in its place
    lost,        // the process of the page has ended, and the page with it
    loaded,
    closed  // the browser has gone
};

// What the host asked for beyond the default.
struct load_policy {
    bool report_lost_page = false;
    bool keep_last_picture = false;
    // A failed page is told as failed only, and a URL that comes to nothing does not hold up the
    // queue.
    bool tell_every_load = false;
    // A page that its server sends with an error status has failed.
    bool fail_on_error_status = false;

    bool minds_lost_page() const { return report_lost_page || keep_last_picture; }
};

// The loads of one browser's main frame. Threads: not locked, except that the operations marked
// so may be called from any thread at once.
class page_loads {
public:
    explicit page_loads(load_policy policy = {}) : m_policy(policy) {}

    // A new browser is asked for; what was known of the last one is forgotten. The empty page that
    // it begins with is nothing to show after what the last one has shown.
    void start_over();
    // The browser has gone.
    void close();

    // A URL was given to the browser. Returns its ticket, for what comes to light later.
    unsigned ask(std::string url);
    // The same for the URL that the browser was made with.
    unsigned ask_at_start(std::string url);
    // The browser says that it is loading something.
    void stir() { m_stirred = true; }
    // The main frame begins to show the page at `url`, which its server has sent with `status`; 0
    // where there was none. What was shown before it stays until there is something of it to see.
    // False where the page has failed by that status.
    bool begin(std::string url, int status = 0);
    // The main frame has ended at `url`. Whether that is told as a page that has loaded: what the
    // browser shows in the place of a page that failed ends too, and only the policy tells the two
    // apart.
    bool end(const std::string& url);
    void fail(std::string url, std::string error);

    // The browser aborted the load of the main frame. It says so before the process of the page
    // ends or after that, so the load is given up only by `give_up` with the ticket returned here.
    unsigned abort() const { return m_ticket; }
    // Whether that was the one that the host waits for.
    bool give_up(unsigned ticket);

    // Whether the browser has taken no notice of that URL, as it does of one that it does not
    // accept. Such a load is over then. `is_loading`: what the browser says of itself.
    bool is_ignored(unsigned ticket, bool is_loading);

    // The process of the page has ended. Nothing if the host does not mind.
    void lose();
    // The URL that was on its way when the page before it was lost, taken out; empty when there is
    // none, or when the host has asked for another since. The browser gives such a load up without
    // a word, while the host is still waiting for it.
    std::string take_lost_load();

    // Whether a frame must be looked at by `admits` before it goes to the host. Any thread.
    bool holds_picture() const { return m_holds_picture.load(std::memory_order_relaxed); }
    // Whether a frame may go to the host. `has_painted`: it is whole, and there is more on it than
    // the background, which is all that there is of a page at first. Frames of the page before may
    // still come when another has begun, so it takes some until the next one is taken to be seen.
    bool admits(bool has_painted);
    // Whether those would show a page that has failed: none of them is admitted then. The page is
    // to say itself when it has painted, since it may come to rest with fewer.
    bool doubts_picture() const { return m_doubts_picture; }
    // The page says that it has painted. Whether there is a frame of it that was held back.
    bool release_picture();

    // Any thread.
    load_phase phase() const { return m_phase; }
    bool is_lost() const { return m_phase == load_phase::lost; }

    const load_policy& policy() const { return m_policy; }
    // The page that the main frame shows, or that failed in its place.
    const std::string& url() const { return m_url; }
    // What was given to the browser and has not begun.
    const std::string& asked_url() const { return m_asked_url; }
    // Of the load that failed last.
    const std::string& error() const { return m_error; }

private:
    bool has_page_to_show() const;
    void hold_picture();

    const load_policy m_policy;
    std::atomic<load_phase> m_phase{load_phase::none};
    std::atomic<bool> m_holds_picture{false};
    bool m_has_held_back = false;
    bool m_doubts_picture = false;
    bool m_shows_failure = false;                  // the browser, and not the host
    int m_painted_frames = 0;                      // since the picture was held last
    load_phase m_phase_before = load_phase::none;  // of what is shown while another is asked for
    unsigned m_ticket = 0;
    bool m_stirred = false;
    bool m_is_start = false;
    bool m_is_empty = false;  // nothing was asked of a browser that follows another
    std::string m_asked_url;
    std::string m_url;
    std::string m_failed_url;
    std::string m_error;
};

}  // namespace pennywort::webdisplay
