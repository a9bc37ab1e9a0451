// loam/countdown.h - a time-out that several waits share.
#pragma once

#include <cstdint>

#include "loam/time.h"

namespace loam {

// How much of a time-out in milliseconds is left; a negative one never ends. Tests hand it a clock
// of their own, in microseconds.
class countdown {
public:
    using clock = std::int64_t (*)();

    explicit countdown(std::int32_t timeout, clock now = &zTime::MicroNow)
        : m_now(now),
          m_is_endless(timeout < 0),
          m_is_over(timeout == 0),
          m_end(timeout <= 0 ? 0 : now() + std::int64_t{timeout} * 1000) {}

    // In milliseconds, rounded up, so that a wait does not end before its time; -1 is for ever.
    int left() const {
        if (m_is_endless) return -1;
        if (m_is_over) return 0;
        const std::int64_t micro = m_end - m_now();
        return micro <= 0 ? 0 : static_cast<int>((micro + 999) / 1000);
    }

private:
    clock m_now;
    bool m_is_endless;
    bool m_is_over;  // from the beginning: a look needs no clock
    std::int64_t m_end;
};

}  // namespace loam
