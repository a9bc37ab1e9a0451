// dnssd_name_win.cpp - Windows half of dnssd_name.h. Linux half: dnssd_name_linux.cpp.
#include "discovery/dnssd_name.h"

namespace pennywort::discovery {

const char* dnssd_library_name() { return "DNSSD.DLL"; }

void keep_what_cannot_be_unloaded() {}

bool takes_any_bytes() { return true; }

bool is_first_result_the_answer() { return true; }

}  // namespace pennywort::discovery
