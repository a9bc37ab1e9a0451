// call_budget.cpp - see the header for the contract.
#include "childprocess/call_budget.h"

#include <utility>

#include "core/limits.h"

namespace pennywort::childprocess {

bool call_budget::take(std::size_t bytes, bool is_result) {
    if (!is_bound()) return true;
    const std::size_t shares = is_result ? 2 : 1;
    const bool has_place = m_waiting.size() < m_most * shares;
    // A call that is longer than the whole budget has to get through when nothing else waits.
    const bool has_room =
        m_waiting.empty() || m_waiting_bytes + bytes <= k_max_waiting_call_bytes * shares;
    if (!has_place || !has_room) {
        ++m_dropped;
        ++m_untold;
        return false;
    }
    m_waiting.push_back(bytes);
    m_waiting_bytes += bytes;
    return true;
}

// The host may report more calls than wait: those of the page that stood in this frame before.
void call_budget::handled(std::uint32_t calls) {
    for (; calls > 0 && !m_waiting.empty(); --calls) {
        m_waiting_bytes -= m_waiting.front();
        m_waiting.pop_front();
    }
}

bool call_budget::is_telling_due() const {
    return m_untold > 0 && (m_dropped == 1 || m_dropped % k_calls_dropped_untold == 0);
}

std::uint32_t call_budget::take_untold() { return std::exchange(m_untold, 0); }

}  // namespace pennywort::childprocess
