// guarded.h - keeps exceptions from the server's thread.
#pragma once

#include <exception>

#include "loam/trace.h"

namespace pennywort {

// Runs what belongs to the host, or needs memory that a peer may have used up: whatever it throws
// must not end the thread. False when it has thrown.
template <typename function>
bool guarded(const char* what, function call) {
    try {
        call();
        return true;
    } catch (const std::exception& error) {
        zTraceManager::Default()->TraceNote("cHttpServer: %s threw: %s\n", what, error.what());
    } catch (...) {
        zTraceManager::Default()->TraceNote("cHttpServer: %s threw\n", what);
    }
    return false;
}

}  // namespace pennywort
