// fake_cef_runtime.h - the fake runtime itself: its life, its threads, its browsers, and the
// record.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/fakes/fake_cef.h"
#include "tests/fakes/fake_cef_object.h"
#include "tests/fakes/fake_cef_page.h"
#include "tests/fakes/fake_cef_tasks.h"

namespace fake {

class system_effects;

class runtime final : public fake_cef {
public:
    static runtime& the();

    // Any thread.
    bool is_initialised() const { return m_initialised; }
    bool on_ui_thread() const;
    bool post_ui(task work);
    bool post_ui_delayed(task work, int delay_ms);
    bool post_io(task work);
    void cookies_deleted(fake_cef_cookies cookies);
    void script_ran(fake_cef_run_script script);
    void request_answered(fake_cef_request request);
    std::shared_ptr<page> find(int id);
    bool fails_creation();
    const char* hash(int version);
    int version() { return m_script.version; }
    int exit_code() const { return m_exit_code; }

    // UI thread.
    int initialise(const cef_main_args_t* args, const cef_settings_t* settings,
                   cef_app_t* app) noexcept;
    void shut_down();
    void work() noexcept;
    std::shared_ptr<page> new_page(page_wish wish);
    void popup_opened(const std::string& url);
    void run_helper(cef_app_t* app) noexcept;

    // fake_cef, see there.
    fake_cef_script& script() override { return m_script; }
    std::vector<fake_cef_switch> switches() override;
    fake_cef_settings settings() override;
    std::vector<std::string> arguments() override;
    int api_version_asked() override { return m_api_version; }
    int initialisations() override { return m_initialisations; }
    int shutdowns() override { return m_shutdowns; }
    bool initialised() override { return m_initialised; }
    long works() override { return m_works; }
    int schedules() override { return m_schedules; }
    int creates() override { return m_creates; }
    int browser_count() override;
    fake_cef_browser browser(int id) override;
    std::vector<fake_cef_run_script> scripts() override;
    std::vector<fake_cef_request> requests() override;
    std::vector<fake_cef_cookies> cookie_deletions() override;
    std::vector<std::string> opened_by_popup() override;
    std::vector<std::string> violations() override { return ledger::book().violations(); }
    std::vector<std::string> late_calls() override { return ledger::book().late_calls(); }
    std::string leaks() override { return ledger::book().leaks(); }
    std::string held() override { return ledger::book().held(); }
    void post(std::function<void()> work) override { post_ui(std::move(work)); }
    void post_after_works(int works, std::function<void()> work) override;
    void settle_io() override { m_io.settle(); }
    void paint(int browser) override;
    void paint_popup_widget(int browser, int width, int height) override;
    void show_popup_widget(int browser, bool is_shown) override;
    void place_popup_widget(int browser, int left, int top) override;
    void change(int browser) override;
    bool message(int browser, const std::string& name,
                 const std::vector<fake_cef_value>& arguments) override;
    bool message_from_closed(int browser, const std::string& name,
                             const std::vector<fake_cef_value>& arguments) override;
    void navigate(int browser, const std::string& url) override;
    void inspector_event(int browser, const std::string& message) override;
    void finish_load(int browser) override;
    void load_error(int browser, bool main_frame, int code, const std::string& text,
                    const std::string& url) override;
    void load_end(int browser, bool main_frame, int status, const std::string& frame_url) override;
    int open_popup(int browser, const std::string& url, bool user_gesture) override;
    void close_from_page(int browser) override;
    void kill_renderer(int browser) override;
    bool sound_begins(int browser, int& channels, int& sample_rate) override;
    void sound(int browser, const std::vector<std::vector<float>>& channels,
               std::int64_t milliseconds) override;
    void sound_ends(int browser, const std::string& error) override;
    bool drag_enter(int browser) override;
    bool may_download(int browser, const std::string& url) override;
    void request(int browser, const std::string& url, bool main_frame) override;
    void view_rect(int browser, int& width, int& height) override;
    std::vector<std::string> handlers(int browser) override;
    bool client_is_unshared(int browser) override;
    void add_switches(const std::string& process_type) override;
    void launch_helper(const std::string& process_type) override;
    void calls_of_helper(std::vector<fake_cef_page_call> calls, bool world_is_ending) override;
    std::vector<fake_cef_sent_message> sent() override;
    void bound_of_helper(int max_waiting_calls) override {
        browsers_of_helper(
            {{.is_told = max_waiting_calls > 0, .max_waiting_calls = max_waiting_calls}});
    }
    void refuse_printing_of_helper() override { browsers_of_helper({{.refuses_printing = true}}); }
    void browsers_of_helper(std::vector<fake_cef_helper_event> events) override {
        m_helper_events = std::move(events);
    }
    std::vector<std::string> evaluated() override { return m_evaluated; }
    void note_evaluated(std::string script) { m_evaluated.push_back(std::move(script)); }
    long loop_spins() override;
    bool window_source_alive() override;

    void message_sent(fake_cef_sent_message message);

private:
    runtime();

    void read_environment();
    void read_settings(const cef_settings_t& settings);
    bool settings_are_accepted(const cef_settings_t& settings);
    bool take_profile(const std::string& folder);
    void check_locales();
    void schedule(std::int64_t delay_ms);
    caller_ref<cef_app_t> application();
    void set_application(caller_ref<cef_app_t> application);
    void write_report();

    fake_cef_script m_script;
    std::mutex m_lock;
    std::atomic<bool> m_initialised{false};
    std::atomic<int> m_initialisations{0}, m_shutdowns{0}, m_schedules{0}, m_creates{0};
    std::atomic<int> m_api_version{0};
    std::atomic<long> m_works{0};
    int m_exit_code = 0;
    bool m_in_work = false;
    std::atomic<bool> m_asks_for_work{false};
    std::thread::id m_ui_thread;
    ui_queue m_ui;
    io_thread m_io;
    caller_ref<cef_app_t> m_app;
    std::unique_ptr<system_effects> m_effects;
    std::string m_profile_lock;
    std::map<int, std::shared_ptr<page>> m_pages;

    fake_cef_settings m_settings;
    std::vector<std::string> m_arguments;
    std::vector<fake_cef_switch> m_switches;
    std::vector<fake_cef_run_script> m_scripts;
    std::vector<fake_cef_request> m_requests;
    std::vector<fake_cef_cookies> m_cookies;
    std::vector<std::string> m_popups;
    std::vector<fake_cef_page_call> m_helper_calls;
    bool m_helper_world_is_ending = false;
    std::vector<fake_cef_helper_event> m_helper_events;
    std::vector<std::string> m_evaluated;
    std::vector<fake_cef_sent_message> m_sent;
};

}  // namespace fake
