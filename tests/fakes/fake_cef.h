// fake_cef.h - what a test says to the fake browser runtime, and what the fake saw of the caller.
//
// The fake is a shared library with the runtime's own file name. A test links to it and has the
// product load it by CEF_ROOT; both then speak to the same copy. It is a small browser runtime: its
// UI thread is the one that initialises it, whose tasks run in cef_do_message_loop_work, and it has
// an IO thread. The order of its callbacks, and which of them come inside a call of the host, were
// read off the real runtime of version 146.
//
// Threads: unless an operation says otherwise it belongs to the UI thread, and the script is
// written before the runtime is initialised or on that thread.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "pennywort_export.h"

// What happens when a browser loads a URL.
struct fake_cef_page {
    int error = 0;  // of cef_errorcode_t; 0 loads
    std::string error_text;
    int status = 200;                    // of the server
    bool is_ignored = false;             // no notice is taken of the URL, and nothing is said
    bool never_ends = false;             // the load begins and nothing follows
    std::string redirect_to;             // a chain of more than 20 fails with -310
    std::vector<std::string> resources;  // fetched by the main frame
    std::vector<std::string> frames;     // sub-frames, loaded before the main frame has ended
};

// What becomes of one browser in a renderer process, before the page of browser 1 gets its world.
struct fake_cef_helper_event {
    int browser = 1;
    bool is_destroyed = false;
    bool is_told = true;  // false: it is made with nothing
    int max_waiting_calls = 0;
    bool refuses_printing = false;
};

// How the fake behaves.
struct fake_cef_script {
    bool knows_api = true;      // false: null for the hash of every version
    std::string hash;           // empty: the right one
    int version = 146;          // below 146 the shorter settings are asked for
    int init_exit_code = 0;     // not 0: cef_initialize answers 0, and this is the exit code
    bool check_locales = true;  // the real runtime traps when the locale folder has no .pak
    bool replace_signal_handlers = true;
    // Called by cef_initialize when it has asked for the switches. Before that it has put back the
    // default handlers, and it sets its own after this.
    std::function<void()> after_switches;
    // Called by cef_initialize; where that does well, with the handlers replaced.
    std::function<void()> during_start;

    int fail_create_at = 0;  // this call of create_browser (from 1) answers 0
    bool creation_never_answers = false;
    int create_after_works = 0;  // creation takes so many steps of the message loop
    bool ignore_close = false;
    int close_after_works = 0;  // 0: at once, inside close_browser on the UI thread
    bool keep_clients = false;  // hold every client until shut-down, to call it after its end
    std::uintptr_t window_handle = 0;

    bool paint_after_load = true;
    bool loading_outlives_renderer = false;  // a killed renderer's load goes on being called one
    bool animate = false;  // each browser paints at its frame rate, or at each begin frame
    bool one_frame_at_a_time = false;    // a begin frame is dropped while another is under way
    std::atomic<int> frames_to_drop{0};  // begin frames that are dropped without a word
    bool inspector_is_silent = false;
    std::string page_sounds_like;                // what a page by its own clock says at each frame
    bool page_answers_next_url = true;           // the page's part of the next-URL script
    std::map<std::string, fake_cef_page> pages;  // others load
    // Called in a task of the UI thread for each script that runs in a page.
    std::function<void(int browser, const std::string& script)> on_script;
};

struct fake_cef_switch {
    std::string process_type;
    std::string name;
    std::string value;
    bool has_value = false;
    friend bool operator==(const fake_cef_switch&, const fake_cef_switch&) = default;
};

// The settings that initialisation was given, as they stood in the struct.
struct fake_cef_settings {
    std::size_t size = 0;
    bool zeros_behind = false;  // whether all that the struct has grown by was 0
    int no_sandbox = 0;
    int windowless_rendering_enabled = 0;
    int multi_threaded_message_loop = 0;
    int external_message_pump = 0;
    int command_line_args_disabled = 0;
    int log_severity = 0;
    int remote_debugging_port = 0;
    int disable_signal_handlers = 0;
    std::uint32_t background_color = 0;
    std::string browser_subprocess_path;
    std::string cache_path;
    std::string root_cache_path;
    std::string locale;
    std::string log_file;
    std::string resources_dir_path;
    std::string locales_dir_path;
    std::string user_agent;
};

struct fake_cef_run_script {
    int browser = 0;
    std::string code;
    std::string url;
    int line = -1;
    bool main_frame = false;
    bool on_ui_thread = false;
};

