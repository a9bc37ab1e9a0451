// loam/time.h - zTime, the clock that expiries and intervals are measured with.
#pragma once

#include <cstdint>

#include "loam/export.h"

class LOAM_API zTime {
public:
    // The current time in microseconds since 1970, from any thread: the time of day at the first
    // call, and from then on a clock that never jumps. So nothing expires when somebody corrects
    // the time of day on air.
    static std::int64_t MicroNow();
};
