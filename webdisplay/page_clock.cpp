// page_clock.cpp - the part of page_clock.h that is the same on both systems.
#include "webdisplay/page_clock.h"

#include "webdisplay/page_moment.h"

namespace pennywort::webdisplay {

moment_state& moment_of_thread() noexcept {
    thread_local moment_state t_moment;
    return t_moment;
}

page_moment::page_moment(std::int64_t nanoseconds) noexcept {
    moment_of_thread() = {true, false, nanoseconds};
}

page_moment::~page_moment() { moment_of_thread().is_set = false; }

bool page_moment::was_read() const noexcept { return moment_of_thread().was_read; }

}  // namespace pennywort::webdisplay
