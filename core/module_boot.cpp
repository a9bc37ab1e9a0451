// module_boot.cpp - see the header for the contract; and the library's own module.
#include "core/module_boot.h"

#include <cstdint>
#include <stdexcept>

#include "firewall.h"
#include "loam/boot.h"
#include "loam/error_codes.h"
#include "webdisplay.h"

namespace pennywort {

zStatus start_module(const module_steps& steps) {
    zBoot::Depends(steps.foundation, steps.boot_foundation);
    steps.start_firewall();
    steps.start_pages();
    return steps.register_codes();
}

void stop_module(const module_steps& steps) {
    steps.stop_pages();
    steps.stop_firewall();
}

namespace {

constexpr std::int32_t k_tag = 0x504E5754;  // 'PNWT'
// Codes below the first one are the library's as well and belong to no range; hosts know both.
constexpr std::int32_t k_first_code = -21000;
constexpr std::int32_t k_last_code = -8999;

}  // namespace

constexpr module_steps k_own_steps{
    zMire::k_tag,
    [] { zMire::boot_Module(); },
    [] { cFirewall::Startup(); },
    [] { cWebDisplayCEFBrowserManager::Startup(""); },
    [] {
        return zErrCodeManager::RegisterCodeRange(k_first_code, k_last_code, "pennywort errors");
    },
    [] { cWebDisplayCEFBrowserManager::Shutdown(); },
    [] { cFirewall::Shutdown(); },
};

namespace {

// A module that did not start is not stopped by anybody else. To throw is how a start routine says
// that it failed.
void start() {
    if (start_module(k_own_steps) == 0) return;
    stop_module(k_own_steps);
    throw std::runtime_error("the range of its error codes is taken");
}

void stop() { stop_module(k_own_steps); }

const zBoot k_module(&start, &stop, k_tag);

}  // namespace
}  // namespace pennywort
