// fake_clock.h - a clock that stands still until a test moves it.
#pragma once

#include <atomic>
#include <chrono>

#include "core/run/clock.h"

namespace pennywort::tests {

// May be read and moved from any thread at once. It starts far from 0, so that a time that somebody
// forgot to set does not look like now.
class fake_clock final : public run::monotonic_clock {
public:
    time now() const noexcept override { return time(std::chrono::nanoseconds(m_now.load())); }
    void advance(std::chrono::nanoseconds by) { m_now += by.count(); }

private:
    std::atomic<std::chrono::nanoseconds::rep> m_now{1'000'000'000'000};
};

}  // namespace pennywort::tests
