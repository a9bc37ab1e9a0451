// host/render/ticker.cpp - see the header for the contract.
#include "host/render/ticker.h"

#include <utility>

namespace pennywort::host {

std::uint64_t tick_schedule::take_due(time_point now) {
    std::uint64_t due = 0;
    for (; next() <= now; ++m_passed) ++due;
    return due;
}

ticker::ticker(const frame_rate& rate, tick_function function, const run::monotonic_clock& clock)
    : m_clock(clock),
      m_schedule(rate, clock.now()),
      m_function(std::move(function)),
      m_thread([this] { run(); }) {}

ticker::~ticker() {
    {
        const std::lock_guard hold(m_lock);
        m_is_stopping = true;
    }
    m_wake.notify_one();
    m_thread.join();
}

void ticker::run() {
    std::unique_lock hold(m_lock);
    while (!m_is_stopping) {
        hold.unlock();
        const auto now = m_clock.now();
        if (const auto due = m_schedule.take_due(now); due > 0) m_function(now, due);
        hold.lock();
        m_wake.wait_for(hold, m_schedule.next() - m_clock.now(), [this] { return m_is_stopping; });
    }
}

}  // namespace pennywort::host
