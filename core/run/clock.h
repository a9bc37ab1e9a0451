// clock.h - the one source of time, so that a test can have one of its own
// (tests/support/fake_clock.h).
#pragma once

#include <chrono>

namespace pennywort::run {

// A clock that never goes back and has nothing to do with the time of day. It outlives whoever was
// given it.
class monotonic_clock {
public:
    using time = std::chrono::steady_clock::time_point;

    monotonic_clock(const monotonic_clock&) = delete;
    monotonic_clock& operator=(const monotonic_clock&) = delete;
    virtual ~monotonic_clock() = default;

    // May be called from any thread at once, under locks too. Throws nothing.
    virtual time now() const noexcept = 0;

    // The machine's own; it lives as long as the process.
    static const monotonic_clock& system() noexcept;

protected:
    monotonic_clock() = default;
};

}  // namespace pennywort::run
