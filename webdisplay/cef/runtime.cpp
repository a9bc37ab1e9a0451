// runtime.cpp - loads and starts the browser runtime. See the header for the contract.
#include "webdisplay/cef/runtime.h"

#include <atomic>
#include <cstring>
#include <memory>
#include <utility>

#include "core/run/environment.h"
#include "core/statuses.h"
#include "loam/library.h"
#include "webdisplay/cef/data_file.h"
#include "webdisplay/cef/runtime_system.h"
#include "webdisplay/cef/text.h"

namespace pennywort::cef {

namespace {

constexpr int k_api_version = 13300;

function_table g_functions;
std::atomic<bool> g_is_loaded{false};
std::atomic<bool> g_is_running{false};
bool g_was_start_tried = false;
startup_guard* g_guard = nullptr;  // while the runtime starts

std::string find_library(const std::vector<std::string>& folders) {
    for (const std::string& folder : folders) {
        std::string path = real_file(folder + "/" + library_name());
        if (!path.empty()) return path;
    }
    return {};
}

std::string folder_list(const std::vector<std::string>& folders) {
    std::string list;
    for (const std::string& folder : folders) list += (list.empty() ? "" : ", ") + folder;
    return list;
}

// `action` is what to do with the runtime: install it, install it anew.
std::string remedy(const char* action) {
    return std::string("; ") + action + " " + how_to_install() + ", or set CEF_ROOT to its folder";
}

failure broken(std::string text) { return {k_failed, std::move(text)}; }

outcome<> bind(zLibrary& library, function_table& functions) {
#define PENNYWORT_CEF_BIND(name)                                                               \
    functions.name = reinterpret_cast<cef_function::name*>(library.Symbol(#name));             \
    if (functions.name == nullptr) {                                                           \
        return broken("The browser runtime lacks the function " #name                          \
                      "; install the runtime that this release names, or set CEF_ROOT to its " \
                      "folder");                                                               \
    }
    PENNYWORT_CEF_FUNCTIONS(PENNYWORT_CEF_BIND)
#undef PENNYWORT_CEF_BIND
    return {};
}

// Asking for the hash fixes the interface's version for the process, so it comes before anything
// else.
outcome<> check_version(const function_table& functions) {
    const char* hash = functions.cef_api_hash(k_api_version, 0);
    if (hash == nullptr) {
        return broken(
            "The browser runtime does not offer interface version 13300; install version 133 "
            "or newer, or set CEF_ROOT to its folder");
    }
    if (std::strcmp(hash, k_cef_api_hash_13300) == 0) return {};
    return broken("The browser runtime's interface 13300 is not the one that was built for (hash " +
                  std::string(hash) + "); install the runtime that this release names");
}

// The runtime looks for these beside its library, and ends the process that starts it where one is
// missing or cut.
outcome<> check_data(const std::string& library) {
    const std::string folder = library.substr(0, library.find_last_of("/\\") + 1);
    const auto has = [&](const char* name) { return !real_file(folder + name).empty(); };
    const bool has_unicode = has("icudtl.dat");
    if (has_unicode && !is_whole_unicode_data(real_file(folder + "icudtl.dat"))) {
        return broken("The browser runtime's file " + folder + "icudtl.dat is damaged" +
                      remedy("install the runtime anew"));
    }
    if (has_unicode && (has("v8_context_snapshot.bin") || has("snapshot_blob.bin"))) return {};
    return broken("The browser runtime's file " +
                  std::string(has_unicode ? "v8_context_snapshot.bin" : "icudtl.dat") +
                  " is not beside " + library + remedy("install the runtime anew"));
}

outcome<> open(zLibrary* library, const std::string& path) {
    if (library != nullptr && library->Load(path.c_str()) == k_ok) return {};
    return broken("The browser runtime " + path + " cannot be loaded: " +
                  (library != nullptr ? library->Error() : "out of memory") +
                  remedy("install it anew"));
}

// Newer runtimes have a longer settings struct. Some accept their own size only, and all of them
// take zeros in what they have added for the defaults.
bool initialise(cef_settings_t& settings, ref<cef_app_t> app) {
    alignas(cef_settings_t) unsigned char grown[k_cef_settings_t_grown_size] = {};
    static_assert(sizeof grown >= sizeof settings);
    const bool is_grown = g_functions.cef_version_info(0) >= k_cef_settings_t_grown_from;
    settings.size = is_grown ? sizeof grown : sizeof settings;
    std::memcpy(grown, &settings, sizeof settings);
    const cef_main_args_t args = main_args();
    return g_functions.cef_initialize(&args, reinterpret_cast<cef_settings_t*>(grown),
                                      app.release(), nullptr) != 0;
}

}  // namespace

const function_table& api() noexcept { return g_functions; }
bool loaded() noexcept { return g_is_loaded; }
bool running() noexcept { return g_is_running; }

std::vector<std::string> folders(const std::string& program_folder) {
    const std::string root = run::environment_variable("CEF_ROOT");
    if (root.empty()) return {program_folder};
    return {root, program_folder};
}

outcome<> load(const std::vector<std::string>& folders) {
    if (g_is_loaded) return {};
    const std::string path = find_library(folders);
    if (path.empty()) {
        return broken(std::string("The browser runtime (") + library_name() + ") is not in " +
                      folder_list(folders) + remedy("install it"));
    }
    const std::unique_ptr<zLibrary> library(zLibrary::Factory());
    function_table functions;
    outcome<> step = open(library.get(), path);
    if (step) step = bind(*library, functions);
    if (step) step = check_data(path);
    if (step) step = check_version(functions);
    if (!step) return step;
    library->Keep();
    g_functions = functions;
    g_is_loaded = true;
    return {};
}

outcome<> start(cef_settings_t& settings, ref<cef_app_t> app) {
    if (g_is_running) return {};
    if (g_was_start_tried) {
        return broken(
            "The browser runtime was started in this process before; it can be started once "
            "only, so restart the program");
    }
    const std::unique_ptr<startup_guard> guard = startup_guard::make();
    g_was_start_tried = true;
    g_guard = guard.get();
    g_is_running = initialise(settings, std::move(app));
    g_guard = nullptr;
    guard->restore(g_is_running);
    if (g_is_running) return {};
    return broken("The browser runtime did not start (exit code " +
                  std::to_string(g_functions.cef_get_exit_code()) + "); its log file " +
                  utf8(&settings.log_file) + " says more");
}

void hear_wishes_meanwhile() {
    if (g_guard != nullptr) g_guard->hear_meanwhile();
}

void stop() {
    if (!g_is_loaded || !g_was_start_tried) return;
    g_is_running = false;
    g_functions.cef_shutdown();
}

void work() {
    if (g_is_loaded && g_was_start_tried) g_functions.cef_do_message_loop_work();
}

bool on_ui_thread() noexcept { return g_is_running && g_functions.cef_currently_on(TID_UI) != 0; }

int run_helper(int argc, char** argv, cef_app_t* app) {
    const cef_main_args_t args = main_args(argc, argv);
    return g_functions.cef_execute_process(&args, app, nullptr);
}

}  // namespace pennywort::cef
