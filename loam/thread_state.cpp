// loam/thread_state.cpp - what is the same on every system.
#include "loam/thread_state.h"

#include <exception>

#include "loam/trace.h"

namespace loam {

void thread_state::trace_exception() const {
    try {
        throw;
    } catch (const std::exception& error) {
        zTraceManager::Default()->TraceNote("zThread: '%s' ended by an exception: %s\n",
                                            m_name.c_str(), error.what());
    } catch (...) {
        zTraceManager::Default()->TraceNote("zThread: '%s' ended by an exception\n",
                                            m_name.c_str());
    }
}

}  // namespace loam
