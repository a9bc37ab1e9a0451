// failing_memory.h - the C++ memory of a test program and of the libraries that it is linked to: it
// can run out once, and it is counted. Twins: failing_memory_linux.cpp, failing_memory_win.cpp.
#pragma once

#include <cstddef>

// The fake browser runtime and the fake DNS-SD library (tests/fakes) are spared: they stand for
// libraries that have their memory from elsewhere.

// From now on the calling thread gets memory this many times, then once none, then again; -1: no
// failure.
void fail_memory_after(int count);
// Ends that. Returns whether the failure has come.
bool stop_failing_memory();
// Bytes that were given to all threads and are not back.
std::size_t memory_in_use();

// Runs `work` once with all its memory, which makes what a thread needs only once, and then with
// the Nth allocation of this thread failing, for each N until none fails. `check` follows each run,
// with memory again: let `work` hold no assertions, since these may need some. Returns the number
// of runs that had a failure, which a test compares with 0: a path without any proves nothing.
template <typename work_type, typename check_type>
int with_each_allocation_failing(work_type work, check_type check) {
    constexpr int k_most = 100'000;  // a path that never ends fails its test here
    work();
    check();
    for (int count = 0; count < k_most; ++count) {
        fail_memory_after(count);
        work();
        const bool has_failed = stop_failing_memory();
        check();
        if (!has_failed) return count;
    }
    return 0;
}
