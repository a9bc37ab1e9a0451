// runtime_start.cpp - see the header for the contract.
#include "webdisplay/runtime_start.h"

#include <string>
#include <utility>

#include "core/run/folders.h"
#include "webdisplay/cef/runtime.h"
#include "webdisplay/cef/runtime_system.h"
#include "webdisplay/helper_trial.h"
#include "webdisplay/runtime_settings.h"

namespace pennywort::webdisplay {

namespace {

// The helper program goes first: a library that is cut short ends the process that opens it, and a
// helper that does not run makes the runtime end this one.
outcome<> load_runtime(const std::string& helper) {
    const helper_trial trial = try_helper(helper);
    if (trial.end != helper_end::crashed) {
        outcome<> loaded = cef::load(cef::folders(run::program_folder()));
        if (!loaded) return loaded;
    }
    if (trial.end == helper_end::fine) return {};
    return failure{k_failed, "The browser runtime's helper program " + helper + " does not work (" +
                                 trial.how +
                                 "); run it with --self-check to see why, or install it and the "
                                 "runtime anew"};
}

}  // namespace

outcome<std::unique_ptr<cache_folder>> start_runtime(
    const std::vector<command_line_switch>& switches,
    const std::shared_ptr<main_thread_timer>& on_request) {
    const runtime_paths paths = runtime_paths::find();
    std::string problem = paths.problem();
    if (!problem.empty()) return failure{k_failed, std::move(problem)};
    outcome<> loaded = load_runtime(paths.child_process);
    if (!loaded) return std::move(loaded).why();

    auto cache = std::make_unique<cache_folder>(paths.cache);
    runtime_settings settings(paths, cache->path(), cache->is_private());
    settings.get().external_message_pump = on_request || cef::uses_external_pump() ? 1 : 0;
    const cef::own<webdisplay_cef_app> app(new webdisplay_cef_app(switches, on_request));
    outcome<> started = cef::start(settings.get(), cef::ref<cef_app_t>(app->counted_app()));
    if (!started) return std::move(started).why();
    return cache;
}

}  // namespace pennywort::webdisplay
