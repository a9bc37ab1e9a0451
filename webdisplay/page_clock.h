// page_clock.h - what the runtime reads from the system's clock while it takes a frame of a page
// that lives by a time of its own. Twins: page_clock_win.cpp, page_clock_linux.cpp.
//
// The runtime stamps a frame with the monotonic clock, read on the thread that asks for the frame,
// and offers no way to say otherwise. So the entry for that clock in the table of functions that
// its library imports is led through here. Nothing else in the process sees a change: no other
// library's table is touched, and without a page_moment the system's own function is called.
#pragma once

#include <cstdint>

#include "core/outcome.h"

namespace pennywort::webdisplay {

// Leads the clock of the library that holds `address`, a function of it, through here. For the
// life of the process; once is enough. A failure says what was not found.
outcome<> lead_clock_of(const void* address);

// While it lives, the monotonic clock of the runtime stands at `nanoseconds` for this thread.
class page_moment {
public:
    explicit page_moment(std::int64_t nanoseconds) noexcept;
    page_moment(const page_moment&) = delete;
    page_moment& operator=(const page_moment&) = delete;
    ~page_moment();

    // Whether the runtime has read it. It does so only when it takes the frame: one that comes
    // while the frame before is under way is dropped first.
    bool was_read() const noexcept;
};

}  // namespace pennywort::webdisplay
