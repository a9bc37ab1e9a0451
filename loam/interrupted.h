// loam/interrupted.h - the one place that repeats a system call which a signal has interrupted.
#pragma once

#include <cerrno>

namespace loam {

// Calls `call` until it answers something other than -1 with EINTR, and answers that.
template <typename function>
auto unless_interrupted(function call) {
    auto answer = call();
    while (answer == -1 && errno == EINTR) answer = call();
    return answer;
}

}  // namespace loam
