// module_boot.h - what starting and stopping this library's module does, step by step. The module
// itself registers with zBoot when the library is loaded; nothing has to be called for that.
#pragma once

#include <cstdint>

#include "loam/types.h"

namespace pennywort {

// Others stand in their place in tests.
struct module_steps {
    // The module that has to be there first, and what brings it up where nobody has registered it.
    std::int32_t foundation;
    void (*boot_foundation)();
    void (*start_firewall)();
    void (*start_pages)();
    zStatus (*register_codes)();
    void (*stop_pages)();
    void (*stop_firewall)();
};

// In this order. The status is that of the registration alone: a host without a browser runtime
// starts as well.
zStatus start_module(const module_steps& steps);
// The pages go first: their runtime may still use what the thread has of the system.
void stop_module(const module_steps& steps);

// Those of the module itself.
extern const module_steps k_own_steps;

}  // namespace pennywort
