// deadline.h - the moment at which a wait ends, and what is left until then.
#pragma once

#include <chrono>
#include <cstdint>

#include "core/run/clock.h"

namespace pennywort::run {

// Copyable; keeps a pointer to its clock, which must outlive it.
class deadline {
public:
    // `from_now` of 0 or less has passed already. One too long to be counted never passes.
    explicit deadline(std::chrono::nanoseconds from_now,
                      const monotonic_clock& clock = monotonic_clock::system());
    static deadline never(const monotonic_clock& clock = monotonic_clock::system());

    bool has_passed() const { return left().count() == 0; }
    // 0 once it has passed, the longest time there is where it never passes.
    std::chrono::nanoseconds left() const;
    // Rounded up, so that a wait for it is not followed by waits of 0 that only spin, and cut to
    // what a system call takes.
    std::int32_t left_ms() const;
    std::int64_t left_us() const;

private:
    const monotonic_clock* m_clock;
    monotonic_clock::time m_end;
};

}  // namespace pennywort::run
