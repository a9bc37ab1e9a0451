// allocation_count_linux.cpp - Linux half of allocation_count.h.
//
// The program's own malloc stands before the C library's for every library of the process, and
// operator new ends in it too.
#include "bench/allocation_count.h"

#include <cstddef>

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
}

namespace {

thread_local std::uint64_t t_allocations = 0;

}  // namespace

extern "C" {

void* malloc(std::size_t size) {
    ++t_allocations;
    return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) {
    ++t_allocations;
    return __libc_calloc(count, size);
}

void* realloc(void* block, std::size_t size) {
    ++t_allocations;
    return __libc_realloc(block, size);
}

}  // extern "C"

namespace pennywort::bench {

std::uint64_t allocations() { return t_allocations; }

}  // namespace pennywort::bench
