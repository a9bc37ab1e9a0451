// loam/atomic.h - zAtomic, a 32-bit integer that threads share without a lock.
#pragma once

#include <atomic>
#include <cstdint>

#include "loam/export.h"

// Every operation may be called from any thread and is ordered with all others.
class LOAM_API zAtomic {
public:
    explicit zAtomic(std::int32_t value = 0);
    zAtomic(const zAtomic&) = delete;
    zAtomic& operator=(const zAtomic&) = delete;

    // Stores `desired` if the value is `expected`. Returns the value found, so that equality with
    // `expected` means success.
    std::int32_t CompareAndSet(std::int32_t expected, std::int32_t desired);
    std::int32_t Get() const;
    void Set(std::int32_t value);
    // Return the new value; past the ends the value wraps.
    std::int32_t Increment();
    std::int32_t Decrement();

private:
    std::atomic<std::int32_t> m_value;
};
