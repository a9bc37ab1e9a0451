// loam/time.h - zTime, the clock that expiries and intervals are measured with.
#pragma once

#include <cstdint>

#include "loam/export.h"

class LOAM_API zTime {
public:
    // Microseconds since some moment before the process began, from any thread. The clock never
    // jumps when somebody sets the time of day, so that a correction on air expires nothing.
    static std::int64_t MicroNow();
};
