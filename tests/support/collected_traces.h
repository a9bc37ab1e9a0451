// collected_traces.h - what was traced while it lived. Afterwards traces go to the default sink.
#pragma once

#include <mutex>
#include <string>

#include "loam/trace.h"

namespace pennywort::tests {

// Traces may come from any thread.
class collected_traces {
public:
    collected_traces() {
        zTraceManager::Default()->SetSink([this](const char* message) {
            const std::lock_guard lock(m_mutex);
            m_text += message;
        });
    }
    ~collected_traces() { zTraceManager::Default()->SetSink({}); }
    collected_traces(const collected_traces&) = delete;
    collected_traces& operator=(const collected_traces&) = delete;

    // All of them, one behind the other, each with its line end.
    std::string text() const {
        const std::lock_guard lock(m_mutex);
        return m_text;
    }

private:
    mutable std::mutex m_mutex;
    std::string m_text;
};

}  // namespace pennywort::tests
