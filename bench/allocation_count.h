// allocation_count.h - counts this process's allocations, whoever makes them.
// Twin: allocation_count_linux.cpp.
#pragma once

#include <cstdint>

namespace pennywort::bench {

// Blocks asked for so far by the calling thread.
std::uint64_t allocations();

}  // namespace pennywort::bench
