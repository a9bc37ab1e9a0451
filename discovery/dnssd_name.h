// dnssd_name.h - what the system calls its DNS-SD library, and how that has to be taken. Twins:
// dnssd_name_linux.cpp, dnssd_name_win.cpp.
#pragma once

namespace pennywort::discovery {

const char* dnssd_library_name();

// Called when the library has been loaded: what stands behind it and cannot be unloaded stays.
void keep_what_cannot_be_unloaded();

// Whether texts that are not UTF-8 can be handed to it.
bool takes_any_bytes();

// Whether the first thing that arrives for a look-up is its answer.
bool is_first_result_the_answer();

}  // namespace pennywort::discovery
