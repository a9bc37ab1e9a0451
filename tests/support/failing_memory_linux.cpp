// failing_memory_linux.cpp - Linux half of failing_memory.h: replaces the program's operator new
// and delete, which its shared libraries use too.
#include "tests/support/failing_memory.h"

#include <atomic>
#include <cstdlib>
#include <new>
#include <utility>

namespace {

// Before each block, so that its size is known when it comes back.
constexpr std::size_t k_front = alignof(std::max_align_t);
static_assert(k_front >= sizeof(std::size_t));

std::atomic<std::size_t> s_in_use{0};
// Allocations up to and with the one that fails; 0 when none is to fail.
thread_local int t_left = 0;

bool has_run_out() { return t_left > 0 && --t_left == 0; }

void* allocated(std::size_t size) noexcept {
    void* const memory = has_run_out() ? nullptr : std::malloc(k_front + size);
    if (memory == nullptr) return nullptr;
    *static_cast<std::size_t*>(memory) = size;
    s_in_use += size;
    return static_cast<char*>(memory) + k_front;
}

void* allocated_or_throw(std::size_t size) {
    void* const memory = allocated(size);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

void give_back(void* memory) {
    if (memory == nullptr) return;
    auto* block = reinterpret_cast<std::size_t*>(static_cast<char*>(memory) - k_front);
    s_in_use -= *block;
    std::free(block);
}

}  // namespace

void fail_memory_after(int count) { t_left = count + 1; }

bool stop_failing_memory() { return std::exchange(t_left, 0) == 0; }

std::size_t memory_in_use() { return s_in_use; }

// All forms but those for great alignments: a sanitizer's own would not fit beside these.
void* operator new(std::size_t size) { return allocated_or_throw(size); }
void* operator new[](std::size_t size) { return allocated_or_throw(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return allocated(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return allocated(size); }
void operator delete(void* memory) noexcept { give_back(memory); }
void operator delete[](void* memory) noexcept { give_back(memory); }
void operator delete(void* memory, std::size_t) noexcept { give_back(memory); }
void operator delete[](void* memory, std::size_t) noexcept { give_back(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { give_back(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { give_back(memory); }
