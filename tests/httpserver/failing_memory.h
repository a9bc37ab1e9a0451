// failing_memory.h - the C++ memory of a test program: it can run out once, and it is counted.
#pragma once

#include <cstddef>

// From now on the calling thread gets memory this many times, then once none, then again; -1: no
// failure.
void fail_memory_after(int count);
// Bytes that `new` has given to all threads and that are not back.
std::size_t memory_in_use();
