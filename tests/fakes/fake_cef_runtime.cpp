// fake_cef_runtime.cpp - the fake runtime's life and what it exports of it. Its control for tests
// stands in fake_cef_control.cpp.
#include "tests/fakes/fake_cef_runtime.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <utility>

#include "tests/fakes/fake_cef_exports.h"
#include "tests/fakes/fake_cef_system.h"
#include "tests/fakes/fake_cef_text.h"
#include "tests/fakes/fake_cef_values.h"

namespace fake {

namespace {

// The exit code of a process that finds its profile in use by another one.
constexpr int k_profile_in_use = 24;

std::string variable(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

}  // namespace

// Never destroyed: its threads and event sources live as long as the process, like the real ones.
runtime& runtime::the() {
    static runtime& the_runtime = *new runtime;
    return the_runtime;
}

runtime::runtime() { read_environment(); }

// For programs that are started by a test and cannot be spoken to.
void runtime::read_environment() {
    m_script.hash = variable("FAKE_CEF_HASH");
    m_script.knows_api = m_script.hash != "none";
    if (!variable("FAKE_CEF_VERSION").empty()) {
        m_script.version = std::atoi(variable("FAKE_CEF_VERSION").c_str());
    }
    m_script.init_exit_code = std::atoi(variable("FAKE_CEF_EXIT_CODE").c_str());
    m_script.animate = !variable("FAKE_CEF_ANIMATE").empty();
}

const char* runtime::hash(int version) {
    if (version != 0) m_api_version = version;
    ledger::book().hash_was_asked();
    if (!m_script.knows_api || version != 13300) return nullptr;
    return m_script.hash.empty() ? k_cef_api_hash_13300 : m_script.hash.c_str();
}

bool runtime::on_ui_thread() const {
    return m_initialised && std::this_thread::get_id() == m_ui_thread;
}

void runtime::read_settings(const cef_settings_t& settings) {
    fake_cef_settings& kept = m_settings;
    kept.size = settings.size;
    kept.no_sandbox = settings.no_sandbox;
    kept.windowless_rendering_enabled = settings.windowless_rendering_enabled;
    kept.multi_threaded_message_loop = settings.multi_threaded_message_loop;
    kept.external_message_pump = settings.external_message_pump;
    kept.command_line_args_disabled = settings.command_line_args_disabled;
    kept.log_severity = settings.log_severity;
    kept.remote_debugging_port = settings.remote_debugging_port;
    kept.disable_signal_handlers = settings.disable_signal_handlers;
    kept.background_color = settings.background_color;
    const auto text = [](const cef_string_t& member) {
        return narrow_of(&member, "cef_settings_t");
    };
    kept.browser_subprocess_path = text(settings.browser_subprocess_path);
    kept.cache_path = text(settings.cache_path);
    kept.root_cache_path = text(settings.root_cache_path);
    kept.locale = text(settings.locale);
    kept.log_file = text(settings.log_file);
    kept.resources_dir_path = text(settings.resources_dir_path);
    kept.locales_dir_path = text(settings.locales_dir_path);
    kept.user_agent = text(settings.user_agent);
}

// Version 146 takes its own size only, earlier ones none that is larger than theirs.
bool runtime::settings_are_accepted(const cef_settings_t& settings) {
    const bool grown = m_script.version >= k_cef_settings_t_grown_from;
    if (grown && settings.size != k_cef_settings_t_grown_size) return false;
    if (!grown && settings.size > sizeof settings) return false;
    const auto* bytes = reinterpret_cast<const unsigned char*>(&settings);
    m_settings.zeros_behind =
        std::all_of(bytes + sizeof settings, bytes + std::max(settings.size, sizeof settings),
                    [](unsigned char byte) { return byte == 0; });
    return true;
}

bool runtime::take_profile(const std::string& folder) {
    if (folder.empty()) return true;
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    const std::string lock_path = folder + "/" + profile_lock_name();
    if (!claim_profile(lock_path)) return false;
    m_profile_lock = lock_path;
    return true;
}

// Without a locale the real runtime ends the process in the middle of its start.
void runtime::check_locales() {
    if (!m_script.check_locales) return;
    std::error_code error;
    for (const auto& entry :
         std::filesystem::directory_iterator(m_settings.locales_dir_path, error)) {
        if (entry.path().extension() == ".pak") return;
    }
    ledger::book().broken("cef_initialize: no locale in '" + m_settings.locales_dir_path + "'");
}

int runtime::initialise(const cef_main_args_t* args, const cef_settings_t* settings,
                        cef_app_t* app) noexcept {
    caller_ref<cef_app_t> kept(app, "app");
    if (++m_initialisations > 1) {
        ledger::book().broken("cef_initialize was called a second time, which crashes the process");
        return 0;
    }
    m_ui_thread = std::this_thread::get_id();
    read_settings(*settings);
    m_arguments = command_line_of(*args);
    m_exit_code = m_script.init_exit_code;
    if (m_exit_code != 0 || !settings_are_accepted(*settings)) {
        if (m_script.during_start) m_script.during_start();
        return 0;
    }
    check_locales();
    const auto& cache =
        m_settings.root_cache_path.empty() ? m_settings.cache_path : m_settings.root_cache_path;
    if (!take_profile(cache)) {
        m_exit_code = k_profile_in_use;
        return 0;
    }
    set_application(std::move(kept));
    if (m_script.replace_signal_handlers) system_effects::drop_handlers();
    add_switches("");
    if (m_script.after_switches) m_script.after_switches();
    m_effects = system_effects::make(m_script.replace_signal_handlers);
    if (m_script.during_start) m_script.during_start();
    m_asks_for_work = settings->external_message_pump != 0;
    m_io.start();
    m_initialised = true;
    return 1;
}

void runtime::shut_down() {
    ++m_shutdowns;
    if (!m_initialised) return;
    if (!on_ui_thread()) ledger::book().broken("cef_shutdown was called on another thread");
    if (m_in_work) ledger::book().broken("cef_shutdown was called inside the runtime's work");
    for (const auto& [id, shown] : m_pages) {
        if (shown->is_closed()) continue;
        ledger::book().broken("cef_shutdown was called with browser " + std::to_string(id) +
                              " open");
    }
    m_io.stop();
    m_initialised = false;
    m_ui.clear();
    for (const auto& [id, shown] : m_pages) shown->drop_client();
    set_application({});
    if (!m_profile_lock.empty()) release_profile(m_profile_lock);
    write_report();
}

// For a test that only sees this process from the outside.
void runtime::write_report() {
    const std::string path = variable("FAKE_CEF_REPORT");
    if (path.empty()) return;
    std::ofstream report(path);
    report << "leaks: " << leaks() << "\n";
    for (const auto& rule : violations()) report << "violation: " << rule << "\n";
}

void runtime::work() noexcept {
    ++m_works;
    if (!m_initialised) return;
    if (!on_ui_thread()) {
        return ledger::book().broken("cef_do_message_loop_work was called on another thread");
    }
    if (std::exchange(m_in_work, true)) {
        return ledger::book().broken("cef_do_message_loop_work was called inside itself");
    }
    m_ui.run_step();
    m_in_work = false;
}

caller_ref<cef_app_t> runtime::application() {
    const std::lock_guard lock(m_lock);
    return m_app;
}

// What was there is given back after the lock.
void runtime::set_application(caller_ref<cef_app_t> application) {
    const std::lock_guard lock(m_lock);
    std::swap(m_app, application);
}

// The runtime asks for the handler each time, on whichever thread has work for the UI thread.
void runtime::schedule(std::int64_t delay_ms) {
    if (!m_asks_for_work) return;
    const caller_ref<cef_app_t> app = application();
    if (!app || !app->get_browser_process_handler) return;
    const caller_ref<cef_browser_process_handler_t> handler(
        app->get_browser_process_handler(app.get()), "browser process handler");
    if (!handler || !handler->on_schedule_message_pump_work) return;
    ++m_schedules;
    handler->on_schedule_message_pump_work(handler.get(), delay_ms);
}

bool runtime::post_ui(task work) {
    if (!m_initialised) return false;
    m_ui.push(std::move(work));
    schedule(0);
    return true;
}

bool runtime::post_ui_delayed(task work, int delay_ms) {
    if (!m_initialised) return false;
    m_ui.push_delayed(std::move(work), std::chrono::milliseconds(delay_ms));
    schedule(delay_ms);
    return true;
}

bool runtime::post_io(task work) { return m_io.post(std::move(work)); }

bool runtime::fails_creation() { return ++m_creates == m_script.fail_create_at; }

std::shared_ptr<page> runtime::new_page(page_wish wish) {
    const std::lock_guard lock(m_lock);
    const int id = static_cast<int>(m_pages.size()) + 1;
    return m_pages[id] = std::make_shared<page>(id, std::move(wish));
}

std::shared_ptr<page> runtime::find(int id) {
    const std::lock_guard lock(m_lock);
    const auto found = m_pages.find(id);
    return found == m_pages.end() ? nullptr : found->second;
}

void runtime::add_switches(const std::string& process_type) {
    const caller_ref<cef_app_t> app = application();
    if (!app || !app->on_before_command_line_processing) return;
    const ref<command_line> line(new command_line(process_type));
    const text_argument type(process_type);
    app->on_before_command_line_processing(app.get(), type.get(), line->counted());
    const std::lock_guard lock(m_lock);
    for (const auto& entry : line->switches()) m_switches.push_back(entry);
}

// On a thread of its own, as the real runtime launches its GPU process.
void runtime::launch_helper(const std::string& process_type) {
    const caller_ref<cef_app_t> app = application();
    if (!app || !app->get_browser_process_handler) return;
    const caller_ref<cef_browser_process_handler_t> handler(
        app->get_browser_process_handler(app.get()), "browser process handler");
    if (!handler || !handler->on_before_child_process_launch) return;
    const ref<command_line> line(new command_line(process_type));
    std::thread([&] {
        handler->on_before_child_process_launch(handler.get(), line->counted());
    }).join();
    const std::lock_guard lock(m_lock);
    for (const auto& entry : line->switches()) m_switches.push_back(entry);
}

}  // namespace fake

using fake::ledger;
using fake::runtime;

const char* cef_api_hash(int version, int entry) {
    const char* hash = runtime::the().hash(version);
    return entry == 0 ? hash : "";
}

int cef_version_info(int entry) {
    ledger::book().entered("cef_version_info");
    constexpr int k_cef_major = 0, k_chrome_major = 4;
    return entry == k_cef_major || entry == k_chrome_major ? runtime::the().version() : 0;
}

int cef_initialize(const cef_main_args_t* args, const cef_settings_t* settings,
                   cef_app_t* application, void*) {
    ledger::book().entered("cef_initialize");
    return runtime::the().initialise(args, settings, application);
}

void cef_shutdown() {
    ledger::book().entered("cef_shutdown");
    runtime::the().shut_down();
}

void cef_do_message_loop_work() {
    ledger::book().entered("cef_do_message_loop_work");
    runtime::the().work();
}

int cef_execute_process(const cef_main_args_t* args, cef_app_t* application, void*) {
    ledger::book().entered("cef_execute_process");
    const fake::caller_ref<cef_app_t> app(application, "app");
    bool is_helper = false;
    for (const std::string& argument : fake::command_line_of(*args)) {
        is_helper = is_helper || argument.starts_with("--type=");
    }
    if (!is_helper) return -1;
    runtime::the().run_helper(app.get());
    return 0;
}

int cef_currently_on(cef_thread_id_t threadId) {
    ledger::book().entered("cef_currently_on");
    return threadId == TID_UI && runtime::the().on_ui_thread() ? 1 : 0;
}

int cef_post_task(cef_thread_id_t threadId, cef_task_t* task) {
    ledger::book().entered("cef_post_task");
    const auto run = [kept = fake::caller_ref<cef_task_t>(task, "task")] {
        kept->execute(kept.get());
    };
    return (threadId == TID_UI ? runtime::the().post_ui(run) : runtime::the().post_io(run)) ? 1 : 0;
}

int cef_post_delayed_task(cef_thread_id_t threadId, cef_task_t* task, int64_t delay_ms) {
    ledger::book().entered("cef_post_delayed_task");
    const auto run = [kept = fake::caller_ref<cef_task_t>(task, "task")] {
        kept->execute(kept.get());
    };
    if (threadId != TID_UI) {
        ledger::book().broken("cef_post_delayed_task: the fake delays tasks of the UI thread only");
        return 0;
    }
    return runtime::the().post_ui_delayed(run, static_cast<int>(delay_ms)) ? 1 : 0;
}
