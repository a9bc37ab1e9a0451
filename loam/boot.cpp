// loam/boot.cpp - see the header for the contract.
#include "loam/boot.h"

#include <algorithm>
#include <exception>
#include <mutex>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "loam/ready_mutex.h"
#include "loam/trace.h"

namespace {

enum class module_phase { stopped, starting, started };

struct module_entry {
    const zBoot* module;
    std::int32_t tag;
    void (*start)();
    void (*stop)();
    module_phase phase = module_phase::stopped;
    bool has_failed = false;  // to start, in the call of StartModules that is under way
};

struct boot_registry {
    // Held while modules start and stop; a thread may come back to it from their routines.
    loam::ready_recursive_mutex running;
    bool is_in_routine = false;  // of the thread that holds `running`

    // Guards what follows, and is never held while a routine runs: one may load a library, on any
    // thread, whose module registers itself.
    loam::ready_mutex mutex;
    std::vector<module_entry> modules;   // in the order of registration
    std::vector<const zBoot*> started;   // in the order in which their starts ended
    std::set<std::int32_t> bare_booted;  // tags brought up by a boot routine alone

    void add(const module_entry& entry);
    // The first one that is stopped and has not failed.
    std::optional<module_entry> next_stopped();
    void forget_failures();
    std::optional<module_entry> with_tag(std::int32_t tag);
    std::optional<module_entry> take_last_started();
    void set_phase(const zBoot* module, module_phase phase, bool has_failed = false);
};

// Never destroyed: static zBoot objects of other files may end after any of this one.
boot_registry& registry() {
    static auto* the_registry = new boot_registry;
    return *the_registry;
}

// Takes all the memory that starting the module will need, where a failure could no longer be
// undone.
void boot_registry::add(const module_entry& entry) {
    const std::lock_guard lock(mutex);
    started.reserve(modules.size() + 1);
    modules.push_back(entry);
}

std::optional<module_entry> boot_registry::next_stopped() {
    const std::lock_guard lock(mutex);
    for (const module_entry& entry : modules) {
        if (entry.phase == module_phase::stopped && !entry.has_failed) return entry;
    }
    return std::nullopt;
}

void boot_registry::forget_failures() {
    const std::lock_guard lock(mutex);
    for (module_entry& entry : modules) entry.has_failed = false;
}

std::optional<module_entry> boot_registry::with_tag(std::int32_t tag) {
    const std::lock_guard lock(mutex);
    for (const module_entry& entry : modules) {
        if (entry.tag == tag) return entry;
    }
    return std::nullopt;
}

std::optional<module_entry> boot_registry::take_last_started() {
    const std::lock_guard lock(mutex);
    if (started.empty()) return std::nullopt;
    const zBoot* const last = started.back();
    started.pop_back();
    const auto found = std::find_if(modules.begin(), modules.end(),
                                    [last](const module_entry& e) { return e.module == last; });
    return *found;
}

void boot_registry::set_phase(const zBoot* module, module_phase phase, bool has_failed) {
    const std::lock_guard lock(mutex);
    const auto found = std::find_if(modules.begin(), modules.end(),
                                    [module](const module_entry& e) { return e.module == module; });
    // A routine may have unloaded its own module.
    if (found == modules.end()) return;
    found->phase = phase;
    found->has_failed = has_failed;
    if (phase == module_phase::started) started.push_back(module);
}

// The four characters of a tag, for a trace.
struct tag_text {
    explicit tag_text(std::int32_t tag) {
        for (int i = 0; i < 4; ++i) {
            const auto c = static_cast<std::uint32_t>(tag) >> (24 - 8 * i) & 0xFF;
            text[i] = c >= ' ' && c < 0x7F ? static_cast<char>(c) : '?';
        }
    }
    char text[5] = {};
};

void trace(const char* what, std::int32_t tag, const char* why) {
    zTraceManager::Default()->TraceNote("zBoot: %s of '%s': %s\n", what, tag_text(tag).text, why);
}

// Whether the routine came back without an exception.
bool run_routine(void (*routine)(), std::int32_t tag, const char* what) {
    if (routine == nullptr) return true;
    boot_registry& all = registry();
    const bool was_in_routine = std::exchange(all.is_in_routine, true);
    bool is_fine = false;
    try {
        routine();
        is_fine = true;
    } catch (const std::exception& error) {
        trace(what, tag, error.what());
    } catch (...) {
        trace(what, tag, "unknown exception");
    }
    all.is_in_routine = was_in_routine;
    return is_fine;
}

bool start_module(const module_entry& entry) {
    boot_registry& all = registry();
    all.set_phase(entry.module, module_phase::starting);
    const bool is_fine = run_routine(entry.start, entry.tag, "start");
    all.set_phase(entry.module, is_fine ? module_phase::started : module_phase::stopped, !is_fine);
    return is_fine;
}

void boot_bare_tag(std::int32_t tag, void (*boot)()) {
    boot_registry& all = registry();
    // Noted before the call: a circle must find it.
    if (!all.bare_booted.insert(tag).second) return;
    if (boot == nullptr) trace("dependency", tag, "nobody brings it up");
    if (!run_routine(boot, tag, "boot")) all.bare_booted.erase(tag);
}

const zBoot k_mire_boot(nullptr, nullptr, zMire::k_tag);

}  // namespace

zBoot::zBoot(void (*start)(), void (*stop)(), std::int32_t tag) {
    registry().add({this, tag, start, stop});
}

zBoot::~zBoot() {
    boot_registry& all = registry();
    const std::lock_guard lock(all.mutex);
    std::erase_if(all.modules, [this](const module_entry& e) { return e.module == this; });
    std::erase(all.started, this);
}

zStatus zBoot::StartModules() {
    boot_registry& all = registry();
    const std::lock_guard running(all.running);
    zStatus status = 0;
    all.forget_failures();
    // Searches the list anew after each one: a start routine may add modules or remove them.
    while (const auto entry = all.next_stopped()) {
        if (!start_module(*entry)) status = -1;
    }
    return status;
}

zStatus zBoot::StopModules() {
    boot_registry& all = registry();
    const std::lock_guard running(all.running);
    if (all.is_in_routine) return -1;
    zStatus status = 0;
    while (const auto entry = all.take_last_started()) {
        if (!run_routine(entry->stop, entry->tag, "stop")) status = -1;
        all.set_phase(entry->module, module_phase::stopped);
    }
    all.bare_booted.clear();
    return status;
}

void zBoot::Depends(std::int32_t tag, void (*boot)()) {
    boot_registry& all = registry();
    const std::lock_guard running(all.running);
    const auto entry = all.with_tag(tag);
    if (!entry) return boot_bare_tag(tag, boot);
    if (entry->phase == module_phase::starting) {
        trace("dependency", tag, "the modules need each other in a circle");
    } else if (entry->phase == module_phase::stopped) {
        start_module(*entry);
    }
}

void zMire::boot_Module() { zBoot::Depends(k_tag, nullptr); }
