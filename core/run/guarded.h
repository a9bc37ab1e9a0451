// guarded.h - keeps what other people's code throws, and what runs out of memory, from going
// further.
#pragma once

#include <exception>
#include <utility>

#include "loam/trace.h"

namespace pennywort::run {

// Traces the exception that is being handled: "cHttpServer: a handler threw: bad_alloc". To be
// called from a catch block only.
inline void trace_thrown(const char* class_name, const char* what) noexcept {
    try {
        throw;
    } catch (const std::exception& error) {
        zTraceManager::Default()->TraceNote("%s: %s threw: %s\n", class_name, what, error.what());
    } catch (...) {
        zTraceManager::Default()->TraceNote("%s: %s threw\n", class_name, what);
    }
}

// Runs code of the host, or code whose memory a peer may have used up. What it throws is traced,
// with the class and what was being done, and ends here: it must not end a thread of ours nor pass
// through the frames of a C library. Returns `otherwise` when it has thrown.
template <typename result, typename work>
result guarded_or(result otherwise, const char* class_name, const char* what,
                  work&& call) noexcept {
    try {
        return std::forward<work>(call)();
    } catch (...) {
        trace_thrown(class_name, what);
    }
    return otherwise;
}

// The same for code without a result: false when it has thrown.
template <typename work>
bool guarded(const char* class_name, const char* what, work&& call) noexcept {
    return guarded_or(false, class_name, what, [&] {
        std::forward<work>(call)();
        return true;
    });
}

}  // namespace pennywort::run
