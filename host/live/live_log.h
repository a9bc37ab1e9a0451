// host/live/live_log.h - the newest lines of something that goes on, each with a number, so that a
// reader asks only for what it has not seen.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>

#include "host/app/json.h"

namespace pennywort::host {

// Any thread.
class live_log {
public:
    // Keeps at most `limit` lines; the oldest go first. A longer text than `longest` bytes is cut.
    live_log(std::size_t limit, std::size_t longest) : m_limit(limit), m_longest(longest) {}

    // `kind` and `text` are any bytes.
    void add(const std::string& kind, std::string text);
    // {"last":N,"lines":[{"number":..,"kind":..,"text":..},...]}: the lines with a number above
    // `after`, the oldest first; all of them if `after` is above every number that there was.
    json lines_after(std::uint64_t after) const;

private:
    struct line {
        std::uint64_t number;
        std::string kind;
        std::string text;
    };

    const std::size_t m_limit;
    const std::size_t m_longest;
    mutable std::mutex m_lock;
    std::deque<line> m_lines;
    std::uint64_t m_last = 0;
};

}  // namespace pennywort::host
