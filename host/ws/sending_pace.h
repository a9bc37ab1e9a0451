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
    // How long a server may take nothing.
    std::chrono::milliseconds pause = k_max_input_pause;

    // A line longer than all that may wait goes out alone.
    std::size_t may_wait_before(std::size_t line_bytes) const {
        return std::min(read_ahead, most_waiting - std::min(most_waiting, line_bytes));
    }
    // How long a line may take where nobody sees how much of it is out: one that is longer than may
    // wait has that time for each such piece.
    std::chrono::milliseconds longest_send(std::size_t line_bytes) const {
        const std::size_t pieces = 1 + line_bytes / std::max<std::size_t>(read_ahead, 1);
        return pause * static_cast<std::int64_t>(pieces);
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
