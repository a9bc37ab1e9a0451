// failing_memory_linux.cpp - Linux half of failing_memory.h: replaces the program's operator new
// and delete, which its shared libraries use too.
#include "tests/support/failing_memory.h"

#include <execinfo.h>
#include <link.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <string_view>
#include <utility>

namespace {

constexpr std::string_view k_spared_library = "/libcef.so";

// Before each block, so that its size is known when it comes back.
constexpr std::size_t k_front = alignof(std::max_align_t);
static_assert(k_front >= sizeof(std::size_t));

std::atomic<std::size_t> s_in_use{0};
// Allocations up to and with the one that fails; 0 when none is to fail.
thread_local int t_left = 0;

// Where a library, or the program, stands in memory.
struct module_range {
    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;
    bool holds(const void* address) const {
        const auto at = reinterpret_cast<std::uintptr_t>(address);
        return at >= begin && at < end;
    }
};
struct known_modules {
    module_range program;  // the first that the system names
    module_range spared;   // empty if it is not linked
};

int note_module(dl_phdr_info* info, std::size_t, void* out) {
    auto& modules = *static_cast<known_modules*>(out);
    const std::string_view path(info->dlpi_name);
    module_range range;
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        const auto& part = info->dlpi_phdr[i];
        if (part.p_type != PT_LOAD) continue;
        if (range.end == 0) range.begin = info->dlpi_addr + part.p_vaddr;
        range.end = info->dlpi_addr + part.p_vaddr + part.p_memsz;
    }
    if (modules.program.end == 0) modules.program = range;
    if (path.ends_with(k_spared_library)) modules.spared = range;
    return 0;
}

const known_modules& modules() {
    static const known_modules s_modules = [] {
        known_modules found;
        dl_iterate_phdr(note_module, &found);
        return found;
    }();
    return s_modules;
}

// Whether the spared library asked for the memory, by itself or by way of the C++ library. `caller`
// is where operator new was called.
bool is_of_spared(const void* caller) {
    const known_modules& known = modules();
    if (known.spared.holds(caller)) return true;
    if (known.spared.end == 0 || known.program.holds(caller)) return false;
    std::array<void*, 24> frames{};
    const int count = backtrace(frames.data(), static_cast<int>(frames.size()));
    bool is_behind_caller = false;
    for (int i = 0; i < count; ++i) {
        is_behind_caller = is_behind_caller || frames[i] == caller;
        if (!is_behind_caller) continue;
        if (known.spared.holds(frames[i])) return true;
        if (known.program.holds(frames[i])) return false;
    }
    return false;
}

bool has_run_out(const void* caller) {
    return t_left > 0 && !is_of_spared(caller) && --t_left == 0;
}

void* allocated(std::size_t size, const void* caller) noexcept {
    void* const memory = has_run_out(caller) ? nullptr : std::malloc(k_front + size);
    if (memory == nullptr) return nullptr;
    *static_cast<std::size_t*>(memory) = size;
    s_in_use += size;
    return static_cast<char*>(memory) + k_front;
}

void* allocated_or_throw(std::size_t size, const void* caller) {
    void* const memory = allocated(size, caller);
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
void* operator new(std::size_t size) {
    return allocated_or_throw(size, __builtin_return_address(0));
}
void* operator new[](std::size_t size) {
    return allocated_or_throw(size, __builtin_return_address(0));
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return allocated(size, __builtin_return_address(0));
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return allocated(size, __builtin_return_address(0));
}
void operator delete(void* memory) noexcept { give_back(memory); }
void operator delete[](void* memory) noexcept { give_back(memory); }
void operator delete(void* memory, std::size_t) noexcept { give_back(memory); }
void operator delete[](void* memory, std::size_t) noexcept { give_back(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { give_back(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { give_back(memory); }
