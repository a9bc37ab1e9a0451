// loam/trace.h - zTraceManager, where every diagnostic message goes.
#pragma once

#include <functional>
#include <memory>

#include "loam/export.h"

namespace loam {
class trace_state;
}

// Off by default. The environment variable LOAM_TRACE, read once, switches the default sink on:
// "stderr", or the path of a file that messages are appended to, each ending its line. A file that
// cannot be opened is replaced by standard error. A host can set its own sink instead.
// Threads: every operation may be called from any thread at any time.
class LOAM_API zTraceManager {
public:
    // Lives as long as the process.
    static zTraceManager* Default();

    zTraceManager(const zTraceManager&) = delete;
    zTraceManager& operator=(const zTraceManager&) = delete;

    // Writes one message, of any length; costs next to nothing while traces are off. Never throws
    // and never fails.
    void TraceNote(const char* format, ...) LOAM_PRINTF(2, 3);

    // Hands all messages to `sink` from now on; an empty one goes back to the default. The message
    // is valid during the call. The sink is called on the thread that traces, several threads at
    // once, under no lock. What it traces itself goes to the default sink; what it throws is
    // dropped. When this returns, the sink before is no longer being called, and has been
    // destroyed; only from inside a sink it returns without waiting for calls that are under way.
    // So do not hold a lock here that the sink takes. Without memory it throws and changes nothing.
    void SetSink(std::function<void(const char* message)> sink);

private:
    explicit zTraceManager(std::unique_ptr<loam::trace_state> state);
    ~zTraceManager();

    std::unique_ptr<loam::trace_state> m_state;
};
