// exported_constants.cpp - keeps the constants of exported classes in the DLL; built for Windows
// only. Their users take them from there, while the compiler leaves out those that the library
// itself never refers to.
#include "loam/babel.h"
#include "loam/boot.h"
#include "loam/record.h"
#include "loam/socket.h"
#include "loam/string.h"

namespace {

[[gnu::used]] const void* const k_kept[] = {
    &zBabel::k_utf8,       &zMire::k_tag,
    &zRecord::k_at_end,    &zSocket::k_not_now,
    &zSocket::k_timed_out, &zSocket::k_address_in_use,
    &zSocket::k_lost,      &zSocket::k_no_resources,
    &zSocket::k_failed,    &zSocket::k_writable,
    &zSocket::k_readable,  &zSocket::k_no_time_out,
    &zString::k_to_nul,
};

}  // namespace