struct fake_cef_request {
    int browser = 0;
    std::string url;
    bool main_frame = false;
    bool allowed = false;
    bool answered_on_ui_thread = false;  // through the callback, on the UI thread
    bool asynchronous = false;
};

// What the caller did with one browser. Identifiers count from 1, popups included.
struct fake_cef_browser {
    int id = 0;
    bool is_popup = false;
    bool open = false;    // created, and on_before_close has not come
    bool closed = false;  // on_before_close has come
    bool do_close_asked = false;
    int closes = 0;  // calls of close_browser
    bool close_forced = false;
    std::string start_url;
    std::string url;  // of the main frame
    int status = 0;   // that the page in it was sent with
    bool loading = false;
    std::vector<std::string> loads;  // URLs given to load_url
    int width = 0, height = 0;       // of the window information
    std::uintptr_t parent_window = 0;
    bool windowless = false;
    bool external_begin_frame = false;
    int runtime_style = 0;
    int frame_rate = 0;
    std::uint32_t background_color = 0;
    int max_waiting_calls = 0;            // of what the browser was made with
    bool refuses_printing = false;        // of the same
    int view_width = 0, view_height = 0;  // of the last answer of get_view_rect
    double view_scale = 1;                // of the last answer of get_screen_info
    int paints = 0;
    int resizes = 0;
    std::vector<bool> hides;
    std::vector<int> invalidates;  // paint element types
    int begin_frames = 0;
    // What the clock said at each begin frame that was taken, in nanoseconds. One is taken when the
    // one before has come to its end, as with the real runtime.
    std::vector<std::int64_t> begin_times;
    std::vector<std::string> inspector_methods;     // of the calls to the page's inspector
    std::vector<std::string> inspector_parameters;  // of each of them, as JSON
    int inspector_observers = 0;
    std::vector<bool> focuses;
    bool is_muted = false;  // each page that begins to load opens the sound again
    int move_notices = 0;
};

struct fake_cef_cookies {
    std::string url;
    std::string name;
    bool has_callback = false;
    bool on_ui_thread = false;
};

// An object of a page's script, whose text is what its own toString answers, if that does not
// throw.
struct fake_cef_object {
    std::u16string text;
    bool throws = false;
    friend bool operator==(const fake_cef_object&, const fake_cef_object&) = default;
};

// One argument of a message or of a page's call. An empty one is null in a message, undefined in a
// call.
using fake_cef_value =
    std::variant<std::monostate, std::u16string, int, bool, double, fake_cef_object>;

// A page's call of window.hostApp.execute: see calls_of_helper below.
struct fake_cef_page_call {
    std::vector<fake_cef_value> arguments;
};
struct fake_cef_sent_message {
    std::string name;
    bool to_browser = false;
    std::vector<fake_cef_value> arguments;
};

class fake_cef {
public:
    virtual ~fake_cef() = default;

    virtual fake_cef_script& script() = 0;

    // Seen so far. Any thread.
    virtual std::vector<fake_cef_switch> switches() = 0;
    virtual fake_cef_settings settings() = 0;
    virtual std::vector<std::string> arguments() = 0;  // of the main arguments
    virtual int api_version_asked() = 0;               // 0: not yet
    virtual int initialisations() = 0;
    virtual int shutdowns() = 0;
    virtual bool initialised() = 0;
    virtual long works() = 0;     // calls of cef_do_message_loop_work
    virtual int schedules() = 0;  // calls of on_schedule_message_pump_work that were made
    virtual int creates() = 0;    // calls of create_browser
    virtual int browser_count() = 0;
    virtual fake_cef_browser browser(int id) = 0;
    virtual std::vector<fake_cef_run_script> scripts() = 0;
    virtual std::vector<fake_cef_request> requests() = 0;
    virtual std::vector<fake_cef_cookies> cookie_deletions() = 0;
    virtual std::vector<std::string> opened_by_popup() = 0;  // target URLs of allowed popups

    // Broken rules of the interface, each as a sentence; empty if all is well.
    virtual std::vector<std::string> violations() = 0;
    // Calls of a browser's operations after its on_before_close. Legal, but some tests forbid them.
    virtual std::vector<std::string> late_calls() = 0;
    // What the caller still holds of the fake: "browser 1, string 2"; empty if nothing.
    virtual std::string leaks() = 0;
    // References of the caller's structs that the fake holds, by name, in the same form.
    virtual std::string held() = 0;

    // Makes a page or the runtime do something in the next step of the message loop.
    virtual void post(std::function<void()> work) = 0;
    virtual void post_after_works(int works, std::function<void()> work) = 0;
    // Waits until the IO thread has nothing to do. Any thread but that one.
    virtual void settle_io() = 0;

