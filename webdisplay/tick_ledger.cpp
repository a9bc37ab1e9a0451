// tick_ledger.cpp - see the header for the contract.
#include "webdisplay/tick_ledger.h"

#include <algorithm>

namespace pennywort::webdisplay {

namespace {

// A tick may still be on its way to the page, and a report on its way back.
constexpr std::int64_t k_in_flight = 2;

}  // namespace

// A page reports more frames each time; one that does not is another page.
void tick_ledger::page_had(std::uint64_t frames) {
    if (m_interrupted.exchange(false) || frames <= m_frames_last) begin_count(frames);
    m_frames_last = frames;
    const std::uint64_t answered = std::max(frames - m_frames_then, pictures() - m_painted_then);
    const auto open = static_cast<std::int64_t>(ticks() - m_ticks_then - answered);
    // Never taken back: a tick that was missed once is not answered later by another one's frame.
    const auto missed = static_cast<std::uint64_t>(std::max<std::int64_t>(open - k_in_flight, 0));
    m_missed = std::max(m_missed.load(), m_missed_then + missed);
}

void tick_ledger::begin_count(std::uint64_t frames) {
    m_ticks_then = ticks();
    m_painted_then = pictures();
    m_frames_then = frames;
    m_missed_then = m_missed;
}

}  // namespace pennywort::webdisplay
