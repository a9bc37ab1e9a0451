// loam/boot.h - zBoot starts and stops the modules of a process in the order they need each other.
#pragma once

#include <cstdint>

#include "loam/export.h"
#include "loam/types.h"

// A module registers itself with one static zBoot; a host calls StartModules and StopModules. Those
// two run one at a time, the second caller waits; a start or stop routine must not wait for another
// thread that calls one of them. What a routine throws is traced.
class LOAM_API zBoot {
public:
    // Registers a module. `tag` is four characters, packed big-endian, and should be the module's
    // own: of two with one tag, Depends means the first. A null routine does nothing.
    zBoot(void (*start)(), void (*stop)(), std::int32_t tag);
    zBoot(const zBoot&) = delete;
    zBoot& operator=(const zBoot&) = delete;
    // Unregisters, when a module is unloaded. Its stop routine is not called: stop modules first.
    ~zBoot();

    // Starts every module that is not started, those that start routines bring along included. -1
    // when a start routine threw, which leaves its module stopped and the others started.
    static zStatus StartModules();
    // Stops every started module, in the reverse of the order in which their starts ended. -1 when
    // a stop routine threw; its module counts as stopped. Also -1, and nothing happens, from within
    // a start or stop routine.
    static zStatus StopModules();

    // Called by start routines: makes sure that the module with this tag is started before it
    // returns. A tag that nobody has registered is brought up by `boot`, once between two stops;
    // null is traced. Modules that need each other in a circle are traced and started anyway.
    static void Depends(std::int32_t tag, void (*boot)());
};

// The foundation library as a module of its own, with the tag 'mire'.
class LOAM_API zMire {
public:
    static constexpr std::int32_t k_tag = 0x6D697265;

    // Starts the foundation library, unless it is started.
    static void boot_Module();
};
