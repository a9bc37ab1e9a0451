// host/live/live_control.h - the JSON interface of the control page: what is asked, told and shown.
// It knows neither sockets nor the browser.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/run/clock.h"
#include "host/app/json.h"
#include "host/live/live_log.h"
#include "host/live/live_picture.h"
#include "host/live/live_state.h"

namespace pennywort::host {

// Carries out what the page asks for. Called on the server's thread; hands it to the display's.
class live_port {
public:
    live_port() = default;
    virtual ~live_port() = default;
    live_port(const live_port&) = delete;
    live_port& operator=(const live_port&) = delete;

    virtual void load(const std::string& url) = 0;
    virtual void resize(long width, long height) = 0;
    virtual void set_visible(bool visible) = 0;
    virtual void repaint() = 0;
    // What comes of it goes to live_control::script_ended.
    virtual void run_script(std::uint64_t id, const std::string& script) = 0;
    // An empty URL stands for every site.
    virtual void delete_cookies(const std::string& url) = 0;
};

// The display as its own thread saw it last.
struct live_status {
    std::string url;  // the page on air
    bool is_loading = false;
    bool is_visible = true;
    long width = 0;
    long height = 0;
    live_phase phase = live_phase::starting;
    std::string wanted;  // the page that is on its way or has failed, if that is another one
    std::string error;
    run::monotonic_clock::time since{};  // the phase
    bool is_silent = false;              // the page does not answer
    std::uint64_t reloads = 0;
    std::uint64_t dropped_calls = 0;
    std::uint64_t loads = 0;  // commands to load a page that were carried out
};

struct live_request {
    enum class verb { get, post };
    verb method = verb::get;
    std::string path;
    std::string query;
    std::string body;
};

struct live_answer {
    int status = 200;
    std::string type = "application/json";
    std::shared_ptr<const std::string> body;
    std::uint64_t picture = 0;  // the number of the picture that the body is, if it is one
    std::string cookie;         // to be set, unless it is empty
};

// Any thread, except where it says otherwise.
class live_control {
public:
    // `queue` is to be shown page by page. Port, pictures and clock must outlive this.
    live_control(live_port& port, live_pictures& pictures, std::vector<std::string> queue,
                 const run::monotonic_clock& clock = run::monotonic_clock::system());

    live_answer answer(const live_request& request);

    void set_status(const live_status& status);
    void script_ended(std::uint64_t id, const std::string& kind, const std::string& result);
    live_log& events() { return m_events; }
    live_log& traces() { return m_traces; }

private:
    struct script_state {
        run::monotonic_clock::time asked;
        std::string kind;  // empty as long as nothing has come
        std::string result;
    };
    using command = live_answer (live_control::*)(const json_object&);

    live_answer get(const live_request& request);
    live_answer post(const live_request& request, command run);
    live_answer state() const;
    live_status status_now() const;
    void load_page(const std::string& url);
    live_answer picture(std::uint64_t after);
    live_answer result(std::uint64_t id) const;

    live_answer load(const json_object& body);
    live_answer next(const json_object& body);
    live_answer remove(const json_object& body);
    live_answer resize(const json_object& body);
    live_answer set_visible(const json_object& body);
    live_answer repaint(const json_object& body);
    live_answer script(const json_object& body);
    live_answer delete_cookies(const json_object& body);

    static command command_of(std::string_view path);
    std::size_t queue_bytes() const;
    std::int64_t milliseconds_since(run::monotonic_clock::time then) const;

    live_port& m_port;
    live_pictures& m_pictures;
    const run::monotonic_clock& m_clock;
    live_log m_events;
    live_log m_traces;
    mutable std::mutex m_lock;
    std::deque<std::string> m_queue;
    live_status m_status;
    std::uint64_t m_loads = 0;  // that were asked for
    std::string m_asked_url;
    run::monotonic_clock::time m_asked{};
    std::map<std::uint64_t, script_state> m_scripts;
    std::uint64_t m_last_script = 0;
};

}  // namespace pennywort::host
