// loam/time.cpp - see the header for the contract.
#include "loam/time.h"

#include <chrono>

std::int64_t zTime::MicroNow() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::microseconds>(now).count();
}
