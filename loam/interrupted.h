// loam/interrupted.h - the one place that repeats a system call which a signal has interrupted.
#pragma once

#include <cerrno>

namespace loam {

// Calls `call` until it returns something other than -1 with EINTR, and returns that.
template <typename function>
auto unless_interrupted(function call) {
    auto result = call();
    while (result == -1 && errno == EINTR) result = call();
    return result;
}

}  // namespace loam
