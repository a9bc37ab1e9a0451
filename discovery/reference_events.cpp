// reference_events.cpp - see the header for the contract.
#include "discovery/reference_events.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <new>

#include "core/limits.h"
#include "core/run/guarded.h"
#include "discovery/dnssd_codes.h"
#include "discovery/socket_events.h"
#include "loam/trace.h"

namespace pennywort::discovery {

namespace {

struct reference_slot {
    cBonjourLib::Reference reference = nullptr;
    std::shared_ptr<cBonjourLib> library;  // stays loaded while a call of it is under way
    bool is_dead = false;
};

struct process_state {
    std::array<reference_slot, k_max_watched_references> slots;
    int uses = 0;
    std::unique_ptr<socket_events> events;
};

// Never destroyed: a host's static cBonjour may end late. In a place of its own, so that a first
// use takes no memory.
process_state& process() {
    alignas(process_state) static std::byte place[sizeof(process_state)];
    static process_state& state = *new (place) process_state;
    return state;
}

// False when no more will come.
bool process_arrival(int number) {
    auto& slot = process().slots[static_cast<std::size_t>(number)];
    const cBonjourLib::Reference reference = slot.reference;
    const std::shared_ptr<cBonjourLib> library = slot.library;
    if (reference == nullptr) return true;
    // An event may be late: what it tells of went to another reference of this number, or has been
    // read. The library would wait, and the thread with it.
    const int socket = library->DNSServiceRefSockFD(reference);
    if (event_calls_in_use().wait(socket, 0) == arrival::timed_out) return true;
    // A sink of its traces may have ended what this is for.
    if (slot.reference != reference) return true;
    const int error = library->DNSServiceProcessResult(reference);
    if (error == k_dnssd_no_error) return true;
    zTraceManager::Default()->TraceNote("cBonjour: DNSServiceProcessResult - failed (err=%d)\n",
                                        error);
    // A sink of traces may have put another one in meanwhile.
    if (slot.reference == reference) slot.is_dead = true;
    return false;
}

int take_slot(cBonjourLib::Reference reference, const std::shared_ptr<cBonjourLib>& library) {
    auto& slots = process().slots;
    const auto free = std::find_if(slots.begin(), slots.end(), [](const reference_slot& one) {
        return one.reference == nullptr;
    });
    if (free == slots.end()) return -1;
    *free = {reference, library, false};
    return static_cast<int>(free - slots.begin());
}

void give_back_slots(cBonjourLib::Reference reference) {
    for (reference_slot& one : process().slots) {
        if (one.reference == reference) one = {};
    }
}

void give_up_use() {
    if (--process().uses == 0) process().events.reset();
}

bool watch(cBonjourLib::Reference reference, const std::shared_ptr<cBonjourLib>& library) {
    process_state& all = process();
    if (all.events == nullptr) all.events = event_calls_in_use().make(&process_arrival);
    if (all.events == nullptr) return false;
    const int number = take_slot(reference, library);
    return all.events->watch(library->DNSServiceRefSockFD(reference), number);
}

}  // namespace

bool put_in(cBonjourLib::Reference reference, const std::shared_ptr<cBonjourLib>& library) {
    ++process().uses;
    const bool is_in = run::guarded_or(false, "cBonjour", "watching a socket",
                                       [&] { return watch(reference, library); });
    if (is_in) return true;
    give_back_slots(reference);
    give_up_use();
    return false;
}

void take_out(cBonjourLib::Reference reference, cBonjourLib& library) {
    give_back_slots(reference);
    process().events->unwatch(library.DNSServiceRefSockFD(reference));
    give_up_use();
}

void give_up(cBonjourLib::Reference reference, int error) {
    for (reference_slot& one : process().slots) {
        if (one.reference != reference || reference == nullptr) continue;
        one.is_dead = true;
        run::guarded("cBonjour", "tracing", [error] {
            zTraceManager::Default()->TraceNote("cBonjour: nothing more comes (err=%d)\n", error);
        });
        return;
    }
}

bool is_dead(cBonjourLib::Reference reference) {
    const auto& slots = process().slots;
    return std::any_of(slots.begin(), slots.end(), [reference](const reference_slot& one) {
        return one.reference == reference && one.is_dead;
    });
}

event_calls& event_calls_in_use() {
    static event_calls s_calls;
    return s_calls;
}

}  // namespace pennywort::discovery
