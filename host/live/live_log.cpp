// host/live/live_log.cpp - see the header for the contract.
#include "host/live/live_log.h"

#include <utility>

#include "host/live/json_line.h"

namespace pennywort::host {

void live_log::add(const std::string& kind, std::string text) {
    if (text.size() > m_longest) text.resize(m_longest);
    const std::lock_guard hold(m_lock);
    m_lines.push_back({++m_last, kind, std::move(text)});
    if (m_lines.size() > m_limit) m_lines.pop_front();
}

std::string live_log::json_after(std::uint64_t after) const {
    const std::lock_guard hold(m_lock);
    // Such a reader has seen the lines of another run, and none of these.
    if (after > m_last) after = 0;
    std::string lines;
    for (const auto& entry : m_lines) {
        if (entry.number <= after) continue;
        json_line json;
        json.add("number", entry.number).add("kind", entry.kind).add("text", entry.text);
        lines += (lines.empty() ? "" : ",") + json.text();
    }
    return "{\"last\":" + std::to_string(m_last) + ",\"lines\":[" + lines + "]}";
}

}  // namespace pennywort::host
