// dnssd_name_linux.cpp - Linux half of dnssd_name.h. Windows half: dnssd_name_win.cpp.
//
// Avahi's library of that name, or mDNSResponder's: both have the same functions.
#include "discovery/dnssd_name.h"

#include <dlfcn.h>

namespace pennywort::discovery {

const char* dnssd_library_name() { return "libdns_sd.so.1"; }

// Avahi's library takes libdbus with it, which keeps what it has allocated for the next call.
// Loaded anew for each cBonjour it would lose that each time, some 4 KB.
void keep_what_cannot_be_unloaded() {
    void* const bus = ::dlopen("libdbus-1.so.3", RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
    if (bus != nullptr) ::dlclose(bus);
}

// Avahi's library hands what is not UTF-8 to D-Bus, which ends the process for it.
bool takes_any_bytes() { return false; }

// Avahi's library turns a loop of its own once for each result that is asked for, and what arrives
// first may be for that loop alone.
bool is_first_result_the_answer() { return false; }

}  // namespace pennywort::discovery
