// failing_memory_win.cpp - Windows half of failing_memory.h. Each library has an operator new of
// its own there, but all of them call malloc, which a library reaches through its table of imported
// functions: the entries of every library that is not Windows' own are turned to ours.
#include "tests/support/failing_memory.h"

#include <windows.h>
// After windows.h.
#include <psapi.h>

#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <string_view>

namespace {

std::atomic<std::int64_t> s_in_use{0};

// Not thread_local: the compiler's own kind calls malloc.
DWORD left_index() {
    static const DWORD s_index = TlsAlloc();
    if (s_index == TLS_OUT_OF_INDEXES) std::abort();
    return s_index;
}

// Allocations up to and with the one that fails; 0 when none is to fail.
std::intptr_t left() { return reinterpret_cast<std::intptr_t>(TlsGetValue(left_index())); }
void set_left(std::intptr_t count) {
    if (TlsSetValue(left_index(), reinterpret_cast<void*>(count)) == 0) std::abort();
}

bool has_run_out() {
    const std::intptr_t count = left();
    if (count == 0) return false;
    set_left(count - 1);
    return count == 1;
}

using malloc_type = void*(__cdecl*)(std::size_t);
using calloc_type = void*(__cdecl*)(std::size_t, std::size_t);
using free_type = void(__cdecl*)(void*);
malloc_type s_malloc = nullptr;
calloc_type s_calloc = nullptr;
free_type s_free = nullptr;

void* __cdecl counted_malloc(std::size_t size) {
    // The caller may be about to read the error of its last system call.
    const DWORD error = GetLastError();
    const bool fails = has_run_out();
    SetLastError(error);
    void* const memory = fails ? nullptr : s_malloc(size);
    if (memory != nullptr) s_in_use += static_cast<std::int64_t>(_msize(memory));
    return memory;
}

// What the threads' library makes a lock of; it is counted, but does not run out.
void* __cdecl counted_calloc(std::size_t count, std::size_t size) {
    void* const memory = s_calloc(count, size);
    if (memory != nullptr) s_in_use += static_cast<std::int64_t>(_msize(memory));
    return memory;
}

void __cdecl counted_free(void* memory) {
    if (memory != nullptr) s_in_use -= static_cast<std::int64_t>(_msize(memory));
    s_free(memory);
}

void turn(void** entry, void* ours) {
    DWORD protection = 0;
    if (VirtualProtect(entry, sizeof *entry, PAGE_READWRITE, &protection) == 0) std::abort();
    *entry = ours;
    if (VirtualProtect(entry, sizeof *entry, protection, &protection) == 0) std::abort();
}

void turn_if_memory(std::string_view name, void** entry) {
    if (name == "malloc") {
        s_malloc = reinterpret_cast<malloc_type>(*entry);
        turn(entry, reinterpret_cast<void*>(&counted_malloc));
    } else if (name == "calloc") {
        s_calloc = reinterpret_cast<calloc_type>(*entry);
        turn(entry, reinterpret_cast<void*>(&counted_calloc));
    } else if (name == "free") {
        s_free = reinterpret_cast<free_type>(*entry);
        turn(entry, reinterpret_cast<void*>(&counted_free));
    }
}

void turn_library(char* base, const IMAGE_IMPORT_DESCRIPTOR& library) {
    auto* name = reinterpret_cast<const IMAGE_THUNK_DATA*>(base + library.OriginalFirstThunk);
    auto* entry = reinterpret_cast<IMAGE_THUNK_DATA*>(base + library.FirstThunk);
    for (; name->u1.AddressOfData != 0; ++name, ++entry) {
        if (IMAGE_SNAP_BY_ORDINAL(name->u1.Ordinal)) continue;
        auto* found = reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(base + name->u1.AddressOfData);
        turn_if_memory(found->Name, reinterpret_cast<void**>(&entry->u1.Function));
    }
}

void turn_module(HMODULE module) {
    auto* base = reinterpret_cast<char*>(module);
    const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    const auto* head = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
    const auto& imports = head->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    if (imports.Size == 0) return;
    auto* library = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + imports.VirtualAddress);
    for (; library->Name != 0; ++library) turn_library(base, *library);
}

bool is_of_windows(HMODULE module) {
    wchar_t folder[MAX_PATH];
    wchar_t path[MAX_PATH];
    const UINT length = GetSystemDirectoryW(folder, MAX_PATH);
    if (length == 0 || length >= MAX_PATH) std::abort();
    if (GetModuleFileNameW(module, path, MAX_PATH) == 0) std::abort();
    return _wcsnicmp(folder, path, length) == 0;
}

bool is_spared(HMODULE module) {
    return module == GetModuleHandleW(L"libcef.dll") || module == GetModuleHandleW(L"DNSSD.DLL");
}

bool turn_all() {
    HMODULE modules[256];
    DWORD bytes = 0;
    if (K32EnumProcessModules(GetCurrentProcess(), modules, sizeof modules, &bytes) == 0) {
        std::abort();
    }
    const std::size_t count = std::min(bytes / sizeof(HMODULE), std::size(modules));
    for (std::size_t i = 0; i < count; ++i) {
        if (!is_of_windows(modules[i]) && !is_spared(modules[i])) turn_module(modules[i]);
    }
    return true;
}

// Before main, while there is one thread.
const bool s_is_turned = turn_all();

}  // namespace

void fail_memory_after(int count) { set_left(std::intptr_t{count} + 1); }

bool stop_failing_memory() {
    const bool has_failed = left() == 0;
    set_left(0);
    return has_failed;
}

std::size_t memory_in_use() {
    return static_cast<std::size_t>(std::max<std::int64_t>(s_in_use.load(), 0));
}
