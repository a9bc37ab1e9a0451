// fake_dnssd.h - a DNS-SD library with the system's own file name and the seven functions that are
// used, scripted by tests. It has its memory from malloc, so that a test can take all other memory
// away. One thread.
#pragma once

#include <cstdint>

#include "bonjour.h"

// Marked for the library's own file alone; a program that is linked to it needs no mark.
#define FAKE_DNSSD_API PENNYWORT_API

namespace fake_dnssd {

// Back to a network without services; every reference must be gone.
FAKE_DNSSD_API void reset();

// What was called, a line for each call, for example
//     Browse flags=0 interface=0 type=_http._tcp. domain=(null)
// Emptied by reset().
FAKE_DNSSD_API const char* calls();
FAKE_DNSSD_API void forget_calls();
// References that were given out and are not back.
FAKE_DNSSD_API int live_references();
// How often the library was asked for a result without having one, where it would have waited.
FAKE_DNSSD_API int waits();
// The bytes of the last registration's TXT record.
FAKE_DNSSD_API const void* registered_txt(int* length);

// The highest index that an item of a TXT record was asked for by.
FAKE_DNSSD_API int highest_item();

// The next so many calls of a function ("Register", "Browse", "Resolve", "ProcessResult",
// "Item") return
// this error.
FAKE_DNSSD_API void fail(const char* function, int error, int times);
// The next reference has a socket that cannot be waited for.
FAKE_DNSSD_API void break_next_socket();
// Called as each function begins. Null: nothing.
FAKE_DNSSD_API void set_hook(void (*hook)(const char* function, void* context), void* context);

struct service {
    const char* name;
    const char* type;
    const char* domain;
    const char* host;  // null: it does not resolve
    std::uint16_t port;
    const void* txt;
    std::uint16_t txt_length;
};
// From now on a look-up of this name and type has this answer.
FAKE_DNSSD_API void set_service(const service& what);
FAKE_DNSSD_API void forget_service(const char* name);
// Before the answer of each look-up come so many results that tell nothing.
FAKE_DNSSD_API void delay_answers(int results);
// Look-ups are answered with this error, without anything else.
FAKE_DNSSD_API void set_resolve_error(int error);

struct change {
    std::uint32_t flags;
    std::uint32_t interface_index;
    std::int32_t error;
    const char* name;
    const char* type;
    const char* domain;
};
// Tells every browse of the type. False when there is none.
FAKE_DNSSD_API bool tell(const char* browsed_type, const change& what);

// The next result of each browse tells all that it has, as a library with more to come does.
FAKE_DNSSD_API void tell_all_in_one_result();

// The daemon ends: every reference becomes readable for ever, and has only errors to tell.
FAKE_DNSSD_API void kill_daemon();
FAKE_DNSSD_API void start_daemon();

}  // namespace fake_dnssd
