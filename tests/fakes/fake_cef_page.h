// fake_cef_page.h - one browser of the fake runtime: its loads, its frames, its end.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "tests/fakes/fake_cef.h"
#include "tests/fakes/fake_cef_object.h"

namespace fake {

// What the caller asked for when it made the browser.
struct page_wish {
    caller_ref<cef_client_t> client;
    std::string url;
    fake_cef_browser record;
};

// Unless it says otherwise an operation belongs to the UI thread. Callbacks into the client are
// made under no lock, and the client is asked for its handler each time, as the real runtime does.
class page : public std::enable_shared_from_this<page> {
public:
    page(int id, page_wish wish);

    // Any thread.
    fake_cef_browser record();
    int id() const { return m_id; }
    void note(const std::function<void(fake_cef_browser&)>& change);
    bool is_closed();
    bool is_gone();  // closed, or its renderer is dead
    caller_ref<cef_client_t> client();
    // Notes a call that came after on_before_close.
    void touched(const char* operation);

    // References for a callback's arguments, given to the receiver. Any thread.
    cef_browser_t* browser_argument();
    cef_frame_t* frame_argument(bool main_frame, const std::string& url_of_sub_frame = {});

    void announce();
    void load(const std::string& url);
    void finish_load();
    void load_error(bool main_frame, int code, const std::string& text, const std::string& url);
    void load_end(bool main_frame, int status, const std::string& url_of_sub_frame);
    void load_start(bool main_frame, const std::string& url_of_sub_frame);
    void loading_state(bool loading);

    void close(bool forced);
    void drop_client();
    void kill_renderer();

    void resize();
    void view_rect(int& width, int& height);
    void hide(bool hidden);
    void invalidate();
    // Whether no frame is under way; then one is. Looks at the clock, as the real runtime does.
    bool take_frame();
    void begin_frame();
    void change();
    void paint();
    void show_widget(bool is_shown);
    void place_widget(int left, int top);
    void paint_element(cef_paint_element_type_t type, int width, int height);

    bool message(const std::string& name, const std::vector<fake_cef_value>& arguments);
    int open_popup(const std::string& url, bool user_gesture);
    bool sound_begins(int& channels, int& sample_rate);
    // Any thread.
    void sound(const std::vector<std::vector<float>>& channels, std::int64_t milliseconds);
    void sound_ends(const std::string& error);
    bool drag_enter();
    bool may_download(const std::string& url);
    // One call of the inspector's protocol, answered as a page does whose time is its own.
    void inspect(const std::string& message);
    void inspector_says(const std::string& message);
    // `watcher` names the observer, and drops it with an empty one.
    void observe(const void* watcher, caller_ref<cef_dev_tools_message_observer_t> observer);
    // Has the client vet a request on the IO thread. Any thread.
    void vet(const std::string& url, bool main_frame, bool navigation,
             std::function<void(bool allowed)> then);
    // A script that the caller sent. Any thread.
    void ran_script(fake_cef_run_script script);

private:
    // Stands in each callback on the UI thread.
    class callback_scope {
    public:
        explicit callback_scope(page& called) : m_page(called) { ++m_page.m_callbacks; }
        callback_scope(const callback_scope&) = delete;
        callback_scope& operator=(const callback_scope&) = delete;
        ~callback_scope() { --m_page.m_callbacks; }

    private:
        page& m_page;
    };

    template <class Handler>
    caller_ref<Handler> handler(Handler* (*cef_client_t::*getter)(cef_client_t*),
                                const char* kind) {
        const auto asked = client();
        if (!asked || !(asked.get()->*getter)) return {};
        return {(asked.get()->*getter)(asked.get()), kind};
    }

    bool is_current(int navigation);
    void attached();
    void abort_load_of(const std::string& url);
    void navigate(int navigation, const std::string& url);
    void answered(int navigation, const std::string& url, bool allowed);
    void redirect(int navigation, const std::string& to);
    void fail(int navigation, const std::string& url, int code, const std::string& text);
    void commit(int navigation, const std::string& url, const fake_cef_page& content);
    void load_sub_frames(int navigation, const fake_cef_page& content);
    void end_load(int navigation);
    void show_loaded();
    void vet_on_io(const std::string& url, bool main_frame, bool navigation,
                   const std::function<void(bool)>& then);
    cef_return_value_t ask_client(const std::string& url, bool main_frame, bool navigation,
                                  class request_callback& callback);
    void finish_close();
    double view_scale(cef_render_handler_t& render);
    void animate();
    void react(const std::string& code);

    const int m_id;
    std::mutex m_lock;
    fake_cef_browser m_record;
    caller_ref<cef_client_t> m_client;
    bool m_attached = false;
    std::vector<std::string> m_early_loads;
    int m_navigation = 0;
    int m_redirects = 0;
    std::string m_navigating_to;
    bool m_closing = false;
    bool m_dead = false;
    bool m_hidden = false;
    bool m_changed = false;
    bool m_painting = false;
    bool m_in_frame = false;
    std::map<const void*, caller_ref<cef_dev_tools_message_observer_t>> m_observers;
    std::vector<std::string> m_turns;  // answers that the next frame sends
    double m_time_ms = 1000.25;        // of the page's own clock
    int m_callbacks = 0;               // that are under way, on the UI thread
};

}  // namespace fake
