// page_moment.h - where the monotonic clock stands for a thread, as both halves of page_clock.h
// read it.
#pragma once

#include <cstdint>

namespace pennywort::webdisplay {

// No destructor: the runtime's threads outlive this library's statics.
struct moment_state {
    bool is_set = false;
    bool was_read = false;
    std::int64_t nanoseconds = 0;
};

inline constexpr std::int64_t k_nanoseconds_a_second = 1'000'000'000;

// Of the calling thread.
moment_state& moment_of_thread() noexcept;

}  // namespace pennywort::webdisplay
