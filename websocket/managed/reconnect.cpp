// websocket/managed/reconnect.cpp - see the header for the contract.
#include "websocket/managed/reconnect.h"

#include <algorithm>
#include <cmath>
#include <thread>
#include <utility>

#include "core/limits.h"
#include "core/run/guarded.h"

namespace pennywort::websocket {

namespace {

// Twice as long each time; more doublings than this pass any longest wait.
constexpr int k_most_doublings = 30;

double within(double seconds) {
    return std::isfinite(seconds) ? std::clamp(seconds, 0.0, k_max_timeout_seconds) : 0.0;
}

}  // namespace

back_off::back_off(std::int32_t most, double first_wait, double longest_wait)
    : m_most(most), m_first(within(first_wait)), m_longest(within(longest_wait)) {}

std::optional<std::chrono::milliseconds> back_off::next() {
    if (m_most >= 0 && m_attempts >= m_most) return std::nullopt;
    const double wait = std::ldexp(m_first, std::min<int>(m_attempts, k_most_doublings));
    if (m_attempts < INT32_MAX) ++m_attempts;
    return std::chrono::milliseconds(std::llround(std::min(wait, m_longest) * 1000));
}

void delayed_work::start(std::chrono::milliseconds wait, std::function<void()> work) {
    cancel();
    const auto mine = std::make_shared<ticket>();
    std::thread([mine, wait, work = std::move(work)] {
        if (!mine->is_cancelled_within(wait)) {
            run::guarded("cWebSocket_Sharp", "opening again", work);
        }
    }).detach();
    const std::lock_guard lock(m_mutex);
    m_ticket = mine;
}

void delayed_work::cancel() noexcept {
    std::shared_ptr<ticket> old;
    {
        const std::lock_guard lock(m_mutex);
        old.swap(m_ticket);
    }
    if (old == nullptr) return;
    const std::lock_guard lock(old->mutex);
    old->is_cancelled = true;
    old->changed.notify_all();
}

}  // namespace pennywort::websocket
