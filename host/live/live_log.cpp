// host/live/live_log.cpp - see the header for the contract.
#include "host/live/live_log.h"

#include <utility>

namespace pennywort::host {

void live_log::add(const std::string& kind, std::string text) {
    if (text.size() > m_longest) text.resize(m_longest);
    const std::lock_guard hold(m_lock);
    m_lines.push_back({++m_last, kind, std::move(text)});
    if (m_lines.size() > m_limit) m_lines.pop_front();
}

json live_log::lines_after(std::uint64_t after) const {
    const std::lock_guard hold(m_lock);
    // The reader's number is from another run of the program, so it has seen none of these lines.
    if (after > m_last) after = 0;
    json lines = json::array();
    for (const auto& entry : m_lines) {
        if (entry.number <= after) continue;
        lines.push_back({{"number", entry.number}, {"kind", entry.kind}, {"text", entry.text}});
    }
    return {{"last", m_last}, {"lines", std::move(lines)}};
}

}  // namespace pennywort::host
