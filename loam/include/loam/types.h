// loam/types.h - the status that every operation that can fail returns.
#pragma once

#include <cstdint>

// 0 is success, a negative value the reason of a failure. -1 is the generic failure.
using zStatus = std::int32_t;
