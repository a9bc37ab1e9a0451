// host/ws/sending_pace.h - how far ahead of a slow server the input is read, and when a server
// takes nothing at all.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>

#include "core/limits.h"
#include "core/run/clock.h"

namespace pennywort::host {

struct sending_pace {
    // Bytes that may wait before a line: of these lines alone, and with the line, where a socket
    // takes no more.
    std::size_t read_ahead = k_max_waiting_input_bytes;
    std::size_t most_waiting = k_max_websocket_waiting_bytes;
    // How long a server may take nothing: while there is more input, and at its end.
    std::chrono::milliseconds pause = k_max_input_pause;
    std::chrono::milliseconds last_pause = k_max_websocket_goodbye;

    // A line longer than all that may wait goes out alone.
    std::size_t may_wait_before(std::size_t line_bytes) const {
        return std::min(read_ahead, most_waiting - std::min(most_waiting, line_bytes));
    }
};

// Looks at what waits to be sent, again and again.
class taking_watch {
public:
    using time_point = run::monotonic_clock::time;

    explicit taking_watch(std::chrono::milliseconds most) : m_most(most) {}

    // True when it has not become less for that long.
    bool has_stopped(std::size_t waiting, time_point now) {
        if (waiting < m_least) {
            m_least = waiting;
            m_since = now;
        }
        return now - m_since >= m_most;
    }

private:
    const std::chrono::milliseconds m_most;
    std::size_t m_least = SIZE_MAX;
    time_point m_since{};
};

}  // namespace pennywort::host
