// httpserver/guarded.h - runs what a host has written, or what may find no memory.
#pragma once

#include "core/run/guarded.h"

namespace pennywort::httpserver {

// False if `work` threw, which is traced.
inline bool guarded(const char* what, auto work) { return run::guarded("cHttpServer", what, work); }

}  // namespace pennywort::httpserver
