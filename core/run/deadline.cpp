// core/run/deadline.cpp - see the header for the contract.
#include "core/run/deadline.h"

#include <algorithm>
#include <limits>

namespace pennywort::run {
namespace {

using std::chrono::nanoseconds;
using time = monotonic_clock::time;

time time_after(time now, nanoseconds from_now) {
    if (from_now.count() <= 0) return now;
    return time::max() - now > from_now ? now + from_now : time::max();
}

}  // namespace

deadline::deadline(nanoseconds from_now, const monotonic_clock& clock)
    : m_clock(&clock), m_end(time_after(clock.now(), from_now)) {}

deadline deadline::never(const monotonic_clock& clock) {
    return deadline(nanoseconds::max(), clock);
}

nanoseconds deadline::left() const {
    if (m_end == time::max()) return nanoseconds::max();
    return std::max(nanoseconds(m_end - m_clock->now()), nanoseconds(0));
}

std::int32_t deadline::left_ms() const {
    const std::int64_t ms = left_us() / 1000 + (left_us() % 1000 != 0 ? 1 : 0);
    return static_cast<std::int32_t>(
        std::min<std::int64_t>(ms, std::numeric_limits<std::int32_t>::max()));
}

std::int64_t deadline::left_us() const {
    const std::int64_t ns = left().count();
    return ns / 1000 + (ns % 1000 != 0 ? 1 : 0);
}

}  // namespace pennywort::run