    // At once, on the UI thread. A popup widget's frame has its own size.
    virtual void paint(int browser) = 0;
    virtual void paint_popup_widget(int browser, int width, int height) = 0;
    virtual void show_popup_widget(int browser, bool is_shown) = 0;
    virtual void place_popup_widget(int browser, int left, int top) = 0;
    // The page changed; the next begin frame, or step of the loop, paints.
    virtual void change(int browser) = 0;
    // Answers on_process_message_received; false too when the browser is gone.
    virtual bool message(int browser, const std::string& name,
                         const std::vector<fake_cef_value>& arguments) = 0;
    virtual bool message_from_closed(int browser, const std::string& name,
                                     const std::vector<fake_cef_value>& arguments) = 0;
    // The page navigates by itself.
    virtual void navigate(int browser, const std::string& url) = 0;
    // An event of the page's inspector, as its observers get it.
    virtual void inspector_event(int browser, const std::string& message) = 0;
    // Ends a load that never ends.
    virtual void finish_load(int browser) = 0;
    virtual void load_error(int browser, bool main_frame, int code, const std::string& text,
                            const std::string& url) = 0;
    virtual void load_end(int browser, bool main_frame, int status,
                          const std::string& frame_url) = 0;
    // The page opens a window. The identifier of the new browser, 0 when it was cancelled. The new
    // browser is created at once; `windowless` ones paint through the same client.
    virtual int open_popup(int browser, const std::string& url, bool user_gesture) = 0;
    // Closes a browser from the inside, as window.close() or the user does.
    virtual void close_from_page(int browser) = 0;
    virtual void kill_renderer(int browser) = 0;
    // The page begins to sound. False where nobody hears it, or declines; else the format that the
    // client asked for.
    virtual bool sound_begins(int browser, int& channels, int& sample_rate) = 0;
    // One packet. Any thread: the real runtime has one of its own for it.
    virtual void sound(int browser, const std::vector<std::vector<float>>& channels,
                       std::int64_t milliseconds) = 0;
    // The page falls silent, with an error where there is a text.
    virtual void sound_ends(int browser, const std::string& error) = 0;
    // Answers on_drag_enter.
    virtual bool drag_enter(int browser) = 0;
    // Answers can_download; true where nobody decides.
    virtual bool may_download(int browser, const std::string& url) = 0;
    // A request, vetted on the IO thread; the answer arrives in requests().
    virtual void request(int browser, const std::string& url, bool main_frame) = 0;
    // Asks the client, even one that was closed (keep_clients). -1 x -1: there is none.
    virtual void view_rect(int browser, int& width, int& height) = 0;
    // The handlers that a browser's client answers with, by name, in alphabetical order.
    virtual std::vector<std::string> handlers(int browser) = 0;
    // Whether nobody but the fake holds a reference of this browser's kept client. Browsers that
    // were opened by others hold it too, and are taken into account.
    virtual bool client_is_unshared(int browser) = 0;
    // Has the application add its switches as a process of this type would.
    virtual void add_switches(const std::string& process_type) = 0;
    // Launches a helper process of this type; what the application adds to its command line arrives
    // in switches().
    virtual void launch_helper(const std::string& process_type) = 0;

    // cef_execute_process, with an argument --type=..., does as a renderer process would: it makes
    // a page, has the application define its functions there, and makes these calls of them. What
    // the page sent then stands in sent(). In a world that is ending no script can be evaluated.
    virtual void calls_of_helper(std::vector<fake_cef_page_call> calls, bool world_is_ending) = 0;
    virtual std::vector<fake_cef_sent_message> sent() = 0;
    // The browser of that page is made with this bound of calls; 0, as at first: with nothing.
    virtual void bound_of_helper(int max_waiting_calls) = 0;
    // That browser is made without printing.
    virtual void refuse_printing_of_helper() = 0;
    // In the place of both, what happens there in order.
    virtual void browsers_of_helper(std::vector<fake_cef_helper_event> events) = 0;
    // The scripts that the application has evaluated in that page.
    virtual std::vector<std::string> evaluated() = 0;

    // Steps of the two event sources that would keep a host's loop spinning, and whether the source
    // that carries window events still stands.
    virtual long loop_spins() = 0;
    virtual bool window_source_alive() = 0;
};

// The one fake of the process. Any thread.
extern "C" PENNYWORT_API fake_cef* fake_cef_control();
